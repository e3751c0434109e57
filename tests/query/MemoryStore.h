// A store in memory for the tests of the query language: files by the names that a query asks for, items in
// byte order. Counts what it hands out.
#pragma once

#include <algorithm>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "engine/Marks.h"
#include "engine/Order.h"
#include "engine/stores/Store.h"
#include "mv/DynamicArray.h"

namespace nvadmin::engine {

inline std::string Exchanged(std::string_view text, std::string_view from, std::string_view to) {
  std::string changed(text);
  for (std::size_t at = 0; at < from.size(); ++at)
    std::replace(changed.begin(), changed.end(), from[at], to[at]);
  return changed;
}

// Marks as a person types them: ^ attribute, ] value, \ subvalue.
inline std::string WithMarks(std::string_view text) { return Exchanged(text, "^]\\", "\xFE\xFD\xFC"); }
inline std::string WithoutMarks(std::string_view text) { return Exchanged(text, "\xFE\xFD\xFC", "^]\\"); }

class MemoryStore : public Store {
 public:
  using Items = std::map<std::string, std::string, std::less<>>;

  // Makes the file if it is new. Texts as WithMarks reads them.
  void Put(std::string_view file, std::string_view id, std::string_view item) {
    ItemsOf(file)[std::string(id)] = WithMarks(item);
  }
  Items& ItemsOf(std::string_view file) {
    auto known = std::find_if(files_.begin(), files_.end(), [file](const File& f) { return f.name == file; });
    if (known == files_.end()) known = files_.insert(files_.end(), {std::string(file), {}});
    return known->items;
  }

  int itemsRead = 0;              // by key
  int scans = 0;                  // of anything but dictionaries
  Projection lastScan;            // of anything but dictionaries
  std::size_t failAfterRows = 0;  // a scan throws behind so many items; 0: never
  bool leavesOut = false;         // a scan hands out just what meets its conditions

  bool OpenTable(std::string_view name, TableHandle& table, std::string& error) override {
    for (std::size_t at = 0; at < files_.size(); ++at) {
      if (files_[at].name != name) continue;
      table = static_cast<TableHandle>(at);
      return true;
    }
    error = "no table " + std::string(name);
    return false;
  }
  bool Read(TableHandle table, std::string_view id, std::string& item) override {
    ++itemsRead;
    const Items& items = files_[static_cast<std::size_t>(table)].items;
    const auto found = items.find(id);
    item = found == items.end() ? std::string() : found->second;
    return found != items.end();
  }
  void ReadBatch(TableHandle table, std::span<const std::string_view> ids,
                 std::vector<BatchItem>& items) override {
    items.assign(ids.size(), {});
    for (std::size_t at = 0; at < ids.size(); ++at) items[at].found = Read(table, ids[at], items[at].item);
  }
  void LeaveOutMissing(TableHandle table, std::vector<std::string_view>& ids) override {
    const Items& items = files_[static_cast<std::size_t>(table)].items;
    std::erase_if(ids, [&items](std::string_view id) { return !items.contains(id); });
  }
  void Scan(TableHandle table, const Projection& projection, const ScanVisitor& visitor) override {
    const File& file = files_[static_cast<std::size_t>(table)];
    if (!file.name.starts_with("DICT ")) {
      ++scans;
      lastScan = projection;
    }
    std::size_t rows = 0;
    for (const auto& [id, item] : file.items) {
      if (leavesOut && !MeetsConditions(projection, id, item)) continue;
      if (failAfterRows > 0 && rows++ == failAfterRows) throw StoreFailure("the store is gone");
      std::vector<std::string_view> values;
      for (const std::int32_t attribute : projection.attributes)
        values.push_back(mv::Extract(item, attribute));
      if (projection.wholeItem) values.assign(1, item);
      if (!visitor(id, values)) break;
    }
  }

  // The rest of a store is nothing that a query uses.
  const TableDescription& Describe(TableHandle) override { return Unused<TableDescription&>(); }
  std::vector<std::string> TableNames(bool) override { return Unused<std::vector<std::string>>(); }
  bool ReadAttribute(TableHandle, std::string_view, std::int32_t, std::string&) override {
    return Unused<bool>();
  }
  void BeginWrites() override { Unused<bool>(); }
  bool HasOpenWrites() const override { return false; }
  void Commit() override { Unused<bool>(); }
  void Rollback() override { Unused<bool>(); }
  bool Write(TableHandle, std::string_view, std::string_view, std::string&) override {
    return Unused<bool>();
  }
  bool Erase(TableHandle, std::string_view, std::string&) override { return Unused<bool>(); }
  bool CreateTable(std::string_view, std::int32_t, std::string&) override { return Unused<bool>(); }
  bool DropTable(std::string_view, std::string&) override { return Unused<bool>(); }
  bool ClearTable(std::string_view, std::string&) override { return Unused<bool>(); }
  bool RunSql(std::string_view, ResultGrid&, bool&, std::string&, std::string&) override {
    return Unused<bool>();
  }
  void Interrupt() noexcept override {}

 private:
  struct File {
    std::string name;
    Items items;
  };

  static bool MeetsConditions(const Projection& projection, std::string_view id, std::string_view item) {
    return std::all_of(
        projection.conditions.begin(), projection.conditions.end(), [&](const auto& condition) {
          return std::any_of(condition.begin(), condition.end(), [&](const ScanAlternative& wanted) {
            const std::string_view text = wanted.attribute == 0 ? id : mv::Extract(item, wanted.attribute);
            if (!wanted.range && wanted.text.empty()) return !text.empty();
            return text.find(wanted.text) != std::string_view::npos &&
                   (!wanted.range || HasValueIn(*wanted.range, text));
          });
        });
  }

  // By order keys, so in another way than stores of their own.
  static bool HasValueIn(const ScanRange& range, std::string_view values) {
    const auto keyOf = [&range](std::string_view value) {
      std::string key;
      AppendOrderKey(value, range.numeric, /*descending=*/false, key);
      return key;
    };
    const auto isWithin = [](const std::optional<ScanRange::End>& end, int order) {
      return !end || order > 0 || (order == 0 && end->belongs);
    };
    for (;;) {
      const std::size_t length = ValueLength(values);
      const std::string key = keyOf(values.substr(0, length));
      if (isWithin(range.least, range.least ? key.compare(keyOf(range.least->value)) : 0) &&
          isWithin(range.most, range.most ? keyOf(range.most->value).compare(key) : 0))
        return true;
      if (length == values.size()) return false;
      values.remove_prefix(length + 1);
    }
  }

  template <typename Result>
  static Result Unused() {
    throw StoreFailure("a query must not use this");
  }

  std::vector<File> files_;
};

// The keys of a grid with a blank between two.
inline std::string KeysOf(const ResultGrid& grid) {
  std::string keys;
  for (std::int32_t row = 1; row <= grid.HighestRow(); ++row) {
    if (row > 1) keys += ' ';
    keys += grid.Cell(0, row);
  }
  return keys;
}

}  // namespace nvadmin::engine
