#include "forms/TransferItem.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "session/Marks.h"
#include "session/Text.h"
#include "session/basNvLibrary.h"

namespace nvadmin {

namespace {

struct MarkWord {
  std::string_view word;
  std::string_view mark;
};
constexpr std::array<MarkWord, 3> kMarkWords = {{
    {"<&VM>", ValueMark},
    {"<&SVM>", SubvalueMark},
    {"<&SSVM>", SubSubvalueMark},
}};
constexpr std::string_view kMarkWordStart = "<&";

void EndLinesByMarks(std::string& text) {
  const bool endsByLf = text.find('\r') == std::string::npos && text.find('\n') != std::string::npos;
  if (!endsByLf) std::erase(text, '\n');
  std::replace(text.begin(), text.end(), endsByLf ? '\n' : '\r', AttributeMark.front());
}

// The row whose word the text begins with; null when there is none.
const MarkWord* MarkWordAt(std::string_view text) {
  const auto found = std::find_if(kMarkWords.begin(), kMarkWords.end(), [text](const MarkWord& row) {
    return EqualInAnyCase(text.substr(0, row.word.size()), row.word);
  });
  return found == kMarkWords.end() ? nullptr : &*found;
}

// No word can come about by the replacement of another, so one pass does for all three. What is written is
// never longer than what was read, so it stays behind the reading.
void PutMarksForWords(std::string& text) {
  std::string_view rest = text;
  char* end = text.data();
  while (true) {
    const std::size_t plain = std::min(rest.find(kMarkWordStart), rest.size());
    std::memmove(end, rest.data(), plain);
    end += plain;
    rest.remove_prefix(plain);
    if (rest.empty()) break;
    const MarkWord* row = MarkWordAt(rest);
    const std::string_view put = row != nullptr ? row->mark : kMarkWordStart;
    end = std::copy(put.begin(), put.end(), end);
    rest.remove_prefix(row != nullptr ? row->word.size() : kMarkWordStart.size());
  }
  text.resize(static_cast<std::size_t>(end - text.data()));
}

}  // namespace

std::string ItemOfFileText(std::string text) {
  EndLinesByMarks(text);
  PutMarksForWords(text);
  return text;
}

std::string FileTextOfItem(std::string_view item) {
  const auto marks = std::count(item.begin(), item.end(), AttributeMark.front());
  std::string text;
  text.reserve(item.size() + static_cast<std::size_t>(marks) + CrLf.size());
  for (char byte : item) {
    if (byte == AttributeMark.front()) {
      text += CrLf;
    } else {
      text += byte;
    }
  }
  text += CrLf;
  return text;
}

Folder OpenTransferFolder(std::string_view name) { return Folder(Concat({EExecute("SYSTEM PATH"), name})); }

}  // namespace nvadmin
