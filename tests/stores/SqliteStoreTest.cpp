// What is the SQLite store's own: SQL of the user, changes by others, and files that go wrong.
#include "engine/stores/SqliteStore.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>

#include <atomic>
#include <fstream>
#include <thread>

#include "StoreKinds.h"
#include "engine/stores/NativeStore.h"
#include "engine/stores/OpenStore.h"
#include "tests/support/TemporaryFolder.h"

namespace nvadmin::engine {
namespace {

class SqliteStoreTest : public testing::Test {
 protected:
  std::unique_ptr<Store> Open(std::string_view datastore = "JET") const {
    return std::make_unique<SqliteStore>(file_, "TEST", datastore);
  }
  // The message, or "ERROR " and the error.
  static std::string Run(Store& store, std::string_view statement, ResultGrid* rows = nullptr) {
    ResultGrid grid;
    bool isQuery = false;
    std::string message, error;
    const bool isDone = store.RunSql(statement, rows != nullptr ? *rows : grid, isQuery, message, error);
    EXPECT_NE(isDone, error.empty() == false) << error;
    return isDone ? message : "ERROR " + error;
  }
  // The cells, with "," between columns and ";" between rows, or the error.
  static std::string Rows(Store& store, std::string_view statement) {
    ResultGrid grid;
    const std::string message = Run(store, statement, &grid);
    if (message.starts_with("ERROR")) return message;
    std::string rows;
    for (std::int32_t row = 1; row <= grid.HighestRow(); ++row) {
      for (std::int32_t column = 0; column <= grid.HighestColumn(); ++column) {
        rows += std::string(column > 0 ? "," : "") + std::string(grid.Cell(column, row));
      }
      rows += ';';
    }
    return rows;
  }
  static void RunRaw(const std::filesystem::path& file, const char* sql) {
    Database database(file, OpenMode::kMake, std::chrono::seconds(10));
    database.Execute(sql);
  }

  TemporaryFolder folder_;
  std::filesystem::path file_ = folder_ / "TEST.sqlite";
};

TEST_F(SqliteStoreTest, RunsSql) {
  const std::unique_ptr<Store> store = Open();
  EXPECT_EQ(Run(*store,
                "CREATE TABLE cust (A0 VARCHAR(25) CONSTRAINT idxcust PRIMARY KEY, A1 VARCHAR(36), A2 MEMO)"),
            "table cust created");
  EXPECT_EQ(Run(*store,
                "INSERT INTO cust VALUES ('1', 'M\xFCller \x80', '007'), ('2', 'b;c', x'FE00FF'), ('3', 'x', "
                "NULL);"),
            "3 row(s) changed");
  EXPECT_EQ(Run(*store, "INSERT INTO cust (A0) VALUES ('4')"), "1 row(s) changed");  // the rest becomes empty
  EXPECT_EQ(Rows(*store, "SELECT * FROM cust ORDER BY A0"),
            std::string("1,M\xFCller \x80,007;2,b;c,\xFE\0\xFF;3,x,;4,,;", 34));
  EXPECT_EQ(Rows(*store, "SELECT A0 FROM cust WHERE A1 LIKE 'M_ller%' -- all; of them\n ; ;"), "1;");
  EXPECT_EQ(Rows(*store, "SELECT A0 FROM cust WHERE A1 LIKE 'm%'"), "");  // case counts
  EXPECT_EQ(Rows(*store, "SELECT 1, 2.5, NULL, 'a'"), "1,2.5,,a;");
  EXPECT_EQ(Rows(*store, "SELECT TOP 2 A0 FROM cust ORDER BY A0 DESC"), "4;3;");
  EXPECT_EQ(
      Rows(*store,
           "SELECT A0 FROM cust WHERE A0 IN (SELECT TOP 1 A0 FROM cust ORDER BY A0) UNION SELECT TOP 1 'z'"),
      "1;z;");
  EXPECT_EQ(Rows(*store, "SELECT TOP 2 A0 FROM cust ORDER BY A0 DESC LIMIT 1 OFFSET 1"), "3;");
  EXPECT_EQ(Rows(*store,
                 "SELECT x FROM (SELECT '\x80' AS x UNION SELECT '\xA0' UNION SELECT 'z') ORDER BY x COLLATE "
                 "codepage"),
            "z;\x80;\xA0;");
  EXPECT_EQ(Run(*store, "UPDATE cust SET A1 = 'y' WHERE A0 > '2'"), "2 row(s) changed");
  EXPECT_EQ(Rows(*store, "DELETE FROM cust WHERE A0 = '4' RETURNING A1"), "y;");
  EXPECT_EQ(Run(*store, "SELECT A0 FROM cust"), "3 row(s)");
  EXPECT_EQ(Run(*store, "CREATE INDEX byname ON cust (A1)"), "index byname created");
  EXPECT_EQ(Run(*store, "CREATE VIEW names AS SELECT A1 FROM cust"), "view names created");
  EXPECT_EQ(Run(*store, "CREATE TRIGGER t AFTER INSERT ON cust BEGIN DELETE FROM cust; SELECT 1; END;"),
            "trigger t created");
  EXPECT_EQ(Run(*store, "DROP TABLE cust"), "table cust dropped");
  EXPECT_EQ(Rows(*Open("MYSQL"), "SELECT TOP 1 2"), "ERROR near \"1\": syntax error (at character 12)");
}

TEST_F(SqliteStoreTest, MakesAndDropsTablesOfAnyName) {
  const std::unique_ptr<Store> store = Open("MSSQL");
  for (const std::string name :
       {"order", "a b", "it's \"quoted\"", "x; DROP TABLE cust; --", "[y]z", "\xE9t\xE9", "--", "select"}) {
    const std::string made = Run(*store, "CREATE TABLE " + name + " (A0 VARCHAR(25) CONSTRAINT idx" + name +
                                             " PRIMARY KEY, A1 VARCHAR(36), A2 TEXT)");
    EXPECT_EQ(made, "table " + name + " created");
    EXPECT_EQ(store->TableNames(true), std::vector<std::string>{name});
    const TableHandle table = MustOpen(*store, name);
    EXPECT_EQ(store->Describe(table).name, name);
    EXPECT_EQ(store->Describe(table).limits, (std::vector<std::int64_t>{25, 36, 0}));
    MustWrite(*store, table, "1",
              "a\xFE"
              "b");
    store->Commit();
    EXPECT_TRUE(Run(*store, "CREATE TABLE " + name + " (A0 VARCHAR(25) PRIMARY KEY, ITEM TEXT)")
                    .starts_with("ERROR"));
    EXPECT_EQ(Run(*store, "DROP TABLE " + name), "table " + name + " dropped");
  }
  EXPECT_EQ(Run(*store, "DROP TABLE order"), "ERROR there is no table order in account TEST");
  // A name that ends like a statement is preferred to the one that it could be.
  Run(*store, "CREATE TABLE a (A0 VARCHAR(25) PRIMARY KEY, ITEM TEXT)");
  Run(*store, "CREATE TABLE a; (A0 VARCHAR(25) PRIMARY KEY, ITEM TEXT)");
  EXPECT_EQ(Run(*store, "DROP TABLE a;"), "table a; dropped");
  EXPECT_EQ(Run(*store, "DROP TABLE a;"), "table a dropped");
  EXPECT_EQ(Run(*store, "DROP TABLE IF EXISTS a"), "done");
  EXPECT_TRUE(
      Run(*store, "CREATE TABLE sqlite_x (A0 VARCHAR(25) PRIMARY KEY, ITEM TEXT)").starts_with("ERROR"));
}

TEST_F(SqliteStoreTest, RefusesByName) {
  const std::unique_ptr<Store> store = Open();
  Run(*store, "CREATE TABLE t (A0 VARCHAR(25) PRIMARY KEY, ITEM TEXT)");
  const std::string outside = " is not allowed in a sentence: it reaches outside the account";
  const std::string transactions =
      " is not allowed in a sentence: the engine opens and ends transactions itself";
  struct Case {
    std::string statement;
    std::string error;
  };
  const Case cases[] = {
      {"PRAGMA database_list", "PRAGMA" + outside},
      {"/* x */ pragma journal_mode=DELETE", "PRAGMA" + outside},
      {"EXPLAIN PRAGMA page_size", "PRAGMA" + outside},
      {"SELECT * FROM pragma_database_list", "pragma_database_list" + outside},
      {"SELECT file FROM (SELECT * FROM \"PRAGMA_database_list\")", "pragma_database_list" + outside},
      {"ATTACH 'x' AS y", "ATTACH" + outside},
      {"DETACH y", "DETACH" + outside},
      {"VACUUM INTO 'x'",
       "VACUUM is not allowed in a sentence: it rewrites the whole account under the other sessions"},
      {"BEGIN", "BEGIN" + transactions},
      {"commit;", "COMMIT" + transactions},
      {"END", "END" + transactions},
      {"ROLLBACK TO x", "ROLLBACK" + transactions},
      {"SAVEPOINT x", "SAVEPOINT" + transactions},
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
      {" -- nothing", "there is no SQL statement"},
      {" ;; ", "there is no SQL statement"},
      {";PRAGMA page_size", "PRAGMA" + outside},
      {std::string("SELECT 1\0; DROP TABLE t", 23), "an SQL statement can't hold a character 0"},
      {"SELECT a FROMM t", "near \"t\": syntax error (at character 16)"},
      {"SELECT '\xE9', x FROM t", "no such column: x (at character 13)"},
      {"SELECT \"x\" FROM t", "no such column: x (at character 8)"},
      {"SELECT TOP 5 PERCENT * FROM t", "TOP 5 PERCENT is not allowed in a sentence: give a number of rows"},
      {"SELECT writefile('x', 'y')", "no such function: writefile (at character 8)"},
      {"INSERT INTO t VALUES ('1', 'a'), ('1', 'b')", "UNIQUE constraint failed: t.A0"},
      {"DELETE FROM sqlite_schema", "table sqlite_master may not be modified"},
  };
  for (const Case& test : cases)
    EXPECT_EQ(Run(*store, test.statement), "ERROR " + test.error) << test.statement;

  // The guard sees what the text doesn't show: a trigger and a view are judged when they run.
  EXPECT_EQ(Run(*store, "CREATE TRIGGER evil AFTER INSERT ON t BEGIN SELECT load_extension('x'); END"),
            "trigger evil created");
  std::string error;
  const TableHandle table = MustOpen(*store, "t");
  store->BeginWrites();
  EXPECT_FALSE(store->Write(table, "1", "a", error));
  EXPECT_EQ(error, "table t, item '1': load_extension" + outside);
  store->Commit();
  EXPECT_EQ(Run(*store, "DROP TRIGGER evil"), "trigger evil dropped");
  MustWrite(*store, table, "1", "a");
  store->Commit();
  EXPECT_EQ(Rows(*store, "SELECT count(*) FROM t"), "1;");  // nothing that was refused did anything
}

TEST_F(SqliteStoreTest, KeepsOpenWritesAcrossSql) {
  const std::unique_ptr<Store> store = Open();
  std::string error;
  ASSERT_TRUE(store->CreateTable("t", 1, error));
  const TableHandle table = MustOpen(*store, "t");
  MustWrite(*store, table, "1", "a");
  EXPECT_EQ(Rows(*store, "SELECT A1 FROM t"), "a;");  // sees them, and leaves them open
  EXPECT_TRUE(store->HasOpenWrites());
  EXPECT_TRUE(Run(*store, "SELECT x FROM t").starts_with("ERROR"));
  EXPECT_TRUE(store->HasOpenWrites());
  EXPECT_TRUE(Run(*store, "INSERT INTO t VALUES ('1', 'b')").starts_with("ERROR"));
  EXPECT_FALSE(store->HasOpenWrites());  // committed first: the refused statement doesn't take them along
  EXPECT_EQ(Rows(*Open(), "SELECT A1 FROM t"), "a;");

  ResultGrid grid;
  Run(*store, "SELECT A1 FROM t", &grid);
  Run(*store, "UPDATE t SET A1 = 'c'", &grid);
  EXPECT_EQ(grid.HighestRow(), 1);  // no query leaves the grid alone
  Run(*store, "SELECT A1, abs(-9223372036854775808) FROM t", &grid);
  EXPECT_EQ(grid.HighestRow(), 0);  // a failed one empties it
}

TEST_F(SqliteStoreTest, ReadsTablesMadeByHand) {
  const std::unique_ptr<Store> store = Open();
  Run(*store,
      "CREATE TABLE hand (note TEXT, a1 INTEGER, A0 VARCHAR(9) PRIMARY KEY, A2 REAL, A3 NVARCHAR(4), A4 "
      "MEMO)");
  Run(*store,
      "INSERT INTO hand VALUES ('kept', 12, '1', 2.5, NULL, '007'), ('x', NULL, '2', NULL, x'FE80', NULL)");
  const TableHandle table = MustOpen(*store, "HAND");
  std::string item;
  EXPECT_TRUE(store->Read(table, "1", item));
  EXPECT_EQ(item,
            "12\xFE"
            "2.5\xFE\xFE"
            "007");
  EXPECT_TRUE(store->Read(table, "2", item));
  EXPECT_EQ(item, "\xFE\xFE\xFE\x80");
  EXPECT_EQ(store->Describe(table).limits, (std::vector<std::int64_t>{9, 0, 0, 4, 0}));
  MustWrite(*store, table, "1", "13");
  store->Commit();
  EXPECT_EQ(Rows(*store, "SELECT * FROM hand WHERE A0 = '1'"), "kept,13,1,,,;");  // other columns stay

  Run(*store, "CREATE TABLE numbers (A0 INTEGER PRIMARY KEY, ITEM BLOB)");
  Run(*store, "INSERT INTO numbers VALUES (2, x'61FE62'), (10, 'c')");
  const TableHandle numbers = MustOpen(*store, "numbers");
  std::string seen;
  store->Scan(numbers, {{2, 1}, false}, [&](std::string_view id, std::span<const std::string_view> values) {
    seen += std::string(id) + "=" + std::string(values[0]) + "," + std::string(values[1]) + ";";
    return true;
  });
  EXPECT_EQ(seen, "2=b,a;10=,c;");
  std::string error;
  store->BeginWrites();
  EXPECT_FALSE(store->Write(numbers, "abc", "x", error));
  EXPECT_EQ(error, "table numbers, item 'abc': datatype mismatch");
  store->Commit();

  struct Case {
    const char* declaration;
    const char* lack;
  };
  const Case cases[] = {
      {"TABLE bad (x TEXT)", "its primary key must be A0 alone"},
      {"TABLE bad (A0 TEXT, A1 TEXT)", "its primary key must be A0 alone"},
      {"TABLE bad (A0 TEXT, A1 TEXT, PRIMARY KEY (A0, A1))", "its primary key must be A0 alone"},
      {"TABLE bad (A0 TEXT PRIMARY KEY, x TEXT)", "it has neither ITEM nor A1"},
      {"TABLE bad (A0 TEXT PRIMARY KEY, A1 TEXT, A3 TEXT)", "it lacks column A2"},
      {"TABLE bad (A0 TEXT PRIMARY KEY, A1 TEXT, ITEM TEXT)", "it has both ITEM and A1"},
      {"TABLE bad (A0 TEXT PRIMARY KEY, A1 TEXT, A2 AS (A1))", "its column a2 is computed"},
  };
  for (const Case& test : cases) {
    Run(*store, std::string("CREATE ") + test.declaration);
    TableHandle none = -1;
    EXPECT_FALSE(store->OpenTable("bad", none, error));
    EXPECT_EQ(error, std::string("table bad can't be used as a file: ") + test.lack +
                         "; a file has the columns A0 (primary key) and A1, A2 ..., or A0 and ITEM");
    Run(*store, "DROP TABLE bad");
  }
  Run(*store, "CREATE VIEW seen AS SELECT A0, A1 FROM hand");
  TableHandle none = -1;
  EXPECT_FALSE(store->OpenTable("seen", none, error));
  EXPECT_EQ(error, "seen is a view, not a table");
}

TEST_F(SqliteStoreTest, HoldsTheLargestTables) {
  const std::unique_ptr<Store> store = Open("MYSQL");
  std::string sentence = "CREATE TABLE wide (A0 VARCHAR(25) PRIMARY KEY";
  std::string item;
  for (int column = 1; column <= 1200; ++column) {
    sentence += ", A" + std::to_string(column) + " TEXT NOT NULL";
    item += (column > 1 ? "\xFE" : "") + std::to_string(column);
  }
  EXPECT_EQ(Run(*store, sentence + ")"), "table wide created");
  const TableHandle table = MustOpen(*store, "wide");
  MustWrite(*store, table, "1", item);
  store->Commit();
  std::string read;
  EXPECT_TRUE(store->Read(table, "1", read));
  EXPECT_EQ(read, item);
  std::string error;
  EXPECT_FALSE(store->CreateTable("wider", 2000, error));
  EXPECT_EQ(error, "table wider would have columns for 2000 attributes; 1999 is the most");
  EXPECT_TRUE(store->CreateTable("wider", 1999, error)) << error;
}

// Another session makes a table anew under handles, statements and scans that were prepared for the old one.
TEST_F(SqliteStoreTest, NoticesTablesMadeAnewByOthers) {
  const std::unique_ptr<Store> store = Open();
  const std::unique_ptr<Store> other = Open();
  ResultGrid grid;
  std::string error, item, value;
  const auto remake = [&](std::int32_t columns, std::string_view stored) {
    EXPECT_TRUE(other->DropTable("t", error)) << error;
    EXPECT_TRUE(other->CreateTable("t", columns, error)) << error;
    MustWrite(*other, MustOpen(*other, "t"), "1", stored);
    other->Commit();
  };
  ASSERT_TRUE(other->CreateTable("t", 8, error));
  const TableHandle table = MustOpen(*store, "t");
  const auto scan = [&](const Projection& projection) {
    std::string seen;
    store->Scan(table, projection, [&](std::string_view id, std::span<const std::string_view> values) {
      seen += std::string(id) + "=" + std::string(values[0]) + ";";
      return true;
    });
    return seen;
  };
  // One operation each meets the new table first.
  const std::vector<std::pair<const char*, std::function<void(const std::string&, const std::string&)>>>
      operations = {
          {"read",
           [&](const std::string& want, const std::string&) {
             EXPECT_TRUE(store->Read(table, "1", item));
             EXPECT_EQ(item, want);
           }},
          {"attribute",
           [&](const std::string&, const std::string& second) {
             EXPECT_TRUE(store->ReadAttribute(table, "1", 2, value));
             EXPECT_EQ(value, second);
           }},
          {"far attribute",
           [&](const std::string&, const std::string&) {
             EXPECT_TRUE(store->ReadAttribute(table, "1", 8, value));
           }},
          {"batch",
           [&](const std::string& want, const std::string&) {
             std::vector<BatchItem> items;
             store->ReadBatch(table, std::vector<std::string_view>{"1", "1"}, items);
             EXPECT_EQ(items[1].item, want);
           }},
          {"scan",
           [&](const std::string& want, const std::string&) {
             EXPECT_EQ(scan({{}, true}), "1=" + want + ";");
           }},
          {"scan of attributes",
           [&](const std::string&, const std::string& second) {
             EXPECT_EQ(scan({{2, 8}, false}), "1=" + second + ";");
           }},
          {"write",
           [&](const std::string& want, const std::string&) {
             MustWrite(*store, table, "1", want);
             store->Commit();
           }},
          {"describe", [&](const std::string&, const std::string&) { store->Describe(table); }},
          {"sql", [&](const std::string&,
                      const std::string&) { EXPECT_EQ(Rows(*store, "SELECT A0 FROM t"), "1;"); }},
          {"names",
           [&](const std::string&, const std::string&) { EXPECT_EQ(store->TableNames(true).size(), 1U); }},
      };
  struct Shape {
    std::int32_t columns;
    const char* item;
  };
  const Shape shapes[] = {{8,
                           "a\xFE"
                           "b"},
                          {0,
                           "c\xFE"
                           "d\xFE"
                           "e"},
                          {2,
                           "f\xFE"
                           "g"},
                          {9,
                           "h\xFE"
                           "i"},
                          {9, "j"}};
  for (const auto& [name, first] : operations) {
    SCOPED_TRACE(name);
    for (const Shape& shape : shapes) {
      SCOPED_TRACE(shape.item);
      remake(shape.columns, shape.item);
      const std::string whole = shape.item;
      const std::size_t mark = whole.find('\xFE');
      const std::string rest = mark == std::string::npos ? "" : whole.substr(mark + 1);
      const std::string second = rest.substr(0, rest.find('\xFE'));
      first(whole, second);
      for (const auto& [nextName, next] : operations) next(whole, second);
      EXPECT_EQ(store->Describe(table).layout, shape.columns == 0 ? Layout::kItem : Layout::kColumns);
    }
  }
  // Gone, before a write and before a read.
  EXPECT_TRUE(other->DropTable("t", error));
  store->BeginWrites();
  EXPECT_FALSE(store->Write(table, "1", "a", error));
  EXPECT_EQ(error, "there is no table t in account TEST");
  store->Commit();
  EXPECT_FALSE(store->Read(table, "1", item));
}

TEST_F(SqliteStoreTest, DropWaitsForNobodyInTheMiddleOfAScan) {
  const std::unique_ptr<Store> store = Open();
  const std::unique_ptr<Store> other = Open();
  std::string error;
  ASSERT_TRUE(store->CreateTable("t", 1, error));
  const TableHandle table = MustOpen(*store, "t");
  for (int id = 0; id < 1000; ++id) MustWrite(*store, table, std::to_string(id), "a");
  store->Commit();
  int seen = 0;
  store->Scan(table, {{1}, false}, [&](std::string_view, auto values) {
    if (++seen == 10) {
      EXPECT_TRUE(other->DropTable("t", error)) << error;
    }
    EXPECT_EQ(values[0], "a");
    return true;
  });
  EXPECT_EQ(seen, 1000);  // the scan's state of the database is the one that it began with
  EXPECT_THROW(store->Scan(table, {}, [](auto, auto) { return true; }), StoreFailure);
}

TEST_F(SqliteStoreTest, IsInterrupted) {
  const std::unique_ptr<Store> store = Open();
  std::atomic<bool> isOver = false;
  std::thread breaker([&] {
    while (!isOver) {
      store->Interrupt();
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
  });
  ResultGrid grid;
  grid.Start(1);
  grid.AppendCell("rest");
  EXPECT_EQ(FailureOf([&] {
              Run(*store,
                  "WITH RECURSIVE c(x) AS (SELECT 1 UNION ALL SELECT x + 1 FROM c) SELECT count(*) FROM c",
                  &grid);
            }),
            "interrupted");
  isOver = true;
  breaker.join();
  EXPECT_EQ(grid.HighestRow(), 0);
  EXPECT_EQ(Rows(*store, "SELECT 1"), "1;");
}

// A writing program is killed: what it had committed is there, what it hadn't isn't, and the file is sound.
TEST_F(SqliteStoreTest, SurvivesAKill) {
  for (int round = 0; round < 3; ++round) {
    std::filesystem::remove(file_);
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    const pid_t child = fork();
    if (child == 0) {
      const std::unique_ptr<Store> store = Open();
      std::string error;
      store->CreateTable("t", 2, error);
      TableHandle table = -1;
      store->OpenTable("t", table, error);
      for (int batch = 0;; ++batch) {
        store->BeginWrites();
        for (int at = 0; at < 10; ++at) {
          store->Write(table, std::to_string(batch * 10 + at),
                       std::string(200, 'x') + '\xFE' + std::to_string(batch), error);
        }
        store->Commit();
        if (write(ends[1], &batch, sizeof batch) != sizeof batch) _exit(1);
      }
    }
    close(ends[1]);
    int committed = -1;
    const auto enough = 20 + round * 17;
    while (committed < enough && read(ends[0], &committed, sizeof committed) == sizeof committed) {
    }
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
    while (read(ends[0], &committed, sizeof committed) == sizeof committed) {
    }
    close(ends[0]);
    ASSERT_GE(committed, enough);

    const std::unique_ptr<Store> store = Open();
    int items = 0;
    store->Scan(MustOpen(*store, "t"), {}, [&](auto, auto) { return ++items > 0; });
    EXPECT_GE(items, (committed + 1) * 10);
    EXPECT_EQ(items % 10, 0);
    Database check(file_, OpenMode::kExisting, std::chrono::seconds(1));
    Statement integrity(check, "PRAGMA integrity_check");
    EXPECT_TRUE(integrity.Step());
    EXPECT_EQ(integrity.Text(0), "ok");
  }
}

TEST_F(SqliteStoreTest, TellsOfAFullDiskAndGoesOn) {
  const std::string told = RunInChild([&] {
    signal(SIGXFSZ, SIG_IGN);
    const std::unique_ptr<Store> store = Open();
    std::string error, item, failure;
    store->CreateTable("t", 0, error);
    const TableHandle table = MustOpen(*store, "t");
    MustWrite(*store, table, "kept", "a");
    store->Commit();
    const auto fill = [&] {
      store->BeginWrites();
      for (int at = 0; at < 300; ++at) {
        store->Write(table, std::to_string(at), std::string(10'000, 'x'), error);
      }
      store->Commit();
    };
    rlimit limit{};
    getrlimit(RLIMIT_FSIZE, &limit);
    const rlim_t free = limit.rlim_cur;
    limit.rlim_cur = 1 << 20;
    setrlimit(RLIMIT_FSIZE, &limit);
    failure = FailureOf(fill);
    EXPECT_FALSE(store->HasOpenWrites());
    failure += store->Read(table, "kept", item) ? "; kept" : "; lost";
    failure += store->Read(table, "0", item) ? "; half" : "; none";
    limit.rlim_cur = free;
    setrlimit(RLIMIT_FSIZE, &limit);
    failure += FailureOf(fill);
    return failure + (store->Read(table, "299", item) ? "; then written" : "; then stuck");
  });
  const std::string ending = "the writes since the last commit are lost; kept; none; then written";
  EXPECT_TRUE(told.starts_with(file_.string() + " can't grow: the disk is full") && told.ends_with(ending))
      << told;
}

TEST_F(SqliteStoreTest, OpensItsOwnFilesOnly) {
  EXPECT_EQ(FailureOf([&] { Open(); }), "");
  EXPECT_EQ(FailureOf([&] { Open(); }), "");

  const std::filesystem::path foreign = folder_ / "foreign.sqlite";
  RunRaw(foreign, "CREATE TABLE x (y)");
  EXPECT_EQ(FailureOf([&] { SqliteStore(foreign, "OTHER", "JET"); }),
            foreign.string() +
                " is a database, but not of an account; move it away, and account OTHER starts anew");
  RunRaw(file_, "PRAGMA user_version=2");
  EXPECT_EQ(FailureOf([&] { Open(); }),
            file_.string() + " is of format 2, made by a newer version of this program; use that one");

  const std::filesystem::path text = folder_ / "text.sqlite";
  std::ofstream(text) << std::string(5000, 'x');
  const std::string failure = FailureOf([&] { SqliteStore(text, "TEST", "JET"); });
  EXPECT_TRUE(failure.starts_with(text.string() + " is damaged or no database")) << failure;
}

TEST_F(SqliteStoreTest, TellsOfADamagedFile) {
  {
    const std::unique_ptr<Store> store = Open();
    std::string error;
    ASSERT_TRUE(store->CreateTable("t", 1, error));
    const TableHandle table = MustOpen(*store, "t");
    for (int id = 0; id < 5000; ++id) MustWrite(*store, table, std::to_string(id), std::string(100, 'x'));
    store->Commit();
  }
  const auto size = std::filesystem::file_size(file_);
  std::fstream file(file_, std::ios::in | std::ios::out | std::ios::binary);
  file.seekp(3 * 4096);
  file << std::string(size - 3 * 4096, '\x5A');
  file.close();
  const std::unique_ptr<Store> store = Open();
  const TableHandle table = MustOpen(*store, "t");
  std::string item;
  const std::string failures[] = {
      FailureOf([&] { store->Scan(table, {}, [](auto, auto) { return true; }); }),
      FailureOf([&] { store->Read(table, "77", item); }),
      FailureOf([&] { Run(*store, "SELECT count(*) FROM t"); }),
  };
  for (const std::string& failure : failures) {
    EXPECT_TRUE(failure.starts_with(file_.string() + " is damaged")) << failure;
  }
  EXPECT_EQ(Rows(*store, "SELECT 1"), "1;");  // the session lives on
}

TEST_F(SqliteStoreTest, SessionsOpenANewFileTogether) {
  std::vector<std::thread> sessions;
  std::atomic<int> failures = 0;
  for (int session = 0; session < 4; ++session) {
    sessions.emplace_back([&, session] {
      failures += FailureOf([&] {
                    const std::unique_ptr<Store> store = Open();
                    std::string error;
                    if (!store->CreateTable("t" + std::to_string(session), 1, error))
                      throw StoreFailure(error);
                  }).empty()
                      ? 0
                      : 1;
    });
  }
  for (std::thread& session : sessions) session.join();
  EXPECT_EQ(failures, 0);
  EXPECT_EQ(Open()->TableNames(true).size(), 4U);
}

TEST_F(SqliteStoreTest, OpenStoreKnowsItsKinds) {
  Home::Make(folder_ / "home");
  const Home home(folder_ / "home");
  Account account{"ACME", "ORACLE", ""};
  EXPECT_NE(OpenStore(home, account), nullptr);
  EXPECT_TRUE(std::filesystem::exists(home.DatabaseFile(account)));
  account = {"NATIVE", "MVBASE", ""};
  EXPECT_NE(dynamic_cast<NativeStore*>(OpenStore(home, account).get()), nullptr);
  account = {"ACME", "MYSQL", "mariadb://host/db"};
  EXPECT_EQ(FailureOf([&] { OpenStore(home, account); }),
            "account ACME: a store at an address (mariadb://host/db) isn't supported here; add the account "
            "without one, and "
            "it is kept in the home");
}

}  // namespace
}  // namespace nvadmin::engine
