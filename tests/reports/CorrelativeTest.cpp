// Correlatives: compiling the arithmetic ones, and applying compiled lists, codes and chains.
#include <gtest/gtest.h>

#include <algorithm>

#include "reports/basNvLibAdd.h"
#include "tests/reports/ReportSession.h"

namespace nvadmin::test {
namespace {

using Correlative = ReportSession;

TEST_F(Correlative, CompileTable) {
  const std::string dictionary = engine.FileVar("orders_dict");
  const std::pair<const char*, const char*> words[] = {
      {"CONV", "A^6^^^^^MD2^"}, {"CORR", "A^7^^^^^^MCU"}, {"BLANKS", "A^8^^^^^ ^  "},
      {"TEXT", "A^x"},          {"low", "A^9"},           {"NOUGHTS", "A^00"}};
  for (const auto& [word, item] : words) engine.File("orders_dict")[word] = Dyn(item);
  struct Row {
    std::string_view name, in, want;  // want "": left as it is
  };
  const Row rows[] = {
      {"two names", "A;N(QTY)*N(PRICE)", "CUSTOMA;2;*;5"},
      {"small letters read names in capitals", "a;n(qty)+n(price)", "CUSTOMA;2;+;5"},
      {"a name that only exists in small letters", "A;N(low)", ""},
      {"without the semicolon", "AN(QTY)-N(PRICE)", "CUSTOMA;2;-;5"},
      {"semicolons inside", "A;N(QTY);/;N(PRICE)", "CUSTOMA;2;/;5"},
      {"every operator", "A;N(QTY):N(QTY)+N(QTY)-N(QTY)/N(QTY)*N(QTY)^N(QTY)",
       "CUSTOMA;2;:;2;+;2;-;2;/;2;*;2;^;2"},
      {"item ID", "A;N(KEY)*N(QTY)", "CUSTOMA;0;*;2"},
      {"two noughts stay", "A;N(NOUGHTS)*N(QTY)", "CUSTOMA;00;*;2"},
      {"conversion and correlative of blanks are none", "A;N(BLANKS)", "CUSTOMA;8"},
      {"name with a conversion", "A;N(QTY)*N(CONV)", ""},
      {"name with a correlative", "A;N(CORR)*N(QTY)", ""},
      {"name without a number", "A;N(TEXT)", ""},
      {"unknown name", "A;N(QTY)*N(NONE)", ""},
      {"parentheses", "A;(N(QTY)+N(PRICE))*N(QTY)", ""},
      {"blank beside an operator", "A;N(QTY) *N(PRICE)", ""},
      {"two names without an operator", "A;N(QTY)N(PRICE)", ""},
      {"no reference", "A;1*2", ""},
      {"another code", "F;N(QTY)", ""},
      {"blank in front", " A;N(QTY)", ""},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    const auto with = [](std::string_view eight) {
      return Dyn("S^9^Head^T^B^6^7^").append(eight) + Dyn("^R^8");
    };
    std::string item = with(row.in);
    CompileCorrelative(item, dictionary);
    EXPECT_EQ(item, with(row.want.empty() ? row.in : row.want));
  }
}

// Value marks alone: "^" is an operator here.
std::string Values(std::string_view text) {
  std::string result(text);
  std::replace(result.begin(), result.end(), ']', '\xFD');
  return result;
}

TEST_F(Correlative, ApplyTable) {
  // Attributes 1 to 4 single, 5 and 6 with values, 7 a text, 8 empty, 9 negative, 10 large.
  const std::string dataItem = Dyn("10^4^3^0.1^1]2]3^10]20^7 pieces^^-0.30^999");
  struct Row {
    std::string_view name, value, correlative, want;
  };
  const Row rows[] = {
      {"left to right, no precedence", "v", "CUSTOMA;2;+;3;*;2", "28"},
      {"minus and divide, negative", "v", "CUSTOMA;2;-;1;/;2", "-1.5"},
      {"power", "v", "CUSTOMA;2;^;3", "64"},
      {"fifteen digits", "v", "CUSTOMA;1;/;3", "3.33333333333333"},
      {"rounded to text before the next operator", "v", "CUSTOMA;4;*;3;+;9", "0"},
      {"below one", "v", "CUSTOMA;4;/;1", "0.01"},
      {"large, without an exponent", "v", "CUSTOMA;1;^;3;^;2;^;3;*;3",
       "3000000000000000000000000000000000000"},
      {"division by zero gives 0", "v", "CUSTOMA;1;/;8", "0"},
      {"beyond the range", "v", "CUSTOMA;1;^;10", "####"},
      {"single operand stays text", "v", "CUSTOMA;7", "7 pieces"},
      {"empty counts 0", "v", "CUSTOMA;8;+;8", "0"},
      {"item ID", "v", "CUSTOMA;0;*;2", "48"},
      {"two noughts are no item ID", "v", "CUSTOMA;00;:;2;:;00", "]4]"},
      {"colon joins values", "v", "CUSTOMA;1;:;7", "10]7 pieces"},
      {"unknown operator joins too", "v", "CUSTOMA;1;?;2", "10]4"},
      {"arithmetic on joined values takes the first", "v", "CUSTOMA;1;:;2;+;3", "13"},
      {"operator without an operand", "v", "CUSTOMA;1;*;2;+", "40"},
      {"attribute beyond the item", "v", "CUSTOMA;99;+;1", "10"},
      {"an empty cell is worked on once", "", "CUSTOMA;5;*;6", "10"},
      {"value by value", "a]b]c", "CUSTOMA;5;*;6", "10]40]0"},
      {"single value at its position only", "a]b", "CUSTOMA;1;+;5", "11]2"},
      {"prefix in small letters is a code", "v", "customa;1", "####"},
      {"code on each value", "ab]]Cd", "MCU", "AB]]CD"},
      {"code on an empty cell, once", "", "L", "0"},
      {"inconvertible stays in the cell", "x]1", "MD0", "####]1"},
      {"chain, second to the result of the first", "150]275", "MD2]MD1", "0.2]0.3"},
      {"chain behind joined values", "x", "CUSTOMA;1;:;7]MCU", "10]7 PIECES"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    EXPECT_EQ(Shown(ApplyCorrelative(Values(row.value), Values(row.correlative), dataItem, "12", "f")),
              Shown(Values(row.want)));
  }
}

}  // namespace
}  // namespace nvadmin::test
