// Walks the parts of a text from the first to the last in one pass, where asking for part 1, 2, 3 ... by
// number would read the text again for each.
#pragma once

#include <cstdint>
#include <string_view>

#include "session/Marks.h"

namespace nvadmin {

class PartWalk {
 public:
  // `delimiter` is one character. The text is lent for the life of the walk. Empty text has one part, the
  // empty one.
  PartWalk(std::string_view text, std::string_view delimiter) : rest_(text), delimiter_(delimiter.front()) {}

  // The next part; empty behind the last.
  std::string_view Next() {
    if (atEnd_) return {};
    const std::size_t end = rest_.find(delimiter_);
    const std::string_view part = rest_.substr(0, end);
    atEnd_ = end == std::string_view::npos;
    if (!atEnd_) rest_.remove_prefix(end + 1);
    return part;
  }
  // Whether the last part has been given.
  bool AtEnd() const { return atEnd_; }

 private:
  std::string_view rest_;
  char delimiter_;
  bool atEnd_ = false;
};

// The values of attribute 1 of a cell: what EExtract(cell, 1, i, 0) gives for i = 1, 2, 3 ...
inline PartWalk WalkValues(std::string_view cell) {
  return {cell.substr(0, cell.find(AttributeMark)), ValueMark};
}

}  // namespace nvadmin
