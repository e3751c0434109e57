#include "engine/stores/SqlText.h"

#include <gtest/gtest.h>

namespace nvadmin::engine {
namespace {

std::string TokensOf(std::string_view statement) {
  constexpr char kLetters[] = {'w', 'q', 's', 'n', 'y', '!'};
  std::string joined;
  for (const SqlToken& token : CutSqlTokens(statement)) {
    EXPECT_EQ(statement.substr(token.start, token.text.size()), token.text);
    if (!joined.empty()) joined += ' ';
    joined += kLetters[static_cast<int>(token.kind)];
    joined += ':';
    joined += token.text;
  }
  return joined;
}

TEST(SqlText, CutsTokens) {
  const char* const cases[][2] = {
      {"", ""},
      {" \t\r\n", ""},
      {"a1<=2.5", "w:a1 y:< y:= n:2.5"},
      {"'it''s; --' x", "s:'it''s; --' w:x"},
      {"\"a\"\"b\" `c``d` [e;f]", "q:\"a\"\"b\" q:`c``d` q:[e;f]"},
      {"a--b;'\nc", "w:a w:c"},
      {"a/* ' ; */b", "w:a w:b"},
      {"a /* no end", "w:a !: /* no end"},
      {"a 'no end''", "w:a !:'no end''"},
      {"--only", ""},
      {"\xE9t\xE9;x'00'", "w:\xE9t\xE9 y:; w:x s:'00'"},
  };
  for (const auto& [statement, tokens] : cases) EXPECT_EQ(TokensOf(statement), tokens) << statement;
}

TEST(SqlText, MakesTopALimit) {
  const char* const cases[][2] = {
      {"SELECT TOP 5 * FROM t", "SELECT       * FROM t LIMIT 5"},
      {"select top(7) a from t;", "select        a from t LIMIT 7;"},
      {"SELECT DISTINCT TOP 5 a FROM t -- all", "SELECT DISTINCT       a FROM t LIMIT 5 -- all"},
      {"SELECT TOP 5 a FROM t LIMIT 2", "SELECT * FROM (SELECT       a FROM t LIMIT 2) LIMIT 5"},
      {"SELECT TOP 1 a FROM t UNION SELECT b FROM u ORDER BY 1",
       "SELECT * FROM (SELECT       a FROM t LIMIT 1) UNION SELECT b FROM u ORDER BY 1"},
      {"SELECT a FROM t UNION ALL SELECT TOP 2 b FROM u ORDER BY 1 LIMIT 9",
       "SELECT a FROM t UNION ALL SELECT * FROM (SELECT       b FROM u LIMIT 2) ORDER BY 1 LIMIT 9"},
      {"SELECT a FROM t WHERE b IN (SELECT TOP 3 c FROM u) AND d = 1",
       "SELECT a FROM t WHERE b IN (SELECT       c FROM u LIMIT 3) AND d = 1"},
      {"SELECT TOP 4 a FROM (SELECT TOP 2 b AS a FROM u LIMIT 1)",
       "SELECT       a FROM (SELECT * FROM (SELECT       b AS a FROM u LIMIT 1) LIMIT 2) LIMIT 4"},
      {"WITH c AS (SELECT TOP 1 a FROM t) SELECT TOP 2 * FROM c",
       "WITH c AS (SELECT       a FROM t LIMIT 1) SELECT       * FROM c LIMIT 2"},
      {"INSERT INTO t SELECT TOP 2 * FROM u ON CONFLICT DO NOTHING RETURNING a",
       "INSERT INTO t SELECT       * FROM u LIMIT 2 ON CONFLICT DO NOTHING RETURNING a"},
      {"SELECT count(*) OVER (ORDER BY a), TOP FROM t", "SELECT count(*) OVER (ORDER BY a), TOP FROM t"},
      {"SELECT 'SELECT TOP 5 x' FROM t", "SELECT 'SELECT TOP 5 x' FROM t"},
      {"SELECT TOP 5 'no end", "SELECT TOP 5 'no end"},
      {"DELETE FROM t", "DELETE FROM t"},
      {"SELECT TOP 10 PERCENT a FROM t", "TOP"},
      {"SELECT TOP 3 WITH TIES a FROM t ORDER BY a", "TOP"},
      {"SELECT TOP 1.5 a FROM t", "TOP"},
      {"SELECT TOP 9999999999999999999 a FROM t", "TOP"},
  };
  for (const auto& [statement, want] : cases) {
    RewrittenSql rewritten;
    std::string error;
    const bool isDone = RewriteTop(statement, rewritten, error);
    EXPECT_EQ(isDone ? rewritten.text : error.substr(0, 3), want) << statement << error;
  }
}

TEST(SqlText, KeepsMemoColumnsText) {
  const char* const cases[][2] = {
      {"CREATE TABLE memo (memo MEMO, b memo NOT NULL, c VARCHAR(4))",
       "CREATE TABLE memo (memo TEXT, b TEXT NOT NULL, c VARCHAR(4))"},
      {"ALTER TABLE memo ADD COLUMN memo MEMO", "ALTER TABLE memo ADD COLUMN memo TEXT"},
      {"CREATE TABLE a AS SELECT b, c memo FROM d", "CREATE TABLE a AS SELECT b, c memo FROM d"},
      {"INSERT INTO a (b, memo) VALUES (1, 'x MEMO')", "INSERT INTO a (b, memo) VALUES (1, 'x MEMO')"},
  };
  for (const auto& [statement, want] : cases) {
    std::string rewritten = statement;
    RewriteMemo(rewritten);
    EXPECT_EQ(rewritten, want);
  }
}

// "name|layout|A0 limit, column limits; ! is NOT NULL", empty when it is no such sentence.
std::string ShapeOf(std::string_view sentence, SentenceBy by = SentenceBy::kUser) {
  NewTable table;
  if (!ReadCreateTable(sentence, by, table)) return "";
  std::string shape = table.name + (table.layout == Layout::kItem ? "|N|" : "|C|");
  for (const NewColumn& column : table.columns) {
    shape += std::to_string(column.limit) + (column.notNull ? "!" : "") + ",";
  }
  return shape;
}

TEST(SqlText, ReadsCreateTableOfEveryDialect) {
  const char* const cases[][2] = {
      {"CREATE TABLE cust (A0 VARCHAR(25) CONSTRAINT idxcust PRIMARY KEY, A1 VARCHAR(36))", "cust|C|25,36,"},
      {"CREATE TABLE cust (A0 VARCHAR(25) PRIMARY KEY, A1 VARCHAR(36) NOT NULL)", "cust|C|25,36!,"},
      {"CREATE TABLE cust (A0 VARCHAR(25), A1 VARCHAR(36), PRIMARY KEY(A0))", "cust|C|25,36,"},
      {"CREATE TABLE bp (A0 VARCHAR(60) CONSTRAINT idxbp PRIMARY KEY, ITEM MEMO)", "bp|N|60,0,"},
      {"CREATE TABLE bp (A0 VARCHAR(25), ITEM TEXT, PRIMARY KEY(A0))", "bp|N|25,0,"},
      {"CREATE TABLE t (A0 VARCHAR(25) PRIMARY KEY, A1 MEDIUMTEXT NOT NULL, A2 TEXT NOT NULL, A3 CLOB, A4 "
       "MEMO)",
       "t|C|25,0!,0!,0,0,"},
      {"CREATE TABLE t (A0 VARCHAR(25), A1 VARCHAR(0), A2 VARCHAR(-5), PRIMARY KEY(A0))", "t|C|25,0,0,"},
      {"create table Order (a0 varchar(25) primary key, a1 text);", "Order|C|25,0,"},
      // Names.
      {"CREATE TABLE a b (A0 VARCHAR(25) CONSTRAINT idxa b PRIMARY KEY, A1 TEXT)", "a b|C|25,0,"},
      {"CREATE TABLE x; DROP TABLE y; -- (A0 VARCHAR(25) CONSTRAINT idxx; DROP TABLE y; -- PRIMARY KEY, ITEM "
       "MEMO)",
       "x; DROP TABLE y; --|N|25,0,"},
      {"CREATE TABLE x (A0 VARCHAR(1)); DROP TABLE y; (A0 VARCHAR(25) PRIMARY KEY, ITEM TEXT)",
       "x (A0 VARCHAR(1)); DROP TABLE y;|N|25,0,"},
      {"CREATE TABLE \xE9\xFE (A0 VARCHAR(25) PRIMARY KEY, ITEM TEXT)", "\xE9\xFE|N|25,0,"},
      {"CREATE TABLE x (A0 VARCHAR(25) PRIMARY KEY)", "x|C|25,0,"},
      {"CREATE TABLE  (A0 VARCHAR(25) PRIMARY KEY, A1 TEXT)", "|C|25,0,"},
      {"CREATE TABLE \"x\" (A0 VARCHAR(25) CONSTRAINT idx\"x\" PRIMARY KEY, A1 TEXT)", "\"x\"|C|25,0,"},
      // No such sentences.
      {"CREATE TABLE \"x\"\"y\" (A0 VARCHAR(25) PRIMARY KEY, A1 TEXT)", "x\"y|C|25,0,"},
      {"CREATE TABLE [x] (A0 VARCHAR(25) PRIMARY KEY, A1 TEXT)", "x|C|25,0,"},
      {"CREATE TABLE IF NOT EXISTS x (A0 VARCHAR(25) PRIMARY KEY, A1 TEXT)", ""},
      {"CREATE TABLE x (A0 VARCHAR(25) PRIMARY KEY, A1 TEXT, A3 TEXT)", ""},
      {"CREATE TABLE x (A0 VARCHAR(25) PRIMARY KEY, ITEM TEXT, A1 TEXT)", ""},
      {"CREATE TABLE x (A0 VARCHAR(25), A1 TEXT)", ""},
      {"CREATE TABLE x (A0 VARCHAR(25) CONSTRAINT idxy PRIMARY KEY, A1 TEXT)", ""},
      {"CREATE TABLE x (A0 VARCHAR(25) PRIMARY KEY, A1 TEXT); DROP TABLE y", ""},
      {"CREATE TABLE x (A0 VARCHAR(99999999999999999999) PRIMARY KEY, A1 TEXT)", ""},
  };
  for (const auto& [sentence, shape] : cases) EXPECT_EQ(ShapeOf(sentence), shape) << sentence;
}

}  // namespace
}  // namespace nvadmin::engine
