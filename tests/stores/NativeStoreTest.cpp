// What is the native store's own: the names of files, items without limits, and what it takes of SQL.
#include "engine/stores/NativeStore.h"

#include "StoreKinds.h"

namespace nvadmin::engine {
namespace {

using std::string_literals::operator""s;

class NativeStoreTest : public testing::Test {
 protected:
  std::string Create(std::string_view name) {
    std::string error;
    return store_->CreateTable(name, 0, error) ? "" : error;
  }
  // The name of the file that opens under a name; "-" when none does.
  std::string Found(std::string_view name) {
    TableHandle table = -1;
    std::string error;
    return store_->OpenTable(name, table, error) ? store_->Describe(table).name : "-";
  }

  const TestAccount account_{kNative};
  std::unique_ptr<Store> store_ = account_.Open();
};

TEST_F(NativeStoreTest, FindsFilesInEitherSpelling) {
  const char* const files[] = {
      "MY.FILE-1", "DICT MY.FILE-1", "Mixed",      "DICT Mixed", "A.B",
      "A-B",       "DICT A.B",       "a_b_c",      "A.B.C",      "DICT A.B.C",
      "TABLE",     "\xC9T\xC9",      "SOME.FILE",  "DICT",       "select",
      "files",     "DICT ALONE",     "DICTIONARY", "PLAIN.DICT", "it's \"odd\"; DROP TABLE files; --",
  };
  for (const char* name : files) EXPECT_EQ(Create(name), "");
  struct Case {
    const char* fault;
    std::string name;
    const char* found;
  };
  const Case cases[] = {
      {"as it is", "MY.FILE-1", "MY.FILE-1"},
      {"letter case tells none apart", "my.file-1", "MY.FILE-1"},
      {"mapped", "my_file_1", "MY.FILE-1"},
      {"mapped, in any letters", "MY_FILE_1", "MY.FILE-1"},
      {"another sign", "MY-FILE-1", "-"},
      {"dictionary, with blanks and in small letters", "dict  MY.FILE-1 ", "DICT MY.FILE-1"},
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
      {"a file called dict is no dictionary", "dict", "DICT"},
      {"nor is one whose name only begins so", "dictionary", "DICTIONARY"},
      {"a dictionary without its file", "DICT ALONE", "DICT ALONE"},
      {"a file without its dictionary", "DICT TABLE", "-"},
      {"a mapped name of a file that only sounds like a dictionary", "plain_dict", "PLAIN.DICT"},
  };
  for (const Case& test : cases) EXPECT_EQ(Found(test.name), test.found) << test.fault;
  TableHandle table = -1;
  std::string error;
  EXPECT_FALSE(store_->OpenTable("A_b", table, error));
  EXPECT_EQ(error, "A_b could be A-B or A.B");

  const Case creations[] = {
      {"twice", "MY.FILE-1", "MY.FILE-1 is there already"},
      {"in other letters", "my.File-1", "my.File-1 is there already, as MY.FILE-1"},
      {"mapped", "my_file_1", "my_file_1 is there already, as MY.FILE-1"},
      {"a mapped dictionary", "my_file_1_dict", "DICT my_file_1 is there already, as DICT MY.FILE-1"},
      {"built in", "DICT DICT X", "DICT DICT X is built in and can't be changed"},
      {"no name", "", "a table needs a name"},
      {"no owner", "DICT ", "a table needs a name"},
      {"character 0", "a\0b"s, "a table's name can't hold a character 0"},
      {"another sign is another file", "MY-FILE-1", ""},
      {"then both names are taken, and the mapped one is free", "my_file_1", ""},
      {"a dictionary takes its file's spelling", "some_file_dict", ""},
  };
  for (const Case& test : creations) EXPECT_EQ(Create(test.name), test.found) << test.fault;
  EXPECT_EQ(Found("some_file_dict"), "DICT SOME.FILE");
  EXPECT_EQ(Found("my_file_1"), "my_file_1");
}

TEST_F(NativeStoreTest, LimitsNothing) {
  EXPECT_EQ(Sql(*store_, "CREATE TABLE BIG (A0 VARCHAR(2) PRIMARY KEY, A1 VARCHAR(3))"), "table BIG created");
  const TableHandle table = MustOpen(*store_, "BIG");
  EXPECT_EQ(store_->Describe(table).limits, (std::vector<std::int64_t>{0, 0}));
  const std::string id(5000, '\xFF');
  std::string item(3 << 20, '\x81');
  for (int attribute = 0; attribute < 20'000; ++attribute) item += Dyn("^v]\xC3\xBE");
  MustWrite(*store_, table, id, item);
  store_->Commit();
  const std::unique_ptr<Store> other = account_.Open();
  EXPECT_TRUE(ItemOf(*other, MustOpen(*other, "big"), id) == item);
  EXPECT_EQ(RefusalOfWrite(*store_, table, "", "a"), "table BIG: an item needs an item ID");
}

TEST_F(NativeStoreTest, TakesFromSqlWhatMakesAndDropsFiles) {
  const std::string reason =
      " is not allowed in a sentence: the files of account TEST are no tables, and of SQL it takes the "
      "CREATE "
      "TABLE and DROP TABLE of a file alone; LIST and SELECT show and find items";
  const struct {
    const char* statement;
    std::string want;
  } kSteps[] = {
      {"CREATE TABLE CUST (A0 VARCHAR(25) CONSTRAINT idxCUST PRIMARY KEY, A1 VARCHAR(36), A2 MEMO)",
       "table CUST created"},
      {"CREATE TABLE cust_dict (A0 VARCHAR(25) PRIMARY KEY, ITEM TEXT)", "table cust_dict created"},
      {"CREATE TABLE cust (A0 VARCHAR(25) PRIMARY KEY, ITEM TEXT)", "ERROR cust is there already, as CUST"},
      {"SELECT * FROM CUST", "ERROR SELECT" + reason},
      {"INSERT INTO CUST VALUES ('1', 'a')", "ERROR INSERT INTO" + reason},
      {"update files set name = 'x'", "ERROR UPDATE" + reason},
      {"DELETE FROM files", "ERROR DELETE FROM" + reason},
      {"CREATE INDEX i ON CUST (A0)", "ERROR CREATE INDEX" + reason},
      {"CREATE TABLE x AS SELECT 1", "ERROR CREATE TABLE" + reason},
      {"CREATE TABLE \"x y\" (A0 VARCHAR(25) PRIMARY KEY, ITEM TEXT)", "table x y created"},
      {"DROP TABLE \"x y\"", "table x y dropped"},
      {"DROP TABLE \"x y\"", "ERROR DROP TABLE" + reason},
      {"ALTER TABLE CUST ADD A9 TEXT", "ERROR ALTER TABLE" + reason},
      {"DROP TABLE IF EXISTS CUST", "ERROR DROP TABLE" + reason},
      {"DROP TABLE CUST, ORDERS", "ERROR DROP TABLE" + reason},
      {"DROP TABLE NOWHERE", "ERROR there is no table NOWHERE in account TEST"},
      {"PRAGMA page_size", "ERROR PRAGMA is not allowed in a sentence: it reaches outside the account"},
      {"BEGIN", "ERROR BEGIN is not allowed in a sentence: the engine opens and ends transactions itself"},
      {"", "ERROR there is no SQL statement"},
      {"DROP TABLE cust_dict;", "table cust_dict dropped"},
  };
  for (const auto& row : kSteps) EXPECT_EQ(Sql(*store_, row.statement), row.want) << row.statement;
  EXPECT_EQ(store_->TableNames(true), std::vector<std::string>{"CUST"});
}

}  // namespace
}  // namespace nvadmin::engine
