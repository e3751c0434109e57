// Small routines on the bytes of words and values.
#pragma once

#include <algorithm>
#include <cstddef>
#include <functional>
#include <string>
#include <string_view>
#include <unordered_map>

#include "engine/Marks.h"

namespace nvadmin::engine {

inline bool IsDigit(char character) { return character >= '0' && character <= '9'; }

// Capitals of the letters A to Z; other bytes stay.
inline char Capital(char character) {
  return character >= 'a' && character <= 'z' ? static_cast<char>(character - 'a' + 'A') : character;
}

inline std::string Capitals(std::string_view text) {
  std::string capitals(text);
  std::transform(capitals.begin(), capitals.end(), capitals.begin(), Capital);
  return capitals;
}

// Whether two words are the same in any letter case.
inline bool SameWord(std::string_view left, std::string_view right) {
  return left.size() == right.size() &&
         std::equal(left.begin(), left.end(), right.begin(),
                    [](char one, char other) { return Capital(one) == Capital(other); });
}

inline std::string_view Trimmed(std::string_view text) {
  const std::size_t first = text.find_first_not_of(' ');
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(' ') - first + 1);
}

inline bool IsMark(char character) { return character == kAttributeMark || EndsValue(character); }

// Calls `visit` with each part of a text between value marks; an empty text is one part.
template <typename Visit>
void ForEachValue(std::string_view text, const Visit& visit) {
  for (;;) {
    const std::size_t mark = text.find(kValueMark);
    visit(text.substr(0, mark));
    if (mark == std::string_view::npos) return;
    text.remove_prefix(mark + 1);
  }
}

// Hashes texts of any kind, so that maps with string keys can be asked with views.
struct TextHash {
  using is_transparent = void;
  std::size_t operator()(std::string_view text) const { return std::hash<std::string_view>{}(text); }
};
template <typename Value>
using TextMap = std::unordered_map<std::string, Value, TextHash, std::equal_to<>>;

}  // namespace nvadmin::engine
