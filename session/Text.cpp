#include "session/Text.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
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

double LeadingDouble(std::string_view text) {
  std::string_view digits = LeadingNumber(text);
  if (digits.starts_with('+')) digits.remove_prefix(1);
  double number = 0;
  const auto read =
      std::from_chars(digits.data(), digits.data() + digits.size(), number, std::chars_format::fixed);
  if (read.ec != std::errc::result_out_of_range) return number;
  const std::string_view whole = digits.substr(0, digits.find('.'));
  if (whole.find_first_of("123456789") == std::string_view::npos) return 0;
  return digits.starts_with('-') ? -HUGE_VAL : HUGE_VAL;
}

bool IsNumber(std::string_view text) { return !text.empty() && NumberEnd(text, 0) == text.size(); }

std::string DecimalText(double number) {
  constexpr int kSignificantDigits = 15;
  if (number == 0) return "0";

  std::array<char, 32> text{};  // one digit, a point, fourteen digits, e, a sign and up to three digits
  const auto end = std::to_chars(text.data(), text.data() + text.size(), std::abs(number),
                                 std::chars_format::scientific, kSignificantDigits - 1);
  const std::string_view written(text.data(), static_cast<std::size_t>(end.ptr - text.data()));
  const std::size_t mark = written.find('e');
  std::string digits = Concat({written.substr(0, 1), written.substr(2, mark - 2)});
  digits.erase(digits.find_last_not_of('0') + 1);
  const std::int32_t exponent = LeadingWholeNumber(written.substr(mark + 1));

  const auto size = static_cast<std::int32_t>(digits.size());
  if (exponent < 0) {
    digits.insert(0, "0." + std::string(static_cast<std::size_t>(-exponent - 1), '0'));
  } else if (exponent >= size - 1) {
    digits.append(static_cast<std::size_t>(exponent - size + 1), '0');
  } else {
    digits.insert(static_cast<std::size_t>(exponent) + 1, ".");
  }
  return number < 0 ? "-" + digits : digits;
}

}  // namespace nvadmin
