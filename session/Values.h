// Dynamic arrays in one pass: where asking for part 1, 2, 3 ... by number would read the text again for each,
// and putting part after part back would copy it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>

#include "session/EngineCallBack.h"
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

// Attribute `number` (from 1) of an item, lent by the item's text; empty when there is none.
inline std::string_view AttributeView(std::string_view item, std::int32_t number) {
  if (number < 1) return {};
  PartWalk attributes(item, AttributeMark);
  for (; number > 1 && !attributes.AtEnd(); --number) attributes.Next();
  return attributes.Next();
}

// Puts values behind one another, with a ValueMark between two. Fails when the text outgrows 256 MiB: a code
// that makes megabytes of each of many values must not take all memory.
class ValueJoin {
 public:
  void Add(std::string_view value) {
    if (!first_) text_ += ValueMark;
    first_ = false;
    text_ += value;
    if (text_.size() > kMostBytes)
      throw EngineFailure("a cell of the report outgrows 256 MiB under its column's codes");
  }
  // The joined text; the join is empty then.
  std::string Take() {
    first_ = true;
    return std::move(text_);
  }

 private:
  static constexpr std::size_t kMostBytes = std::size_t{256} << 20;
  std::string text_;
  bool first_ = true;
};

}  // namespace nvadmin
