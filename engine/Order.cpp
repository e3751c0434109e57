#include "engine/Order.h"

#include <array>
#include <cstddef>
#include <cstdlib>

#include "mv/DynamicArray.h"
#include "mv/Scan.h"

namespace nvadmin::engine {
namespace {

constexpr std::size_t kMostShortDigits = 18;
constexpr auto kPowersOfTen = [] {
  std::array<std::int64_t, kMostShortDigits + 1> powers{1};
  for (std::size_t power = 1; power < powers.size(); ++power) powers[power] = powers[power - 1] * 10;
  return powers;
}();

// The first byte of an order key of a numeric column.
constexpr char kEmptyKey = 0x10;
constexpr char kNegativeKey = 0x20;
constexpr char kZeroKey = 0x30;
constexpr char kPositiveKey = 0x40;
constexpr char kTextKey = 0x50;

// Exponents up to this lie in one byte of an order key; larger ones follow an escape byte in eight.
constexpr std::int64_t kLargestByteExponent = 100;
constexpr std::int64_t kExponentZero = 128;
constexpr std::int64_t kEscapeSmall = 1;
constexpr std::int64_t kEscapeLarge = 255;

int Sign(std::int64_t number) { return (number > 0) - (number < 0); }

void Complement(std::string& key, std::size_t from) {
  for (std::size_t at = from; at < key.size(); ++at) key[at] = static_cast<char>(~key[at]);
}

void AppendByte(std::string& key, std::int64_t byte) {
  key += static_cast<char>(static_cast<unsigned char>(byte));
}

// Text and an end: a zero byte of the text is followed by 255, the end is two zero bytes.
void AppendTextKey(std::string_view text, std::string& key) {
  for (std::size_t zero = text.find('\0'); zero != std::string_view::npos; zero = text.find('\0')) {
    key.append(text.substr(0, zero + 1));
    key += '\xFF';
    text.remove_prefix(zero + 1);
  }
  key.append(text);
  key.append(2, '\0');
}

// The exponent: how far the first digit that is not zero stands before the point, negative behind it.
void AppendExponent(std::int64_t exponent, std::string& key) {
  if (std::abs(exponent) <= kLargestByteExponent) {
    AppendByte(key, exponent + kExponentZero);
    return;
  }
  AppendByte(key, exponent < 0 ? kEscapeSmall : kEscapeLarge);
  for (int shift = 56; shift >= 0; shift -= 8) AppendByte(key, (exponent >> shift) & 0xFF);
}

// A numeric text: its sign, its exponent, its digits in pairs as 1 to 100, and 0 as the end; after the sign
// all of it complemented below zero.
void AppendNumberKey(std::string_view number, std::string& key) {
  const bool negative = number[0] == '-';
  if (negative || number[0] == '+') number.remove_prefix(1);
  const std::size_t first = number.find_first_not_of("0.");
  if (first == std::string_view::npos) {
    key += kZeroKey;
    return;
  }
  std::size_t point = number.find('.');
  std::size_t end = number.size();
  if (point == std::string_view::npos) point = end;
  while (number[end - 1] == '0' || number[end - 1] == '.') --end;

  key += negative ? kNegativeKey : kPositiveKey;
  const std::size_t body = key.size();
  const auto places = static_cast<std::int64_t>(point) - static_cast<std::int64_t>(first);
  AppendExponent(places, key);
  int pending = -1;
  for (std::size_t at = first; at < end; ++at) {
    if (number[at] == '.') continue;
    const int digit = number[at] - '0';
    if (pending >= 0) AppendByte(key, pending * 10 + digit + 1);
    pending = pending >= 0 ? -1 : digit;
  }
  if (pending >= 0) AppendByte(key, pending * 10 + 1);
  key += '\0';
  if (negative) Complement(key, body);
}

int CompareShort(const Operand& left, const Operand& right) {
  if (left.decimals == right.decimals) return (left.units > right.units) - (left.units < right.units);
  const bool leftCoarser = left.decimals < right.decimals;
  const Operand& coarse = leftCoarser ? left : right;
  const Operand& fine = leftCoarser ? right : left;
  const std::int64_t factor = kPowersOfTen[static_cast<std::size_t>(fine.decimals - coarse.decimals)];
  int order = 0;
  if (std::abs(coarse.units) > kPowersOfTen[kMostShortDigits] / factor) {
    order = Sign(coarse.units);  // beyond all that 18 digits of the finer one can hold
  } else {
    const std::int64_t scaled = coarse.units * factor;
    order = (scaled > fine.units) - (scaled < fine.units);
  }
  return leftCoarser ? order : -order;
}

}  // namespace

Operand ReadOperand(std::string_view text) {
  Operand operand;
  operand.text = text;
  if (text.empty()) return operand;
  const bool negative = text[0] == '-';
  std::size_t at = negative || text[0] == '+' ? 1 : 0;
  std::size_t digits = 0;
  std::size_t point = std::string_view::npos;
  std::int64_t units = 0;
  for (; at < text.size(); ++at) {
    if (mv::IsDigit(text[at])) {
      if (++digits <= kMostShortDigits) units = units * 10 + (text[at] - '0');
    } else if (text[at] == '.' && point == std::string_view::npos) {
      point = digits;
    } else {
      break;
    }
  }
  operand.rank = at == text.size() && digits > 0 ? Operand::Rank::kNumber : Operand::Rank::kText;
  operand.isShort = digits <= kMostShortDigits;
  operand.decimals =
      static_cast<std::int8_t>(operand.isShort && point != std::string_view::npos ? digits - point : 0);
  operand.units = negative ? -units : units;
  return operand;
}

int CompareOperands(const Operand& left, const Operand& right) {
  if (left.rank != right.rank) return left.rank < right.rank ? -1 : 1;
  switch (left.rank) {
    case Operand::Rank::kEmpty:
      return 0;
    case Operand::Rank::kText:
      return left.text.compare(right.text);
    case Operand::Rank::kNumber:
      break;
  }
  return left.isShort && right.isShort ? CompareShort(left, right)
                                       : mv::CompareNumbers(left.text, right.text);
}

void AppendOrderKey(std::string_view value, bool numeric, bool descending, std::string& key) {
  const std::size_t start = key.size();
  if (!numeric) {
    AppendTextKey(value, key);
  } else if (value.empty()) {
    key += kEmptyKey;
  } else if (ReadOperand(value).rank == Operand::Rank::kNumber) {
    AppendNumberKey(value, key);
  } else {
    key += kTextKey;
    AppendTextKey(value, key);
  }
  if (descending) Complement(key, start);
}

}  // namespace nvadmin::engine
