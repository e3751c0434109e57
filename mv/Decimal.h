// Numbers as decimal digits of any length: reading numeric text, scaling and rounding it, and the four
// operations. A negative number that comes to zero loses its sign. NumberText views the text it was read
// from; Decimal owns its digits.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace nvadmin::mv {

// Arithmetic and changes of base refuse numbers of more digits than these: their cost grows with the square.
inline constexpr std::size_t kMaxDigits = 4096;

// A numeric text taken apart: `whole` without leading zeros, `fraction` as it stands. Either may be empty.
struct NumberText {
  bool negative = false;
  bool hasPoint = false;
  std::string_view whole;
  std::string_view fraction;

  bool IsZero() const { return whole.empty() && fraction.find_first_not_of('0') == std::string_view::npos; }
};

// An optional sign, then digits with at most one point and at least one digit; false for any other text.
bool ParseNumber(std::string_view text, NumberText& number);

// Below, at or above 0, as the left number is less than, equal to or greater than the right.
int CompareNumberTexts(const NumberText& left, const NumberText& right);

enum class Rounding { kHalfAwayFromZero, kCut };

// The size of the number divided by ten to the `shift` (a negative one multiplies), brought to `places`
// decimals: digits without a point, at least places + 1 of them, replacing what `digits` held.
void ScaleDigits(const NumberText& number, int shift, std::size_t places, Rounding rounding,
                 std::string& digits);

// A number below 100 as two digits.
inline void AppendTwoDigits(unsigned number, std::string& result) {
  result.push_back(static_cast<char>('0' + number / 10));
  result.push_back(static_cast<char>('0' + number % 10));
}

struct Decimal {
  bool negative = false;
  std::string digits;     // the value times ten to the `scale`, without leading zeros; zero has none
  std::size_t scale = 0;  // how many of the digits stand behind the point

  static Decimal From(const NumberText& number);
  std::string ToText() const;
  void CutFraction();
  void MultiplyByTenTo(std::size_t exponent);
};

Decimal Add(const Decimal& left, const Decimal& right);
Decimal Subtract(const Decimal& left, const Decimal& right);
Decimal Multiply(const Decimal& left, const Decimal& right);
// Rounded to `places` decimals. Zero for a divisor of zero.
Decimal Divide(const Decimal& left, const Decimal& right, std::size_t places, Rounding rounding);
// left - right * (whole part of left / right): it has the sign of `left`. Zero for a divisor of zero.
Decimal Remainder(const Decimal& left, const Decimal& right);

}  // namespace nvadmin::mv
