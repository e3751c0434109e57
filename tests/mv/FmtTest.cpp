#include "mv/Conversions.h"
#include "tests/mv/Notation.h"

namespace nvadmin::mv {
namespace {

TEST(Fmt, MasksAndWidths) {
  const struct {
    const char *fault, *value, *mask, *want;
  } rows[] = {
      {"not filled on the right", "ItemID", "L#9", "ItemID···"},
      {"not filled on the left", "42", "R#6", "····42"},
      {"L loses the left end", "ABCDEFGH", "L#5", "ABCDE"},
      {"R loses the right end", "ABCDEFGH", "R#5", "DEFGH"},
      {"values laid out one by one", "a]b", "L#5", "a]b··"},
      {"decimals not padded", "1234.5", "R2#12", "·····1234.50"},
      {"scale not lessened by the precision", "1234567", "R26#12", "····12345.67"},
      {"scale below the precision divides", "12", "R03#6", "···120"},
      {"options", "1234567", "R2,$#15", "··$1,234,567.00"},
      {"sign code", "-5", "R2C#10", "····5.00CR"},
      {"zero printed under Z", "0", "R2Z#6", "······"},
      {"zero fill", "77", "R%6", "000077"},
      {"asterisk fill", "77", "L*6", "77****"},
      {"text refused by a number mask", "n/a", "R2#8", "·····n/a"},
      {"mask without justification", "123456789", "###-##-####", "123-45-6789"},
      {"inner parentheses dropped", "5551234567", "(###)·###-####", "(555)·123-4567"},
      {"literals of unused places lost", "12345", "R###-##-####", "···-·1-2345"},
      {"width form", "abc", "6L", "abc···"},
      {"quoted fill", "77", "8'0'R", "00000077"},
      {"fill before the letter", "2.345", "8*R2", "****2.35"},
      {"odd blank on the left", "abc", "8C", "··abc···"},
      {"long text cut instead of broken", "ABCDEFG", "5L", "ABCDE{251}FG···"},
      {"line broken inside a word", "one·two·six", "7T", "one·two{251}six····"},
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
      {"date code not passed on", "20000", "D2/", "10/03/22"},
      {"decimal code not passed on", "1234", "MD2", "12.34"},
      {"time code not passed on", "0", "MTS", "00:00:00"},
      {"character code not passed on", "ab", "MCU", "AB"},
      {"sign code that begins a mask taken for a date", "12", "D####", "12DB"},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(Notation(Fmt(Bytes(row.value), Bytes(row.mask))), row.want)
        << row.fault << ": '" << row.value << "' under " << row.mask;
  }
}

TEST(Fmt, WidthsOfReports) {
  const std::string wide = Fmt("x", "L#1000001");
  EXPECT_EQ(wide.size(), 1'000'001U) << "a wide column is refused";
  EXPECT_EQ(wide.substr(0, 2), "x ");
}

}  // namespace
}  // namespace nvadmin::mv
