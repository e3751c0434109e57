// TransferBulk files as the engine writes them: their lines, and new files in the home's folder for them. The
// add-in's loader reads them; the escapes and names here are such that it makes the same items, and the same
// table names, of them.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>

#include "engine/Home.h"

namespace nvadmin::engine {

std::filesystem::path BulkFolder(const Home& home);

// The section of a table: what its opening line says.
struct TransferSection {
  bool isDictionary = false;
  std::string sourceName;
};
// `table` as a store spells it ("orders_dict", "DICT ORDERS"). The loader turns the section's name into that
// of the table, or into its mapped form.
TransferSection SectionOf(std::string_view table);
// The table that a loader makes of it, in the spelling of a relational account.
std::string TargetOf(std::string_view table);

// Each appends whole lines, with their line ends. CR, LF, NUL and the backquote are escaped; no line is
// longer than twice its text and some bytes.
void AppendLine(std::string& lines, std::string_view text);
void AppendOpening(std::string& lines, const TransferSection& section);
void AppendClosing(std::string& lines, const TransferSection& section);
void AppendItem(std::string& lines, std::string_view id, std::string_view item);
// False for an ID that begins like a line of the format: no line can carry such an item.
bool CanBeCarried(std::string_view id);

// A transfer file that comes into being: written under a hidden name, and there under its own name only when
// it is whole. What fails is an EngineFailure that names the file.
class NewTransferFile {
 public:
  // False, with the reason, for what can't be the name of a file in the folder that the load form lists.
  static bool IsName(std::string_view name, std::string& error);

  // `name` in code page bytes. Requires that IsName.
  NewTransferFile(const std::filesystem::path& folder, std::string_view name);
  // Removes what wasn't moved into place.
  ~NewTransferFile();
  NewTransferFile(const NewTransferFile&) = delete;
  NewTransferFile& operator=(const NewTransferFile&) = delete;

  // The lines to come; WriteGathered takes them from time to time.
  std::string& Lines() { return lines_; }
  // Writes what has gathered once it is worth it.
  void WriteGathered() {
    if (lines_.size() >= kGatheredBytes) WriteLines();
  }
  std::int64_t Length() const { return written_ + static_cast<std::int64_t>(lines_.size()); }
  // On disk under its own name when this returns; a file that had the name is gone then.
  void MoveIntoPlace();

 private:
  static constexpr std::size_t kGatheredBytes = 65'536;
  void WriteLines();
  [[noreturn]] void Fail(int number) const;

  std::filesystem::path folder_;
  std::string name_;    // in UTF-8
  std::string hidden_;  // path; empty once it was moved
  int file_ = -1;
  std::string lines_;
  std::int64_t written_ = 0;
};

}  // namespace nvadmin::engine
