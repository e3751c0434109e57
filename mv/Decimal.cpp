// Schoolbook arithmetic on digits, most significant first. Sizes are `digits` without their sign and point.
#include "mv/Decimal.h"

#include <algorithm>

#include "mv/Scan.h"

namespace nvadmin::mv {

namespace {

void DropLeadingZeros(std::string& digits) {
  digits.erase(0, std::min(digits.find_first_not_of('0'), digits.size()));
}

int CompareSizes(std::string_view left, std::string_view right) {
  if (left.size() != right.size()) return left.size() < right.size() ? -1 : 1;
  return left.compare(right);
}

// Adds 1 to the last digit.
void Increment(std::string& digits) {
  for (std::size_t at = digits.size(); at-- > 0;) {
    if (digits[at] != '9') {
      ++digits[at];
      return;
    }
    digits[at] = '0';
  }
  digits.insert(digits.begin(), '1');
}

std::string AddSizes(std::string_view left, std::string_view right) {
  if (left.size() < right.size()) std::swap(left, right);
  std::string sum(left.size() + 1, '0');
  int carry = 0;
  for (std::size_t behind = 0; behind < left.size(); ++behind) {
    const int other = behind < right.size() ? right[right.size() - 1 - behind] - '0' : 0;
    const int digit = left[left.size() - 1 - behind] - '0' + other + carry;
    sum[sum.size() - 1 - behind] = static_cast<char>('0' + digit % 10);
    carry = digit / 10;
  }
  sum[0] = static_cast<char>('0' + carry);
  DropLeadingZeros(sum);
  return sum;
}

// Requires that `left` is not the smaller one.
void SubtractSize(std::string& left, std::string_view right) {
  int borrow = 0;
  for (std::size_t behind = 0; behind < left.size() && (behind < right.size() || borrow > 0); ++behind) {
    char& place = left[left.size() - 1 - behind];
    const int other = behind < right.size() ? right[right.size() - 1 - behind] - '0' : 0;
    const int digit = place - '0' - other - borrow;
    borrow = digit < 0 ? 1 : 0;
    place = static_cast<char>('0' + digit + 10 * borrow);
  }
  DropLeadingZeros(left);
}

std::string MultiplySizes(std::string_view left, std::string_view right) {
  std::string product(left.size() + right.size(), '0');
  for (std::size_t l = left.size(); l-- > 0;) {
    int carry = 0;
    for (std::size_t r = right.size(); r-- > 0;) {
      char& place = product[l + r + 1];
      const int sum = place - '0' + (left[l] - '0') * (right[r] - '0') + carry;
      place = static_cast<char>('0' + sum % 10);
      carry = sum / 10;
    }
    product[l] = static_cast<char>('0' + carry);
  }
  DropLeadingZeros(product);
  return product;
}

// The whole quotient; `remainder` receives what is left. Requires a divisor that isn't zero.
std::string DivideSizes(std::string_view dividend, std::string_view divisor, std::string& remainder) {
  std::string quotient;
  quotient.reserve(dividend.size());
  remainder.clear();
  for (const char digit : dividend) {
    if (!remainder.empty() || digit != '0') remainder.push_back(digit);
    char times = '0';
    for (; CompareSizes(remainder, divisor) >= 0; ++times) SubtractSize(remainder, divisor);
    if (!quotient.empty() || times != '0') quotient.push_back(times);
  }
  return quotient;
}

void Normalise(Decimal& number) {
  DropLeadingZeros(number.digits);
  while (number.scale > 0 && !number.digits.empty() && number.digits.back() == '0') {
    number.digits.pop_back();
    --number.scale;
  }
  if (!number.digits.empty()) return;
  number.negative = false;
  number.scale = 0;
}

// The digits of both numbers over the same scale.
struct Aligned {
  Aligned(const Decimal& leftNumber, const Decimal& rightNumber)
      : left(leftNumber.digits),
        right(rightNumber.digits),
        scale(std::max(leftNumber.scale, rightNumber.scale)) {
    if (!left.empty()) left.append(scale - leftNumber.scale, '0');
    if (!right.empty()) right.append(scale - rightNumber.scale, '0');
  }

  std::string left;
  std::string right;
  std::size_t scale;
};

Decimal AddSigned(const Decimal& left, const Decimal& right, bool rightNegative) {
  Aligned sides(left, right);
  Decimal result;
  result.scale = sides.scale;
  if (left.negative == rightNegative) {
    result.negative = left.negative;
    result.digits = AddSizes(sides.left, sides.right);
  } else {
    const bool swapped = CompareSizes(sides.left, sides.right) < 0;
    if (swapped) sides.left.swap(sides.right);
    SubtractSize(sides.left, sides.right);
    result.negative = swapped ? rightNegative : left.negative;
    result.digits = std::move(sides.left);
  }
  Normalise(result);
  return result;
}

}  // namespace

bool ParseNumber(std::string_view text, NumberText& number) {
  number = NumberText();
  if (!text.empty() && (text.front() == '-' || text.front() == '+')) {
    number.negative = text.front() == '-';
    text.remove_prefix(1);
  }
  std::size_t point = text.size();
  for (std::size_t at = 0; at < text.size(); ++at) {
    if (IsDigit(text[at])) continue;
    if (text[at] != '.' || point != text.size()) return false;
    point = at;
  }
  number.hasPoint = point < text.size();
  if (text.size() == (number.hasPoint ? 1U : 0U)) return false;
  number.whole = text.substr(0, point);
  number.whole.remove_prefix(std::min(number.whole.find_first_not_of('0'), number.whole.size()));
  if (number.hasPoint) number.fraction = text.substr(point + 1);
  return true;
}

int CompareNumberTexts(const NumberText& left, const NumberText& right) {
  const bool leftNegative = left.negative && !left.IsZero();
  const bool rightNegative = right.negative && !right.IsZero();
  if (leftNegative != rightNegative) return leftNegative ? -1 : 1;
  int order = CompareSizes(left.whole, right.whole);
  const std::size_t places = std::max(left.fraction.size(), right.fraction.size());
  for (std::size_t at = 0; order == 0 && at < places; ++at) {
    const char l = at < left.fraction.size() ? left.fraction[at] : '0';
    const char r = at < right.fraction.size() ? right.fraction[at] : '0';
    order = l - r;
  }
  return leftNegative ? -order : order;
}

void ScaleDigits(const NumberText& number, int shift, std::size_t places, Rounding rounding,
                 std::string& digits) {
  digits.clear();
  const auto available = static_cast<std::ptrdiff_t>(number.whole.size() + number.fraction.size());
  const std::ptrdiff_t kept =
      static_cast<std::ptrdiff_t>(number.whole.size() + places) - static_cast<std::ptrdiff_t>(shift);
  bool up = false;
  if (kept >= 0) {
    const auto count = static_cast<std::size_t>(kept);
    digits.reserve(std::max(count, places) + 1);
    digits.append(number.whole.substr(0, count));
    if (count > number.whole.size()) digits.append(number.fraction.substr(0, count - number.whole.size()));
    digits.append(count - digits.size(), '0');
    if (kept < available && rounding == Rounding::kHalfAwayFromZero) {
      const char next =
          count < number.whole.size() ? number.whole[count] : number.fraction[count - number.whole.size()];
      up = next >= '5';
    }
  }
  if (up) Increment(digits);
  if (digits.size() <= places) digits.insert(0, places + 1 - digits.size(), '0');
}

Decimal Decimal::From(const NumberText& number) {
  Decimal result;
  result.negative = number.negative;
  result.digits.reserve(number.whole.size() + number.fraction.size());
  result.digits.append(number.whole).append(number.fraction);
  result.scale = number.fraction.size();
  Normalise(result);
  return result;
}

std::string Decimal::ToText() const {
  if (digits.empty()) return "0";
  std::string text = digits;
  if (scale > 0) {
    if (text.size() <= scale) text.insert(0, scale + 1 - text.size(), '0');
    text.insert(text.size() - scale, 1, '.');
  }
  if (negative) text.insert(text.begin(), '-');
  return text;
}

void Decimal::CutFraction() {
  digits.resize(digits.size() - std::min(scale, digits.size()));
  scale = 0;
  Normalise(*this);
}

void Decimal::MultiplyByTenTo(std::size_t exponent) {
  if (digits.empty()) return;
  const std::size_t moved = std::min(scale, exponent);
  scale -= moved;
  digits.append(exponent - moved, '0');
}

Decimal Add(const Decimal& left, const Decimal& right) { return AddSigned(left, right, right.negative); }

Decimal Subtract(const Decimal& left, const Decimal& right) {
  return AddSigned(left, right, !right.negative);
}

Decimal Multiply(const Decimal& left, const Decimal& right) {
  Decimal result{left.negative != right.negative, MultiplySizes(left.digits, right.digits),
                 left.scale + right.scale};
  Normalise(result);
  return result;
}

Decimal Divide(const Decimal& left, const Decimal& right, std::size_t places, Rounding rounding) {
  Decimal result;
  if (right.digits.empty()) return result;
  // One digit more than asked tells how to round: it is 5 or more exactly when the rest is half or more.
  Aligned sides(left, right);
  std::string remainder;
  sides.left.append(places + 1, '0');
  result.digits = DivideSizes(sides.left, sides.right, remainder);
  const bool up =
      rounding == Rounding::kHalfAwayFromZero && !result.digits.empty() && result.digits.back() >= '5';
  if (!result.digits.empty()) result.digits.pop_back();
  if (up) Increment(result.digits);
  result.negative = left.negative != right.negative;
  result.scale = places;
  Normalise(result);
  return result;
}

Decimal Remainder(const Decimal& left, const Decimal& right) {
  Decimal result;
  if (right.digits.empty()) return result;
  const Aligned sides(left, right);
  DivideSizes(sides.left, sides.right, result.digits);
  result.negative = left.negative;
  result.scale = sides.scale;
  Normalise(result);
  return result;
}

}  // namespace nvadmin::mv
