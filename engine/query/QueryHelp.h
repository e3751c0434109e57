// What HELP QUERY shows: the grammar of the query language, with sentences to try in the demo account.
#pragma once

#include <span>
#include <string_view>

namespace nvadmin::engine {

// Lines of up to 78 characters; those of examples begin with two blanks and ":".
std::span<const std::string_view> QueryHelp();

}  // namespace nvadmin::engine
