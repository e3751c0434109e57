#include "engine/TransferFile.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <system_error>
#include <utility>

#include "engine/CodePage.h"
#include "engine/Marks.h"
#include "engine/stores/TableNames.h"
#include "session/EngineCallBack.h"

namespace nvadmin::engine {

namespace {

constexpr std::string_view kLineEnd = "\r\n";
constexpr std::string_view kNativeDictionary = "DICT ";
constexpr std::string_view kDictionaryEnding = "_dict";
constexpr std::string_view kMasterDictionary = "md";
constexpr std::size_t kLongestNameOnDisk = 255;

// What a line of the format begins with.
constexpr std::string_view kLineStarts[] = {"<FILE_DICT>", "<FILE_DATA>", "</FILE_DICT", "</FILE_DATA",
                                            "<FILE_STATI"};

// The letter behind the backquote; 0 for a byte that stands for itself.
constexpr char EscapeOf(char letter) {
  switch (letter) {
    case '\r':
      return 'C';
    case '\n':
      return 'L';
    case '\0':
      return '0';
    case '`':
      return '`';
    default:
      return 0;
  }
}
constexpr auto kEscapes = [] {
  std::array<char, 256> escapes{};
  for (int byte = 0; byte < 256; ++byte) escapes[byte] = EscapeOf(static_cast<char>(byte));
  return escapes;
}();

void AppendEscaped(std::string& lines, std::string_view text) {
  std::size_t start = 0;
  for (std::size_t at = 0; at < text.size(); ++at) {
    const char escape = kEscapes[static_cast<unsigned char>(text[at])];
    if (escape == 0) continue;
    lines.append(text, start, at - start).append({'`', escape});
    start = at + 1;
  }
  lines.append(text, start);
}

// A loader takes what stands behind the first comma, without a comma at its end.
std::string WithCommas(std::string_view table) {
  if (table.find(',') == std::string_view::npos) return std::string(table);
  return fmt::format(",{}{}", table, table.ends_with(',') ? "," : "");
}

// The file that a table is, or is the dictionary of.
struct TableOwner {
  bool isDictionary = false;
  std::string owner;
};

TableOwner OwnerOf(std::string_view table) {
  std::string_view owner = table;
  if (table.starts_with(kNativeDictionary)) {
    owner.remove_prefix(kNativeDictionary.size());
  } else if (IsDictionaryName(FoldTableName(table))) {
    owner.remove_suffix(kDictionaryEnding.size());
  }
  const bool isDictionary = owner.size() != table.size();
  // Data and dictionary of this one would become one table, so its dictionary goes as a file of its own.
  if (isDictionary && FoldTableName(owner) == kMasterDictionary)
    return {false, fmt::format("{}{}", owner, kDictionaryEnding)};
  return {isDictionary, std::string(owner)};
}

}  // namespace

std::filesystem::path BulkFolder(const Home& home) { return home.Folder() / "TransferBulk"; }

TransferSection SectionOf(std::string_view table) {
  const TableOwner read = OwnerOf(table);
  return {read.isDictionary, WithCommas(read.owner)};
}

std::string TargetOf(std::string_view table) {
  const TableOwner read = OwnerOf(table);
  return MapTableName(read.owner).append(read.isDictionary ? kDictionaryEnding : "");
}

void AppendLine(std::string& lines, std::string_view text) {
  AppendEscaped(lines, text);
  lines += kLineEnd;
}

void AppendOpening(std::string& lines, const TransferSection& section) {
  lines += section.isDictionary ? "<FILE_DICT>" : "<FILE_DATA>";
  AppendLine(lines, section.sourceName);
}

void AppendClosing(std::string& lines, const TransferSection& section) {
  lines += section.isDictionary ? "</FILE_DICT>" : "</FILE_DATA>";
  lines += kLineEnd;
}

void AppendItem(std::string& lines, std::string_view id, std::string_view item) {
  AppendEscaped(lines, id);
  lines += kAttributeMark;
  AppendLine(lines, item);
}

bool CanBeCarried(std::string_view id) {
  return std::none_of(std::begin(kLineStarts), std::end(kLineStarts),
                      [id](std::string_view start) { return id.starts_with(start); });
}

bool NewTransferFile::IsName(std::string_view name, std::string& error) {
  const bool leaves = name.find_first_of(std::string_view("/\\\0", 3)) != std::string_view::npos;
  if (leaves || name.empty() || name.starts_with('.')) {
    error = fmt::format(
        "'{}' can't be the name of a transfer file: it must lie in the folder TransferBulk itself, "
        "without /, \\ or a dot in front",
        name);
  } else if (ToUtf8(name).size() > kLongestNameOnDisk) {
    error = fmt::format("the name of a transfer file has at most {} bytes on disk", kLongestNameOnDisk);
  } else {
    return true;
  }
  return false;
}

NewTransferFile::NewTransferFile(const std::filesystem::path& folder, std::string_view name)
    : folder_(folder), name_(ToUtf8(name)), hidden_(folder / ".nvadmin-XXXXXX") {
  file_ = mkostemp(hidden_.data(), O_CLOEXEC);
  if (file_ < 0) Fail(errno);
}

NewTransferFile::~NewTransferFile() {
  if (file_ >= 0) close(file_);
  if (!hidden_.empty()) unlink(hidden_.c_str());
}

void NewTransferFile::Fail(int number) const {
  throw EngineFailure(fmt::format("can't write the transfer file {}: {}",
                                  ForeignText((folder_ / name_).string()),
                                  std::generic_category().message(number)));
}

void NewTransferFile::WriteLines() {
  for (std::string_view rest = lines_; !rest.empty();) {
    const ssize_t wrote = write(file_, rest.data(), rest.size());
    if (wrote < 0 && errno == EINTR) continue;
    if (wrote < 0) Fail(errno);
    rest.remove_prefix(static_cast<std::size_t>(wrote));
  }
  written_ += static_cast<std::int64_t>(lines_.size());
  lines_.clear();
}

void NewTransferFile::MoveIntoPlace() {
  WriteLines();
  if (fsync(file_) != 0 || close(std::exchange(file_, -1)) != 0) Fail(errno);
  if (rename(hidden_.c_str(), (folder_ / name_).c_str()) != 0) Fail(errno);
  hidden_.clear();
  const int folder = open(folder_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (folder < 0) Fail(errno);
  const int number = fsync(folder) == 0 ? 0 : errno;
  close(folder);
  if (number != 0) Fail(number);
}

}  // namespace nvadmin::engine
