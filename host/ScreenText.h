// What a person sees of a session's text: code page bytes on the inner side, UTF-8 and cursor control on the
// outer one.
//
// (1) Nothing in the text acts on the terminal. The marks 254, 253, 252 show as ^ ] \, control bytes as their
// Unicode pictures, the bytes that the code page leaves unassigned as U+FFFD. Only CR LF ends a line. (2)
// What acts are the cursor strings that this object gave out: ESC, a random word of its own and the
// coordinates. An ESC without that word is a control byte like any other, so text can't pass for a cursor
// string. (3) It knows the open line: what stands on the screen since the last line end or cursor movement.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace nvadmin::host {

class ScreenText {
 public:
  // Without a cursor all cursor strings are empty. `lineEnd`: what a line ends in on the outer side; lent.
  explicit ScreenText(bool hasCursor, std::string_view lineEnd = "\n");

  // As Port::CursorString; empty too for coordinates that mean nothing.
  std::string CursorString(std::int32_t column, std::int32_t row) const;
  // The random word that stands between ESC and ":" in all of them; empty without a cursor.
  std::string_view CursorWord() const;

  // Appends to `out`, in UTF-8, what `text` shows; lineEnd ends the line. A CR LF or cursor string counts
  // only whole in one call. `text` must not lie in `out`.
  void Append(std::string& out, std::string_view text, bool lineEnd);

  // UTF-8.
  const std::string& OpenLine() const { return openLine_; }
  // The screen's own echo ended the line.
  void CloseLine() { openLine_.clear(); }
  // The caller put an earlier open line on the screen again.
  void ResumeLine(std::string_view utf8) { openLine_ = utf8; }

 private:
  std::size_t AppendCursorControl(std::string& out, std::string_view text) const;

  std::string_view lineEnd_;
  std::string tokenStart_;  // ESC and the random word; empty without a cursor
  std::string openLine_;
};

}  // namespace nvadmin::host
