// Reading codes, masks and expressions: characters by class, and the pieces that codes are made of.
// Letters are A-Z and a-z alone, digits 0-9, whatever the locale. Every Take... routine takes its piece off
// the front of `rest` and answers true, or answers false and leaves `rest` as it was.
#pragma once

#include <algorithm>
#include <cstddef>
#include <string_view>

#include "mv/DynamicArray.h"

namespace nvadmin::mv {

// What a number in a code comes to at most; longer ones stay at this.
inline constexpr std::size_t kHugeNumber = 1'000'000'000;

constexpr bool IsDigit(char c) { return c >= '0' && c <= '9'; }
constexpr char ToUpper(char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 32) : c; }
constexpr char ToLower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; }
constexpr bool IsLetter(char c) { return ToUpper(c) >= 'A' && ToUpper(c) <= 'Z'; }
constexpr bool IsControl(char c) { return (c >= 0 && c < ' ') || c == '\x7F'; }
constexpr bool IsMark(char c) { return c == kAttributeMark || c == kValueMark || c == kSubvalueMark; }

// Whether the text begins with a word given in capitals, in either case.
inline bool BeginsWith(std::string_view text, std::string_view word) {
  return text.size() >= word.size() &&
         std::equal(word.begin(), word.end(), text.begin(), [](char w, char c) { return w == ToUpper(c); });
}

// Whether the text is a word given in capitals, in either case.
inline bool IsWord(std::string_view text, std::string_view word) {
  return text.size() == word.size() && BeginsWith(text, word);
}

inline bool TakeCharacter(std::string_view& rest, char wanted) {
  if (rest.empty() || ToUpper(rest.front()) != wanted) return false;
  rest.remove_prefix(1);
  return true;
}

inline bool TakeWord(std::string_view& rest, std::string_view word) {
  if (!BeginsWith(rest, word)) return false;
  rest.remove_prefix(word.size());
  return true;
}

inline bool TakeDigit(std::string_view& rest, int& digit) {
  if (rest.empty() || !IsDigit(rest.front())) return false;
  digit = rest.front() - '0';
  rest.remove_prefix(1);
  return true;
}

inline bool TakeNumber(std::string_view& rest, std::size_t& number) {
  if (rest.empty() || !IsDigit(rest.front())) return false;
  number = 0;
  while (!rest.empty() && IsDigit(rest.front())) {
    number = std::min(kHugeNumber, number * 10 + static_cast<std::size_t>(rest.front() - '0'));
    rest.remove_prefix(1);
  }
  return true;
}

constexpr bool IsQuote(char c) { return c == '\'' || c == '"'; }

// A text in single or double quotes; it ends at the next quote of its kind.
inline bool TakeQuoted(std::string_view& rest, std::string_view& text) {
  if (rest.empty() || !IsQuote(rest.front())) return false;
  const std::size_t end = rest.find(rest.front(), 1);
  if (end == std::string_view::npos) return false;
  text = rest.substr(1, end - 1);
  rest.remove_prefix(end + 1);
  return true;
}

// What stands between "(" and the ")" that belongs to it; parentheses in quotes don't count.
inline bool TakeParenthesised(std::string_view& rest, std::string_view& inner) {
  if (rest.empty() || rest.front() != '(') return false;
  std::size_t depth = 0;
  for (std::size_t at = 0; at < rest.size(); ++at) {
    if (IsQuote(rest[at])) {
      const std::size_t end = rest.find(rest[at], at + 1);
      if (end != std::string_view::npos) at = end;
    } else if (rest[at] == '(') {
      ++depth;
    } else if (rest[at] == ')' && --depth == 0) {
      inner = rest.substr(1, at - 1);
      rest.remove_prefix(at + 1);
      return true;
    }
  }
  return false;
}

// The text up to the next delimiter, which is taken too, or else all of it.
inline std::string_view TakePart(std::string_view& rest, char delimiter) {
  const std::size_t end = std::min(rest.find(delimiter), rest.size());
  const std::string_view part = rest.substr(0, end);
  rest.remove_prefix(std::min(end + 1, rest.size()));
  return part;
}

inline std::string_view TrimBlanks(std::string_view text) {
  const std::size_t begin = std::min(text.find_first_not_of(' '), text.size());
  const std::size_t end = text.find_last_not_of(' ') + 1;
  return begin < end ? text.substr(begin, end - begin) : std::string_view();
}

}  // namespace nvadmin::mv
