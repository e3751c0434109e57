// The same random sentences over a real store that tests conditions and sorts, and over one that is told
// neither: every answer must be the same. The values are those on which SQL and the query language differ.
#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "engine/Home.h"
#include "engine/query/RunQuery.h"
#include "engine/stores/OpenStore.h"
#include "engine/stores/SqliteStore.h"
#include "tests/query/MemoryStore.h"
#include "tests/query/Random.h"
#include "tests/support/MariaServer.h"
#include "tests/support/TemporaryFolder.h"

namespace nvadmin::engine {
namespace {

// A store that counts what is scanned, and may keep conditions and order from the one below.
struct Between : MemoryStore {
  Between(Store& store, bool told) : below(store), tells(told) {}

  Store& below;
  bool tells;
  int scanned = 0;  // items
  int sorted = 0;   // scans that the store below sorted

  bool OpenTable(std::string_view name, TableHandle& table, std::string& error) override {
    return below.OpenTable(name, table, error);
  }
  void Scan(TableHandle table, const Projection& projection, const ScanVisitor& visitor) override {
    Projection told = projection;
    if (!tells) told.conditions.clear();
    below.Scan(table, told, Counting(visitor));
  }
  bool ScanInOrder(TableHandle table, const Projection& projection, const ScanOrder& order,
                   const ScanVisitor& visitor) override {
    const bool isSorted = tells && below.ScanInOrder(table, projection, order, Counting(visitor));
    sorted += isSorted ? 1 : 0;
    return isSorted;
  }

  ScanVisitor Counting(const ScanVisitor& visitor) {
    return [this, &visitor](std::string_view id, std::span<const std::string_view> values) {
      ++scanned;
      return visitor(id, values);
    };
  }
};

// The reply and the keys.
std::string Ask(Between& store, const std::string& sentence) {
  ResultGrid grid;
  std::string reply;
  std::string error;
  EXPECT_TRUE(RunQuery(sentence, store, nullptr, grid, reply, error)) << sentence << "\n" << error;
  return reply + ": " + KeysOf(grid);
}

std::vector<std::string> Cut(const std::string& list) {
  std::vector<std::string> parts;
  std::istringstream stream(list);
  for (std::string part; std::getline(stream, part, '|');) parts.push_back(part);
  return parts;
}

const std::vector<std::string> kWords =
    Cut("NAME A^1^^^^^^^L|AMOUNT S^2^^^^^^^R|TAGS D^3^^^9L|DAY D^4^D4/^^9R|PRICE A^2^^^^^MD2^^R|"
        "CAPS S^1^^^^^^MCU^L|BOTH S^0^^^^^^C;1;3^L");

class PushDownTest : public testing::Test {
 protected:
  void SetUp() override {
    Sql("CREATE TABLE cols (A0 TEXT, A1 TEXT, A2 TEXT, A3 TEXT, A4 TEXT, A5 TEXT, PRIMARY KEY (A0))");
    Sql("CREATE TABLE hand (A0 COLLATE NOCASE PRIMARY KEY, A1 TEXT COLLATE RTRIM, A2, A3 INTEGER, A4 REAL, "
        "A5 BLOB)");
    Sql("CREATE TABLE whole (A0 TEXT PRIMARY KEY, ITEM TEXT)");
    for (const std::string file : {"COLS", "WHOLE", "HAND"}) {
      Sql("CREATE TABLE " + file + "_dict (A0 TEXT PRIMARY KEY, ITEM)");
      store_.BeginWrites();
      for (const std::string& word : kWords) {
        const std::size_t blank = word.find(' ');
        Put("DICT " + file, word.substr(0, blank), word.substr(blank + 1));
      }
      if (file == "HAND") Put("DICT HAND", "@ID", "A^0^^^^^^^R^9");
      store_.Commit();
    }
  }

  void Sql(const std::string& statement) {
    ResultGrid grid;
    bool isQuery = false;
    std::string message;
    std::string error;
    ASSERT_TRUE(store_.RunSql(statement, grid, isQuery, message, error)) << statement << "\n" << error;
  }
  void Put(const std::string& file, const std::string& id, const std::string& item) {
    PutInto(store_, file, id, item);
  }
  static void PutInto(Store& store, const std::string& file, const std::string& id, const std::string& item) {
    TableHandle table = 0;
    std::string error;
    ASSERT_TRUE(store.OpenTable(file, table, error)) << error;
    ASSERT_TRUE(store.Write(table, id, WithMarks(item), error)) << error;
  }

  TemporaryFolder folder_;
  SqliteStore store_{folder_ / "TEST.sqlite", "TEST", "MYSQL"};
};

// In SQL, for a table made by hand: storage classes, text that no code page has, broken UTF-8.
const std::vector<std::string> kSqlValues =
    Cut("'ab'|'B'|''|NULL|x'6162'|x'E46162'|7|7.5|1e20|'  '|cast(x'C1A162' AS TEXT)|cast(x'C362' AS "
        "TEXT)|-0.5|'007'|"
        "cast(x'C58262' AS TEXT)|cast(x'610062' AS TEXT)|x'FD3037'|'"
        "\xC3\xA4z'|char(322)|char(8364)|-12|'-12'");
using namespace std::string_literals;
const std::vector<std::string> kTexts =
    Cut("|a|ab|AB|B|x 1|o'b|\xE4|\xE4z|?|?b|??b|a?b|%|a_b|a\0b|b|  |\x80|\xFFz|a\x8A|1.0e+20|-12.0"s);
const std::vector<std::string> kNumbers = Cut(
    "0|-0|007|7|7.50|7.5|.5|0.50|-1.5|+7|5.|1e1|100|100.00|12345678901234567890|19000|7.5000|1.0| 7|-0.5|" +
    std::string(400, '9') + "|-" + std::string(400, '9'));
const std::vector<std::string> kFiles = Cut("COLS|COLS|HAND|HAND|WHOLE");
const std::vector<std::string> kFilesOnServer = Cut("COLS|COLS|WHOLE");
const std::vector<std::string> kLeads = Cut(" BY | BY | BY-DSND | BY-DSND | BY-EXP ");
const std::vector<std::string> kFields = Cut("NAME|AMOUNT|TAGS|DAY|PRICE|CAPS|BOTH|@ID|A5|A9");
const std::vector<std::string> kOperators = Cut("=|=|#|<|>|<=|>=|<|>|LIKE|UNLIKE|BETWEEN");
const std::vector<std::string> kCases = {"k", "K", ""};
const std::vector<std::string> kQuantifiers = Cut("|||EVERY |NO ");

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
  if (op == "BETWEEN") return text;
  const bool isPattern = op.ends_with("LIKE");
  if (isPattern) text.resize(std::min<std::size_t>(text.size(), 50));
  if (random.Chance(20)) text.insert(0, isPattern ? "0X" : "[");
  return random.Chance(30) ? text + (isPattern ? "..." : "]") : text;
}

std::string RandomCriterion(Random& random) {
  const std::string& field = random.Of(kFields);
  const std::string& op = random.Of(kOperators);
  std::string criterion = random.Of(kQuantifiers) + field;
  if (random.Chance(15)) return criterion;
  criterion += " " + op;
  const std::size_t literals = op == "BETWEEN" ? 2 : random.Chance(10) ? 20 : 1 + random.Below(2);
  for (std::size_t at = 0; at < literals; ++at) criterion += " \"" + RandomLiteral(random, field, op) + "\"";
  return criterion;
}

std::string RandomCriteria(Random& random, int depth) {
  if (depth == 0 || random.Chance(40)) return RandomCriterion(random);
  const std::string left = RandomCriteria(random, depth - 1);
  const std::string right = RandomCriteria(random, depth - 1);
  const std::string joined = left + (random.Chance(50) ? " AND " : " OR ") + right;
  return random.Chance(50) ? "(" + joined + ")" : joined;
}

std::string RandomSentence(Random& random, const std::vector<std::string>& files) {
  const bool isSample = random.Chance(50);
  std::string sentence = (random.Chance(50) ? "SELECT " : "SSELECT ") + random.Of(files);
  if (!isSample || random.Chance(50)) sentence += " WITH " + RandomCriteria(random, 3);
  for (std::size_t count = random.Below(4); count > 0; --count)
    sentence += random.Of(kLeads) + random.Of(kFields);
  if (random.Chance(30)) sentence += " SAVING TAGS";
  return isSample ? sentence + " SAMPLE " + std::to_string(1 + random.Below(45)) : sentence;
}

TEST_F(PushDownTest, ChangesNoAnswer) {
  constexpr unsigned kFirstSeed = 7100;
  constexpr int kRounds = 24;
  constexpr int kSentencesARound = 90;
  Between telling(store_, /*tells=*/true);
  Between silent(store_, /*tells=*/false);
  const std::vector<std::string> idEnds = Cut("||||\xE4|\x80|!|\xFDz");
  for (unsigned seed = kFirstSeed; seed < kFirstSeed + kRounds; ++seed) {
    Random random(seed);
    store_.BeginWrites();
    for (int count = 0; count < 25; ++count) {
      const std::string id = "k" + std::to_string(random.Below(60)) + random.Of(idEnds);
      Put("COLS", id, RandomItem(random));
      Put("WHOLE", id, RandomItem(random));
    }
    store_.Commit();
    for (int rows = 0; rows < 4; ++rows) {
      std::string values = "'" + random.Of(kCases) + std::to_string(random.Below(50)) + "'";
      if (random.Chance(50)) values = random.Of(kSqlValues);
      for (int column = 1; column <= 5; ++column) values += ", " + random.Of(kSqlValues);
      Sql("INSERT OR REPLACE INTO hand VALUES (" + values + ")");
    }
    for (int number = 0; number < kSentencesARound; ++number) {
      const std::string sentence = RandomSentence(random, kFiles);
      ASSERT_EQ(Ask(telling, sentence), Ask(silent, sentence)) << "seed " << seed << ": " << sentence;
    }
  }
  EXPECT_LT(telling.scanned, silent.scanned * 9 / 10) << "the store left nothing out";
  EXPECT_GT(telling.sorted, kRounds * kSentencesARound / 5) << "the store sorted nothing";
}

// The same items, IDs and dictionaries in a database on a server.
TEST_F(PushDownTest, AnswersAreTheSameOnAServer) {
  if (!MariaDatabase::IsThere()) GTEST_SKIP() << MariaDatabase::kSkipped;
  constexpr unsigned kFirstSeed = 8100;
  constexpr int kRounds = 6;
  constexpr int kSentencesARound = 120;
  const MariaDatabase database;
  Home::Make(folder_ / "home");
  const std::unique_ptr<Store> server =
      OpenStore(Home(folder_ / "home"), {"TEST", "MYSQL", database.Address()});
  const std::string files[] = {"COLS", "WHOLE"};
  std::string error;
  for (const std::string& file : files) {
    ASSERT_TRUE(server->CreateTable(file, file == "COLS" ? 5 : 0, error)) << error;
    ASSERT_TRUE(server->CreateTable("DICT " + file, 0, error)) << error;
    server->BeginWrites();
    for (const std::string& word : kWords)
      PutInto(*server, "DICT " + file, word.substr(0, word.find(' ')), word.substr(word.find(' ') + 1));
    server->Commit();
  }
  Between embedded(store_, /*tells=*/true);
  Between onServer(*server, /*tells=*/true);
  const std::vector<std::string> idEnds = Cut("|| |  |k|K|\xE4|\xC4|\x80|!|\xFDz|\xFF"),
                                 idStarts = Cut("k|K||0|-|\xE9");
  for (unsigned seed = kFirstSeed; seed < kFirstSeed + kRounds; ++seed) {
    Random random(seed);
    store_.BeginWrites();
    server->BeginWrites();
    for (int count = 0; count < 60; ++count) {
      const std::string id = random.Of(idStarts) + std::to_string(random.Below(40)) + random.Of(idEnds);
      const std::string item = RandomItem(random);
      for (const std::string& file : files) {
        Put(file, id, item);
        PutInto(*server, file, id, item);
      }
    }
    store_.Commit();
    server->Commit();
    for (int number = 0; number < kSentencesARound; ++number) {
      std::string sentence = RandomSentence(random, kFilesOnServer);
      ASSERT_EQ(Ask(onServer, sentence), Ask(embedded, sentence)) << "seed " << seed << ": " << sentence;
    }
  }
  EXPECT_LT(onServer.scanned, embedded.scanned * 2) << "the server left nothing out";
}

TEST_F(PushDownTest, LeavesTheRestToTheStore) {
  store_.BeginWrites();
  for (int number = 0; number < 100; ++number) {
    Put("COLS", std::to_string(number), "n" + std::to_string(number % 10) + "^" + std::to_string(number));
  }
  store_.Commit();
  const struct {
    const char* clauses;
    int scanned;
  } rows[] = {
      {"WITH NAME = 'n3' AND AMOUNT > 50", 5},
      {"WITH NAME LIKE '...3'", 10},
      {"WITH NAME = 'n3' OR AMOUNT = '099.0'", 11},
      {"WITH NAME = 'n3' WITH (AMOUNT = 13 OR AMOUNT = 23)", 2},
      {"WITH NAME # 'n3'", 100},
      {"WITH NAME < 'n3' AND EVERY AMOUNT BETWEEN 10 19 80 85.5", 6},
      {"WITH NO AMOUNT < 90", 100},
      {"WITH PRICE >= 0.98", 2},
      {"WITH NAME = 'n3' OR CAPS = 'N3'", 100},
      {"WITH TAGS", 0},
      {"WITH A77 = 'x' OR A77 > ''", 0},
      {"WITH A77 < 'x'", 100},
      {"BY NAME BY-DSND AMOUNT SAMPLE 7", 7},
      {"BY PRICE SAMPLE 40", 40},
      {"BY PRICE SAVING NAME SAMPLE 40", 40},
      {"BY BOTH SAMPLE 3", 100},
      {"BY-EXP NAME SAMPLE 3", 100},
      {"WITH NAME = 'n3' AND (AMOUNT = 13 OR AMOUNT > 70) BY-DSND AMOUNT SAMPLE 2", 2},
      {"WITH EVERY AMOUNT > 89 BY NAME SAMPLE 3", 3},
      {"WITH NAME LIKE 'n3' BY NAME SAMPLE 3", 3},
  };
  for (const auto& row : rows) {
    Between store(store_, /*tells=*/true);
    Ask(store, std::string("SSELECT COLS ") + row.clauses);
    EXPECT_EQ(store.scanned - static_cast<int>(kWords.size()), row.scanned) << row.clauses;
  }
}

}  // namespace
}  // namespace nvadmin::engine
