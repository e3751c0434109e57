#include "bulk/TransferBulk.h"

#include <algorithm>
#include <array>

#include "session/Text.h"

namespace nvadmin {

namespace {

constexpr char kBlockMark = kCodedBytes[0], kEscape = kCodedBytes[1];
constexpr std::size_t kBlockMarkBytes = 12;  // the mark and what goes with it
constexpr std::size_t kKindBytes = 11;

struct KindWord {
  std::string_view word;
  BulkLineKind kind;
};
constexpr std::array<KindWord, 5> kKindWords = {{
    {"<FILE_DICT>", BulkLineKind::kOpensDictionary},
    {"<FILE_DATA>", BulkLineKind::kOpensData},
    {"</FILE_DICT", BulkLineKind::kCloses},
    {"</FILE_DATA", BulkLineKind::kCloses},
    {"<FILE_STATI", BulkLineKind::kEndsSections},
}};

std::string WithoutBlockMarks(std::string_view line) {
  std::string text;
  text.reserve(line.size());
  while (true) {
    const std::size_t mark = line.find(kBlockMark);
    text += line.substr(0, mark);
    if (mark == std::string_view::npos) return text;
    line.remove_prefix(std::min(mark + kBlockMarkBytes, line.size()));
  }
}

char Unescaped(char letter) {
  switch (letter) {
    case 'C':
    case 'R':
      return '\r';
    case 'L':
    case 'N':
      return '\n';
    case '0':
      return '\0';
    default:
      return letter;
  }
}

// In place: the text never grows.
void ReplaceEscapes(std::string& text) {
  std::size_t to = text.find(kEscape);
  std::size_t from = to;
  while (from < text.size()) {
    if (text[from] == kEscape) {
      if (from + 1 < text.size()) text[to++] = Unescaped(text[from + 1]);
      from += 2;
    } else {
      const std::size_t run = std::min(text.find(kEscape, from), text.size()) - from;
      std::copy_n(text.begin() + static_cast<std::ptrdiff_t>(from), run,
                  text.begin() + static_cast<std::ptrdiff_t>(to));
      from += run;
      to += run;
    }
  }
  text.resize(to);
}

}  // namespace

std::string_view DecodeBulkLine(std::string_view line, std::string& buffer) {
  const bool hasMarks = line.find(kBlockMark) != std::string_view::npos;
  if (!hasMarks && line.find(kEscape) == std::string_view::npos) return line;
  buffer = hasMarks ? WithoutBlockMarks(line) : std::string(line);
  if (buffer.find(kEscape) != std::string::npos) ReplaceEscapes(buffer);
  return buffer;
}

std::string_view DecodeBulkLine(const BinaryFileProvider& file, std::string_view line, std::string& buffer) {
  return file.MayHoldNoted() ? DecodeBulkLine(line, buffer) : line;
}

BulkLineKind KindOfBulkLine(std::string_view line) {
  const std::string_view start = line.substr(0, kKindBytes);
  const auto row = std::find_if(kKindWords.begin(), kKindWords.end(),
                                [start](const KindWord& kind) { return kind.word == start; });
  return row == kKindWords.end() ? BulkLineKind::kItem : row->kind;
}

std::string_view NameInOpeningLine(std::string_view line) { return line.substr(kKindBytes); }

std::string TargetNameOf(std::string_view sourceName) {
  std::string name = ToLower(sourceName);
  if (const std::size_t comma = name.find(','); comma != std::string::npos) {
    name.erase(0, comma + 1);
    if (name.ends_with(',')) name.pop_back();
  }
  std::replace(name.begin(), name.end(), '.', '_');
  if (name == "table" || name == "key") name += "_nv";
  return name;
}

std::string DictionaryTargetName(std::string targetName) {
  return targetName.empty() || targetName == kMasterDictionary ? targetName : targetName + "_dict";
}

}  // namespace nvadmin
