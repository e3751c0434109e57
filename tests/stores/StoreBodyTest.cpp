// What every store must do, whatever lies behind it.
#include <gtest/gtest.h>

#include <map>
#include <random>

#include "StoreKinds.h"

namespace nvadmin::engine {
namespace {

class StoreBody : public testing::TestWithParam<StoreKind> {
 protected:
  void SetUp() override {
    account_ = GetParam().make();
    store_ = account_->Open();
  }

  TableHandle Make(std::string_view name, std::int32_t columns) {
    std::string error;
    EXPECT_TRUE(store_->CreateTable(name, columns, error)) << error;
    return MustOpen(*store_, name);
  }
  void Reopen() {
    store_.reset();
    store_ = account_->Open();
  }
  // The item, or "(none)".
  std::string ItemOf(TableHandle table, std::string_view id) {
    std::string item = "rest of another item";
    if (store_->Read(table, id, item)) return item;
    EXPECT_EQ(item, "");
    return "(none)";
  }
  std::vector<std::string> IdsOf(TableHandle table) {
    std::vector<std::string> ids;
    store_->Scan(table, {}, [&](std::string_view id, auto values) {
      EXPECT_TRUE(values.empty());
      ids.emplace_back(id);
      return true;
    });
    return ids;
  }
  std::string RefusalOfWrite(TableHandle table, std::string_view id, std::string_view item) {
    std::string error;
    store_->BeginWrites();
    EXPECT_FALSE(store_->Write(table, id, item, error));
    return error;
  }

  std::unique_ptr<TestAccount> account_;
  std::unique_ptr<Store> store_;
};

// What only a store with columns can do.
class RelationalStoreBody : public StoreBody {};

std::string AllBytes() {
  std::string all;
  for (int byte = 0; byte < 256; ++byte) all += static_cast<char>(byte);
  return all;
}

TEST_P(StoreBody, KeepsEveryItemAsItIs) {
  std::string manyValues;
  for (int value = 0; value < 100'000; ++value) manyValues += std::to_string(value) + '\xFD';
  const std::string middle = "a\xFE\xFE" + AllBytes() + "\xFE\xFE" + "end";  // itself with the marks
  const std::map<std::string, std::string> items = {
      {"empty", ""},
      {"one", "text"},
      {"marks inside",
       "a\xFD\xFC\xFB\xFA\xFE"
       "b\xFD"},
      {"empty first", "\xFE\xFEthird"},
      {"zeros", std::string("a\0b\xFE\0", 5) + "c"},
      {"all bytes", middle},
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
    const TableHandle table = Make(columns > 0 ? "COLUMNS" : "ITEMS", columns);
    for (const auto& [id, item] : items) MustWrite(*store_, table, id, item);
    store_->Commit();
  }
  Reopen();
  for (const char* name : {"COLUMNS", "ITEMS"}) {
    const TableHandle table = MustOpen(*store_, name);
    for (const auto& [id, item] : items) EXPECT_EQ(ItemOf(table, id), item) << name << ' ' << id;
    EXPECT_EQ(ItemOf(table, "k "), "(none)");
    EXPECT_EQ(ItemOf(table, ""), "(none)");
    EXPECT_EQ(IdsOf(table).size(), items.size());
  }
}

TEST_P(StoreBody, DropsTrailingEmptyAttributesOfColumnsOnly) {
  const TableHandle columns = Make("C", 2);
  const TableHandle whole = Make("N", 0);
  const bool areWhole = GetParam().isNative;
  MustWrite(*store_, columns, "1", "a\xFE\xFE\xFE\xFE");  // more marks than columns, but nothing in them
  MustWrite(*store_, columns, "2", "\xFE\xFE");
  MustWrite(*store_, whole, "1", "a\xFE\xFE\xFE\xFE");
  EXPECT_EQ(ItemOf(columns, "1"), areWhole ? "a\xFE\xFE\xFE\xFE" : "a");
  EXPECT_EQ(ItemOf(columns, "2"), areWhole ? "\xFE\xFE" : "");
  EXPECT_EQ(ItemOf(whole, "1"), "a\xFE\xFE\xFE\xFE");
  // A shorter item leaves nothing of a longer one.
  MustWrite(*store_, columns, "3",
            "a\xFE"
            "b");
  MustWrite(*store_, columns, "3", "\xE9");
  MustWrite(*store_, columns, "4", "c\xFE\xE9");
  EXPECT_EQ(ItemOf(columns, "3"), "\xE9");
  EXPECT_EQ(ItemOf(columns, "4"), "c\xFE\xE9");
}

TEST_P(StoreBody, ReadsSingleAttributes) {
  for (const std::int32_t columns : {4, 0}) {
    const TableHandle table = Make(columns > 0 ? "C" : "N", columns);
    MustWrite(*store_, table, "1",
              "a\xFE\xFD\xBE\xC3\xFE\xFE"
              "d\xE9");
    struct Case {
      std::int32_t attribute;
      const char* value;
    };
    for (const Case& test :
         {Case{1, "a"}, {2, "\xFD\xBE\xC3"}, {3, ""}, {4, "d\xE9"}, {5, ""}, {0, ""}, {-1, ""}}) {
      std::string value = "rest";
      EXPECT_TRUE(store_->ReadAttribute(table, "1", test.attribute, value));
      EXPECT_EQ(value, test.value) << test.attribute;
      value = "rest";
      EXPECT_FALSE(store_->ReadAttribute(table, "2", test.attribute, value));
      EXPECT_EQ(value, "");
    }
    std::string both = "1";  // the result may lie where the ID does
    EXPECT_TRUE(store_->ReadAttribute(table, both, 1, both));
    EXPECT_EQ(both, "a");
    both = "1";
    EXPECT_TRUE(store_->Read(table, both, both));
    EXPECT_EQ(both,
              "a\xFE\xFD\xBE\xC3\xFE\xFE"
              "d\xE9");
  }
}

TEST_P(StoreBody, ReadsBatchesInTheirOrder) {
  const TableHandle table = Make("C", 3);
  MustWrite(*store_, table, "1", "one");
  MustWrite(*store_, table, "2",
            "two\xFE\xFE"
            "b");
  std::vector<BatchItem> items(7);
  items[1].item = "rest";
  store_->ReadBatch(table, std::vector<std::string_view>{"2", "none", "1", "2"}, items);
  ASSERT_EQ(items.size(), 4U);
  EXPECT_EQ(items[0].item,
            "two\xFE\xFE"
            "b");
  EXPECT_FALSE(items[1].found);
  EXPECT_EQ(items[1].item, "");
  EXPECT_TRUE(items[2].found);
  EXPECT_EQ(items[2].item, "one");
  EXPECT_EQ(items[3].item, items[0].item);
  store_->Commit();  // the batch left the writes open
  store_->ReadBatch(table, {}, items);
  EXPECT_TRUE(items.empty());
}

TEST_P(StoreBody, ScansInByteOrderWithWhatIsAskedFor) {
  // Bytes 128 to 159 stand for characters from all over Unicode; their order must not show.
  const std::vector<std::string> ids = {"A",     "B",     "B\x80", "B\x80z",    "B\x99",
                                        "B\x9F", "B\xA0", "B\xE9", "B\xE9\x80", "B\xE9\xE8",
                                        "Ba",    "\x81",  "\x8A",  "\xC4",      "\xFF"};
  std::vector<std::string> sorted = ids;
  std::sort(sorted.begin(), sorted.end());
  for (const std::int32_t columns : {4, 0}) {
    const TableHandle table = Make(columns > 0 ? "C" : "N", columns);
    for (auto id = ids.rbegin(); id != ids.rend(); ++id) {
      MustWrite(*store_, table, *id,
                "a" + *id +
                    "\xFE\xFE"
                    "c\xFD" +
                    *id +
                    "\xFE"
                    "d");
    }
    EXPECT_EQ(IdsOf(table), sorted);

    Projection some;
    some.attributes = {3, 1, 9, 2, 3, 0};
    std::size_t at = 0;
    store_->Scan(table, some, [&](std::string_view id, std::span<const std::string_view> values) {
      EXPECT_EQ(id, sorted.at(at++));
      const std::string third = "c\xFD" + std::string(id);
      const std::vector<std::string> want = {third, "a" + std::string(id), "", "", third, ""};
      EXPECT_EQ(std::vector<std::string>(values.begin(), values.end()), want);
      return true;
    });
    EXPECT_EQ(at, ids.size());

    Projection whole;
    whole.wholeItem = true;
    at = 0;
    store_->Scan(table, whole, [&](std::string_view id, std::span<const std::string_view> values) {
      EXPECT_EQ(values.size(), 1U);
      EXPECT_EQ(values[0], "a" + std::string(id) +
                               "\xFE\xFE"
                               "c\xFD" +
                               std::string(id) +
                               "\xFE"
                               "d");
      return ++at < 3;
    });
    EXPECT_EQ(at, 3U);  // ended by the visitor
    EXPECT_EQ(IdsOf(table), sorted);
  }
}

TEST_P(StoreBody, LetsAVisitorReadScanAndWrite) {
  for (const std::int32_t columns : {2, 0}) {
    const TableHandle table = Make(columns > 0 ? "C" : "N", columns);
    for (const char* id : {"1", "2", "3", "\xE9"}) MustWrite(*store_, table, id, id);
    store_->Commit();
    store_->BeginWrites();
    std::string seen;
    store_->Scan(table, {{1}, false}, [&](std::string_view id, std::span<const std::string_view> values) {
      seen += std::string(id) + std::string(values[0]) + std::to_string(IdsOf(table).size()) +
              ItemOf(table, "1") + ' ';
      MustWrite(*store_, table, id, "new");
      return true;
    });
    EXPECT_EQ(seen,
              "1141 224new 334new \xE9\xE9"
              "4new ");
    EXPECT_EQ(ItemOf(table, "3"), "new");
    store_->Commit();
  }
}

TEST_P(StoreBody, KeepsItsVisitorsFailure) {
  const TableHandle table = Make("C", 1);
  MustWrite(*store_, table, "1", "a");
  EXPECT_THROW(store_->Scan(table, {}, [](auto, auto) -> bool { throw std::runtime_error("visitor"); }),
               std::runtime_error);
  EXPECT_EQ(IdsOf(table).size(), 1U);
  std::string error;
  EXPECT_TRUE(store_->DropTable("C", error)) << error;  // nothing holds the table
}

TEST_P(StoreBody, ErasesAndTellsOfMissingItems) {
  const TableHandle table = Make("C", 2);
  MustWrite(*store_, table, "1", "a");
  std::string error;
  EXPECT_TRUE(store_->Erase(table, "1", error)) << error;
  EXPECT_EQ(ItemOf(table, "1"), "(none)");
  EXPECT_FALSE(store_->Erase(table, "1", error));
  EXPECT_EQ(error, "table " + GetParam().Spelling("C") + ", item '1' doesn't exist");
}

TEST_P(RelationalStoreBody, RefusesWhatDoesNotFit) {
  ResultGrid grid;
  bool isQuery = false;
  std::string message, error;
  ASSERT_TRUE(store_->RunSql("CREATE TABLE cust (A0 VARCHAR(5) PRIMARY KEY, A1 VARCHAR(3), A2 TEXT)", grid,
                             isQuery, message, error))
      << error;
  ASSERT_TRUE(store_->RunSql("CREATE TABLE bp (A0 VARCHAR(4) PRIMARY KEY, ITEM VARCHAR(6))", grid, isQuery,
                             message, error))
      << error;
  const TableHandle table = MustOpen(*store_, "CUST");
  EXPECT_EQ(store_->Describe(table).limits, (std::vector<std::int64_t>{5, 3, 0}));
  EXPECT_EQ(RefusalOfWrite(table, "123456", "a"),
            "table cust, item '123456': column A0 holds 5 characters, the item ID has 6");
  EXPECT_EQ(RefusalOfWrite(table, "1", "\xE9\xE9\xE9\xE9"),
            "table cust, item '1': column A1 holds 3 characters, the text has 4");
  EXPECT_EQ(RefusalOfWrite(table, "1",
                           "a\xFE"
                           "b\xFE"
                           "c"),
            "table cust, item '1': the table has columns for 2 attributes, the item has 3");
  EXPECT_EQ(RefusalOfWrite(table, "", "a"), "table cust: an item needs an item ID");
  EXPECT_EQ(ItemOf(table, "1"), "(none)");
  MustWrite(*store_, table, "\xE9\xE9\xE9\xE9\xE9",
            "\x80\xFD\xE9\xFE" + std::string(100'000, 'x'));  // just fits
  EXPECT_EQ(RefusalOfWrite(MustOpen(*store_, "BP"), "1", "1234567"),
            "table bp, item '1': column ITEM holds 6 characters, the text has 7");
  store_->Commit();
}

TEST_P(StoreBody, CommitsAndRollsBackAsOne) {
  const TableHandle table = Make("C", 1);
  const std::unique_ptr<Store> other = account_->Open();
  const TableHandle otherTable = MustOpen(*other, "C");
  EXPECT_FALSE(store_->HasOpenWrites());
  MustWrite(*store_, table, "1", "a");
  EXPECT_TRUE(store_->HasOpenWrites());
  std::string item;
  EXPECT_FALSE(other->Read(otherTable, "1", item));
  store_->Commit();
  EXPECT_FALSE(store_->HasOpenWrites());
  EXPECT_TRUE(other->Read(otherTable, "1", item));

  MustWrite(*store_, table, "1", "b");
  MustWrite(*store_, table, "2", "b");
  EXPECT_EQ(ItemOf(table, "1"), "b");
  store_->Rollback();
  EXPECT_EQ(ItemOf(table, "1"), "a");
  EXPECT_EQ(ItemOf(table, "2"), "(none)");
  store_->Commit();  // nothing is open: nothing happens
}

TEST_P(StoreBody, KeepsFiles) {
  const StoreKind& kind = GetParam();
  const std::string name = kind.Spelling("MY.FILE-1");
  std::string error;
  EXPECT_TRUE(store_->TableNames(true).empty());
  Make("MY.FILE-1", 3);
  Make("DICT MY.FILE-1", 0);
  Make("TABLE", 2);
  std::vector<std::string> names = {name, kind.Spelling("TABLE")};
  EXPECT_EQ(store_->TableNames(false), names);
  names.push_back(kind.Spelling("DICT MY.FILE-1"));
  std::sort(names.begin(), names.end());
  EXPECT_EQ(store_->TableNames(true), names);
  EXPECT_FALSE(store_->CreateTable("my_file_1", 0, error));
  EXPECT_EQ(error,
            std::string("my_file_1 is there already, as ") + (kind.isNative ? "MY.FILE-1" : "a table"));

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

  EXPECT_TRUE(store_->DropTable("MY.FILE-1", error)) << error;
  TableHandle none = 77;
  EXPECT_FALSE(store_->OpenTable("MY.FILE-1", none, error));
  EXPECT_EQ(error, "there is no table " + name + " in account TEST");
  EXPECT_EQ(none, 77);
  EXPECT_FALSE(store_->DropTable("MY.FILE-1", error));
  EXPECT_FALSE(store_->ClearTable("MY.FILE-1", error));

  // A handle outlives its table, and comes to life again with it.
  EXPECT_EQ(ItemOf(table, "1"), "(none)");
  EXPECT_THROW(IdsOf(table), StoreFailure);
  EXPECT_EQ(RefusalOfWrite(table, "1", "a"), "there is no table " + name + " in account TEST");
  store_->Commit();
  EXPECT_EQ(Make("MY.FILE-1", 0), table);
  MustWrite(*store_, table, "1",
            "a\xFE"
            "b\xFE"
            "c\xFE"
            "d");
  EXPECT_EQ(ItemOf(table, "1"),
            "a\xFE"
            "b\xFE"
            "c\xFE"
            "d");
}

TEST_P(StoreBody, DescribesDictionaries) {
  TableHandle table = -1;
  std::string error;
  const std::string builtIn = GetParam().Spelling("DICT DICT X") + " is built in and can't be changed";
  EXPECT_FALSE(store_->OpenTable("X_DICT_DICT", table, error));  // there is no x_dict
  Make("DICT X", 0);
  table = MustOpen(*store_, "DICT X_DICT");
  EXPECT_EQ(MustOpen(*store_, "x_dict_dict"), table);
  EXPECT_EQ(store_->Describe(table).layout, Layout::kBuiltIn);
  EXPECT_EQ(ItemOf(table, "HEADING"),
            "A\xFE"
            "3\xFEHEADING\xFE\xFE\xFE\xFE\xFE\xFEL\xFE"
            "20");
  EXPECT_EQ(ItemOf(table, "9"), ItemOf(table, "JUST"));
  EXPECT_EQ(IdsOf(table), (std::vector<std::string>{"1", "10", "2", "3", "7", "8", "9", "CONV", "CORR",
                                                    "HEADING", "JUST", "LOC", "TYPE", "WIDTH"}));
  // What a report without column words does: it stops at the fourth miss.
  int found = 0;
  for (int number = 1, misses = 0; misses < 4; ++number) {
    if (ItemOf(table, std::to_string(number)) == "(none)") {
      ++misses;
    } else {
      ++found;
    }
  }
  EXPECT_EQ(found, 7);
  std::string value;
  EXPECT_TRUE(store_->ReadAttribute(table, "LOC", 9, value));
  EXPECT_EQ(value, "R");
  EXPECT_EQ(RefusalOfWrite(table, "1", "a"), builtIn);
  EXPECT_FALSE(store_->Erase(table, "1", error));
  store_->Commit();
  EXPECT_FALSE(store_->CreateTable("DICT DICT X", 0, error));
  EXPECT_FALSE(store_->DropTable("X_DICT_DICT", error));
  EXPECT_EQ(error, builtIn);
}

// Random reads and writes beside a map, with commits, rollbacks, reopening and another session that looks on.
TEST_P(StoreBody, AgreesWithAMap) {
  const auto seed = static_cast<std::uint32_t>(std::random_device{}());
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  const auto pick = [&](int below) { return std::uniform_int_distribution<int>(0, below - 1)(random); };
  const auto text = [&](int longest) {
    std::string bytes;
    for (int left = pick(longest + 1); left > 0; --left) {
      bytes += static_cast<char>(pick(4) == 0 ? pick(254) : 'a' + pick(26));
    }
    return bytes;
  };
  using Items = std::map<std::string, std::string>;
  const char* names[] = {"C", "N"};
  Items written[2], committed[2];
  TableHandle tables[2] = {Make("C", 6), Make("N", 0)};
  const auto check = [&](Store& store, const Items(&want)[2]) {
    for (int which = 0; which < 2; ++which) {
      Items found;
      std::string last;
      store.Scan(MustOpen(store, names[which]), {{}, true}, [&](std::string_view id, auto values) {
        EXPECT_LE(last, id);
        last = id;
        found.emplace(id, values[0]);
        return true;
      });
      EXPECT_EQ(found, want[which]);
    }
  };

  for (int step = 0; step < 1500; ++step) {
    const int which = pick(2);
    std::string id = "k" + text(2);
    std::string error;
    switch (pick(12)) {
      case 0: {
        store_->BeginWrites();
        EXPECT_EQ(store_->Erase(tables[which], id, error), written[which].erase(id) > 0);
        break;
      }
      case 1:
        store_->Commit();
        std::copy(written, written + 2, committed);
        break;
      case 2:
        store_->Rollback();
        std::copy(committed, committed + 2, written);
        break;
      case 3:
        if (pick(20) == 0) {
          Reopen();  // what was open is gone
          std::copy(committed, committed + 2, written);
          for (int table = 0; table < 2; ++table) tables[table] = MustOpen(*store_, names[table]);
        }
        if (pick(20) == 0) check(*store_, written);
        if (pick(20) == 0) check(*account_->Open(), committed);
        break;
      case 4: {
        const auto found = written[which].find(id);
        EXPECT_EQ(ItemOf(tables[which], id), found == written[which].end() ? "(none)" : found->second);
        break;
      }
      default: {
        std::string item = text(8);
        for (int more = pick(5); more > 0; --more) item += '\xFE' + text(8);
        while (item.ends_with('\xFE')) item.pop_back();
        MustWrite(*store_, tables[which], id, item);
        written[which][id] = item;
      }
    }
    if (HasFailure()) return;
  }
  check(*store_, written);
}

INSTANTIATE_TEST_SUITE_P(Stores, StoreBody, testing::ValuesIn(StoreKinds()),
                         [](const testing::TestParamInfo<StoreKind>& kind) { return kind.param.name; });

INSTANTIATE_TEST_SUITE_P(Stores, RelationalStoreBody, testing::ValuesIn(RelationalKinds()),
                         [](const testing::TestParamInfo<StoreKind>& kind) { return kind.param.name; });

}  // namespace
}  // namespace nvadmin::engine
