#include "engine/BulkSave.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstring>
#include <initializer_list>
#include <utility>

#include "engine/Marks.h"

namespace nvadmin::engine {

namespace {

constexpr std::int64_t kItemsAProgress = 100'000;
constexpr std::size_t kMostColumns = 1'200;  // wider tables get the item as one text on every datastore

// What a loader's statistics tell of a table.
class Statistics {
 public:
  void Count(std::string_view id, std::string_view item) {
    ++items_;
    longestId_ = std::max(longestId_, id.size());
    item = item.substr(0, item.find_last_not_of(kAttributeMark) + 1);
    if (item.empty()) return;
    const bool hasValues = item.find(kValueMark) != std::string_view::npos;
    std::size_t column = 0;
    for (std::size_t start = 0; start <= item.size(); ++column) {
      const std::size_t end = std::min(item.find(kAttributeMark, start), item.size());
      if (column < kMostColumns) Widen(column, item.substr(start, end - start), hasValues);
      start = end + 1;
    }
    columns_ = std::max(columns_, column);
  }

  // A column whose attributes have values is sized generously: it is the kind that grows. The number of items
  // stands for both the size class and the scale: of more items the widths are better known, and the margins
  // can be smaller.
  std::string Record(const TransferSection& section, bool keepsWholeItems) const {
    constexpr std::int64_t kSaysDictionary = 1;
    const std::size_t columns = keepsWholeItems ? 0 : columns_;
    const std::int64_t kind =
        section.isDictionary ? kSaysDictionary : (items_ == kSaysDictionary ? 0 : items_);
    std::string widths, flags;
    for (std::size_t column = 0; column < std::min(columns, widths_.size()); ++column) {
      if (column > 0) widths += kValueMark;
      if (column > 0) flags += kValueMark;
      widths += std::to_string(widths_[column].most);
      if (widths_[column].hasValues) flags += 'Y';
    }
    const std::string count = std::to_string(columns);
    const std::string counts = fmt::format("{}{}{}{}{}", count, kValueMark, count, kValueMark, count);
    return Joined({section.sourceName, std::to_string(kind), std::to_string(items_), counts, widths, flags,
                   std::to_string(longestId_)});
  }

 private:
  struct Width {
    std::size_t most = 0;
    bool hasValues = false;
  };

  void Widen(std::size_t column, std::string_view text, bool mayHaveValues) {
    if (column >= widths_.size()) widths_.resize(column + 1);
    Width& width = widths_[column];
    width.most = std::max(width.most, text.size());
    if (mayHaveValues && !width.hasValues) width.hasValues = text.find(kValueMark) != std::string_view::npos;
  }

  static std::string Joined(std::initializer_list<std::string_view> attributes) {
    std::string record;
    for (const std::string_view attribute : attributes) {
      if (!record.empty()) record += kAttributeMark;
      record += attribute;
    }
    return record;
  }

  std::int64_t items_ = 0;
  std::size_t longestId_ = 0;
  std::size_t columns_ = 0;
  std::vector<Width> widths_;
};

}  // namespace

bool BulkSave::CanAdd(const TableDescription& table, std::string& error) {
  if (table.name.find(kAttributeMark) != std::string::npos) {
    error =
        fmt::format("file '{}' can't stand in a transfer file: its name holds an attribute mark", table.name);
    return false;
  }
  std::string target = TargetOf(table.name);
  if (std::find(targets_.begin(), targets_.end(), target) != targets_.end()) {
    error = fmt::format("file {} is named twice, or another one has its name when both are loaded: {}",
                        table.name, target);
    return false;
  }
  targets_.push_back(std::move(target));
  return true;
}

SavedTable BulkSave::Add(Store& store, TableHandle table, bool keepsWholeItems, const Progress& progress) {
  const TransferSection section = SectionOf(store.Describe(table).name);
  Statistics statistics;
  SavedTable saved;
  AppendOpening(file_.Lines(), section);
  const auto addItem = [&](std::string_view id, std::span<const std::string_view> values) {
    if (!CanBeCarried(id)) {
      ++saved.leftOut;
      return true;
    }
    if (id.size() > kLongestLoadedId) ++saved.tooLong;
    statistics.Count(id, values[0]);
    AppendItem(file_.Lines(), id, values[0]);
    file_.WriteGathered();
    if (++saved.items % kItemsAProgress == 0) progress(saved.items);
    return true;
  };
  store.Scan(table, {.attributes = {}, .wholeItem = true}, addItem);
  AppendClosing(file_.Lines(), section);
  statistics_.push_back(statistics.Record(section, keepsWholeItems));
  return saved;
}

std::int64_t BulkSave::Finish() {
  AppendLine(file_.Lines(), "<FILE_STATISTICS>");
  for (const std::string& record : std::exchange(statistics_, {})) AppendLine(file_.Lines(), record);
  AppendLine(file_.Lines(), "</FILE_STATISTICS>");
  const std::int64_t length = file_.Length();
  file_.MoveIntoPlace();
  return length;
}

}  // namespace nvadmin::engine
