// The page of an SQL query.
#include "tests/support/Golden.h"
#include "tests/support/ScriptedSession.h"

namespace nvadmin::test {
namespace {

class QueryPages : public ScriptedSession {
 protected:
  QueryPages() { engine.OutputMode("HTML"); }

  std::string Page(std::string_view sentence) {
    engine.Type({"fx1|CLOSE"});
    return Run(sentence);
  }
};

TEST_F(QueryPages, ShowRowsAndErrors) {
  engine.Answer("SELECT TOP 500 a, b from t;", Dyn("2^2"), Grid{{"1", Dyn("x]y]<b>")}, {"2", ""}});
  engine.RefuseSentence("SELECT TOP 500 no from no;", "no such table: no");
  ExpectGolden("queries/golden/page.txt", Page("select a, b from t;") + Page("SELECT no from no;"));
}

TEST_F(QueryPages, RowLimitTable) {
  struct Row {
    std::string_view datastore, sentence, executed;
  };
  const Row rows[] = {
      {"JET", "select a from (select b from c);", "SELECT TOP 500 a from (select b from c);"},
      {"JET", "SELECT top 9 a FROM t;", "SELECT top 9 a FROM t;"},
      {"jet", "SELECT a FROM t;", "SELECT a FROM t;"},
      {"MYSQL", "SELECT a FROM t;", "SELECT a FROM t;"},
  };
  for (const Row& row : rows) {
    LogOn(row.datastore);
    engine.Answer(row.executed, Dyn("2^2"), Grid{});
    EXPECT_NE(Page(row.sentence).find("Rows found = 0</h3>"), std::string::npos) << row.executed;
  }
  for (const int count : {499, 500, 501}) {
    engine.Answer("SELECT a FROM many;", Dyn("2^2"), NumberedKeys(count));
    const std::string page = Page("SELECT a FROM many;");
    const auto holds = [&](std::string_view text) { return page.find(text) != std::string::npos; };
    EXPECT_EQ(holds("has added a LIMIT of 500 rows.  You"), count >= 500) << count;
    EXPECT_EQ(holds("Rows found = 499</h3>"), count == 499) << count;
    EXPECT_TRUE(holds("<td>" + std::to_string(count) + "</td></tr></table></TX>$")) << "all rows are shown";
  }
}

TEST_F(QueryPages, CellsPassAsTheyAre) {
  std::string bytes, values, lines;
  for (int byte = 0; byte < 256; ++byte) {
    if (byte != 0xFD) bytes += static_cast<char>(byte);
  }
  for (int value = 0; value < 100'000; ++value) {
    values += '\xFD';
    lines += "<BR>";
  }
  const std::string markup = "</td></table></TX><TERMINAL>^MSGBOX|\"'";
  const std::string large(100'000, '<');
  engine.Answer("SELECT TOP 500 a FROM t;", Dyn("2^2"), Grid{{markup, bytes}, {large, values}});
  const std::string page = Page("SELECT a FROM t;");
  for (const auto& [first, second] : {std::pair(markup, bytes), std::pair(large, lines)}) {
    const std::string row = "><td>" + Shown(first) + "</td><td>" + Shown(second) + "</td></tr>";
    EXPECT_TRUE(page.find(row) != std::string::npos) << row.substr(0, 99);
  }
}

}  // namespace
}  // namespace nvadmin::test
