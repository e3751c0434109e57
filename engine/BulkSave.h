// Writes files of an account into a transfer file, with the statistics by which a loader makes their tables:
// wide enough for every item that is in them now, and with the loader's own margins.
//
// The transfer file is there when Finish returns, and not before.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "engine/TransferFile.h"
#include "engine/stores/Store.h"

namespace nvadmin::engine {

// One file or dictionary that was written.
struct SavedTable {
  std::int64_t items = 0;
  // Of them without those that no line can carry: their IDs begin like a line of the format.
  std::int64_t leftOut = 0;
  // IDs that no table will take that a loader makes, whatever the statistics say.
  std::int64_t tooLong = 0;
};

class BulkSave {
 public:
  // What is told during a long table: the items so far.
  using Progress = std::function<void(std::int64_t items)>;
  static constexpr std::size_t kLongestLoadedId = 60;

  // `name` must be one that NewTransferFile takes.
  BulkSave(const std::filesystem::path& folder, std::string_view name) : file_(folder, name) {}

  // False, with the reason, when the table's name can't stand in a transfer file, or when a loader would give
  // it the name that it gives to one added before.
  bool CanAdd(const TableDescription& table, std::string& error);
  // Requires that CanAdd. `keepsWholeItems`: the table has no columns, so the new one is to have none either.
  SavedTable Add(Store& store, TableHandle table, bool keepsWholeItems, const Progress& progress);
  // Returns the length of the file.
  std::int64_t Finish();

 private:
  NewTransferFile file_;
  std::vector<std::string> targets_;     // mapped names, of what CanAdd was asked for
  std::vector<std::string> statistics_;  // a record each
};

}  // namespace nvadmin::engine
