// What is the relational store's own: SQL of the user, tables made by hand, and how much a table holds.
#include "engine/stores/SqliteStore.h"

#include "StoreKinds.h"
#include "engine/stores/OpenStore.h"

namespace nvadmin::engine {
namespace {

using std::string_literals::operator""s;

class SqliteStoreTest : public testing::Test {
 protected:
  std::string Run(std::string_view statement) { return Sql(*store_, statement); }
  // Why no file opens under that name.
  std::string RefusalOfOpen(std::string_view name) {
    TableHandle table = -1;
    std::string error;
    EXPECT_FALSE(store_->OpenTable(name, table, error));
    return error;
  }

  const TestAccount account_{"JET"};
  std::unique_ptr<Store> store_ = account_.Open();
};

TEST_F(SqliteStoreTest, RunsSql) {
  const struct {
    const char* statement;
    std::string want;
  } kSteps[] = {
      {"CREATE TABLE cust (A0 VARCHAR(25) CONSTRAINT idxcust PRIMARY KEY, A1 VARCHAR(36), A2 MEMO)",
       "table cust created"},
      {"INSERT INTO cust VALUES ('1', 'M\xFCller \x80', '007'), ('2', 'b;c', x'FE00FF'), ('3', 'x', NULL);",
       "3 row(s) changed"},
      {"INSERT INTO cust (A0) VALUES ('4')", "1 row(s) changed"},  // the rest becomes empty
      {"SELECT * FROM cust ORDER BY A0", "1,M\xFCller \x80,007;2,b;c,\xFE\0\xFF;3,x,;4,,;"s},
      {"SELECT A0 FROM cust WHERE A1 LIKE 'M_ller%' -- all; of them\n ; ;", "1;"},
      {"SELECT A0 FROM cust WHERE A1 LIKE 'm%'", ""},  // case counts
      {"SELECT 1, 2.5, NULL, 'a'", "1,2.5,,a;"},
      {"SELECT A0 FROM cust WHERE A0 IN (SELECT TOP 1 A0 FROM cust ORDER BY A0) UNION SELECT TOP 1 'z'",
       "1;z;"},
      {"SELECT TOP 2 A0 FROM cust ORDER BY A0 DESC LIMIT 1 OFFSET 1", "3;"},
      {"SELECT x FROM (SELECT '\x80' AS x UNION SELECT '\xA0' UNION SELECT 'z') ORDER BY x COLLATE codepage",
       "z;\x80;\xA0;"},
      {"UPDATE cust SET A1 = 'y' WHERE A0 > '2'", "2 row(s) changed"},
      {"DELETE FROM cust WHERE A0 = '4' RETURNING A1", "y;"},
      {"SELECT A1, abs(-9223372036854775808) FROM cust", "ERROR integer overflow"},
      {"CREATE INDEX byname ON cust (A1)", "index byname created"},
      {"CREATE VIEW names AS SELECT A1 FROM cust", "view names created"},
      {"CREATE TRIGGER t AFTER INSERT ON cust BEGIN DELETE FROM cust; SELECT 1; END;", "trigger t created"},
      {"DROP TABLE cust", "table cust dropped"},
  };
  for (const auto& row : kSteps) EXPECT_EQ(Run(row.statement), row.want) << row.statement;
  EXPECT_EQ(Sql(*TestAccount("MYSQL").Open(), "SELECT TOP 1 2"),
            "ERROR near \"1\": syntax error (at character 12)");
}

TEST_F(SqliteStoreTest, MakesAndDropsTablesOfAnyName) {
  for (const std::string name :
       {"order", "a b", "it's \"quoted\"", "x; DROP TABLE cust; --", "[y]z", "\xE9t\xE9", "--", "select"}) {
    const std::string sentence = "CREATE TABLE " + name + " (A0 VARCHAR(25) CONSTRAINT idx" + name +
                                 " PRIMARY KEY, A1 VARCHAR(36), A2 TEXT)";
    EXPECT_EQ(Run(sentence), "table " + name + " created");
    EXPECT_EQ(store_->TableNames(true), std::vector<std::string>{name});
    const TableHandle table = MustOpen(*store_, name);
    EXPECT_EQ(store_->Describe(table).name, name);
    EXPECT_EQ(store_->Describe(table).limits, (std::vector<std::int64_t>{25, 36, 0}));
    MustWrite(*store_, table, "1", Dyn("a^b"));
    store_->Commit();
    EXPECT_EQ(Run(sentence), "ERROR " + name + " is there already, as a table");
    EXPECT_EQ(Run("DROP TABLE " + name), "table " + name + " dropped");
  }
  EXPECT_EQ(Run("DROP TABLE order"), "ERROR there is no table order in account TEST");
  // A name that ends like a statement is preferred to the one that it could be.
  Run("CREATE TABLE a (A0 VARCHAR(25) PRIMARY KEY, ITEM TEXT)");
  Run("CREATE TABLE a; (A0 VARCHAR(25) PRIMARY KEY, ITEM TEXT)");
  for (const char* dropped : {"a;", "a"}) EXPECT_EQ(Run("DROP TABLE a;"), "table "s + dropped + " dropped");
  EXPECT_EQ(Run("DROP TABLE IF EXISTS a"), "done");
  // What a program makes of a file's name never means another one.
  Run("CREATE TABLE Q (A0 VARCHAR(25) PRIMARY KEY, ITEM TEXT)");
  store_->ExpectSentencesBy(SentenceBy::kProgram);
  for (const std::string name : {"\"Q\"", "IF EXISTS Q", "Q;", "IF NOT EXISTS Q"}) {
    EXPECT_EQ(Run("DROP TABLE " + name), "ERROR there is no table " + name + " in account TEST");
    EXPECT_EQ(Run("CREATE TABLE " + name + " (A0 VARCHAR(25) PRIMARY KEY, ITEM TEXT)"),
              "table " + name + " created");
    EXPECT_EQ(Run("DROP TABLE " + name), "table " + name + " dropped");
  }
  EXPECT_EQ(store_->TableNames(true), std::vector<std::string>{"Q"});
  store_->ExpectSentencesBy(SentenceBy::kUser);
  EXPECT_TRUE(Run("CREATE TABLE sqlite_x (A0 VARCHAR(25) PRIMARY KEY, ITEM TEXT)").starts_with("ERROR"));
}

TEST_F(SqliteStoreTest, RefusesByName) {
  Run("CREATE TABLE t (A0 VARCHAR(25) PRIMARY KEY, ITEM TEXT)");
  const std::string outside = " is not allowed in a sentence: it reaches outside the account";
  const std::string transactions =
      " is not allowed in a sentence: the engine opens and ends transactions itself";
  const struct {
    std::string statement, error;
  } kCases[] = {
      {"PRAGMA database_list", "PRAGMA" + outside},
      {"/* x */ pragma journal_mode=DELETE", "PRAGMA" + outside},
      {"EXPLAIN PRAGMA page_size", "PRAGMA" + outside},
      {"SELECT * FROM pragma_database_list", "pragma_database_list" + outside},
      {"SELECT file FROM (SELECT * FROM \"PRAGMA_database_list\")", "pragma_database_list" + outside},
      {"ATTACH 'x' AS y", "ATTACH" + outside},
      {"VACUUM INTO 'x'",
       "VACUUM is not allowed in a sentence: it rewrites the whole account under the other sessions"},
      {"commit;", "COMMIT" + transactions},
      {"EXPLAIN BEGIN", "a transaction" + transactions},
      {"EXPLAIN SAVEPOINT x", "a savepoint" + transactions},
      {"LOCK TABLES t", "LOCK is not allowed in a sentence: the engine locks what it needs itself"},
      {"SELECT load_extension('x')", "load_extension" + outside},
      {"SELECT fts3_tokenizer('simple')", "fts3_tokenizer" + outside},
      {"CREATE VIRTUAL TABLE v USING fts5(x)",
       "a virtual table is not allowed in a sentence: it may reach outside the account"},
      {"CREATE TEMP TABLE t (A0 TEXT)",
       "a temporary table is not allowed in a sentence: it would be gone with the session"},
      {"SELECT 1; DROP TABLE t", "a sentence is one SQL statement; a second one begins with DROP"},
      {"", "there is no SQL statement"},
      {" ;; ", "there is no SQL statement"},
      {";PRAGMA page_size", "PRAGMA" + outside},
      {"SELECT 1\0; DROP TABLE t"s, "an SQL statement can't hold a character 0"},
      {"SELECT a FROMM t", "near \"t\": syntax error (at character 16)"},
      {"SELECT '\xE9', x FROM t", "no such column: x (at character 13)"},
      {"SELECT TOP 1 ITEM FROM t UNION SELECT b FROMM u", "near \"u\": syntax error (at character 47)"},
      {"SELECT \"x\" FROM t", "no such column: x (at character 8)"},
      {"SELECT TOP 5 PERCENT * FROM t", "TOP 5 PERCENT is not allowed in a sentence: give a number of rows"},
      {"SELECT writefile('x', 'y')", "no such function: writefile (at character 8)"},
      {"INSERT INTO t VALUES ('1', 'a'), ('1', 'b')", "UNIQUE constraint failed: t.A0"},
      {"DELETE FROM sqlite_schema", "table sqlite_master may not be modified"},
  };
  for (const auto& row : kCases) EXPECT_EQ(Run(row.statement), "ERROR " + row.error) << row.statement;

  // The guard sees what the text doesn't show: a trigger and a view are judged when they run.
  EXPECT_EQ(Run("CREATE TRIGGER evil AFTER INSERT ON t BEGIN SELECT load_extension('x'); END"),
            "trigger evil created");
  const TableHandle table = MustOpen(*store_, "t");
  EXPECT_EQ(RefusalOfWrite(*store_, table, "1", "a"), "table t, item '1': load_extension" + outside);
  store_->Commit();
  EXPECT_EQ(Run("DROP TRIGGER evil"), "trigger evil dropped");
  MustWrite(*store_, table, "1", "a");
  store_->Commit();
  EXPECT_EQ(Run("SELECT count(*) FROM t"), "1;") << "something that was refused did something";
}

TEST_F(SqliteStoreTest, KeepsOpenWritesAcrossSql) {
  MustWrite(*store_, MakeTable(*store_, "t", 1), "1", "a");
  EXPECT_EQ(Run("SELECT A1 FROM t"), "a;");
  EXPECT_EQ(Run("SELECT x FROM t"), "ERROR no such column: x (at character 8)");
  EXPECT_TRUE(store_->HasOpenWrites());
  EXPECT_EQ(Run("INSERT INTO t VALUES ('1', 'b')"), "ERROR UNIQUE constraint failed: t.A0");
  EXPECT_FALSE(store_->HasOpenWrites());  // committed first: the refused statement doesn't take them along
  EXPECT_EQ(Sql(*account_.Open(), "SELECT A1 FROM t"), "a;");
}

TEST_F(SqliteStoreTest, ReadsTablesMadeByHand) {
  Run("CREATE TABLE hand (note TEXT, a1 INTEGER, A0 VARCHAR(9) PRIMARY KEY, A2 REAL, A3 NVARCHAR(4), A4 "
      "MEMO)");
  Run("INSERT INTO hand VALUES ('kept', 12, '1', 2.5, NULL, '007'), ('x', NULL, '2', NULL, x'FE80', NULL)");
  const TableHandle table = MustOpen(*store_, "HAND");
  EXPECT_EQ(Scanned(*store_, table, kWholeItem), Dyn("1,12^2.5^^007;2,^^^\x80;"));
  for (const char* id : {"1", "2"})
    EXPECT_EQ(ItemOf(*store_, table, id), Dyn(*id == '1' ? "12^2.5^^007" : "^^^\x80"));
  EXPECT_EQ(store_->Describe(table).limits, (std::vector<std::int64_t>{9, 0, 0, 4, 0}));
  MustWrite(*store_, table, "1", "13");
  store_->Commit();
  EXPECT_EQ(Run("SELECT * FROM hand WHERE A0 = '1'"), "kept,13,1,,,;") << "other columns stay";

  Run("CREATE TABLE numbers (A0 INTEGER PRIMARY KEY, ITEM BLOB)");
  Run("INSERT INTO numbers VALUES (2, x'61FE62'), (10, 'c')");
  const TableHandle numbers = MustOpen(*store_, "numbers");
  EXPECT_EQ(Scanned(*store_, numbers, {{2, 1}}), "2,b,a;10,,c;");
  EXPECT_EQ(RefusalOfWrite(*store_, numbers, "abc", "x"), "table numbers, item 'abc': datatype mismatch");
  store_->Commit();

  const char* const bad[][2] = {
      {"(x TEXT)", "its primary key must be A0 alone"},
      {"(A0 TEXT, A1 TEXT)", "its primary key must be A0 alone"},
      {"(A0 TEXT, A1 TEXT, PRIMARY KEY (A0, A1))", "its primary key must be A0 alone"},
      {"(A0 TEXT PRIMARY KEY, x TEXT)", "it has neither ITEM nor A1"},
      {"(A0 TEXT PRIMARY KEY, A1 TEXT, A3 TEXT)", "it lacks column A2"},
      {"(A0 TEXT PRIMARY KEY, A1 TEXT, ITEM TEXT)", "it has both ITEM and A1"},
      {"(A0 TEXT PRIMARY KEY, A1 TEXT, A2 AS (A1))", "its column a2 is computed"},
  };
  for (const auto& [columns, lack] : bad) {
    Run("CREATE TABLE bad "s + columns);
    EXPECT_EQ(RefusalOfOpen("bad"),
              "table bad can't be used as a file: "s + lack +
                  "; a file has the columns A0 (primary key) and A1, A2 ..., or A0 and ITEM");
    Run("DROP TABLE bad");
  }
  Run("CREATE VIEW seen AS SELECT A0, A1 FROM hand");
  EXPECT_EQ(RefusalOfOpen("seen"), "seen is a view, not a table");
}

TEST_F(SqliteStoreTest, HoldsTheLargestTables) {
  std::string sentence = "CREATE TABLE wide (A0 VARCHAR(25) PRIMARY KEY";
  std::string item;
  for (int column = 1; column <= 1200; ++column) {
    sentence += ", A" + std::to_string(column) + " TEXT NOT NULL";
    item += (column > 1 ? "\xFE" : "") + std::to_string(column);
  }
  EXPECT_EQ(Run(sentence + ")"), "table wide created");
  const TableHandle table = MustOpen(*store_, "wide");
  MustWrite(*store_, table, "1", item);
  EXPECT_EQ(ItemOf(*store_, table, "1"), item);
  std::string error;
  EXPECT_FALSE(store_->CreateTable("wider", 2000, error));
  EXPECT_EQ(error, "table wider would have columns for 2000 attributes; 1999 is the most");
  MakeTable(*store_, "wider", 1999);
}

}  // namespace
}  // namespace nvadmin::engine
