// L, R, P: filters. A value that passes comes back, any other becomes empty.
#include <algorithm>

#include "mv/ConversionRoutines.h"
#include "mv/Decimal.h"
#include "mv/Effort.h"
#include "mv/Pattern.h"
#include "mv/Scan.h"

namespace nvadmin::mv {

namespace {

bool TakeSeparator(std::string_view& rest) { return TakeCharacter(rest, ';') || TakeCharacter(rest, '/'); }

bool TakeSignedNumber(std::string_view& rest, NumberText& number) {
  const std::size_t sign = !rest.empty() && (rest.front() == '-' || rest.front() == '+') ? 1 : 0;
  const std::size_t end = std::min(rest.find_first_not_of("0123456789.", sign), rest.size());
  if (!ParseNumber(rest.substr(0, end), number)) return false;
  rest.remove_prefix(end);
  return true;
}

}  // namespace

// L, Ln, Ln,m
bool FilterByLength(const Conversion& conversion, std::string& result) {
  std::string_view rest = conversion.code;
  const std::size_t length = conversion.value.size();
  if (rest.empty()) {
    result = std::to_string(length);
    return true;
  }
  std::size_t least = 0;
  std::size_t most = 0;
  if (!TakeNumber(rest, most)) return false;
  if (TakeCharacter(rest, ',')) {
    least = most;
    if (!TakeNumber(rest, most)) return false;
  }
  if (length >= least && length <= most) result.assign(conversion.value);
  return rest.empty();
}

// Rn,m{;n,m}
bool FilterByRange(const Conversion& conversion, std::string& result) {
  std::string_view rest = conversion.code;
  NumberText value;
  const bool isNumber = ParseNumber(conversion.value, value);
  bool inside = false;
  do {
    NumberText least;
    NumberText most;
    if (!TakeSignedNumber(rest, least) || !TakeCharacter(rest, ',') || !TakeSignedNumber(rest, most))
      return false;
    inside =
        inside || (isNumber && CompareNumberTexts(least, value) <= 0 && CompareNumberTexts(value, most) <= 0);
  } while (TakeSeparator(rest));
  if (inside) result.assign(conversion.value);
  return rest.empty();
}

// P(pattern){;(pattern)}, P#(pattern)...
bool FilterByPattern(const Conversion& conversion, std::string& result) {
  std::string_view rest = conversion.code;
  const bool wanted = !TakeCharacter(rest, '#');
  const NestingLevel level;
  Pattern pattern;
  bool matchesAny = false;
  do {
    std::string_view text;
    if (!TakeParenthesised(rest, text) || !Spend(text.size() * Pattern::kReadingCost)) return false;
    pattern.Read(text, Pattern::Points::kThemselves);
    if (!Spend(pattern.CostOf(conversion.value.size()))) return false;
    matchesAny = matchesAny || pattern.Matches(conversion.value);
  } while (TakeSeparator(rest));
  if (matchesAny == wanted) result.assign(conversion.value);
  return rest.empty();
}

}  // namespace nvadmin::mv
