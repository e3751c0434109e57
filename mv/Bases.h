// Numbers and characters in hexadecimal, octal and binary digits.
#pragma once

#include <string>
#include <string_view>

namespace nvadmin::mv {

struct NumberBase {
  int bits;                // in one digit
  int digitsPerCharacter;  // for a character of eight bits
};

inline constexpr NumberBase kHexadecimal = {4, 2};
inline constexpr NumberBase kOctal = {3, 3};
inline constexpr NumberBase kBinary = {1, 8};

// Appends decimal digits as a number in that base, without
// leading zeros; no digits are 0. False for more than kMaxDigits.
bool AppendInBase(std::string_view decimalDigits, NumberBase base, std::string& result);

// Appends hexadecimal digits as a decimal number; no digits are 0. False for more than kMaxDigits.
bool AppendFromHexadecimal(std::string_view hexadecimalDigits, std::string& result);

// Appends the code of each character with its fixed number of digits. False beyond kMaxResultBytes.
bool AppendCharactersInBase(std::string_view text, NumberBase base, std::string& result);

// 0 to 15, or -1 for another character.
int HexadecimalDigit(char c);

}  // namespace nvadmin::mv
