// The groups that the table of verbs is put together from; each stands in the file of its routines.
#pragma once

#include <span>

#include "engine/sentences/Verbs.h"

namespace nvadmin::engine {

std::span<const Verb> QueryVerbs();    // the select family and saved lists
std::span<const Verb> ItemVerbs();     // CT, PUT ...
std::span<const Verb> FileVerbs();     // LISTF, CREATE-FILE ...
std::span<const Verb> BulkVerbs();     // BULK-SAVE, LOAD-REPORT
std::span<const Verb> SessionVerbs();  // WHO, SYSTEM, LOGTO ...
std::span<const Verb> HelpVerbs();

}  // namespace nvadmin::engine
