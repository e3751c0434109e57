// MX, MO, MB: number bases. Numbers of any length are worked off in pieces of 24 bits, which hold a whole
// number of digits in each of the bases.
#include "mv/Bases.h"

#include <cstdint>
#include <vector>

#include "mv/ConversionRoutines.h"
#include "mv/Decimal.h"
#include "mv/Effort.h"
#include "mv/Scan.h"

namespace nvadmin::mv {

namespace {

constexpr int kPieceBits = 24;
constexpr std::uint64_t kDecimalPiece = 1'000'000'000;
constexpr int kDecimalPieceDigits = 9;

// Whether a number of so many digits may be brought to another
// base, which costs time with the square of its length.
bool MayConvert(std::size_t digits) {
  const NestingLevel level;
  return digits <= kMaxDigits && Spend(digits * digits / 16);
}

// The lowest digits of a number in a base that is a power of two.
void AppendDigits(std::uint32_t number, int digits, NumberBase base, std::string& result) {
  for (int at = digits - 1; at >= 0; --at) {
    const std::uint32_t digit = (number >> (at * base.bits)) & ((1U << base.bits) - 1);
    result.push_back("0123456789ABCDEF"[digit]);
  }
}

// Divides decimal digits in place by 2 to the 24 and returns the remainder.
std::uint32_t TakePiece(std::string& digits) {
  std::uint64_t remainder = 0;
  for (char& place : digits) {
    remainder = remainder * 10 + static_cast<std::uint64_t>(place - '0');
    place = static_cast<char>('0' + (remainder >> kPieceBits));
    remainder &= (1U << kPieceBits) - 1;
  }
  digits.erase(0, std::min(digits.find_first_not_of('0'), digits.size()));
  return static_cast<std::uint32_t>(remainder);
}

// The magnitude taken from 2 to the 32, as a negative number of 32 bits shows it.
std::uint32_t TwosComplement(std::string_view digits) {
  std::uint32_t magnitude = 0;
  for (const char digit : digits) magnitude = magnitude * 10 + static_cast<std::uint32_t>(digit - '0');
  return 0U - magnitude;
}

bool ConvertToBase(const Conversion& conversion, NumberBase base, std::string& result) {
  if (IsWord(conversion.code, "0C")) return AppendCharactersInBase(conversion.value, base, result);
  NumberText number;
  if (!conversion.code.empty() || !ParseNumber(conversion.value, number)) return false;
  if (!number.negative) return AppendInBase(number.whole, base, result);
  return AppendInBase(std::to_string(TwosComplement(number.whole)), base, result);
}

}  // namespace

bool AppendInBase(std::string_view decimalDigits, NumberBase base, std::string& result) {
  if (!MayConvert(decimalDigits.size())) return false;
  std::string digits(decimalDigits);
  std::vector<std::uint32_t> pieces;
  do {
    pieces.push_back(TakePiece(digits));
  } while (!digits.empty());

  const std::size_t start = result.size();
  for (std::size_t at = pieces.size(); at-- > 0;) {
    AppendDigits(pieces[at], kPieceBits / base.bits, base, result);
  }
  const std::size_t firstDigit = std::min(result.find_first_not_of('0', start), result.size() - 1);
  result.erase(start, firstDigit - start);
  return true;
}

bool AppendFromHexadecimal(std::string_view hexadecimalDigits, std::string& result) {
  if (!MayConvert(hexadecimalDigits.size())) return false;
  std::vector<std::uint64_t> pieces;  // of nine decimal digits each, lowest first
  for (const char digit : hexadecimalDigits) {
    auto carry = static_cast<std::uint64_t>(HexadecimalDigit(digit));
    for (std::uint64_t& piece : pieces) {
      carry += piece * 16;
      piece = carry % kDecimalPiece;
      carry /= kDecimalPiece;
    }
    if (carry > 0) pieces.push_back(carry);
  }
  result.append(std::to_string(pieces.empty() ? 0 : pieces.back()));
  for (std::size_t at = pieces.size(); at-- > 1;) {
    const std::string lower = std::to_string(pieces[at - 1]);
    result.append(kDecimalPieceDigits - lower.size(), '0').append(lower);
  }
  return true;
}

bool AppendCharactersInBase(std::string_view text, NumberBase base, std::string& result) {
  if (text.size() > kMaxResultBytes / static_cast<std::size_t>(base.digitsPerCharacter)) return false;
  result.reserve(result.size() + text.size() * static_cast<std::size_t>(base.digitsPerCharacter));
  for (const char character : text) {
    AppendDigits(static_cast<unsigned char>(character), base.digitsPerCharacter, base, result);
  }
  return true;
}

int HexadecimalDigit(char c) {
  if (IsDigit(c)) return c - '0';
  const char capital = ToUpper(c);
  return capital >= 'A' && capital <= 'F' ? capital - 'A' + 10 : -1;
}

bool ConvertToHexadecimal(const Conversion& conversion, std::string& result) {
  return ConvertToBase(conversion, kHexadecimal, result);
}

bool ConvertToOctal(const Conversion& conversion, std::string& result) {
  return ConvertToBase(conversion, kOctal, result);
}

bool ConvertToBinary(const Conversion& conversion, std::string& result) {
  return ConvertToBase(conversion, kBinary, result);
}

}  // namespace nvadmin::mv
