// The reply of a query: a dynamic array of at least two attributes, which is how the add-in tells a list to
// walk.
#pragma once

#include <cstdint>
#include <string>

#include "engine/query/Query.h"

namespace nvadmin::engine {

// The reply of the query's verb to `rows` keys.
//   Selecting and counting: 1 the number of keys, 2 what was done ("items selected", "items counted";
//   of one key "item").
//   Reports: 1 the number of the grid's columns, 2 of its rows, 3 the column words by value mark in the order
//   in which the report shows them, 4 empty, 5 the options parted by blanks (ID-SUPP, and what stood in
//   brackets), 6 the modifiers by value mark: the verb, then for each phrase its word and, as the next value,
//   its column ("TOTAL", W; "BREAK-ON", W, a subvalue mark and the break text) or its text ("HEADING",
//   "FOOTING"). W is spelt as in the sentence.
// `columns`: of the grid, column 0 not counted where it has cells.
std::string MakeReply(const Query& query, std::int32_t columns, std::int32_t rows);

}  // namespace nvadmin::engine
