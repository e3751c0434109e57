// How the values of a column compare and sort.
//
// A text column goes by bytes, letter case included. A numeric column puts the empty value first, then the
// numbers by size (01 equals 1.0), then all other text by bytes: a strict weak order, whatever the values
// are. Numbers have any length and are compared by their decimal digits; up to 18 digits that costs an
// integer comparison.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace nvadmin::engine {

// A value of a numeric column, read once for many comparisons. The text must outlive it.
struct Operand {
  enum class Rank : std::uint8_t { kEmpty, kNumber, kText };

  std::string_view text;
  Rank rank = Rank::kEmpty;
  bool isShort = false;  // a number of up to 18 digits: units times ten to the -decimals
  std::int8_t decimals = 0;
  std::int64_t units = 0;
};

Operand ReadOperand(std::string_view text);
// Below, at or above 0.
int CompareOperands(const Operand& left, const Operand& right);

// Appends a form of the value that orders like it when compared byte by byte. The forms of one column are
// never the beginning of one another, so that several can stand in a row; equal forms are equal values.
void AppendOrderKey(std::string_view value, bool numeric, bool descending, std::string& key);

}  // namespace nvadmin::engine
