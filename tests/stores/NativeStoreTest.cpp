// What is the native store's own: the names of files, items without limits, and what it takes of SQL.
#include "engine/stores/NativeStore.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include "StoreKinds.h"
#include "engine/stores/SqliteStore.h"
#include "tests/support/TemporaryFolder.h"

namespace nvadmin::engine {
namespace {

class NativeStoreTest : public testing::Test {
 protected:
  std::unique_ptr<Store> Open() const { return std::make_unique<NativeStore>(file_, "NAT"); }

  // The message, or "ERROR " and the error.
  static std::string Run(Store& store, std::string_view statement, ResultGrid* rows = nullptr) {
    ResultGrid grid;
    bool isQuery = false;
    std::string message, error;
    const bool isDone = store.RunSql(statement, rows != nullptr ? *rows : grid, isQuery, message, error);
    return isDone ? message : "ERROR " + error;
  }
  static std::string Create(Store& store, std::string_view name) {
    std::string error;
    return store.CreateTable(name, 0, error) ? "" : error;
  }
  // The name of the file that opens under a name; "-" when none does.
  static std::string Found(Store& store, std::string_view name) {
    TableHandle table = -1;
    std::string error;
    return store.OpenTable(name, table, error) ? store.Describe(table).name : "-";
  }

  TemporaryFolder folder_;
  std::filesystem::path file_ = folder_ / "NAT.sqlite";
};

TEST_F(NativeStoreTest, FindsFilesInEitherSpelling) {
  const std::unique_ptr<Store> store = Open();
  for (const char* name :
       {"MY.FILE-1", "DICT MY.FILE-1", "Mixed", "DICT Mixed", "A.B", "A-B", "DICT A.B", "TABLE", "a_b_c",
        "A.B.C", "DICT A.B.C", "select", "it's \"odd\"; DROP TABLE files; --", "files", "\xC9T\xC9",
        "DICT ALONE", "PLAIN.DICT", "SOME.FILE"}) {
    EXPECT_EQ(Create(*store, name), "");
  }
  struct Case {
    const char* fault;
    const char* name;
    const char* found;
  };
  const Case cases[] = {
      {"as it is", "MY.FILE-1", "MY.FILE-1"},
      {"letter case tells none apart", "my.file-1", "MY.FILE-1"},
      {"mapped", "my_file_1", "MY.FILE-1"},
      {"mapped, but not in small letters", "MY_FILE_1", "-"},
      {"another sign", "MY-FILE-1", "-"},
      {"dictionary", "DICT MY.FILE-1", "DICT MY.FILE-1"},
      {"dictionary of the name as typed", "my.file-1_dict", "DICT MY.FILE-1"},
      {"mapped dictionary", "my_file_1_dict", "DICT MY.FILE-1"},
      {"dictionary of a mapped name", "DICT my_file_1", "DICT MY.FILE-1"},
      {"dictionary of a dictionary", "DICT MY.FILE-1_dict", "DICT DICT MY.FILE-1"},
      {"dictionary of a mapped dictionary", "my_file_1_dict_dict", "DICT DICT MY.FILE-1"},
      {"and of that there is none", "DICT my_file_1_dict_dict", "-"},
      {"mixed letters", "MIXED_DICT", "DICT Mixed"},
      {"a mapped name of two files", "a_b", "-"},
      {"whose dictionary is one", "a_b_dict", "DICT A.B"},
      {"a file's own name goes before another's mapped one", "a_b_c", "a_b_c"},
      {"and never has another's dictionary", "DICT a_b_c", "-"},
      {"a reserved name", "table_nv", "TABLE"},
      {"a keyword", "SELECT", "select"},
      {"any characters", "it's \"odd\"; DROP TABLE files; --", "it's \"odd\"; DROP TABLE files; --"},
      {"the catalogue's name", "files", "files"},
      {"the name of a table inside", "file_1", "-"},
      {"accented letters have one case", "\xE9t\xE9", "-"},
      {"a dictionary without its file", "DICT ALONE", "DICT ALONE"},
      {"a file without its dictionary", "DICT TABLE", "-"},
      {"a mapped name of a file that only sounds like a dictionary", "plain_dict", "PLAIN.DICT"},
  };
  for (const Case& test : cases) EXPECT_EQ(Found(*store, test.name), test.found) << test.fault;

  const Case creations[] = {
      {"twice", "MY.FILE-1", "MY.FILE-1 is there already"},
      {"in other letters", "my.File-1", "my.File-1 is there already, as MY.FILE-1"},
      {"mapped", "my_file_1", "my_file_1 is there already, as MY.FILE-1"},
      {"a mapped dictionary", "my_file_1_dict", "DICT my_file_1 is there already, as DICT MY.FILE-1"},
      {"built in", "DICT DICT X", "DICT DICT X is built in and can't be changed"},
      {"no name", "", "a table needs a name"},
      {"no owner", "DICT ", "a table needs a name"},
      {"another sign is another file", "MY-FILE-1", ""},
      {"then both names are taken, and the mapped one is free", "my_file_1", ""},
      {"a dictionary takes its file's spelling", "some_file_dict", ""},
  };
  for (const Case& test : creations) EXPECT_EQ(Create(*store, test.name), test.found) << test.fault;
  EXPECT_EQ(Create(*store, std::string("a\0b", 3)), "a table's name can't hold a character 0");
  EXPECT_EQ(Found(*store, "some_file_dict"), "DICT SOME.FILE");
  EXPECT_EQ(Found(*store, "my_file_1"), "my_file_1");
}

TEST_F(NativeStoreTest, LimitsNothing) {
  const std::unique_ptr<Store> store = Open();
  ASSERT_EQ(Run(*store, "CREATE TABLE BIG (A0 VARCHAR(2) PRIMARY KEY, A1 VARCHAR(3))"), "table BIG created");
  const TableHandle table = MustOpen(*store, "BIG");
  EXPECT_EQ(store->Describe(table).limits, (std::vector<std::int64_t>{0, 0}));
  const std::string id(5000, '\xFF');
  std::string item(3 << 20, '\x81');
  for (int attribute = 0; attribute < 20'000; ++attribute) item += "\xFEv\xFD\xC3\xBE";
  item += std::string("\0\xFE\xFE", 3);
  MustWrite(*store, table, id, item);
  store->Commit();
  std::string read;
  const std::unique_ptr<Store> other = Open();
  EXPECT_TRUE(other->Read(MustOpen(*other, "big"), id, read));
  EXPECT_TRUE(read == item);
  std::string error;
  store->BeginWrites();
  EXPECT_FALSE(store->Write(table, "", "a", error));
  EXPECT_EQ(error, "table BIG: an item needs an item ID");
}

TEST_F(NativeStoreTest, TakesFromSqlWhatMakesAndDropsFiles) {
  const std::unique_ptr<Store> store = Open();
  EXPECT_EQ(Run(*store,
                "CREATE TABLE CUSTOMERS (A0 VARCHAR(25) CONSTRAINT idxCUSTOMERS PRIMARY KEY, A1 VARCHAR(36), "
                "A2 MEMO)"),
            "table CUSTOMERS created");
  EXPECT_EQ(Run(*store, "CREATE TABLE customers_dict (A0 VARCHAR(25) PRIMARY KEY, ITEM TEXT)"),
            "table customers_dict created");
  EXPECT_EQ(store->TableNames(true), (std::vector<std::string>{"CUSTOMERS", "DICT CUSTOMERS"}));
  EXPECT_EQ(Run(*store, "CREATE TABLE customers (A0 VARCHAR(25) PRIMARY KEY, ITEM TEXT)"),
            "ERROR customers is there already, as CUSTOMERS");

  ResultGrid grid;
  grid.Start(1);
  grid.AppendCell("rest");
  const std::string reason =
      " is not allowed in a sentence: the files of account NAT are no tables, and of SQL it takes the CREATE "
      "TABLE and DROP TABLE of a file alone; LIST and SELECT show and find items";
  struct Case {
    const char* statement;
    std::string error;
  };
  const Case refused[] = {
      {"INSERT INTO CUSTOMERS VALUES ('1', 'a')", "INSERT INTO" + reason},
      {"update files set name = 'x'", "UPDATE" + reason},
      {"DELETE FROM files", "DELETE FROM" + reason},
      {"CREATE INDEX i ON CUSTOMERS (A0)", "CREATE INDEX" + reason},
      {"CREATE TABLE x AS SELECT 1", "CREATE TABLE" + reason},
      {"CREATE TABLE \"x\" (A0 VARCHAR(25) PRIMARY KEY, ITEM TEXT)", "CREATE TABLE" + reason},
      {"ALTER TABLE CUSTOMERS ADD A9 TEXT", "ALTER TABLE" + reason},
      {"DROP TABLE IF EXISTS CUSTOMERS", "DROP TABLE" + reason},
      {"DROP TABLE CUSTOMERS, ORDERS", "DROP TABLE" + reason},
      {"DROP TABLE NOWHERE", "there is no table NOWHERE in account NAT"},
      {"PRAGMA page_size", "PRAGMA is not allowed in a sentence: it reaches outside the account"},
      {"BEGIN", "BEGIN is not allowed in a sentence: the engine opens and ends transactions itself"},
      {"", "there is no SQL statement"},
  };
  for (const Case& test : refused) EXPECT_EQ(Run(*store, test.statement, &grid), "ERROR " + test.error);
  EXPECT_EQ(grid.HighestRow(), 1) << "no query leaves the grid alone";
  EXPECT_EQ(Run(*store, "SELECT * FROM CUSTOMERS", &grid), "ERROR SELECT" + reason);
  EXPECT_EQ(grid.HighestColumn(), -1) << "a refused query empties it";

  EXPECT_EQ(Run(*store, "DROP TABLE customers_dict;"), "table customers_dict dropped");
  EXPECT_EQ(Run(*store, "DROP TABLE customers"), "table customers dropped");
  EXPECT_TRUE(store->TableNames(true).empty());
}

TEST_F(NativeStoreTest, NoticesFilesMadeAnewByOthers) {
  const std::unique_ptr<Store> store = Open();
  const std::unique_ptr<Store> other = Open();
  ASSERT_EQ(Create(*other, "T"), "");
  const TableHandle table = MustOpen(*store, "T");
  MustWrite(*store, table, "1", "old");
  store->Commit();
  std::string item, error;
  ASSERT_TRUE(store->Read(table, "1", item));

  ASSERT_TRUE(other->DropTable("t", error)) << error;
  ASSERT_EQ(Create(*other, "U"), "");  // another file in its place
  MustWrite(*other, MustOpen(*other, "U"), "1", "not yours");
  other->Commit();
  EXPECT_FALSE(store->Read(table, "1", item));
  store->BeginWrites();
  EXPECT_FALSE(store->Write(table, "1", "x", error));
  EXPECT_EQ(error, "there is no table T in account NAT");
  store->Commit();

  ASSERT_EQ(Create(*other, "t"), "");
  EXPECT_FALSE(store->Read(table, "1", item)) << "a file made anew is empty";
  EXPECT_EQ(store->Describe(table).name, "t");
  MustWrite(*store, table, "1", "new");
  store->Commit();
  EXPECT_TRUE(other->Read(MustOpen(*other, "t"), "1", item));
  EXPECT_EQ(item, "new");
  EXPECT_TRUE(other->Read(MustOpen(*other, "U"), "1", item));
  EXPECT_EQ(item, "not yours");
}

// A program that makes and deletes files is killed: each file is there whole or not at all.
TEST_F(NativeStoreTest, KeepsFilesWholeAcrossAKill) {
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  const pid_t child = fork();
  if (child == 0) {
    const std::unique_ptr<Store> store = Open();
    std::string error;
    for (int number = 0;; ++number) {
      store->CreateTable("F" + std::to_string(number), 0, error);
      if (number > 2) store->DropTable("F" + std::to_string(number - 2), error);
      if (write(ends[1], &number, sizeof number) != sizeof number) _exit(1);
    }
  }
  close(ends[1]);
  int made = -1;
  while (made < 25 && read(ends[0], &made, sizeof made) == sizeof made) {
  }
  kill(child, SIGKILL);
  waitpid(child, nullptr, 0);
  close(ends[0]);
  ASSERT_EQ(made, 25);

  const std::unique_ptr<Store> store = Open();
  const std::vector<std::string> names = store->TableNames(true);
  EXPECT_GE(names.size(), 3U);
  for (const std::string& name : names) MustWrite(*store, MustOpen(*store, name), "1", "a");
  store->Commit();
  Database check(file_, OpenMode::kExisting, std::chrono::seconds(1));
  Statement tables(check,
                   "SELECT count(*) FROM sqlite_schema WHERE name GLOB 'file_[0-9]*' AND type = 'table'");
  ASSERT_TRUE(tables.Step());
  EXPECT_EQ(tables.Integer(0), static_cast<std::int64_t>(names.size()));
}

TEST_F(NativeStoreTest, OpensItsOwnFilesOnly) {
  Open();
  EXPECT_EQ(FailureOf([&] { Open(); }), "");
  EXPECT_EQ(
      FailureOf([&] { SqliteStore(file_, "NAT", "JET"); }),
      file_.string() + " is a database, but not of an account; move it away, and account NAT starts anew");
  const std::filesystem::path tables = folder_ / "tables.sqlite";
  SqliteStore(tables, "TAB", "JET");
  EXPECT_EQ(FailureOf([&] { NativeStore(tables, "TAB"); }),
            tables.string() +
                " is a database, but not of a native account; move it away, and account TAB starts anew");
}

}  // namespace
}  // namespace nvadmin::engine
