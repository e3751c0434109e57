// L, R, P: filters. A value that passes comes back, any other becomes empty.
#include <algorithm>

#include "mv/ConversionRoutines.h"
#include "mv/Decimal.h"
#include "mv/Effort.h"
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

// A piece of a pattern: so many characters of a class, or one that stands for itself.
struct PatternPiece {
  bool (*belongs)(char) = nullptr;  // null for a literal
  std::size_t count = 1;            // 0: any number of them
  char literal = 0;

  bool Fits(char c) const { return belongs == nullptr ? c == literal : belongs(c); }
};

struct PatternClass {
  char letter;
  bool (*belongs)(char);
};

constexpr PatternClass kPatternClasses[] = {
    {'N', IsDigit}, {'A', IsLetter}, {'X', [](char) { return true; }}};

bool TakeClass(std::string_view& rest, PatternPiece& piece) {
  std::string_view behind = rest;
  if (!TakeNumber(behind, piece.count)) return false;
  for (const PatternClass& row : kPatternClasses) {
    if (!TakeCharacter(behind, row.letter)) continue;
    piece.belongs = row.belongs;
    rest = behind;
    return true;
  }
  return false;
}

// Matches the whole value against the text between the parentheses of a pattern. Keeps, for each length,
// whether the pieces so far can match that much of the value's beginning; so the time is one look at each
// character for each piece.
class PatternMatch {
 public:
  explicit PatternMatch(std::string_view value) : value_(value), reached_(value.size() + 1, kNo) {}

  // False when the pattern costs too much.
  bool Run(std::string_view pattern, bool& matches) {
    std::fill(reached_.begin(), reached_.end(), kNo);
    reached_[0] = kYes;
    while (!pattern.empty()) {
      std::string_view quoted;
      PatternPiece piece;
      if (TakeQuoted(pattern, quoted)) {
        for (const char literal : quoted) {
          if (!Advance({nullptr, 1, literal})) return false;
        }
        continue;
      }
      if (!TakeClass(pattern, piece)) {
        piece = {nullptr, 1, pattern.front()};
        pattern.remove_prefix(1);
      }
      if (!Advance(piece)) return false;
    }
    matches = reached_.back() == kYes;
    return true;
  }

 private:
  static constexpr char kNo = 0;
  static constexpr char kYes = 1;

  bool Advance(const PatternPiece& piece) {
    if (!Spend(reached_.size())) return false;
    if (piece.count == 0) {
      for (std::size_t at = 0; at < value_.size(); ++at) {
        if (reached_[at] == kYes && piece.Fits(value_[at])) reached_[at + 1] = kYes;
      }
      return true;
    }
    next_.assign(reached_.size(), kNo);
    std::size_t run = 0;  // how many fitting characters end here
    for (std::size_t end = 1; end <= value_.size(); ++end) {
      run = piece.Fits(value_[end - 1]) ? run + 1 : 0;
      if (run >= piece.count) next_[end] = reached_[end - piece.count];
    }
    reached_.swap(next_);
    return true;
  }

  std::string_view value_;
  std::string reached_;
  std::string next_;
};

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
  PatternMatch match(conversion.value);
  bool matchesAny = false;
  do {
    std::string_view pattern;
    bool matches = false;
    if (!TakeParenthesised(rest, pattern) || !match.Run(pattern, matches)) return false;
    matchesAny = matchesAny || matches;
  } while (TakeSeparator(rest));
  if (matchesAny == wanted) result.assign(conversion.value);
  return rest.empty();
}

}  // namespace nvadmin::mv
