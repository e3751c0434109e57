// The same random sentences over a real store that tests conditions itself, and over one that is told none:
// every answer must be the same. The values are those on which SQL and the query language differ.
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "engine/query/PushDown.h"
#include "engine/query/RunQuery.h"
#include "engine/stores/SqliteStore.h"
#include "tests/query/MemoryStore.h"
#include "tests/query/Random.h"

namespace nvadmin::engine {
namespace {

// A store that counts the items scanned, and may keep the conditions from the one below.
class Between : public MemoryStore {
 public:
  Between(Store& below, bool tells) : below_(below), tells_(tells) {}

  int scanned = 0;

  bool OpenTable(std::string_view name, TableHandle& table, std::string& error) override {
    return below_.OpenTable(name, table, error);
  }
  void ReadBatch(TableHandle table, std::span<const std::string_view> ids,
                 std::vector<BatchItem>& items) override {
    below_.ReadBatch(table, ids, items);
  }
  void Scan(TableHandle table, const Projection& projection, const ScanVisitor& visitor) override {
    Projection told = projection;
    if (!tells_) told.conditions.clear();
    below_.Scan(table, told, [&](std::string_view id, std::span<const std::string_view> values) {
      ++scanned;
      return visitor(id, values);
    });
  }

 private:
  Store& below_;
  bool tells_;
};

class PushDownTest : public testing::Test {
 protected:
  void SetUp() override {
    folder_ = std::filesystem::temp_directory_path() / ("nvadmin-pushdown-" + std::to_string(getpid()));
    std::filesystem::create_directories(folder_);
    store_ = std::make_unique<SqliteStore>(folder_ / "TEST.sqlite", "TEST", "MYSQL");
    Sql("CREATE TABLE hand (A0 TEXT PRIMARY KEY, A1 TEXT COLLATE RTRIM, A2, A3 INTEGER, A4 REAL, A5 BLOB)");
    Sql("CREATE TABLE hand_dict (A0 TEXT PRIMARY KEY, A1, A2, A3, A4, A5, A6, A7, A8, A9, A10)");
    Make("cols", 5);
    Make("whole", 0);
    store_->BeginWrites();
    for (const char* file : {"DICT COLS", "DICT WHOLE", "DICT HAND"}) {
      Put(file, "NAME", "A^1^^^^^^^L^9");
      Put(file, "AMOUNT", "S^2^^^^^^^R^9");
      Put(file, "TAGS", "D^3^^^9L");
      Put(file, "DAY", "D^4^D4/^^9R");
      Put(file, "PRICE", "A^2^^^^^MD2^^R^9");
      Put(file, "CAPS", "S^1^^^^^^MCU^L^9");
      Put(file, "BOTH", "S^0^^^^^^C;1;3^L^9");
    }
    store_->Commit();
  }
  void TearDown() override {
    store_.reset();
    std::filesystem::remove_all(folder_);
  }

  void Sql(const std::string& statement) {
    ResultGrid grid;
    bool isQuery = false;
    std::string message;
    std::string error;
    ASSERT_TRUE(store_->RunSql(statement, grid, isQuery, message, error)) << statement << "\n" << error;
  }
  void Make(const std::string& name, int columns) {
    std::string error;
    ASSERT_TRUE(store_->CreateTable(name, columns, error)) << error;
    ASSERT_TRUE(store_->CreateTable(name + "_dict", 10, error)) << error;
  }
  void Put(std::string_view file, std::string_view id, std::string_view item) {
    TableHandle table = 0;
    std::string error;
    ASSERT_TRUE(store_->OpenTable(file, table, error)) << error;
    ASSERT_TRUE(store_->Write(table, id, WithMarks(item), error)) << error;
  }

  std::filesystem::path folder_;
  std::unique_ptr<SqliteStore> store_;
};

// Values in SQL, for a table made by hand: other storage classes, text that no code page has, broken UTF-8.
const char* const kSqlValues[] = {"'ab'",
                                  "''",
                                  "NULL",
                                  "x'6162'",
                                  "x'E46162'",
                                  "7",
                                  "7.5",
                                  "1e20",
                                  "'  '",
                                  "cast(x'C1A162' AS TEXT)",
                                  "cast(x'C362' AS TEXT)",
                                  "char(322) || 'b'",
                                  "'a' || char(0) || 'b'",
                                  "x'FD3037'",
                                  "'\xC3\xA4z'",
                                  "-0.5",
                                  "'007'"};
const std::string kTexts[] = {"",      "a",  "ab",   "B",    "x 1", "o'b", "\xE4",
                              "\xE4z", "?",  "?b",   "a?b",  "%",   "a_b", std::string("a\0b", 3),
                              "b",     "  ", "\x80", "\xFFz"};
const std::string kNumbers[] = {"0",     "-0",    "007",  "7",      "7.50",
                                "7.5",   ".5",    "0.50", "-1.5",   "+7",
                                "5.",    "1e1",   "100",  "100.00", "123456789012345678901234567890",
                                "19000", "7.5000"};
const char* const kFields[] = {"NAME", "AMOUNT", "TAGS", "DAY", "PRICE", "CAPS", "BOTH", "@ID", "A5", "A9"};
const char* const kOperators[] = {"=", "=", "=", "=", "#", "<", ">=", "LIKE", "LIKE", "UNLIKE", "BETWEEN"};
const char* const kQuantifiers[] = {"", "", "", "EVERY ", "NO "};

std::string RandomValue(Random& random) {
  return random.Chance(50) ? random.Of(kNumbers) : random.Of(kTexts);
}

std::string RandomItem(Random& random) {
  std::string item;
  for (int attribute = 1; attribute <= 5; ++attribute) {
    if (attribute > 1) item += '\xFE';
    item += RandomValue(random);
    while (random.Chance(20)) item += (random.Chance(60) ? '\xFD' : '\xFC') + RandomValue(random);
  }
  return item;
}

std::string RandomLiteral(Random& random, std::string_view field, std::string_view op) {
  if (field == "DAY") return random.Chance(50) ? "01/07/2020" : "";
  if (field == "PRICE") return random.Chance(50) ? "0.07" : "190";
  std::string text = RandomValue(random);
  if (op == "LIKE" || op == "UNLIKE") {
    if (random.Chance(40)) text += "...";
    if (random.Chance(20)) text = "0X" + text;
    if (random.Chance(20)) text += "0N";
  } else if (op != "BETWEEN") {
    if (random.Chance(20)) text += ']';
    if (random.Chance(20)) text.insert(0, "[");
  }
  return text;
}

std::string RandomCriterion(Random& random) {
  const char* field = random.Of(kFields);
  const std::string text = std::string(random.Of(kQuantifiers)) + field;
  if (random.Chance(15)) return text;
  const std::string op = random.Of(kOperators);
  std::string criterion = text + " " + op;
  const std::size_t literals = op == "BETWEEN" ? 2 : random.Chance(10) ? 20 : 1 + random.Below(2);
  for (std::size_t at = 0; at < literals; ++at) {
    criterion += " \"" + RandomLiteral(random, field, op) + "\"";
  }
  return criterion;
}

std::string RandomCriteria(Random& random, int depth) {
  if (depth == 0 || random.Chance(40)) return RandomCriterion(random);
  const std::string left = RandomCriteria(random, depth - 1);
  const std::string right = RandomCriteria(random, depth - 1);
  const std::string joined = left + (random.Chance(50) ? " AND " : " OR ") + right;
  return random.Chance(50) ? "(" + joined + ")" : joined;
}

TEST_F(PushDownTest, ChangesNoAnswer) {
  constexpr unsigned kFirstSeed = 7100;
  constexpr int kRounds = 12;
  constexpr int kSentencesARound = 60;
  int told = 0;
  int untold = 0;
  for (unsigned seed = kFirstSeed; seed < kFirstSeed + kRounds; ++seed) {
    Random random(seed);
    store_->BeginWrites();
    for (int count = 0; count < 25; ++count) {
      const std::string id = "k" + std::to_string(random.Below(60)) + (random.Chance(20) ? "\xE4" : "");
      Put("COLS", id, RandomItem(random));
      Put("WHOLE", id, RandomItem(random));
    }
    store_->Commit();
    for (int rows = 0; rows < 4; ++rows) {
      const std::string id = "'h" + std::to_string(random.Below(50)) + "'";
      std::string values;
      for (int column = 1; column <= 5; ++column) values += std::string(", ") + random.Of(kSqlValues);
      Sql("INSERT OR REPLACE INTO hand VALUES (" + id + values + ")");
    }

    for (int number = 0; number < kSentencesARound; ++number) {
      const char* const files[] = {"COLS", "WHOLE", "HAND"};
      const char* const tails[] = {"", " BY NAME", " BY-DSND AMOUNT", " BY-EXP TAGS", " SAMPLE 3"};
      const std::string sentence = std::string(random.Chance(50) ? "SELECT " : "SSELECT ") +
                                   random.Of(files) + " WITH " + RandomCriteria(random, 3) + random.Of(tails);
      Between telling(*store_, /*tells=*/true);
      Between silent(*store_, /*tells=*/false);
      std::string answers[2];
      std::string replies[2];
      for (Between* store : {&telling, &silent}) {
        const std::size_t at = store == &telling ? 0 : 1;
        ResultGrid grid;
        std::string error;
        ASSERT_TRUE(RunQuery(sentence, *store, nullptr, grid, replies[at], error)) << sentence << "\n"
                                                                                   << error;
        answers[at] = KeysOf(grid);
      }
      ASSERT_EQ(answers[0], answers[1]) << "seed " << seed << ": " << sentence;
      ASSERT_EQ(replies[0], replies[1]) << "seed " << seed << ": " << sentence;
      told += telling.scanned;
      untold += silent.scanned;
    }
  }
  EXPECT_LT(told, untold * 9 / 10) << "the store left nothing out";
}

TEST_F(PushDownTest, FindsEachItemByItsValues) {
  constexpr std::size_t kCount = std::size(kSqlValues);
  for (std::size_t number = 0; number < kCount; ++number) {
    std::string row = "INSERT INTO hand VALUES ('" + std::to_string(number) + "'";
    for (std::size_t column = 0; column < 5; ++column)
      row += std::string(", ") + kSqlValues[(number + column) % kCount];
    Sql(row + ")");
  }
  TableHandle table = 0;
  std::string error;
  ASSERT_TRUE(store_->OpenTable("HAND", table, error)) << error;
  for (std::size_t number = 0; number < kCount; ++number) {
    for (int column = 1; column <= 5; ++column) {
      const std::string id = std::to_string(number);
      std::string value;
      ASSERT_TRUE(store_->ReadAttribute(table, id, column, value));
      value.resize(std::min(value.find('\xFD'), value.size()));
      const std::string sentence = "SELECT HAND WITH A" + std::to_string(column) + " = \"" + value + "\"";
      ResultGrid grid;
      std::string reply;
      ASSERT_TRUE(RunQuery(sentence, *store_, nullptr, grid, reply, error)) << sentence << "\n" << error;
      EXPECT_NE((" " + KeysOf(grid) + " ").find(" " + id + " "), std::string::npos) << sentence;
    }
  }
}

TEST_F(PushDownTest, LeavesTheRestToTheStore) {
  store_->BeginWrites();
  for (int number = 0; number < 100; ++number) {
    Put("COLS", std::to_string(number), "n" + std::to_string(number % 10) + "^" + std::to_string(number));
  }
  store_->Commit();
  const struct {
    const char* criteria;
    int scanned;
  } rows[] = {
      {"NAME = 'n3' AND AMOUNT > 50", 10},
      {"NAME LIKE '...3'", 10},
      {"NAME = 'n3' OR AMOUNT = '099.0'", 11},
      {"NAME = 'n3' WITH (AMOUNT = 13 OR AMOUNT = 23)", 2},
      {"NAME = 'n3' 'n4'", 20},
      {"NAME # 'n3'", 100},
      {"CAPS = 'N3'", 100},
      {"NAME = 'n3' OR CAPS = 'N3'", 100},
      {"TAGS", 0},
      {"A77 = 'x'", 0},
  };
  for (const auto& row : rows) {
    Between store(*store_, /*tells=*/true);
    ResultGrid grid;
    std::string reply;
    std::string error;
    const std::string sentence = std::string("SELECT COLS WITH ") + row.criteria;
    ASSERT_TRUE(RunQuery(sentence, store, nullptr, grid, reply, error)) << sentence << "\n" << error;
    constexpr int kWords = 7;  // the dictionary
    EXPECT_EQ(store.scanned - kWords, row.scanned) << sentence;
  }
}

}  // namespace
}  // namespace nvadmin::engine
