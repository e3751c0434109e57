#include "session/Text.h"

#include <algorithm>
#include <limits>

namespace nvadmin {

namespace {

char UpperOf(char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c; }
char LowerOf(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }
bool IsDigit(char c) { return c >= '0' && c <= '9'; }
bool EqualLetters(char a, char b) { return UpperOf(a) == UpperOf(b); }

// End of the number that starts at `start`, or `start` when none does.
std::size_t NumberEnd(std::string_view text, std::size_t start) {
  std::size_t at = start;
  if (at < text.size() && (text[at] == '+' || text[at] == '-')) ++at;
  std::size_t digits = 0;
  bool point = false;
  for (; at < text.size(); ++at) {
    if (IsDigit(text[at])) {
      ++digits;
    } else if (text[at] == '.' && !point) {
      point = true;
    } else {
      break;
    }
  }
  return digits == 0 ? start : at;
}

}  // namespace

std::string ToUpper(std::string_view text) {
  std::string result(text);
  std::transform(result.begin(), result.end(), result.begin(), UpperOf);
  return result;
}

std::string ToLower(std::string_view text) {
  std::string result(text);
  std::transform(result.begin(), result.end(), result.begin(), LowerOf);
  return result;
}

std::string_view Trim(std::string_view text) {
  const std::size_t first = text.find_first_not_of(' ');
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(' ') - first + 1);
}

bool EqualInAnyCase(std::string_view left, std::string_view right) {
  return left.size() == right.size() && std::equal(left.begin(), left.end(), right.begin(), EqualLetters);
}

std::size_t FindInAnyCase(std::string_view text, std::string_view part) {
  const auto found = std::search(text.begin(), text.end(), part.begin(), part.end(), EqualLetters);
  if (found == text.end() && !part.empty()) return std::string_view::npos;
  return static_cast<std::size_t>(found - text.begin());
}

std::string Concat(std::initializer_list<std::string_view> pieces) {
  std::size_t size = 0;
  for (std::string_view piece : pieces) size += piece.size();
  std::string result;
  result.reserve(size);
  for (std::string_view piece : pieces) result.append(piece);
  return result;
}

std::string_view LeadingNumber(std::string_view text) {
  const std::size_t start = text.find_first_not_of(' ');
  if (start == std::string_view::npos) return {};
  return text.substr(start, NumberEnd(text, start) - start);
}

std::int32_t LeadingWholeNumber(std::string_view text) {
  constexpr std::int64_t kLimit = std::numeric_limits<std::int32_t>::max();
  std::int64_t number = 0;
  const std::string_view digits = LeadingNumber(text);
  for (char c : digits) {
    if (c == '.') break;
    if (IsDigit(c)) number = std::min(number * 10 + (c - '0'), kLimit);
  }
  return static_cast<std::int32_t>(digits.starts_with('-') ? -number : number);
}

bool IsNumber(std::string_view text) { return !text.empty() && NumberEnd(text, 0) == text.size(); }

}  // namespace nvadmin
