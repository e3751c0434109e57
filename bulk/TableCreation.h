// The sentence that creates the table of a statistics record: where the record's counts and widths become
// columns with a margin, and where the SQL of the four datastores differs.
//
// A record is a dynamic array: 1 source file name, 2 kind or size class, 3 scale of the columns' sizes, 4
// three counts of columns, 5 the widths of the columns, 6 "Y" for each column that is sized generously, 7
// length of the longest item ID. Numbers are read as whole ones, a fraction rounded to the nearest, half away
// from zero; what is no number or absent is 0. Sizes are written as the rules give them, also 0 and below: a
// store takes those as no limit.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace nvadmin {

// The three counts of columns in a record, the first of which is the least. What is beyond 1,000,000,000 on
// either side counts as that, so that margins can be added.
struct ColumnCounts {
  std::int32_t first = 0;
  std::int32_t second = 0;
  std::int32_t third = 0;
};
ColumnCounts ReadColumnCounts(std::string_view record);

// Asks the engine for the datastore. `TypeN`: the table gets the item as one text; set here for a table that
// has more columns than the datastore can hold, and never cleared. `Columns` becomes the number of columns
// without the key.
std::string BuildCreateTable(std::string_view TargetName, std::string_view record, bool& TypeN,
                             std::int32_t& Columns);

}  // namespace nvadmin
