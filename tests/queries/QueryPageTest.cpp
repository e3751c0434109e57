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
  for (const int count : {499, 500}) {
    engine.Answer("SELECT a FROM many;", Dyn("2^2"), NumberedKeys(count));
    const bool warns =
        Page("SELECT a FROM many;").find("has added a LIMIT of 500 rows.  You") != std::string::npos;
    EXPECT_EQ(warns, count == 500) << count;
  }
}

}  // namespace
}  // namespace nvadmin::test
