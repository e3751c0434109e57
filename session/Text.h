// Plain text as the add-in's routines need it: letter case, blanks, numbers. Bytes of the code page; only the
// letters A to Z have another case, so marks and accented letters come through unchanged.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>

namespace nvadmin {

std::string ToUpper(std::string_view text);
std::string ToLower(std::string_view text);
// Without the blanks at both ends; other white space stays.
std::string_view Trim(std::string_view text);
// Whether the texts are equal, letter case apart.
bool EqualInAnyCase(std::string_view left, std::string_view right);
// Where `part` first stands in `text`, letter case apart; npos when it doesn't.
std::size_t FindInAnyCase(std::string_view text, std::string_view part);
// The pieces behind one another.
std::string Concat(std::initializer_list<std::string_view> pieces);

// The leading number of a text: blanks are skipped, then an optional sign, digits and at most one point, up
// to the first character that can't go on. Empty when the text doesn't begin with a number.
std::string_view LeadingNumber(std::string_view text);
// The leading number as a whole number, a fraction cut off; 0 without one. Held within the range of the type.
std::int32_t LeadingWholeNumber(std::string_view text);
// The leading number, 0 without one; infinite beyond the range of the type.
double LeadingDouble(std::string_view text);
// Whether the whole text is a number: an optional sign, digits with at most one point, at least one digit.
bool IsNumber(std::string_view text);
// The ordinary decimal form of a finite number: up to 15 significant digits, without an exponent and without
// zeros at the end of a fraction.
std::string DecimalText(double number);

}  // namespace nvadmin
