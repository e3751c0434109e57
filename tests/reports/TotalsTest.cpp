// Totals: what is summed, its text, its limits, and where sub-total and total lines stand.
#include <gtest/gtest.h>

#include <algorithm>

#include "tests/reports/ReportSession.h"
#include "tests/support/TemporaryFolder.h"

namespace nvadmin::test {
namespace {

using Totals = ReportSession;

TEST_F(Totals, SumTable) {
  engine.File("orders_dict")["W"] = Dyn("A^2^Wide^^^^^^L^24");
  struct Row {
    std::string_view name;
    std::vector<std::string_view> cells;
    std::string_view want;  // empty: the report fails
  };
  const Row rows[] = {
      {"values of one cell", {"1]2]]3"}, "6"},
      {"leading numbers", {"12 pieces", "x7", " 3", "1.5.5"}, "16.5"},
      {"nothing", {"", ""}, "0"},
      {"zeros at the end vanish", {"1.25", "1.75"}, "3"},
      {"no binary fraction", {"0.1", "0.2", "-0.3"}, "0"},
      {"half rounds away from zero", {"0.00005"}, "0.0001"},
      {"half of a negative", {"-0.00005"}, "-0.0001"},
      {"each value is rounded by itself", {"0.00006", "0.00006"}, "0.0002"},
      {"no negative zero", {"-0.00001"}, "0"},
      {"upper limit", {"922337203685477.5807"}, "922337203685477.5807"},
      {"lower limit", {"-922337203685477.5808"}, "-922337203685477.5808"},
      {"one value above the limit", {"922337203685477.5808"}, ""},
      {"above the limit by rounding", {"922337203685477.58075"}, ""},
      {"more digits than any number", {"99999999999999999999999999999999999"}, ""},
      {"sum above the limit", {"922337203685477.5807", "0.0001"}, ""},
      {"sum below the limit", {"-922337203685477.5807", "-0.0002"}, ""},
      {"above the limit and back", {"922337203685477", "1", "-9"}, ""},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    Items& items = engine.File("orders");
    items.clear();
    for (std::string_view cell : row.cells)
      items[std::to_string(items.size() + 1)] = Dyn("x^" + std::string(cell));
    const Grid keys = NumberedKeys(static_cast<int>(row.cells.size()));
    if (!row.want.empty()) engine.Type({""});
    std::string screen;
    const std::string failure = FailureOf([&] { screen = Report("W", "x]TOTAL]W", "", keys); });
    if (row.want.empty()) {
      EXPECT_NE(failure.find("'Wide'"), std::string::npos) << failure;
      continue;
    }
    std::string want = "\nTotal(s)   " + std::string(row.want);
    want.append(37 - want.size(), ' ').append("$\n");
    EXPECT_NE(screen.find(want), std::string::npos) << failure << screen;
  }
}

// Sums stand on columns left and right of the break column. The first change writes the sub-total before the
// item's lines, with the item already in the sums to the left and not in those to the right; later changes
// write none.
TEST_F(Totals, SubTotalAtTheFirstBreakAndBothLinesAtTheEnd) {
  engine.File("orders") = {
      {"1", Dyn("Ada^5^^^10")}, {"2", Dyn("Ada^2^^^20")}, {"3", Dyn("Bob^1^^^30")}, {"4", Dyn("Cy^4^^^40")}};
  engine.Type({""});
  EXPECT_EQ(Report("QTY]NAME]PRICE", "BY]NAME]TOTAL]QTY]break-on]NAME\\]Total]PRICE", "", NumberedKeys(4)),
            "[CLEAR][HOME]Page 1      LIST orders$\n"
            "$\n"
            "ItemID         QtyName      Price$\n"
            "=========== ===== ====== ======= $\n"
            "$\n"
            "1              5  Ada        10  $\n"
            "2              2  Ada        20  SubTotal(s)    8             30 $\n"
            "$\n"
            "3              1  Bob        30  $\n"
            "4              4  Cy         40  $\n"
            "SubTotal(s)    4             70 $\n"
            "Total(s)      12            100 $\n" +
                Closing(4));
}

TEST_F(Totals, WithoutTheIdTheLabelTakesTheFirstColumnAndSumsAreConverted) {
  engine.File("orders") = {{"1", Dyn("Ada^5^^1250")}, {"2", Dyn("Bob^2^^-7")}};
  engine.Type({""});
  EXPECT_EQ(Report("QTY]AMT]NAME", "x]TOTAL]QTY]TOTAL]AMT]BREAK-ON]NAME\\", "ID-SUPP", NumberedKeys(2)),
            "[CLEAR][HOME]Page 1      LIST orders$\n"
            "$\n"
            "   Qty    AmountName   $\n"
            "===== ========= ====== $\n"
            "$\n"
            "   5     12.50  Ada    SubTo    12.43        $\n"
            "$\n"
            "   2     -0.07  Bob    $\n"
            "SubTo     0.00        $\n"
            "Total    12.43        $\n" +
                Closing(2));
}

TEST_F(Totals, TheGrandTotalHasItsLimitBehindASubTotalToo) {
  engine.File("orders") = {{"1", Dyn("Ada^922337203685477")}, {"2", Dyn("Bob^1")}};
  EXPECT_THROW(Report("NAME]QTY", "x]TOTAL]QTY]BREAK-ON]NAME\\", "", NumberedKeys(2)), EngineFailure);
}

// Which phrases count, and what happens without them. `want` is what the screen holds of the labels.
TEST_F(Totals, PhraseTable) {
  engine.File("orders") = {{"1", Dyn("Ada^5^^^10")}, {"2", Dyn("Bob^2^^^20")}, {"3", Dyn("Cy^2^^^20")}};
  struct Row {
    std::string_view name, words, modifiers;
    int subTotals, totals;
  };
  const Row rows[] = {
      {"none", "NAME]QTY", "", 0, 0},
      {"total", "NAME]QTY", "BY]QTY]TOTAL]QTY", 0, 1},
      {"at the very start and again: the first is found", "NAME]QTY", "TOTAL]QTY]x]TOTAL]QTY", 0, 0},
      {"behind an empty value", "NAME]QTY", "]TOTAL]QTY", 0, 1},
      {"word of another column", "NAME]QTY", "x]TOTAL]PRICE", 0, 0},
      {"small letters", "NAME]QTY", "x]total]qty", 0, 1},
      {"word that isn't a whole value", "NAME]QTY", "x]SUBTOTAL]QTY", 0, 0},
      {"total with a subvalue behind it", "NAME]QTY", "x]TOTAL]QTY\\", 0, 0},
      {"break without a total", "NAME]QTY", "x]BREAK-ON]NAME\\", 0, 0},
      {"break without its subvalue mark", "NAME]QTY", "x]TOTAL]QTY]BREAK-ON]NAME", 0, 1},
      {"two breaks change on one item", "NAME]PRICE]QTY", "x]TOTAL]QTY]BREAK-ON]NAME\\]BREAK-ON]PRICE\\", 2,
       1},
      {"break on a column that never changes", "KEY]AMT]QTY", "x]TOTAL]QTY]BREAK-ON]AMT\\", 0, 1},
      {"error column takes no mark", "NONE]QTY", "x]TOTAL]NONE", 0, 0},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    engine.Type({""});
    int subTotals = 0, totals = 0;
    for (const std::string& line : Lines(Report(row.words, row.modifiers, "", NumberedKeys(3)))) {
      subTotals += line.find("SubTotal(s)") != line.npos;
      totals += line.starts_with("Total(s)");
    }
    EXPECT_EQ(subTotals, row.subTotals);
    EXPECT_EQ(totals, row.totals);
  }
}

// What follows the first total line, or the heading where there is no item.
TEST_F(Totals, TotalLinesCountTwoForPaging) {
  for (int id = 1; id <= 16; ++id) engine.File("orders")[std::to_string(id)] = Dyn("Ada^1");
  engine.File("orders")["17"] = Dyn("Bob^1");
  const std::string prompt = "$\n(CR) to continue or q+(CR) to Quit: ";
  const std::string page2 = prompt +
                            "[IN ]\n[CLEAR][HOME]Page 2      LIST orders$\n$\n"
                            "ItemID         QtyName   $\n=========== ===== ====== $\n";
  const struct {
    std::string_view name, modifiers, answer;
    int items;
    std::string start, want;
  } rows[] = {
      {"a page is due behind the total", "x]TOTAL]QTY", "", 16, "Total(s)",
       "Total(s)      16        $\n" + page2 + Closing(16)},
      {"21 lines: no page is due", "x]TOTAL]QTY", "", 15, "Total(s)",
       "Total(s)      15        $\n" + Closing(15)},
      {"no line is open below the heading", "x]TOTAL]QTY", "", 0, "===== $",
       "===== $\nTotal(s)       0        $\n" + Closing(0)},
      {"a sub-total that opens a page leaves an empty line above the next item",
       "x]TOTAL]QTY]BREAK-ON]NAME\\", "", 17, "SubTotal(s)",
       "SubTotal(s)   17        $\n" + page2 +
           "$\n17             1  Bob    $\nSubTotal(s)    0        $\nTotal(s)      17        $\n" +
           Closing(17)},
      {"quitting behind a sub-total", "x]TOTAL]QTY]BREAK-ON]NAME\\", "q", 17, "SubTotal(s)",
       "SubTotal(s)   17        $\n" + prompt + "[IN q]\n[CLEAR]:"},
      {"quitting behind the total", "x]TOTAL]QTY", "Q", 16, "Total(s)",
       "Total(s)      16        $\n" + prompt + "[IN Q]\n[CLEAR]:"},
  };
  for (const auto& row : rows) {
    for (std::size_t at = 0; (at = row.want.find("[IN ", at)) != row.want.npos; ++at)
      engine.Type({row.answer});
    const std::string screen = Report("QTY]NAME", row.modifiers, "", NumberedKeys(row.items));
    EXPECT_EQ(screen.substr(std::min(screen.find(row.start), screen.size())), row.want) << row.name;
  }
}

}  // namespace
}  // namespace nvadmin::test
