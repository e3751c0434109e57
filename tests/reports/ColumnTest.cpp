// Columns: what a word of the sentence becomes, and the cells that a column makes. Read from the printed
// report: the heading line and the lines of the first item.
#include <gtest/gtest.h>

#include "tests/reports/ReportSession.h"

namespace nvadmin::test {
namespace {

using Column = ReportSession;

constexpr std::size_t kHeadingLine = 2;
constexpr std::size_t kUnderline = 3;
constexpr std::size_t kFirstValueLine = 5;

TEST_F(Column, WordTable) {
  const std::pair<const char*, std::string_view> columns[] = {
      {"MY_COL", "A^1^^^^^^^L^8"},
      {"A.9", ""},
      {"X9", "X^1^Other^^^^^^L^8"},
      {"A7", "A^2^Seven^^^^^^L^8"},
      {"LOWTYPE", "direct^1^Low^^^^^^L^8"},
      {"BLANKHEAD", "A^1^  ^^^^^^L^10"},
      {"TWOLINES", "A^1^Two]Lines^^^^^^L^12"},
      {"ZERO", "A^2^Zero^^^^^^ r ^0"},
      {"ODD", "A^2^Odd^^^^^^RX^4 wide"},
      {"TIGHT", "A^1^Tight^^^^^^R^3"},
  };
  for (const auto& [id, item] : columns) engine.File("orders_dict")[id] = Dyn(item);
  engine.File("orders")["1"] = Dyn("Ada^5^^^x5");
  struct Row {
    std::string_view name, word, heading, underline, line;
  };
  const Row rows[] = {
      {"left", "NAME", "Name   $", "====== $", "Ada    "},
      {"right ends in two blanks", "QTY", "   Qty$", "===== $", "   5  "},
      {"right as wide as the column loses its left end", "TIGHT", "ight$", "=== $", "da  "},
      {"underscore for a dot, headed by the word", "MY.COL", "MY.COL   $", "======== $", "Ada      "},
      {"made up", "A5", "A5         $", "========== $", "x5         "},
      {"made up, small letter", "a5", "A5         $", "========== $", "x5         "},
      {"found before it is made up", "A7", "Seven    $", "======== $", "5        "},
      {"A and no number", "A5X", "ERROR(A5X) $", "========== $", "           "},
      {"a dot is never made up", "A.5", "ERROR(A.5) $", "========== $", "           "},
      {"an empty item is none", "A.9", "ERROR(A.9) $", "========== $", "           "},
      {"letter case of a word counts", "qty", "ERROR(qty) $", "========== $", "           "},
      {"another type has a heading and no cells", "X9", "Other    $", "======== $", "         "},
      {"type by its first letter in capitals", "LOWTYPE", "Low      $", "======== $", "Ada      "},
      {"heading of blanks becomes the word", "BLANKHEAD", "BLANKHEAD  $", "========== $", "Ada        "},
      {"heading with values is one text", "TWOLINES", "Two{VM}Lines    $", "============ $", "Ada          "},
      {"width 0, small r between blanks", "ZERO", "       Zero$", "========== $", "        5  "},
      {"width by its leading number, other justification", "ODD", "Odd  $", "==== $", "5    "},
      {"item ID as a column", "KEY", "Key  $", "==== $", "1    "},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    engine.Type({""});
    const std::vector<std::string> lines = Lines(Report(row.word, "", "", Keys({"1"})));
    ASSERT_GT(lines.size(), kFirstValueLine);
    EXPECT_EQ(lines[kHeadingLine], "ItemID      " + std::string(row.heading));
    EXPECT_EQ(lines[kUnderline], "=========== " + std::string(row.underline));
    EXPECT_EQ(lines[kFirstValueLine], "1           " + std::string(row.line) + "$");
  }
}

TEST_F(Column, CellTable) {
  struct Row {
    std::string_view name, dictionaryItem, dataItem, want;  // lines of the item, parted by "/"
  };
  const Row rows[] = {
      {"conversion between blanks", "A^1^H^^^^ MD2 ^^L^8", "1250", "12.50    "},
      {"inconvertible stays as it is stored", "A^1^H^^^^MD2^^L^8", "n/a", "n/a      "},
      {"inconvertible under a correlative shows", "A^1^H^^^^^MD2^L^8", "n/a", "####     "},
      {"empty gets no conversion", "A^1^H^^^^L^^L^8", "", "         "},
      {"empty gets the correlative", "A^1^H^^^^^L^L^8", "", "0        "},
      {"conversion behind the correlative", "A^1^H^^^^MD1^L^L^8", "abcde", "0.5      "},
      {"each value by itself", "A^1^H^^^^MD1^^L^8", "15]x]]7", "1.5      /x        /         /0.7      "},
      {"conversion that empties values keeps places", "A^1^H^^^^MD0Z^^L^8", "0]3", "         /3        "},
      {"attribute by its leading number", "A^2 x^H^^^^^^L^8", "a^b", "b        "},
      {"attribute without a number", "A^x^H^^^^^^L^8", "a^b", "         "},
      {"two noughts are no item ID", "A^00^H^^^^^^L^8", "a^b", "         "},
      {"correlative that joins values", "A^1^H^^^^^A;N(NAME):N(QTY)^L^8", "a^b", "a        /b        "},
      {"correlative that can't be compiled is a code", "A^1^H^^^^^A;N(NONE)^L^8", "a", "####     "},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    engine.File("orders_dict")["COL"] = Dyn(row.dictionaryItem);
    engine.File("orders")["1"] = Dyn(row.dataItem);
    engine.Type({""});
    const std::vector<std::string> lines = Lines(Report("COL", "", "", Keys({"1"})));
    std::string got;
    for (std::size_t line = kFirstValueLine; line < lines.size() && lines[line] != "$"; ++line) {
      EXPECT_EQ(lines[line].substr(0, 12), line == kFirstValueLine ? "1           " : "            ");
      got += (got.empty() ? "" : "/") + lines[line].substr(12, lines[line].size() - 13);
    }
    EXPECT_EQ(got, row.want);
  }
}

TEST_F(Column, DefaultColumnsStopAtTheFourthMissAndAreNotRepaired) {
  engine.File("orders")["1"] = Dyn("a^b^c^d^e");
  Items& dictionary = engine.File("orders_dict");
  for (std::string_view id : {"1", "2", "3", "5", "9"}) {
    dictionary[std::string(id)] = Dyn("A^" + std::string(id) + "^H" + std::string(id) + "^^^^^^L^3");
  }
  dictionary["2"] = Dyn("A^2^^^^^^^L^3");
  engine.Type({""});
  const std::vector<std::string> lines = Lines(Report("", "]x]TOTAL]2", "", Keys({"1"})));
  EXPECT_EQ(lines[kHeadingLine], "ItemID      H1      H3  H5  $");
  EXPECT_EQ(lines[kFirstValueLine], "1           a   b   c   e   $");
  EXPECT_EQ(lines[6], "$");
  EXPECT_EQ(lines[7].substr(0, 10), "**********") << "no totals for default columns";
  EXPECT_NE(engine.Calls().find(", 8) false"), std::string::npos);
  EXPECT_EQ(engine.Calls().find(", 9)"), std::string::npos);
}

TEST_F(Column, TheDictionaryIsNotReadForEachItem) {
  for (int id = 1; id <= 9; ++id) engine.File("orders")[std::to_string(id)] = Dyn("a^2^^^3");
  engine.Type({""});
  Report("SUM]A5", "", "", NumberedKeys(9));
  EXPECT_EQ(engine.CallCount("ReadItem"), 9 + 4) << "SUM, its QTY and PRICE, A5; then the items";
}

}  // namespace
}  // namespace nvadmin::test
