// Sentences: what they answer, print and refuse; the lists that they keep; what stops them.
#include <fmt/format.h>

#include <cstring>
#include <thread>

#include "engine/sentences/Verbs.h"
#include "tests/engine/Workshop.h"

namespace nvadmin::engine {
namespace {

struct Case {
  std::string sentence;
  std::string want;   // the text, {AM} for a mark and {LINE} for CR LF; empty: see error
  std::string error;  // a piece of the error detail
};

std::string Readable(std::string text) {
  for (const auto& [bytes, shown] : {std::pair("\xFE", "{AM}"), {"\r\n", "{LINE}"}, {"\n", "{LINE}"}}) {
    for (std::size_t at; (at = text.find(bytes)) != std::string::npos;)
      text.replace(at, strlen(bytes), shown);
  }
  return text;
}

class Sentences : public InAccount, public TwoSessions {
 public:
  Sentences() : TwoSessions(GetParam()) {}

  void Run(const std::vector<Case>& cases) {
    for (const Case& row : cases) {
      SCOPED_TRACE(row.sentence.substr(0, 100));
      annasPort.output.clear();
      const std::string text = Readable(Type(anna, row.sentence));
      const std::string error = anna.GetErrorDetail();
      const bool isRefused = !row.error.empty();
      EXPECT_EQ(text, isRefused ? "ERROR" : row.want) << error;
      EXPECT_TRUE(isRefused ? error.find(row.error) != std::string::npos : error.empty()) << error;
      EXPECT_EQ(anna.TypedSentenceError(), error);
      // Verbs that print have printed what they answer; the others have printed nothing.
      const Verb* verb = FindVerb(row.sentence);
      const bool prints = verb != nullptr && verb->kind == VerbKind::kPrints;
      if (!prints || !isRefused) {
        EXPECT_EQ(Readable(annasPort.output), prints ? text + "{LINE}" : "");
      }
    }
  }
};

// What only an account with tables can do.
class RelationalSentences : public Sentences {};

INSTANTIATE_TEST_SUITE_P(Stores, Sentences, kEveryAccount);
INSTANTIATE_TEST_SUITE_P(Stores, RelationalSentences, kRelational);

class NativeSentences : public testing::Test, public TwoSessions {
 public:
  NativeSentences() : TwoSessions(kNative) {}
};

TEST_P(Sentences, AnswerOrRefuse) {
  const std::string account(GetParam());
  const bool isNative = account == kNative;
  const std::string table = isNative ? "STOCK" : "stock";
  const auto created = [isNative](const std::string& file, const std::string& columns) {
    return "file '" + file +
           (isNative ? "' created, an item a row" : "' created with " + columns + " columns");
  };
  Run({
      {"WHO", fmt::format("{} {} anna", anna.PortNumber(), account), ""},
      {"system datastore", anna.CurrentAccount().datastore, ""},
      {"SYSTEM PATH", home.SystemPath(), ""},
      {"SYSTEM ACCOUNT", account, ""},
      {"SYSTEM USERINST", std::to_string(anna.PortNumber()), ""},
      {"SYSTEM MOON", "", "'MOON'"},
      {"SYSTEM", "", "the word is missing; it is written: SYSTEM DATASTORE | PATH"},
      {"USER 0", "anna", ""},
      {"USER 1", "", "'1'"},
      {"ACCOUNT", account, ""},
      {"WHO ELSE", "", "'ELSE' at character 5 is one word too many"},
      {"FOO BAR", "", "'FOO' is no verb; HELP lists the verbs"},
      {"", "", "empty"},
      {std::string(1 << 20, 'x'), "", "is no verb; HELP"},
      {"LOGTO NOWHERE", "", "'NOWHERE'"},
      {"LOGTO", "", "the account is missing"},
      {"LOGTO " + account, "OK", ""},
      {"OFF", "", "prompt only"},
      {"LISTF", "", ""},
      {"CREATE-FILE STOCK", "file 'STOCK' created, an item a row{LINE}" + created("DICT STOCK", "15"), ""},
      {"CREATE-FILE STOCK", "", table + " is there already"},
      {"CREATE-FILE WIDE 0", "", "'0'"},
      {"CREATE-FILE", "", "the file is missing"},
      {"CREATE-FILE 'WIDE' 3", created("WIDE", "3") + "{LINE}" + created("DICT WIDE", "15"), ""},
      {"LISTF", isNative ? "STOCK{AM}WIDE" : "stock{AM}wide", ""},
      {"PUT STOCK 1 2 red  apples ", "attribute 2 of item '1' written", ""},
      {"PUT STOCK 1 1 \"\"", "attribute 1 of item '1' written", ""},
      {"PUT STOCK 'x y' 1 O'Neil's", "attribute 1 of item 'x y' written", ""},
      {"PUT DICT STOCK NAME 1 A", "attribute 1 of item 'NAME' written", ""},
      {"PUT STOCK 1 2", "", "the value is missing"},
      {"PUT STOCK 1 0 x", "", "the attribute '0' is not a number from 1"},
      {"PUT STOCK 1 1x x", "", "'1x'"},
      {"PUT NOWHERE 1 1 x", "", "file 'NOWHERE' is not in account " + account + "; LISTF lists the files"},
      {"CT STOCK 1", "1{LINE}001 {LINE}002 red  apples ", ""},
      {"ct dict STOCK NAME", "NAME{LINE}001 A", ""},
      {"CT STOCK \"x y\"", "x y{LINE}001 O'Neil's", ""},
      {"CT STOCK 2", "", "item '2' is not in table " + table},
      {"CT STOCK 'x y", "", "the quote ' at character 10 isn't closed"},
      {"COPY-ITEM STOCK 1 2", "item '1' copied to item '2' of STOCK", ""},
      {"COPY-ITEM STOCK 1 2", "", "item '2' is there already"},
      {"COPY-ITEM STOCK 1 'TO'", "item '1' copied to item 'TO' of STOCK", ""},
      {"COPY-ITEM STOCK 1 TO WIDE", "item '1' copied to item '1' of WIDE", ""},
      {"COPY-ITEM DICT STOCK NAME TO DICT WIDE TITLE", "item 'NAME' copied to item 'TITLE' of DICT WIDE", ""},
      {"COPY-ITEM STOCK 7 8", "", "item '7' is not in table " + table},
      {"COUNT STOCK", "4 items counted", ""},
      {"COUNT NOWHERE", "", "NOWHERE"},
      {"DELETE-ITEM STOCK 1 \"x y\"", "2 items deleted", ""},
      {"DELETE-ITEM STOCK 2 5", "", "1 of 2 items deleted; table " + table + ", item '5' "},
      {"COUNT STOCK", "1 item counted", ""},
      {"CLEAR-FILE STOCK", "file 'STOCK' cleared", ""},
      {"COUNT STOCK", "0 items counted", ""},
      {"DELETE-FILE WIDE", "file 'WIDE' deleted{LINE}file 'DICT WIDE' deleted", ""},
      {"DELETE-FILE WIDE", "", "file 'WIDE' is not in account"},
      {"DELETE-FILE DICT STOCK", "file 'DICT STOCK' deleted", ""},
      {"DELETE-FILE STOCK", "file 'STOCK' deleted", ""},
      {"LISTF", "", ""},
      {"CREATE-FILE DICT STOCK", created("DICT STOCK", "15"), ""},
      {"CREATE-FILE STOCK",
       "file 'STOCK' created, an item a row{LINE}file 'DICT STOCK' was there already and stays", ""},
      {"HELP FOO", "", "'FOO' is no verb"},
      {"HELP WHO", "WHO{LINE}Show the port number, the account and the user.", ""},
  });
}

TEST_P(Sentences, HelpNamesEveryVerb) {
  const std::string help = Do("HELP");
  EXPECT_GT(Verbs().size(), 20U);
  for (const Verb& verb : Verbs()) {
    EXPECT_NE(help.find(std::string(verb.word) + ' '), std::string::npos) << verb.word;
    Do("HELP " + std::string(verb.word));
  }
}

TEST_P(RelationalSentences, SqlGoesToTheStore) {
  Do("CREATE-FILE STOCK 2");
  Do("insert into stock (A0, A1) values ('1', 'red')");
  EXPECT_EQ(SeenByBen("STOCK", "1"), "red") << "a statement is on disk when it returns";
  Run({
      {"SELECT A0, A1 FROM stock", "1{AM}row", ""},
      {"SELECT 7;", "1{AM}row", ""},
      {"SELECT STOCK,", "", "STOCK,"},
      {"UPDATE stock SET A1 = 'blue'", "1 row(s) changed", ""},
  });
  Do("SELECT A1, A0 FROM stock");
  EXPECT_EQ(anna.GetResultBound(1), 1);
  EXPECT_EQ(anna.GetResultCell(0, 1), "blue");
  Refusal("UPDATE nowhere SET A1 = 'x'");
  EXPECT_EQ(anna.GetResultBound(2), 1) << "only a failed query empties the grid";
  Refusal("SELECT x FROM nowhere");
  EXPECT_EQ(anna.GetResultBound(1), -1);
  EXPECT_THROW(anna.GetResultCell(0, 1), EngineFailure);
}

TEST_F(NativeSentences, RefuseSqlWithTheReason) {
  Do("CREATE TABLE STOCK (A0 VARCHAR(25) PRIMARY KEY, A1 TEXT)");
  Do("PUT STOCK 1 3 three");
  Do("SELECT STOCK");
  EXPECT_NE(Refusal("UPDATE STOCK SET A1 = 'blue'").find("UPDATE is not allowed"), std::string::npos);
  EXPECT_EQ(anna.GetResultBound(2), 1);
  EXPECT_NE(Refusal("SELECT A1 FROM STOCK").find("account NAT are no tables"), std::string::npos);
  EXPECT_EQ(anna.GetResultBound(1), -1);
  EXPECT_EQ(Do("DROP TABLE stock"), "table stock dropped");
}

// A terminal's report reads the items itself: its list is keys alone, on every kind of account.
TEST_P(Sentences, OnlyPagesOfANativeAccountGetCells) {
  for (const char* sentence : {"CREATE-FILE STOCK 2", "PUT STOCK 1 1 red", "PUT DICT STOCK COLOUR 1 A",
                               "PUT DICT STOCK COLOUR 2 1", "PUT DICT STOCK COLOUR 10 6"}) {
    Do(sentence);
  }
  Do("LIST STOCK COLOUR");
  EXPECT_EQ(anna.GetResultBound(1), 0);
  annasPort.showsPages = true;
  EXPECT_TRUE(Readable(Do("LIST STOCK COLOUR")).starts_with("1{AM}1{AM}"));
  EXPECT_EQ(anna.GetResultCell(0, 1), "1");
  const bool isNative = GetParam() == kNative;
  EXPECT_EQ(anna.GetResultBound(1), isNative ? 1 : 0);
  EXPECT_TRUE(!isNative || anna.GetResultCell(1, 1) == "red");
}

TEST_P(Sentences, MayBeMegabytesLong) {
  Do("CREATE-FILE STOCK");
  const std::string value(3 << 20, 'v');
  Do("PUT STOCK 1 2 '" + value + "'");
  EXPECT_EQ(Do("CT STOCK 1"), "1\r\n001 \r\n002 " + value);
  std::string ids;
  for (int number = 0; number < 100000; ++number) ids += " 'no such item'";
  EXPECT_NE(Refusal("DELETE-ITEM STOCK" + ids + " '").find("isn't closed"), std::string::npos);
  EXPECT_LT(Refusal("CT STOCK '" + value + "'").size(), 1000U) << "a message shows the start of a long word";
}

class Lists : public testing::Test, public TwoSessions {
 public:
  Lists() : TwoSessions("JETS") {
    Do("CREATE-FILE STOCK 2");
    file = Open(anna, "STOCK");
    for (const char* id : {"1", "2", "3", "4"}) EXPECT_TRUE(anna.WriteItem("x", file, id));
  }
  // The keys that the typed sentence leaves.
  std::string Keys(std::string_view typed) {
    Do(typed);
    std::string keys;
    for (std::int32_t row = 1; row <= anna.GetResultBound(2); ++row) keys += anna.GetResultCell(0, row);
    return keys;
  }
  std::string file;
};

TEST_F(Lists, AKeptListRestrictsTheNextTypedQueryAlone) {
  EXPECT_EQ(Keys("SSELECT STOCK '2' '3'"), "23");
  EXPECT_EQ(Do("SAVE-LIST"), "OK");
  EXPECT_EQ(Keys("SSELECT STOCK"), "23");
  EXPECT_EQ(Keys("SSELECT STOCK"), "1234") << "it is gone behind the sentence";

  EXPECT_EQ(Keys("SSELECT STOCK '4'"), "4");
  EXPECT_EQ(Do("SAVE-LIST"), "OK");
  anna.BeginTypedSentence("NV.BACKSRV");
  EXPECT_NE(anna.ExecuteSentence("SSELECT STOCK"), "ERROR");
  EXPECT_EQ(anna.GetResultBound(2), 4) << "a sentence that wasn't typed isn't restricted";
  anna.EndTypedSentence();
  Do("WHO");
  Refusal("SSELECTT STOCK");
  Refusal("SSELECT STOCK WITH NO COLUMN");
  EXPECT_EQ(Keys("SSELECT STOCK"), "4") << "only a query that ran takes it";

  EXPECT_EQ(Keys("SSELECT STOCK '3' '1'"), "13");
  EXPECT_EQ(Do("SAVE-LIST"), "OK");
  EXPECT_EQ(Do("COUNT STOCK"), "2 items counted");
  EXPECT_EQ(anna.GetResultBound(2), 2) << "COUNT leaves the grid alone";
}

TEST_F(Lists, AnEmptyListIsAListAndNoListIsNone) {
  EXPECT_NE(Refusal("SAVE-LIST"), "");
  EXPECT_NE(Refusal("SAVE-LIST EARLY").find("SELECT makes one"), std::string::npos);
  Do("CREATE-FILE NOTHING");
  EXPECT_EQ(Keys("SELECT NOTHING"), "");
  EXPECT_EQ(Do("SAVE-LIST"), "OK");
  EXPECT_EQ(Keys("SELECT STOCK"), "") << "an empty list selects nothing, never everything";
}

TEST_F(Lists, AreSavedUnderNames) {
  EXPECT_EQ(Keys("SSELECT STOCK '2' '3'"), "23");
  EXPECT_EQ(Do("SAVE-LIST PAIR"), "OK");
  EXPECT_EQ(Keys("SSELECT STOCK"), "1234") << "saving under a name keeps nothing for the next sentence";
  EXPECT_EQ(Keys("GET-LIST PAIR"), "23");
  EXPECT_EQ(Keys("SSELECT STOCK"), "23");
  EXPECT_EQ(Keys("GET-LIST PAIR"), "23");
  EXPECT_EQ(Do("SAVE-LIST COPY"), "OK") << "the kept list is what is saved";
  EXPECT_EQ(Keys("SSELECT STOCK"), "23") << "and is kept on";

  anna.BeginTypedSentence("NV.BACKSRV");
  EXPECT_EQ(Readable(anna.ExecuteSentence("GET-LIST COPY")), "2{AM}item IDs in list 'COPY'");
  EXPECT_EQ(anna.GetResultBound(2), 2);
  anna.EndTypedSentence();
  EXPECT_EQ(Keys("SSELECT STOCK"), "1234") << "a list that wasn't taken at the prompt isn't kept";

  EXPECT_EQ(Refusal("GET-LIST NONE"), "list 'NONE' is not saved in account JETS; saved are: COPY, PAIR");
  EXPECT_EQ(anna.GetResultBound(2), 4) << "a sentence that is no query leaves the grid alone";
  EXPECT_EQ(Do("DELETE-LIST PAIR"), "list 'PAIR' deleted");
  Refusal("DELETE-LIST PAIR");
}

TEST_F(Lists, TheGridFailsOutsideAndEmptiesWithAFailedQuery) {
  EXPECT_THROW(anna.GetResultCell(0, -1), EngineFailure);
  EXPECT_EQ(Keys("SSELECT STOCK"), "1234");
  anna.ExecuteSentence("WHO");
  EXPECT_EQ(anna.GetResultCell(0, 4), "4");
  for (const auto& [column, row] : {std::pair{0, 5}, {0, -1}, {-1, 1}, {1, 1}}) {
    EXPECT_THROW(anna.GetResultCell(column, row), EngineFailure) << column << "," << row;
  }
  Refusal("SELECT NOWHERE");
  EXPECT_EQ(anna.GetResultBound(2), 0);
  EXPECT_THROW(anna.GetResultCell(0, 1), EngineFailure);
}

TEST_F(Lists, AnErrorInsideATypedSentenceIsKeptForThePrompt) {
  anna.BeginTypedSentence("LIST NOWHERE");
  EXPECT_EQ(anna.ExecuteSentence("LIST NOWHERE"), "ERROR");
  const std::string error = anna.GetErrorDetail();
  EXPECT_NE(anna.ExecuteSentence("WHO"), "ERROR");
  EXPECT_EQ(anna.TypedSentenceError(), error);
  anna.EndTypedSentence();
  anna.BeginTypedSentence("WHO");
  EXPECT_EQ(anna.TypedSentenceError(), "");
}

class Walk : public Lists {
 public:
  Walk() {
    for (int number = 100; number < 400; ++number)
      EXPECT_TRUE(anna.WriteItem("old", file, std::to_string(number)));
    Do("CREATE-FILE OTHER");
    Do("SSELECT STOCK");
  }
  // The item of a row of the walk, as a program reads it.
  std::string Item(std::int32_t row) {
    std::string item;
    const std::string id = anna.GetResultCell(0, row);
    return anna.ReadItem(item, file, id) ? id + "=" + item : id + "?";
  }
  void BenChanges(std::int32_t row) {
    EXPECT_TRUE(ben.WriteItem("new", Open(ben, "STOCK"), anna.Grid().Cell(0, row)));
    ben.WriteOutput("", true);
  }
  static constexpr std::int32_t kRows = 304;
};

TEST_F(Walk, GivesEveryItemOfTheListInItsOrder) {
  const std::string other = Open(anna, "OTHER");
  ASSERT_TRUE(anna.WriteItem("o", other, "120"));
  EXPECT_TRUE(anna.DeleteItem(file, "250"));
  std::string item;
  for (std::int32_t row = 1; row <= kRows; ++row) {
    const std::string id = anna.GetResultCell(0, row);
    const std::string want = id == "250" ? "250?" : id + (id.size() == 1 ? "=x" : "=old");
    ASSERT_EQ(Item(row), want);
    EXPECT_EQ(anna.ReadItem(item, other, id), id == "120") << "a read of another file between";
    EXPECT_EQ(Item(row), want) << "read twice";
    EXPECT_TRUE(row % 70 != 0 || Item(row / 2) == anna.GetResultCell(0, row / 2) + "=old") << "a step back";
  }
  for (std::int32_t row = 1; row <= 40; ++row) {
    Item(row);
    const std::string next = anna.GetResultCell(0, row + 1);
    ASSERT_TRUE(anna.WriteItem("mine", file, next));
    ASSERT_EQ(Item(row + 1), next + "=mine") << "its own write";
  }
}

// What was read ahead is served even after another session has changed it, but not across a wait, a sentence
// or a write.
TEST_F(Walk, ReadsAheadUntilSomethingMayHaveChanged) {
  const std::string other = Open(anna, "OTHER");
  std::string line;
  const std::function<void()> drops[] = {
      [&] { annasPort.input = {"x"}, anna.ReadInput(line, -1, true, -1.0F); },
      [&] { anna.ExecuteSentence("WHO"); },
      [&] { anna.WriteItem("y", file, "1"), anna.WriteOutput("", true); },
      [&] { anna.DeleteItem(file, "no such item"), anna.WriteOutput("", true); },
  };
  std::int32_t row = 10;
  for (const auto& drop : drops) {
    Item(row);
    Item(row + 1);
    BenChanges(row + 2);
    BenChanges(row + 3);
    EXPECT_FALSE(anna.ReadItem(line, other, "120"));
    anna.ReadInput(line, -1, true, -1.0F);
    EXPECT_TRUE(Item(row + 2).ends_with("=old")) << "was read ahead; the end of input is no wait";
    EXPECT_TRUE(anna.ReadItemLocked(line, file, anna.GetResultCell(0, row + 2)));
    EXPECT_EQ(line, "new") << "a locked read is never served from what was read ahead";
    anna.WriteOutput("", true);
    drop();
    EXPECT_TRUE(Item(row + 3).ends_with("=new"));
    row += 20;
  }
}

TEST_F(Lists, InputEndsWithThePort) {
  const std::string gone = "<&PORT_DISCONNECT>";
  const auto input = [&](std::string_view typed) {
    anna.BeginTypedSentence(typed);
    std::string line = "old";
    anna.ReadInput(line, -1, true, -1.0F);
    anna.EndTypedSentence();
    return line;
  };
  annasPort.input = {"a line", ""};
  EXPECT_EQ(input("LIST STOCK"), "a line");
  EXPECT_EQ(input("NV.BACKSRV"), "");
  EXPECT_EQ(input("LIST STOCK"), "") << "the end of a pipe answers a page wait";
  EXPECT_EQ(input("nv.backsrv"), gone);
  EXPECT_EQ(input("MENU"), gone);
  annasPort.whenEmpty = InputResult::kLost;
  EXPECT_EQ(input("LIST STOCK"), gone);
}

TEST_F(Lists, AnInterruptStopsOutputReadsAndStatements) {
  std::string item;
  const auto expectStopped = [](const std::function<void()>& act) {
    EXPECT_NE(FailureOf(act).find("interrupted"), std::string::npos);
  };
  anna.BeginTypedSentence("LIST STOCK");
  anna.Interrupt();
  expectStopped([&] { anna.WriteOutput("x", true); });
  expectStopped([&] { anna.ReadItem(item, file, "1"); });
  expectStopped([&] { anna.ReadInput(item, -1, true, -1.0F); });
  anna.EndTypedSentence();
  EXPECT_EQ(annasPort.output.find('x'), std::string::npos);

  anna.BeginTypedSentence("endless");
  std::jthread other([this] {
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    anna.Interrupt();
  });
  expectStopped([&] {
    anna.ExecuteSentence(
        "WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n) SELECT count(*) FROM n");
  });
  anna.EndTypedSentence();
  EXPECT_TRUE(anna.ReadItem(item, file, "1")) << anna.GetErrorDetail();
  EXPECT_EQ(Keys("SSELECT STOCK"), "1234");
}

}  // namespace
}  // namespace nvadmin::engine
