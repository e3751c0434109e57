// The result grid: the keys of a select list, or the rows of an SQL statement.
// Columns count from 0, rows from 1; row 0 describes the columns where a store gives descriptions.
// All cells lie in one buffer, so that a list of a million keys costs its bytes and 8 more a key.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace nvadmin::engine {

class ResultGrid {
 public:
  // Empties the grid: no column, no row.
  void Clear();
  // Empties the grid and gives it `columns` columns, at least 1; cells are then appended row by row.
  void Start(std::int32_t columns);
  // Requires Start. `text` may lie in the grid itself.
  void AppendCell(std::string_view text);
  // The description of a column (row 0); once one column has one, those without describe themselves as empty.
  // Requires a column that the grid has.
  void Describe(std::int32_t column, std::string_view text);

  // -1 when the grid has no column.
  std::int32_t HighestColumn() const { return columns_ - 1; }
  // Complete rows; an unfinished last one doesn't count.
  std::int32_t HighestRow() const;

  // Valid until the grid changes. Throws EngineFailure outside the grid, and for row 0 of a grid without
  // descriptions.
  std::string_view Cell(std::int32_t column, std::int32_t row) const;
  // The same without a failure: false outside the grid.
  bool FindCell(std::int32_t column, std::int32_t row, std::string_view& text) const;

 private:
  std::int32_t columns_ = 0;
  std::string text_;
  std::vector<std::uint64_t> ends_;  // where cell n of the row-by-row order ends in text_
  std::vector<std::string> descriptions_;
};

}  // namespace nvadmin::engine
