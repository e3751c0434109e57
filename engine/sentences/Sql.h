// SQL sentences: which they are, and how they answer.
#pragma once

#include <string_view>

#include "engine/sentences/Verbs.h"

namespace nvadmin::engine {

class EngineSession;

// A sentence that begins with the words of an SQL statement. SELECT is a verb of the query language too: it
// is SQL when its last character is ";" or when " FROM ", in any letter case, stands in it.
bool IsSql(std::string_view sentence);

// A query fills the session's grid and answers its number of rows and a text, parted by an attribute mark; a
// query that fails empties the grid. Any other statement answers a text.
SentenceResult RunSqlSentence(EngineSession& session, std::string_view sentence);

}  // namespace nvadmin::engine
