#include "engine/stores/FitItem.h"

#include <fmt/format.h>

#include "engine/Marks.h"

namespace nvadmin::engine {

namespace {

constexpr std::size_t kLongestNamedId = 60;

// True when a text of that length fits column `column` (0 is the key).
bool FitsColumn(const TableDescription& table, std::size_t column, std::size_t length) {
  const std::int64_t limit = table.limits[column];
  return limit <= 0 || static_cast<std::int64_t>(length) <= limit;
}

std::string TooLong(const TableDescription& table, std::string_view id, std::size_t column,
                    std::size_t length) {
  const std::string name = column > 0 && table.layout == Layout::kItem ? "ITEM" : fmt::format("A{}", column);
  return fmt::format("{}: column {} holds {} characters, the {} has {}", NameItem(table.name, id), name,
                     table.limits[column], column == 0 ? "item ID" : "text", length);
}

void CutAttributes(std::string_view item, std::vector<std::string_view>& attributes) {
  const std::size_t end = item.find_last_not_of(kAttributeMark);
  if (end == std::string_view::npos) return;
  item = item.substr(0, end + 1);
  std::size_t start = 0;
  for (;;) {
    const std::size_t mark = item.find(kAttributeMark, start);
    attributes.push_back(item.substr(start, mark - start));
    if (mark == std::string_view::npos) return;
    start = mark + 1;
  }
}

}  // namespace

std::string NameItem(std::string_view table, std::string_view id) {
  const bool isLong = id.size() > kLongestNamedId;
  return fmt::format("table {}, item '{}{}'", table, id.substr(0, kLongestNamedId), isLong ? "..." : "");
}

bool FitItem(const TableDescription& table, std::string_view id, std::string_view item,
             std::vector<std::string_view>& columns, std::string& error) {
  columns.clear();
  if (id.empty()) {
    error = fmt::format("table {}: an item needs an item ID", table.name);
    return false;
  }
  if (!FitsColumn(table, 0, id.size())) {
    error = TooLong(table, id, 0, id.size());
    return false;
  }
  if (table.layout == Layout::kColumns) {
    CutAttributes(item, columns);
  } else {
    columns.push_back(item);
  }
  const std::size_t most = table.limits.size() - 1;
  if (columns.size() > most) {
    error = fmt::format("{}: the table has columns for {} attributes, the item has {}",
                        NameItem(table.name, id), most, columns.size());
    return false;
  }
  for (std::size_t column = 1; column <= columns.size(); ++column) {
    const std::size_t length = columns[column - 1].size();
    if (FitsColumn(table, column, length)) continue;
    error = TooLong(table, id, column, length);
    return false;
  }
  return true;
}

}  // namespace nvadmin::engine
