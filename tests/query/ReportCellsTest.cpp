// The cells of a report as the engine computes them, beside its keys.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "engine/ResultGrid.h"
#include "engine/query/RunQuery.h"
#include "mv/Conversions.h"
#include "tests/query/MemoryStore.h"

namespace nvadmin::engine {
namespace {

class ReportCells : public testing::Test {
 protected:
  ReportCells() {
    constexpr const char* kItems[][3] = {
        {"DICT F", "NAME", "A^1^Name]of it^^^^^^L^20"},
        {"DICT F", "AMT", "S^2^^^^^MD2^^r^9x"},
        {"DICT F", "TWICE", "A^2^Twice^^^^^A;2*\"2\"^R^0"},
        {"DICT F", "DUE", "D^3^D4-YMD^Due^10R"},
        {"DICT F", "ITEM_ID", "A^0^^^^^^^^5"},
        {"DICT F", "N\xFAMERO", "A^1^N\xFAmero^^^^^^L^7"},
        {"DICT F", "NOTE", "X^1^Note^^^^MD2^^R^4"},
        {"DICT F", "1", "A^1^^^^^^^L^8"},
        {"DICT F", "3", "A^2^Three^^^^MD2^^R^8"},
        {"DICT F", "6", "X^^Six"},
        {"DICT F", "9", "A^1^behind the fourth miss"},
        {"F", "a", "Smith]Jones^150]]x]-25^0]19000"},
        {"F", "b", "^^"},
        {"F", "c", "Y"},
    };
    for (const auto& [file, id, item] : kItems) store_.Put(file, id, item);
  }

  // The row from column 1 on, "|" between columns; descriptions with "," between pieces.
  std::string Row(std::int32_t row) const {
    std::string cells;
    for (std::int32_t column = 1; column <= grid_.HighestColumn(); ++column) {
      if (column > 1) cells += '|';
      cells += grid_.Cell(column, row);
    }
    std::replace(cells.begin(), cells.end(), '\xFA', ',');
    return WithoutMarks(cells);
  }
  bool Run(std::string_view sentence) {
    return RunQuery(sentence, store_, nullptr, grid_, reply_, error_, GridContents::kKeysAndCells);
  }

  MemoryStore store_;
  ResultGrid grid_;
  std::string reply_;
  std::string error_;
};

TEST_F(ReportCells, AreWhatTheColumnsShow) {
  const struct {
    const char *fault, *column, *description, *cellOfA, *cellOfB;
  } cases[] = {
      {"all of a heading", "NAME", "Name]of it,L20,,NAME", "Smith]Jones", ""},
      {"each value by itself, an odd one as it is", "AMT", "AMT,R9,MD2,AMT", "1.50]]x]-0.25", ""},
      {"a correlative, also of an empty attribute", "TWICE", "Twice,R10,,TWICE", "300]0]0]-50", "0"},
      {"D items have their own layout", "DUE", "Due,R10,D4-YMD,DUE", "1967-12-31]2020-01-07", ""},
      {"the item ID under another sign, no heading", "ITEM.ID", "ITEM.ID,L5,,ITEM.ID", "a", "b"},
      {"the piece mark is a letter too", "N\xFAMERO", "Numero,L7,,NuMERO", "Smith]Jones", ""},
      {"an item that is no column", "NOTE", "Note,R4,,NOTE", "", ""},
      {"no item, but an attribute", "a2", "A2,L10,,a2", "150]]x]-25", ""},
      {"no item", "NOWHERE", "ERROR(NOWHERE),L10,,NOWHERE", "", ""},
      {"words count as they are spelt", "name", "ERROR(name),L10,,name", "", ""},
      {"the item ID has no word of its own", "@ID", "ERROR(@ID),L10,,@ID", "", ""},
  };
  for (const auto& test : cases) {
    ASSERT_TRUE(Run(std::string("LIST F 'a' 'b' ") + test.column)) << error_;
    EXPECT_EQ(Row(0), test.description) << test.fault;
    EXPECT_EQ(Row(1), test.cellOfA) << test.fault;
    EXPECT_EQ(Row(2), test.cellOfB) << test.fault;
    EXPECT_TRUE(WithoutMarks(reply_).starts_with("1^2^")) << test.fault << WithoutMarks(reply_);
  }
}

TEST_F(ReportCells, StandBesideTheKeysInTheirOrder) {
  ASSERT_TRUE(Run("SORT F BY-DSND NAME NAME TOTAL AMT NAME")) << error_;
  EXPECT_EQ(KeysOf(grid_), "c a b");
  EXPECT_EQ(Row(2), "Smith]Jones|1.50]]x]-0.25|Smith]Jones");
  EXPECT_EQ(Row(3), "||");
  EXPECT_TRUE(WithoutMarks(reply_).starts_with("3^3^NAME]AMT]NAME^")) << WithoutMarks(reply_);

  ASSERT_TRUE(Run("LIST F 'a' 'gone' 'c' NAME")) << error_;
  EXPECT_EQ(KeysOf(grid_), "a c");
  EXPECT_EQ(Row(2), "Y");
}

// A page adds up the cells and shows the sum under the code of the description; a report on tables adds up
// what is stored.
TEST_F(ReportCells, AddUpToTheTotalOfWhatIsStored) {
  constexpr const char* kStored[] = {"108915", "2300000", "-125000", "5"};
  const auto sum = [](const std::string& values) { return mv::Oconv(values, "AE;S(1)"); };
  for (const std::string code : {"MD2", "MD2,$", "MD2-", "MD0,", "MR2,$#14", "MD2,$14*", "MT", "D2/", ""}) {
    store_.Put("DICT M", "V", "A^1^V^^^^" + code + "^^R^9");
    std::string cells, stored;
    for (const char* value : kStored) {
      store_.Put("M", value, value);
      stored.append("\xFD").append(value);
    }
    ASSERT_TRUE(Run("LIST M V TOTAL V")) << error_;
    for (std::int32_t row = 1; row <= grid_.HighestRow(); ++row)
      cells.append("\xFD").append(grid_.Cell(1, row));
    std::string shown(grid_.Cell(1, 0));
    shown = shown.substr(shown.find('\xFA', shown.find('\xFA') + 1) + 1);
    shown.resize(shown.find('\xFA'));
    EXPECT_EQ(mv::Oconv(sum(cells), shown), mv::Oconv(sum(stored), code)) << code;
  }
}

TEST_F(ReportCells, ShowTheNumberedItemsWithoutColumnWords) {
  ASSERT_TRUE(Run("LIST F 'a'")) << error_;
  EXPECT_EQ(Row(0), ",L8,,|Three,R8,MD2,|Six,L10,,");
  EXPECT_EQ(Row(1), "Smith]Jones|1.50]]x]-0.25|");
  store_.Put("BARE", "x", "1");
  ASSERT_TRUE(Run("LIST BARE")) << error_;
  EXPECT_EQ(KeysOf(grid_), "x");
  EXPECT_EQ(grid_.HighestColumn(), 0);
  EXPECT_TRUE(WithoutMarks(reply_).starts_with("0^1^")) << WithoutMarks(reply_);
}

TEST_F(ReportCells, CostOneReadAnItemAndBelongToReportsOnly) {
  ASSERT_TRUE(Run("SELECT F")) << error_;
  EXPECT_EQ(grid_.HighestColumn(), 0);
  for (int item = 0; item < 1000; ++item) store_.Put("F", std::to_string(item), "text^5");
  store_.itemsRead = 0;
  ASSERT_TRUE(Run("LIST F NAME AMT TWICE DUE")) << error_;
  EXPECT_EQ(grid_.HighestRow(), 1003);
  EXPECT_EQ(store_.itemsRead, 1003 + 4) << "with the four dictionary items";
}

}  // namespace
}  // namespace nvadmin::engine
