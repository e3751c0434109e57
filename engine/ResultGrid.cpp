#include "engine/ResultGrid.h"

#include <fmt/format.h>

#include <algorithm>
#include <cassert>
#include <limits>
#include <utility>

#include "session/EngineCallBack.h"

namespace nvadmin::engine {

// Gives the memory back too: a session that once held a large list shouldn't keep its size.
void ResultGrid::Clear() {
  ResultGrid empty;
  std::swap(*this, empty);
}

void ResultGrid::Start(std::int32_t columns) {
  assert(columns >= 1);
  Clear();
  columns_ = columns;
}

void ResultGrid::AppendCell(std::string_view text) {
  assert(columns_ >= 1);
  text_.append(text);
  ends_.push_back(text_.size());
}

void ResultGrid::Describe(std::int32_t column, std::string_view text) {
  assert(column >= 0 && column < columns_);
  descriptions_.resize(static_cast<std::size_t>(columns_));
  descriptions_[static_cast<std::size_t>(column)] = text;
}

std::int32_t ResultGrid::HighestRow() const {
  if (columns_ == 0) return 0;
  const std::size_t rows = ends_.size() / static_cast<std::size_t>(columns_);
  return static_cast<std::int32_t>(std::min<std::size_t>(rows, std::numeric_limits<std::int32_t>::max()));
}

bool ResultGrid::FindCell(std::int32_t column, std::int32_t row, std::string_view& text) const {
  if (column < 0 || column >= columns_ || row < 0 || row > HighestRow()) return false;
  const auto at = static_cast<std::size_t>(column);
  if (row == 0) {
    if (descriptions_.empty()) return false;
    text = descriptions_[at];
    return true;
  }
  const std::size_t cell = static_cast<std::size_t>(row - 1) * static_cast<std::size_t>(columns_) + at;
  const std::size_t start = cell == 0 ? 0 : ends_[cell - 1];
  text = std::string_view(text_).substr(start, ends_[cell] - start);
  return true;
}

std::string_view ResultGrid::Cell(std::int32_t column, std::int32_t row) const {
  std::string_view text;
  if (FindCell(column, row, text)) return text;
  throw EngineFailure(
      fmt::format("no cell at column {}, row {} of the result: it has {} column(s) and {} row(s)", column,
                  row, columns_, HighestRow()));
}

}  // namespace nvadmin::engine
