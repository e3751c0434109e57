// Masks, beside the examples of docs/conversions.md, which DocumentTest runs.
#include "tests/mv/Notation.h"

namespace nvadmin::mv {
namespace {

TEST(Fmt, MasksAndWidths) {
  const Row rows[] = {
      {"scale not lessened by the precision", "1234567", "R26#12", "····12345.67"},
      {"scale below the precision divides", "12", "R03#6", "···120"},
      {"blank just behind the width missed", "one·two", "3T", "one{251}two"},
      {"word longer than the width hangs", "abcdef·g", "4T", "abcd{251}ef·g"},
      {"R lines not filled on the left", "ABCDEFG", "5R", "ABCDE{251}···FG"},
      {"enclosing parentheses kept", "12", "(##)", "12"},
      {"enclosing parentheses kept behind R", "12", "R(####)", "··12"},
      {"centred mask", "ab", "C#5", "·ab··"},
      {"U isn't L", "ab", "U#4", "ab··"},
      {"T mask folds", "one·two", "T#5", "one·t"},
      {"small letters refused", "42", "r#4", "··42"},
      {"empty value without fill", "", "R%3", "000"},
      {"empty value without lines", "", "3L", "···"},
      {"empty mask changes", "a", "", "a"},
      {"mask without places pads", "1234.5", "R2", "1234.50"},
      {"decimals changed without n", "1234.567", "R,#12", "···1,234.567"},
      {"number rewritten without n", "007", "R#5", "··007"},
      {"no places print the text", "abc", "L#0", ""},
      {"half not away from zero", "-0.125", "R2#6", "·-0.13"},
      {"minus zero", "-0.001", "R2#6", "··0.00"},
      {"width 0 hangs", "abc", "0L", "abc"},
      {"quote as fill", "7", "3'R", "''7"},
      {"letter as quoted fill", "7", "3\"R\"R", "RR7"},
      {"sign code that begins a mask taken for a date", "12", "D####", "12DB"},
  };
  Check(rows, ShownAsFmt);
  for (const char* code : {"D2/", "MD2", "MTS", "MCN"})
    EXPECT_EQ(Fmt("20000", code), Oconv("20000", code)) << code << " isn't passed on";
  EXPECT_EQ(Fmt("x", "L#1000001"), "x" + std::string(1'000'000, ' ')) << "a wide column is refused";
}

}  // namespace
}  // namespace nvadmin::mv
