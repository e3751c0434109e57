// The code page of all strings at the border: Windows-1252, where the five bytes that it leaves unassigned
// stand for the C1 code points of the same number. So every byte has a character of its own.
#pragma once

#include <array>

namespace nvadmin {

// The code points of the bytes 0x80 to 0x9F; all others are their own.
inline constexpr std::array<char16_t, 32> kHighCodePoints = {
    0x20AC, 0x0081, 0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021, 0x02C6, 0x2030, 0x0160,
    0x2039, 0x0152, 0x008D, 0x017D, 0x008F, 0x0090, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022,
    0x2013, 0x2014, 0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x009D, 0x017E, 0x0178};

constexpr char32_t CodePointOf(unsigned char byte) {
  return byte >= 0x80 && byte < 0xA0 ? kHighCodePoints[byte - 0x80U] : byte;
}

}  // namespace nvadmin
