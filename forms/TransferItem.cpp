#include "forms/TransferItem.h"

#include <algorithm>
#include <array>

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

std::string WithAttributeMarks(std::string_view text) {
  const bool endsByLf =
      text.find('\r') == std::string_view::npos && text.find('\n') != std::string_view::npos;
  const char lineEnd = endsByLf ? '\n' : '\r';
  std::string item;
  item.reserve(text.size());
  for (char byte : text) {
    if (byte == lineEnd) {
      item += AttributeMark;
    } else if (byte != '\n') {
      item += byte;
    }
  }
  return item;
}

// The row whose word the text begins with; null when there is none.
const MarkWord* MarkWordAt(std::string_view text) {
  const auto found = std::find_if(kMarkWords.begin(), kMarkWords.end(), [text](const MarkWord& row) {
    return EqualInAnyCase(text.substr(0, row.word.size()), row.word);
  });
  return found == kMarkWords.end() ? nullptr : &*found;
}

// No word can come about by the replacement of another, so one pass does for all three.
std::string WithMarks(std::string_view text) {
  std::string item;
  item.reserve(text.size());
  while (true) {
    const std::size_t at = text.find(kMarkWordStart);
    item += text.substr(0, at);
    if (at == std::string_view::npos) return item;
    text.remove_prefix(at);
    const MarkWord* row = MarkWordAt(text);
    item += row != nullptr ? row->mark : kMarkWordStart;
    text.remove_prefix(row != nullptr ? row->word.size() : kMarkWordStart.size());
  }
}

}  // namespace

std::string ItemOfFileText(std::string_view text) { return WithMarks(WithAttributeMarks(text)); }

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
