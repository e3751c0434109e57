// Functions on dynamic arrays: text parted into attributes, values and
// subvalues by the marks 254, 253 and 252. They follow the public functions
// of the same names; positions count from 1. Views point into the argument.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace nvadmin::mv {

inline constexpr char kAttributeMark = '\xFE';
inline constexpr char kValueMark = '\xFD';
inline constexpr char kSubvalueMark = '\xFC';

// Delimiters plus 1, without overlap; 0 for empty text; length plus 1 for an empty delimiter.
std::int32_t Count(std::string_view text, std::string_view delimiter);
// The part of that number; only the first character of the
// delimiter counts, and a number below 1 is taken as 1.
std::string_view Field(std::string_view text, std::string_view delimiter, std::int32_t occurrence);
// Where the occurrence starts, 0 when there is none; occurrences may overlap.
std::int32_t Index(std::string_view text, std::string_view substring, std::int32_t occurrence);
// 0 in value or subvalue is the whole enclosing part; a 0 above a lower position counts as 1; else empty.
std::string_view Extract(std::string_view text, std::int32_t attribute, std::int32_t value = 0,
                         std::int32_t subvalue = 0);
// More marks than these, added at one position, are a fault of the caller and no item.
constexpr std::int32_t kMostAddedMarks = 1 << 24;
// The changed text; zeros as in Extract. Positions beyond the end are made with marks, and a negative one
// appends at its level. Throws std::length_error for a position over kMostAddedMarks beyond the text.
std::string Replace(std::string_view text, std::int32_t attribute, std::int32_t value, std::int32_t subvalue,
                    std::string_view content);
// Position of the attribute that equals `value` exactly, 0 when there is none.
std::int32_t Locate(std::string_view value, std::string_view list);

// An optional sign, then digits with at most one point and at least one digit.
bool IsNumeric(std::string_view text);
// False: empty, and numeric zero.
bool Truth(std::string_view value);
// Compares two numeric texts of any length by their digits: below, at or above 0.
int CompareNumbers(std::string_view left, std::string_view right);
// "=", "<>", ">", ">=", "<", "<=": as numbers when both are
// numeric, else as text in capitals; false for another operator.
bool Compare(std::string_view left, std::string_view op, std::string_view right);

}  // namespace nvadmin::mv
