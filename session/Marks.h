// The marks that part a dynamic array, and the characters that part other texts of the system. One byte each
// but ItemMark.
#pragma once

#include <string_view>

namespace nvadmin {

inline constexpr std::string_view AttributeMark = "\xFE";    // 254
inline constexpr std::string_view ValueMark = "\xFD";        // 253
inline constexpr std::string_view SubvalueMark = "\xFC";     // 252
inline constexpr std::string_view SubSubvalueMark = "\xFB";  // 251
inline constexpr std::string_view ColumnPartMark = "\xFA";   // 250, parts the pieces of a column description
inline constexpr std::string_view CrLf = "\r\n";

}  // namespace nvadmin
