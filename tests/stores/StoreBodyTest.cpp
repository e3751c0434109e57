// What every store must do, whatever lies behind it.
#include <map>

#include "StoreKinds.h"

namespace nvadmin::engine {
namespace {

class StoreBody : public StoreTest {
 protected:
  TableHandle Make(std::int32_t columns) { return MakeTable(*store_, columns > 0 ? "C" : "N", columns); }
  std::string ItemOf(TableHandle table, std::string_view id) { return engine::ItemOf(*store_, table, id); }
};

// What only a store with columns can do.
class RelationalStoreBody : public StoreBody {};

const auto kRelational = testing::Values("JET", "MSSQL", "MYSQL", "ORACLE");
INSTANTIATE_TEST_SUITE_P(Relational, StoreBody, kRelational);
INSTANTIATE_TEST_SUITE_P(Native, StoreBody, testing::Values(kNative));
INSTANTIATE_TEST_SUITE_P(Server, StoreBody, testing::Values(kServer));
INSTANTIATE_TEST_SUITE_P(Relational, RelationalStoreBody, kRelational);
INSTANTIATE_TEST_SUITE_P(Server, RelationalStoreBody, testing::Values(kServer));

TEST_P(StoreBody, KeepsEveryItemAsItIs) {
  std::string everyByte, manyValues;
  for (int byte = 0; byte < 256; ++byte) everyByte += static_cast<char>(byte);
  for (int value = 0; value < 100'000; ++value) manyValues += std::to_string(value) + '\xFD';
  const std::map<std::string, std::string> items = {
      {"empty", ""},
      {"one", "text"},
      {"marks inside", "a\xFD\xFC\xFB\xFA" + Dyn("^b]")},
      {"empty first", Dyn("^^third")},
      {"zeros", std::string("a\0b\xFE\0", 5) + "c"},
      {"all bytes", Dyn("a^^") + everyByte + Dyn("^^end")},
      {"many values", manyValues},
      {"\xE9\x80\x81\x9D\xFF", "key beyond ASCII"},
      {std::string("k\0", 2), "key with a zero"},
      {"k", "its neighbour"},
      {"007", "digits"},
      {"7", "000123"},
      {" 7", "1e5"},
      {"' OR ''='", "quotes"},
  };
  for (const std::int32_t columns : {8, 0}) {
    const TableHandle table = Make(columns);
    for (const auto& [id, item] : items) MustWrite(*store_, table, id, item);
    store_->Commit();
  }
  store_.reset();
  store_ = account_.Open();
  for (const char* name : {"C", "N"}) {
    const TableHandle table = MustOpen(*store_, name);
    std::map<std::string, std::string> found;
    store_->Scan(table, kWholeItem,
                 [&](std::string_view id, auto values) { return found.emplace(id, values[0]).second; });
    EXPECT_EQ(found, items);
    for (const auto& [id, item] : items) EXPECT_EQ(ItemOf(table, id), item) << name << ' ' << id;
    for (const char* id : {"k ", ""}) EXPECT_EQ(ItemOf(table, id), "(none)");
  }
}

TEST_P(StoreBody, DropsTrailingEmptyAttributesOfColumnsOnly) {
  for (const std::int32_t columns : {2, 0}) {
    const TableHandle table = Make(columns);
    const bool areDropped = columns > 0 && !IsNative();
    MustWrite(*store_, table, "1", Dyn("a^^^^"));  // more marks than columns, but nothing in them
    MustWrite(*store_, table, "2", Dyn("^^"));
    EXPECT_EQ(ItemOf(table, "1"), areDropped ? "a" : Dyn("a^^^^"));
    EXPECT_EQ(ItemOf(table, "2"), areDropped ? "" : Dyn("^^"));
  }
}

TEST_P(StoreBody, ReadsSingleAttributes) {
  const std::string item = Dyn("a^]\xBE\xC3^^d\xE9");
  const std::pair<std::int32_t, const char*> cases[] = {
      {1, "a"}, {2, "\xFD\xBE\xC3"}, {3, ""}, {4, "d\xE9"}, {5, ""}, {0, ""}, {-1, ""}};
  for (const std::int32_t columns : {4, 0}) {
    const TableHandle table = Make(columns);
    MustWrite(*store_, table, "1", item);
    for (const auto& [attribute, want] : cases) {
      std::string value = "1";  // the result may lie where the ID does
      EXPECT_TRUE(store_->ReadAttribute(table, value, attribute, value));
      EXPECT_EQ(value, want) << attribute;
      value = "2";
      EXPECT_FALSE(store_->ReadAttribute(table, value, attribute, value));
      EXPECT_EQ(value, "") << attribute;
    }
    std::string both = "1";
    EXPECT_TRUE(store_->Read(table, both, both));
    EXPECT_EQ(both, item);
  }
}

TEST_P(StoreBody, ReadsBatchesInTheirOrder) {
  const TableHandle table = Make(3);
  MustWrite(*store_, table, "1", "one");
  MustWrite(*store_, table, "2", Dyn("two^^b"));
  std::vector<BatchItem> items(7, {true, "rest"});
  store_->ReadBatch(table, std::vector<std::string_view>{"2", "none", "1", "2"}, items);
  std::string read;
  for (const BatchItem& item : items) read += (item.found ? "" : "none:") + item.item + ";";
  EXPECT_EQ(read, Dyn("two^^b;none:;one;two^^b;"));
  store_->Commit();  // the batch left the writes open
  store_->ReadBatch(table, {}, items);
  EXPECT_TRUE(items.empty());
  std::vector<std::string_view> ids = {"2", "none", "1", "2"};
  store_->LeaveOutMissing(table, ids);
  EXPECT_EQ(ids, (std::vector<std::string_view>{"2", "1", "2"}));
}

TEST_P(StoreBody, ScansInByteOrderWithWhatIsAskedFor) {
  // Bytes 128 to 159 stand for characters from all over Unicode; their order must not show.
  const std::string ids[] = {"A",         "B",         "B\x80", "B\x80z", "B\x99", "B\x9F", "B\xA0", "B\xE9",
                             "B\xE9\x80", "B\xE9\xE8", "Ba",    "\x81",   "\x8A",  "\xC4",  "\xFF"};
  std::vector<std::string> sorted(std::begin(ids), std::end(ids));
  std::sort(sorted.begin(), sorted.end());
  const auto itemOf = [](const std::string& id) { return Dyn("a" + id + "^^c]" + id + "^d"); };
  std::string keys, some, whole;
  for (const std::string& id : sorted) {
    keys += id + ";";
    some += id + Dyn(",c]" + id + ",a" + id + ",,,c]" + id + ",;");
    whole += id + "," + itemOf(id) + ";";
  }
  for (const std::int32_t columns : {4, 0}) {
    const TableHandle table = Make(columns);
    for (const std::string& id : ids) MustWrite(*store_, table, id, itemOf(id));
    EXPECT_EQ(Scanned(*store_, table), keys);
    EXPECT_EQ(Scanned(*store_, table, {{3, 1, 9, 2, 3, 0}}), some);
    int visited = 0;
    store_->Scan(table, kWholeItem, [&](auto, auto) { return ++visited < 3; });
    EXPECT_EQ(visited, 3);
    EXPECT_EQ(Scanned(*store_, table, kWholeItem), whole) << "after a scan that its visitor ended";
  }
}

TEST_P(StoreBody, LetsAVisitorReadScanWriteAndFail) {
  for (const std::int32_t columns : {2, 0}) {
    const TableHandle table = Make(columns);
    for (const char* id : {"1", "2", "3", "\xE9"}) MustWrite(*store_, table, id, id);
    store_->Commit();
    store_->BeginWrites();
    std::string seen;
    store_->Scan(table, {{1}}, [&](std::string_view id, auto values) {
      seen.append(id).append(values[0]).append(Scanned(*store_, table)).append(ItemOf(table, "1")) += ' ';
      MustWrite(*store_, table, id, "new");
      return true;
    });
    EXPECT_EQ(seen,
              "111;2;3;\xE9;1 221;2;3;\xE9;new 331;2;3;\xE9;new \xE9\xE9"
              "1;2;3;\xE9;new ");
    EXPECT_EQ(ItemOf(table, "3"), "new");
    EXPECT_THROW(store_->Scan(table, {}, [](auto, auto) -> bool { throw std::runtime_error("visitor"); }),
                 std::runtime_error);
    std::string error;
    EXPECT_TRUE(store_->DropTable(columns > 0 ? "C" : "N", error)) << error;  // nothing holds the table
  }
}

TEST_P(RelationalStoreBody, RefusesWhatDoesNotFit) {
  Sql(*store_, "CREATE TABLE cust (A0 VARCHAR(5) PRIMARY KEY, A1 VARCHAR(3), A2 TEXT)");
  Sql(*store_, "CREATE TABLE bp (A0 VARCHAR(4) PRIMARY KEY, ITEM VARCHAR(6))");
  const std::pair<const char*, std::vector<std::int64_t>> limits[] = {{"CUST", {5, 3, 0}}, {"BP", {4, 6}}};
  for (const auto& [name, want] : limits)
    EXPECT_EQ(store_->Describe(MustOpen(*store_, name)).limits, want) << name;
  const struct {
    const char *table, *id, *item, *refusal;
  } kCases[] = {
      {"CUST", "123456", "a", "table cust, item '123456': column A0 holds 5 characters, the item ID has 6"},
      {"CUST", "1", "\xE9\xE9\xE9\xE9", "table cust, item '1': column A1 holds 3 characters, the text has 4"},
      {"CUST", "1", "a^b^c", "table cust, item '1': the table has columns for 2 attributes, the item has 3"},
      {"CUST", "", "a", "table cust: an item needs an item ID"},
      {"BP", "1", "1234567", "table bp, item '1': column ITEM holds 6 characters, the text has 7"},
  };
  for (const auto& row : kCases)
    EXPECT_EQ(RefusalOfWrite(*store_, MustOpen(*store_, row.table), row.id, Dyn(row.item)), row.refusal);
  const TableHandle table = MustOpen(*store_, "CUST");
  EXPECT_EQ(ItemOf(table, "1"), "(none)");
  MustWrite(*store_, table, "\xE9\xE9\xE9\xE9\xE9", Dyn("\x80]\xE9^") + std::string(100'000, 'x'));
}

TEST_P(StoreBody, CommitsAndRollsBackAsOne) {
  const TableHandle table = Make(1);
  const std::unique_ptr<Store> other = account_.Open();
  const TableHandle otherTable = MustOpen(*other, "C");
  EXPECT_FALSE(store_->HasOpenWrites());
  MustWrite(*store_, table, "1", "a");
  EXPECT_TRUE(store_->HasOpenWrites());
  EXPECT_EQ(engine::ItemOf(*other, otherTable, "1"), "(none)");
  store_->Commit();
  EXPECT_FALSE(store_->HasOpenWrites());
  EXPECT_EQ(engine::ItemOf(*other, otherTable, "1"), "a");

  MustWrite(*store_, table, "2", "b");
  std::string error;
  EXPECT_TRUE(store_->Erase(table, "1", error)) << error;
  EXPECT_EQ(Scanned(*store_, table, kWholeItem), "2,b;");
  store_->Rollback();
  EXPECT_EQ(Scanned(*store_, table, kWholeItem), "1,a;");
  store_->Commit();  // nothing is open: nothing happens
}

TEST_P(StoreBody, KeepsFiles) {
  const std::string name = Spelling("MY.FILE-1");
  const std::string noTable = "there is no table " + name + " in account TEST";
  std::string error;
  EXPECT_TRUE(store_->TableNames(true).empty());
  for (const char* file : {"MY.FILE-1", "DICT MY.FILE-1", "TABLE"}) MakeTable(*store_, file, 3);
  std::vector<std::string> names = {name, Spelling("TABLE")};
  EXPECT_EQ(store_->TableNames(false), names);
  names.push_back(Spelling("DICT MY.FILE-1"));
  std::sort(names.begin(), names.end());
  EXPECT_EQ(store_->TableNames(true), names);
  EXPECT_FALSE(store_->CreateTable("my_file_1", 0, error));
  EXPECT_EQ(error, std::string("my_file_1 is there already, as ") + (IsNative() ? "MY.FILE-1" : "a table"));

  const TableHandle table = MustOpen(*store_, "my_file_1");
  EXPECT_EQ(MustOpen(*store_, "My.File-1"), table);
  EXPECT_EQ(store_->Describe(table).name, name);
  EXPECT_EQ(MustOpen(*store_, "my_file_1_dict"), MustOpen(*store_, "DICT MY.FILE-1"));
  MustWrite(*store_, table, "1", "a");  // left open: files commit first
  EXPECT_TRUE(store_->ClearTable("TABLE", error)) << error;
  EXPECT_FALSE(store_->HasOpenWrites());
  EXPECT_EQ(ItemOf(table, "1"), "a");
  EXPECT_TRUE(store_->ClearTable("my_file_1", error)) << error;
  EXPECT_EQ(ItemOf(table, "1"), "(none)");
  store_->BeginWrites();
  EXPECT_FALSE(store_->Erase(table, "1", error));
  EXPECT_EQ(error, "table " + name + ", item '1' doesn't exist");

  EXPECT_TRUE(store_->DropTable("MY.FILE-1", error)) << error;
  TableHandle none = 77;
  EXPECT_FALSE(store_->OpenTable("MY.FILE-1", none, error));
  EXPECT_EQ(error, noTable);
  EXPECT_EQ(none, 77);
  EXPECT_FALSE(store_->DropTable("MY.FILE-1", error) || store_->ClearTable("MY.FILE-1", error));

  // A handle outlives its table, and comes to life again with it.
  EXPECT_EQ(ItemOf(table, "1"), "(none)");
  EXPECT_THROW(Scanned(*store_, table), StoreFailure);
  EXPECT_EQ(RefusalOfWrite(*store_, table, "1", "a"), noTable);
  store_->Commit();
  EXPECT_EQ(MakeTable(*store_, "MY.FILE-1", 0), table);
  MustWrite(*store_, table, "1", Dyn("a^b^c^d"));
  EXPECT_EQ(ItemOf(table, "1"), Dyn("a^b^c^d"));
}

TEST_P(StoreBody, DescribesDictionaries) {
  TableHandle table = -1;
  std::string error;
  const std::string builtIn = Spelling("DICT DICT X") + " is built in and can't be changed";
  EXPECT_FALSE(store_->OpenTable("X_DICT_DICT", table, error));  // there is no x_dict
  MakeTable(*store_, "DICT X", 0);
  table = MustOpen(*store_, "DICT X_DICT");
  EXPECT_EQ(MustOpen(*store_, "x_dict_dict"), table);
  EXPECT_EQ(store_->Describe(table).layout, Layout::kBuiltIn);
  // The numbers have no gap that would end a report's default columns before WIDTH: that takes four.
  EXPECT_EQ(Scanned(*store_, table), "1;10;2;3;7;8;9;CONV;CORR;HEADING;JUST;LOC;TYPE;WIDTH;");
  EXPECT_EQ(ItemOf(table, "HEADING"), Dyn("A^3^HEADING^^^^^^L^20"));
  EXPECT_EQ(ItemOf(table, "9"), ItemOf(table, "JUST"));
  std::string value;
  EXPECT_TRUE(store_->ReadAttribute(table, "LOC", 9, value));
  EXPECT_EQ(value, "R");
  EXPECT_EQ(RefusalOfWrite(*store_, table, "1", "a"), builtIn);
  EXPECT_FALSE(store_->Erase(table, "1", error));
  store_->Commit();
  EXPECT_FALSE(store_->CreateTable("DICT DICT X", 0, error) || store_->DropTable("X_DICT_DICT", error));
  EXPECT_EQ(error, builtIn);
}

}  // namespace
}  // namespace nvadmin::engine
