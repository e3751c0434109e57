#include "engine/stores/Declaration.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <utility>

namespace nvadmin::engine {

namespace {

constexpr std::string_view kItemColumn = "item";

// The number of a column "a12", 0 for another name.
std::int32_t AttributeOfColumn(std::string_view folded) {
  if (folded.size() < 2 || folded[0] != 'a' || folded[1] == '0') return 0;
  std::int32_t number = 0;
  const auto [end, fault] = std::from_chars(folded.data() + 1, folded.data() + folded.size(), number);
  return fault == std::errc() && end == folded.data() + folded.size() ? number : 0;
}

}  // namespace

void Declaration::Take(std::string_view folded, std::int64_t limit, bool isInKey, bool isComputed) {
  const bool isKey = folded == "a0";
  const std::int32_t attribute = AttributeOfColumn(folded);
  keyColumns_ += isInKey ? 1 : 0;
  hasKey_ = hasKey_ || (isKey && isInKey);
  if (folded == kItemColumn) {
    itemLimit_ = limit;
  } else if (isKey || (attribute > 0 && attribute <= most_)) {
    const auto column = static_cast<std::size_t>(attribute);
    limits_.resize(std::max(limits_.size(), column + 1), -1);
    limits_[column] = limit;
  } else {
    return;
  }
  if (isComputed) computed_ = folded;
}

std::string Declaration::FindLack() const {
  const auto gap = std::find(limits_.begin(), limits_.end(), -1);
  if (!hasKey_ || keyColumns_ != 1) return "its primary key must be A0 alone";
  if (gap != limits_.end()) return fmt::format("it lacks column A{}", gap - limits_.begin());
  if (itemLimit_ >= 0 && limits_.size() > 1) return "it has both ITEM and A1";
  if (itemLimit_ < 0 && limits_.size() < 2) return "it has neither ITEM nor A1";
  return computed_.empty() ? "" : fmt::format("its column {} is computed", computed_);
}

void Declaration::Describe(TableDescription& table) {
  table.layout = itemLimit_ >= 0 ? Layout::kItem : Layout::kColumns;
  table.limits = std::move(limits_);
  if (table.layout == Layout::kItem) table.limits.push_back(itemLimit_);
}

std::string UnusableAsFile(std::string_view table, std::string_view lack) {
  return fmt::format(
      "table {} can't be used as a file: {}; a file has the columns A0 (primary key) and A1, A2 ..., or A0 "
      "and ITEM",
      table, lack);
}

}  // namespace nvadmin::engine
