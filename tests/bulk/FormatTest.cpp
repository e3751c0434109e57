// The lines of a transfer file, and the tables that its statistics ask for.
#include "bulk/TableCreation.h"
#include "bulk/TransferBulk.h"
#include "session/Text.h"
#include "tests/support/ScriptedSession.h"

namespace nvadmin::test {
namespace {

TEST(BulkFormat, DecodingTable) {
  using namespace std::string_view_literals;
  struct Row {
    std::string_view line, want;
  };
  const Row rows[] = {
      {"plain\xFE", "plain\xFE"},
      {"a`Cb`Rc`Ld`Ne", "a\rb\rc\nd\ne"},
      {"a``Cb`c`", "a`Cbc"},
      {"`0"sv, "\0"sv},
      {"a\0"
       "12345678901b"sv,
       "ab"},
      {"\0"
       "12345"sv,
       ""},
      {"a\0"
       "1234567890\0"
       "b\0"sv,
       "ab"},
      {"a`\0"
       "12345678901Cb"sv,
       "a\rb"},
  };
  std::string buffer;
  for (const Row& row : rows) {
    EXPECT_EQ(Shown(DecodeBulkLine(row.line, buffer)), Shown(row.want)) << Shown(row.line);
  }
}

TEST(BulkFormat, NamesAndKindsTable) {
  const std::pair<std::string_view, std::string_view> names[] = {
      {"A.B", "a_b"},        {"ACCT,CUST,", "cust"}, {"ACCT,CUST", "cust"},  {"CUST,", ""}, {"A,B,C", "b,c"},
      {"TABLE", "table_nv"}, {"x,Key", "key_nv"},    {"MY-FILE", "my-file"}, {",,", ""}};
  for (const auto& [source, target] : names) EXPECT_EQ(TargetNameOf(source), target) << source;
  EXPECT_EQ(DictionaryTargetName("md"), "md");
  EXPECT_EQ(DictionaryTargetName("cust"), "cust_dict");
  EXPECT_EQ(DictionaryTargetName(""), "");

  const std::pair<std::string_view, BulkLineKind> kinds[] = {
      {"<FILE_DICT>X", BulkLineKind::kOpensDictionary},
      {"<FILE_DATA>", BulkLineKind::kOpensData},
      {"</FILE_DICT", BulkLineKind::kCloses},
      {"</FILE_DATA> more", BulkLineKind::kCloses},
      {"<FILE_STATISTICS>", BulkLineKind::kEndsSections},
      {"<file_dict>X", BulkLineKind::kItem},
      {"", BulkLineKind::kItem}};
  for (const auto& [line, kind] : kinds) EXPECT_EQ(KindOfBulkLine(line), kind) << line;
}

class Creation : public ScriptedSession {
 protected:
  std::string Sentence(std::string_view datastore, std::string_view record) {
    engine.Answer("SYSTEM DATASTORE", datastore);
    return BuildCreateTable("t", Dyn(record), typeN, columns);
  }
  // The clause of a column of that scale, width and flag.
  std::string Clause(std::string_view datastore, std::string_view scale, std::string_view width,
                     std::string_view flag) {
    typeN = false;
    const std::string sentence = Sentence(datastore, Concat({"T^^", scale, "^1^", width, "^", flag, "^5"}));
    const std::size_t start = sentence.find(", A1") + 4;
    return sentence.substr(start, sentence.find_first_of(",", start) - start);
  }

  bool typeN = false;
  std::int32_t columns = 0;
};

TEST_F(Creation, SentencesTable) {
  struct Row {
    std::string_view datastore;
    bool typeN;
    std::string_view want;
  };
  const Row rows[] = {
      {"MSSQL", false, "CREATE TABLE t (A0 VARCHAR(25) CONSTRAINT idxt PRIMARY KEY, A1 VARCHAR(36))"},
      {"MYSQL", false, "CREATE TABLE t (A0 VARCHAR(25) PRIMARY KEY, A1 VARCHAR(36) NOT NULL)"},
      {"ORACLE", false, "CREATE TABLE t (A0 VARCHAR(25), A1 VARCHAR(36), PRIMARY KEY(A0))"},
      {"JET", false, "CREATE TABLE t (A0 VARCHAR(25) CONSTRAINT idxt PRIMARY KEY, A1 VARCHAR(36))"},
      {"MSSQL", true, "CREATE TABLE t (A0 VARCHAR(25) CONSTRAINT idxt PRIMARY KEY, ITEM TEXT)"},
      {"MYSQL", true, "CREATE TABLE t (A0 VARCHAR(25) PRIMARY KEY, ITEM TEXT)"},
      {"ORACLE", true, "CREATE TABLE t (A0 VARCHAR(25), ITEM TEXT, PRIMARY KEY(A0))"},
      {"jet", true, "CREATE TABLE t (A0 VARCHAR(25) CONSTRAINT idxt PRIMARY KEY, ITEM MEMO)"},
  };
  for (const Row& row : rows) {
    typeN = row.typeN;
    EXPECT_EQ(Sentence(row.datastore, "T^^300^1^20^^10"), row.want);
    EXPECT_EQ(typeN, row.typeN);
  }
}

TEST_F(Creation, KeyWidthsAndColumnCountsTable) {
  const std::pair<std::string_view, std::string_view> keys[] = {
      {"", "25"}, {"22", "25"}, {"22.5", "28"}, {"55", "60"}, {"56", "60"}, {"x", "25"}, {"-3", "25"}};
  for (const auto& [longest, width] : keys) {
    typeN = true;
    EXPECT_NE(Sentence("JET", Concat({"T^^^^^^", longest})).find(Concat({"(A0 VARCHAR(", width, ")"})),
              std::string::npos)
        << longest;
  }
  struct Row {
    std::string_view kind, counts;
    std::int32_t columns;
  };
  const Row rows[] = {{"101", "10]15", 15},  {"101", "10]16", 15},     {"100", "10]16", 16},
                      {"100", "10]25", 25},  {"100", "10]26", 25},     {"101", "10]]30", 30},
                      {"101", "10]]31", 30}, {"101", "10]]99", 10},    {"101", "86]]99", 99},
                      {"101", "10]]98", 30}, {"100", "10]]999", 10},   {"100", "10]]50", 50},
                      {"100", "10]]51", 50}, {"100", "959]]999", 999}, {"", "", 0},
                      {"", "5]3]2", 5},      {"101", "10]16]36", 35},  {"101", "10]16]35", 35}};
  for (const Row& row : rows) {
    typeN = true;
    Sentence("JET", Concat({"T^", row.kind, "^^", row.counts}));
    EXPECT_EQ(columns, row.columns) << row.kind << " " << row.counts;
  }
  const ColumnCounts huge = ReadColumnCounts(Dyn("T^^^9999999999]-9999999999"));
  EXPECT_EQ(huge.first, 1'000'000'000);
  EXPECT_EQ(huge.second, -1'000'000'000);
  struct Limit {
    std::string_view datastore;
    int most;
  };
  for (const Limit& limit : {Limit{"MYSQL", 1200}, {"MSSQL", 700}, {"ORACLE", 700}, {"JET", 254}}) {
    for (const int count : {limit.most, limit.most + 1}) {
      typeN = false;
      Sentence(limit.datastore, "T^^^" + std::to_string(count));
      EXPECT_EQ(typeN, count > limit.most) << limit.datastore << " " << count;
    }
  }
}

TEST_F(Creation, ClausesTable) {
  struct Row {
    std::string_view datastore, scale, width, flag, want;
  };
  const Row rows[] = {
      {"MYSQL", "0", "10000", "Y", " TEXT NOT NULL"},
      {"MYSQL", "0", "10001", "Y", " MEDIUMTEXT NOT NULL"},
      {"MYSQL", "249", "20", "", " TEXT NOT NULL"},
      {"MYSQL", "250", "0", "", " TEXT NOT NULL"},
      {"MYSQL", "250", "1", "N", " VARCHAR(15) NOT NULL"},
      {"MYSQL", "250", "9", "y", " VARCHAR(16) NOT NULL"},
      {"MYSQL", "250", "100", "", " VARCHAR(180) NOT NULL"},
      {"MYSQL", "250", "101", "", " TEXT NOT NULL"},
      {"ORACLE", "24", "1", "Y", " CLOB"},
      {"ORACLE", "25", "800", "Y", " VARCHAR(4000)"},
      {"ORACLE", "150", "801", "Y", " CLOB"},
      {"ORACLE", "151", "2000", "Y", " VARCHAR(4000)"},
      {"ORACLE", "151", "2001", "Y", " CLOB"},
      {"ORACLE", "24", "3", "", " VARCHAR(15)"},
      {"ORACLE", "24", "1000", "", " VARCHAR(4000)"},
      {"ORACLE", "24", "1001", "", " CLOB"},
      {"ORACLE", "25", "2222", "", " VARCHAR(4000)"},
      {"ORACLE", "25", "2223", "", " CLOB"},
      {"MSSQL", "24", "1", "Y", " TEXT"},
      {"MSSQL", "25", "70", "Y", " VARCHAR(350)"},
      {"MSSQL", "150", "71", "Y", " TEXT"},
      {"MSSQL", "151", "299", "Y", " VARCHAR(747)"},
      {"MSSQL", "151", "300", "Y", " VARCHAR(750)"},
      {"MSSQL", "151", "301", "Y", " TEXT"},
      {"MSSQL", "151", "0", "Y", " VARCHAR(0)"},
      {"MSSQL", "0", "222", "", " VARCHAR(400)"},
      {"MSSQL", "0", "223", "", " TEXT"},
      {"JET", "0", "35", "Y", " VARCHAR(90)"},
      {"JET", "0", "36", "Y", " MEMO"},
      {"JET", "0", "", "", " VARCHAR(15)"},
      {"JET", "0", "141", "", " VARCHAR(254)"},
      {"JET", "0", "142", "", " MEMO"},
      {"JET", "0", "99999999999999999999", "", " MEMO"},
  };
  for (const Row& row : rows) {
    const std::string clause = Clause(row.datastore, row.scale, row.width, row.flag);
    EXPECT_EQ(clause.substr(0, row.want.size()), row.want)
        << row.datastore << " S " << row.scale << " W " << row.width << " " << row.flag;
  }
}

}  // namespace
}  // namespace nvadmin::test
