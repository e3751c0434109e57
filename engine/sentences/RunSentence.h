// Runs one sentence: a verb of the table, or SQL for the account's store.
#pragma once

#include <string_view>

#include "engine/sentences/Verbs.h"

namespace nvadmin::engine {

class EngineSession;

SentenceResult RunSentence(EngineSession& session, std::string_view sentence);

}  // namespace nvadmin::engine
