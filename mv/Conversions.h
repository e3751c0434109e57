// Output and input conversions of one value, and FMT masks.
// Arithmetic works on decimal digits, never on binary fractions. Every function ends in bounded time and
// memory, whatever the codes say: a mask, a width or an expression makes at most 4 MiB of text, arithmetic
// and changes of base take numbers of at most 4096 digits, and expressions, translations and columns nest at
// most 256 deep. What goes beyond is "####".
#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>

namespace nvadmin::mv {

// What OCONV and FMT answer for something they can't convert.
inline constexpr std::string_view kInconvertible = "####";

// What surrounds a value that is converted, where a caller knows it. Without an item the attribute numbers in
// A, F, S and C refer to the value itself, and neither 0 (the item ID) nor N(name) can be resolved.
struct ConversionContext {
  bool hasItem = false;
  std::string_view item;
  std::string_view id;
  // The value of the dictionary column of that name; false when it is unknown. May be empty.
  std::function<bool(std::string_view name, std::string& value)> column;
};

// One value (marks are ordinary characters) under one or
// several codes parted by value marks; "####" when it can't be.
std::string Oconv(std::string_view value, std::string_view code);
std::string Oconv(std::string_view value, std::string_view code, const ConversionContext& context);

// What a user typed, brought to its stored form under an output code: dates (D), times (MT) and masked
// decimals (MD, ML, MR; of a mask alone its literals are taken out). True for any other code, with `stored`
// being `typed` unchanged; false when the text can't be read under the code.
bool Iconv(std::string_view typed, std::string_view code, std::string& stored);

// A code of masked decimals (MD, ML, MR) as two steps: `plain` makes of a stored number one that can be added
// up as it is printed (digits, a point, a minus in front), and `shown` makes of such a number, or a sum of
// them, what the code shows. False, with both unchanged, for any other code, for several, and for a mask
// alone.
bool SplitDecimalCode(std::string_view code, std::string& plain, std::string& shown);

// One value (marks are ordinary characters) laid out by a mask such as "L#12", "R2,#10", "10'0'R".
std::string Fmt(std::string_view value, std::string_view mask);

}  // namespace nvadmin::mv
