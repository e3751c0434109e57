// The engine's promises at the border, the same on every kind of store.
#include <map>
#include <random>

#include "mv/DynamicArray.h"
#include "mv/EngineHooks.h"
#include "tests/engine/Workshop.h"
#include "tests/mv/Notation.h"

namespace nvadmin::engine {
namespace {

class Border : public InAccount, public TwoSessions {
 public:
  Border() : TwoSessions(GetParam()) {
    Do("CREATE-FILE CUSTOMERS 4");
    Do("CREATE-FILE NOTES");
    customers = Open(anna, "CUSTOMERS");
    bensCustomers = Open(ben, "CUSTOMERS");
  }
  std::string customers, bensCustomers;
};

// What only an account with tables can do.
class RelationalBorder : public Border {};

INSTANTIATE_TEST_SUITE_P(Stores, Border, kEveryAccount);
INSTANTIATE_TEST_SUITE_P(Stores, RelationalBorder, kRelational);

TEST_P(Border, ErrorDetailTellsOfTheLastOperationOnly) {
  std::string text;
  // The call has answered `ok`; its text is `want`, and the detail begins like that, or is empty.
  const auto expect = [&](const char* name, bool answer, bool ok, std::string_view want,
                          std::string_view detail) {
    const std::string got = anna.GetErrorDetail();
    EXPECT_EQ(answer, ok) << name << ": " << got;
    EXPECT_EQ(text, want) << name;
    EXPECT_EQ(got.substr(0, detail.size()), detail) << name;
    EXPECT_EQ(got.empty(), detail.empty()) << name << ": " << got;
    text = "old";
  };
  expect("write", anna.WriteItem("Smith\xFEParis", customers, "1"), true, "", "");
  expect("read", anna.ReadItem(text, customers, "1"), true, "Smith\xFEParis", "");
  expect("read nothing", anna.ReadItem(text, customers, "9"), false, "", "item '9' is not in table ");
  expect("success clears the detail", anna.ReadAttribute(text, customers, "1", 2), true, "Paris", "");
  expect("no such attribute", anna.ReadAttribute(text, customers, "1", 4), true, "", "");
  expect("attribute of nothing", anna.ReadAttribute(text, customers, "9", 1), false, "",
         "item '9' is not in table ");
  expect("lock nothing", anna.ReadItemLocked(text, customers, "9"), false, "", "");
  expect("lock an attribute of nothing", anna.ReadAttributeLocked(text, customers, "9", 1), false, "", "");
  expect("delete nothing", anna.DeleteItem(customers, "8"), false, "old",
         GetParam() == kNative ? "table CUSTOMERS, item '8' " : "table customers, item '8' ");
  expect("empty ID", anna.WriteItem("x", customers, ""), false, "old", "an item of table ");
  expect("attribute 0", anna.WriteAttribute("x", customers, "1", 0), false, "old", "attribute 0 ");
  expect("new item by an attribute", anna.WriteAttribute("Rome", customers, "2", 2), true, "old", "");
  expect("it is there", anna.ReadItem(text, customers, "2"), true, "\xFERome", "");
  expect("append an attribute", anna.WriteAttribute("Oslo", customers, "1", -1), true, "old", "");
  expect("it is the third", anna.ReadAttribute(text, customers, "1", 3), true, "Oslo", "");
  expect("delete", anna.DeleteItem(customers, "1"), true, "old", "");
  expect("read by no FileVar", anna.ReadItem(text, "", "1"), false, "", "the FileVar is empty");
  expect("write by no FileVar", anna.WriteItem("x", "", "1"), false, "old", "the FileVar is empty");
  expect("no such file: the FileVar stays", anna.OpenFile("NOWHERE", text) == kTrue, false, "old",
         "file 'NOWHERE' is not in account ");
  EXPECT_EQ(anna.OpenFile("DICT CUSTOMERS", text), kTrue);
  EXPECT_EQ(anna.GetErrorDetail(), "");
  EXPECT_THROW(anna.WriteItem("x", "CUSTOMERS", "1"), EngineFailure);
  EXPECT_THROW(anna.GetResultBound(3), EngineFailure);
}

TEST_P(RelationalBorder, AnItemThatDoesNotFitIsRefusedAndTheOldOneStays) {
  ASSERT_TRUE(anna.WriteItem("old", customers, "1"));
  EXPECT_FALSE(anna.WriteItemKeepLock(mv::Bytes("1^2^3^4^5"), customers, "1"));
  EXPECT_NE(anna.GetErrorDetail(), "");
  anna.WriteOutput("", true);
  EXPECT_EQ(SeenByBen("CUSTOMERS", "1"), "old");
  EXPECT_TRUE(ben.WriteItem("new", bensCustomers, "1"))
      << "the refused write left its lock: " << ben.GetErrorDetail();
}

TEST_P(Border, ArgumentsMayAlias) {
  ASSERT_TRUE(anna.WriteItem("body", customers, "an ID that no small string holds in place"));
  std::string text = "an ID that no small string holds in place";
  EXPECT_TRUE(anna.ReadItem(text, customers, text));
  EXPECT_EQ(text, "body");
  text = customers;
  EXPECT_TRUE(anna.ReadItemLocked(text, text, "an ID that no small string holds in place"));
  EXPECT_EQ(text, "body");
  text = "CUSTOMERS";
  EXPECT_EQ(anna.OpenFile(text, text), kTrue);
  EXPECT_EQ(text, customers);
  EXPECT_FALSE(anna.ReadItem(text = "not there, and long enough for the heap", customers, text));
  EXPECT_EQ(text, "");
  EXPECT_TRUE(anna.GetErrorDetail().starts_with("item 'not there")) << anna.GetErrorDetail();
}

TEST_P(Border, FileVarsAreStableAndSpeakTheTablesName) {
  EXPECT_EQ(Open(anna, "CUSTOMERS"), customers);
  EXPECT_EQ(Open(anna, "DICT NOTES").find(' '), std::string::npos);
  Do("CREATE-FILE A.B-C");
  const std::string odd = Open(anna, "A.B-C");
  EXPECT_EQ(std::count(odd.begin(), odd.end(), '.'), 2) << odd;
  EXPECT_EQ(Open(anna, "a_b_c"), odd) << "the mapped name is the same file";

  ASSERT_TRUE(anna.WriteItem("kept", customers, "1"));
  Do(GetParam() == "JETS" ? "LOGTO ora" : "LOGTO jets");
  std::string item;
  EXPECT_TRUE(anna.ReadItem(item, customers, "1")) << anna.GetErrorDetail();
  EXPECT_TRUE(anna.WriteItem("from elsewhere", customers, "2"));
  EXPECT_EQ(anna.OpenFile("CUSTOMERS", item), kFalse) << "the file is the other account's";
  anna.WriteOutput("", true);
  EXPECT_EQ(SeenByBen("CUSTOMERS", "2"), "from elsewhere");
}

TEST_P(Border, ADroppedFileCanBeOpenedNoMore) {
  std::string item;
  Do("DELETE-FILE CUSTOMERS");
  EXPECT_EQ(anna.OpenFile("CUSTOMERS", item), kFalse);
  EXPECT_FALSE(anna.ReadItem(item, customers, "1"));
  EXPECT_FALSE(anna.WriteItem("x", customers, "1"));
  EXPECT_NE(anna.GetErrorDetail(), "");
  ben.ReadInput(item, -1, true, -1.0F);
  EXPECT_EQ(ben.OpenFile("CUSTOMERS", item), kFalse) << "another session sees it after its next wait";
}

TEST_P(Border, LocksHoldBetweenSessions) {
  std::string item;
  const auto refused = [&](bool answer) { return !answer && ben.GetErrorDetail().starts_with("[920]"); };
  const auto expectRefused = [&](std::initializer_list<const char*> sentences) {
    for (const char* sentence : sentences) {
      EXPECT_EQ(Type(ben, sentence), "ERROR") << sentence;
      EXPECT_NE(ben.TypedSentenceError().find("[920]"), std::string::npos)
          << sentence << ben.TypedSentenceError();
    }
    ben.WriteOutput("", true);
  };

  EXPECT_FALSE(anna.ReadItemLocked(item, customers, "1"));
  anna.WriteOutput("", true);
  EXPECT_TRUE(refused(ben.ReadItemLocked(item, bensCustomers, "1")));
  EXPECT_NE(ben.GetErrorDetail().find("anna"), std::string::npos) << "the refusal names the holder";
  EXPECT_TRUE(refused(ben.ReadAttributeLocked(item, bensCustomers, "1", 1)));
  EXPECT_TRUE(refused(ben.WriteItem("x", bensCustomers, "1")));
  EXPECT_TRUE(refused(ben.WriteItemKeepLock("x", bensCustomers, "1")));
  EXPECT_TRUE(refused(ben.WriteAttribute("x", bensCustomers, "1", 1)));
  EXPECT_TRUE(refused(ben.WriteAttributeKeepLock("x", bensCustomers, "1", 1)));
  EXPECT_TRUE(refused(ben.DeleteItem(bensCustomers, "1")));
  EXPECT_FALSE(ben.ReadItem(item, bensCustomers, "1"));
  EXPECT_FALSE(ben.GetErrorDetail().starts_with("[920]")) << "a plain read asks for no lock";
  EXPECT_TRUE(ben.WriteItem("x", bensCustomers, "2")) << "another item is free";
  expectRefused({"PUT CUSTOMERS 1 1 x", "COPY-ITEM CUSTOMERS 2 1", "DELETE-ITEM CUSTOMERS 1"});

  EXPECT_TRUE(anna.WriteItemKeepLock("kept", customers, "1"));
  anna.WriteOutput("", true);
  EXPECT_TRUE(refused(ben.WriteItem("x", bensCustomers, "1")));
  expectRefused({"CLEAR-FILE CUSTOMERS", "DELETE-FILE CUSTOMERS"});

  const struct {
    const char* name;
    std::function<void()> release;
    bool released;
  } ways[] = {
      {"a plain write", [&] { anna.WriteItem("new", customers, "1"); }, true},
      {"a plain attribute write", [&] { anna.WriteAttribute("new", customers, "1", 1); }, true},
      {"a delete", [&] { anna.DeleteItem(customers, "1"); }, true},
      {"a delete of what isn't there", [&] { anna.DeleteItem(customers, "1"); }, true},
      {"the item's release", [&] { anna.ReleaseItem(customers, "1"); }, true},
      {"the file's release", [&] { anna.ReleaseItem(customers, ""); }, true},
      {"the session's release", [&] { anna.ReleaseItem("", ""); }, true},
      {"a keeping write", [&] { anna.WriteItemKeepLock("new", customers, "1"); }, false},
      {"a keeping attribute write", [&] { anna.WriteAttributeKeepLock("new", customers, "1", 1); }, false},
      {"a plain write, and locked again before its commit",
       [&] { anna.WriteItem("new", customers, "1"), anna.ReadItemLocked(item, customers, "1"); }, false},
      {"a plain read", [&] { anna.ReadItem(item, customers, "1"); }, false},
      {"another item's release", [&] { anna.ReleaseItem(customers, "2"); }, false},
      {"another file's release", [&] { anna.ReleaseItem(Open(anna, "NOTES"), ""); }, false},
  };
  for (const auto& way : ways) {
    anna.ReadItemLocked(item, customers, "1");
    EXPECT_EQ(anna.GetErrorDetail(), "") << way.name;
    way.release();
    anna.WriteOutput("", true);
    ben.ReadItemLocked(item, bensCustomers, "1");
    EXPECT_EQ(ben.GetErrorDetail().empty(), way.released) << way.name << ": " << ben.GetErrorDetail();
    ben.ReleaseItem("", "");
    ben.WriteOutput("", true);
    anna.ReleaseItem("", "");
  }
}

TEST_P(Border, ARefusedCopyLeavesLocksAsTheyWere) {
  std::string item;
  ASSERT_TRUE(anna.WriteItem("x", customers, "1"));
  ASSERT_TRUE(anna.WriteItem("x", customers, "2"));
  anna.WriteOutput("", true);
  for (const bool held : {false, true}) {
    if (held) anna.ReadItemLocked(item, customers, "2");
    Refusal("COPY-ITEM CUSTOMERS 1 2");
    EXPECT_EQ(ben.ReadItemLocked(item, bensCustomers, "2"), !held) << ben.GetErrorDetail();
    ben.ReleaseItem("", "");
    ben.WriteOutput("", true);
  }
}

TEST_P(Border, ALockEndsBehindTheCommitOfItsWrite) {
  std::string item;
  anna.ReadItemLocked(item, customers, "1");
  ASSERT_TRUE(anna.WriteItem("written", customers, "1"));
  EXPECT_EQ(SeenByBen("CUSTOMERS", "1"), "(none)");
  EXPECT_TRUE(anna.ItemLocks().Holds(GetParam(), anna.CurrentStore().TableNames(false).front(), "1"));
  bool seen = false;
  annasPort.beforeText = [&] {
    seen = ben.ReadItemLocked(item, bensCustomers, "1") && item == "written";
    ben.ReleaseItem("", "");
  };
  anna.WriteOutput("", true);
  EXPECT_TRUE(seen) << ben.GetErrorDetail();
}

TEST_P(Border, TheLocksOfASessionEndWithIt) {
  std::string item;
  {
    ScriptedPort port;
    EngineSession carl(home, port, {std::string(GetParam()), "carl", "a desk"});
    const std::string file = Open(carl, "CUSTOMERS");
    carl.ReadItemLocked(item, file, "1");
    EXPECT_TRUE(carl.WriteItemKeepLock("carl was here", file, "1"));
  }
  EXPECT_TRUE(anna.ReadItemLocked(item, customers, "1")) << anna.GetErrorDetail();
  EXPECT_EQ(item, "carl was here") << "what was open is committed at the end";
}

TEST_P(Border, ConversionsReadThroughTheSessionOfTheirThread) {
  std::string item;
  {
    ScriptedPort port;
    EngineSession carl(home, port, {std::string(GetParam()), "carl", "a desk"});
    EXPECT_FALSE(mv::Hooks().readItem("CUSTOMERS", "2", item));
    EXPECT_FALSE(mv::Hooks().readItem("NOWHERE", "1", item));
    mv::Hooks().sendToClient("hello");
    EXPECT_EQ(port.output, "hello\n");
  }
  EXPECT_FALSE(mv::Hooks().readItem);
  EXPECT_FALSE(mv::Hooks().sendToClient);
}

// A session against a map: whatever the mixture of calls, items are what was written last.
TEST_P(Border, RandomOperationsAgreeWithAMap) {
  const auto seed = std::random_device{}();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  const auto below = [&random](std::size_t limit) { return static_cast<std::size_t>(random() % limit); };
  const std::string ids[] = {"1",    "01",        "a", "A",   "it's",
                             "x y",  "\xE9t\xE9", "%", "a.b", std::string("n\0l", 3),
                             "\x81", "\"q\"",     "9"};
  const auto value = [&] {
    std::string text;
    for (std::size_t length = below(12); length > 0; --length)
      text += below(8) == 0 ? '\xFD' : static_cast<char>(below(250));
    return text;
  };
  const auto trimmed = [](std::string item) {
    while (item.ends_with('\xFE')) item.pop_back();
    return item;
  };

  for (const char* name : {"CUSTOMERS", "NOTES"}) {
    const std::string file = Open(anna, name);
    std::map<std::string, std::string> model;
    for (int step = 0; step < 800; ++step) {
      const std::string& id = ids[below(std::size(ids))];
      const bool isThere = model.contains(id);
      const std::string known = isThere ? model[id] : "";
      const auto attribute = static_cast<std::int32_t>(below(4) + 1);
      std::string text = value();
      switch (below(8)) {
        case 0:
        case 1:
          text += '\xFE' + value() + '\xFE' + value();
          ASSERT_TRUE(below(2) == 0 ? anna.WriteItem(text, file, id) : anna.WriteItemKeepLock(text, file, id))
              << anna.GetErrorDetail();
          model[id] = trimmed(text);
          break;
        case 2:
          ASSERT_TRUE(anna.WriteAttribute(text, file, id, attribute)) << anna.GetErrorDetail();
          model[id] = trimmed(mv::Replace(known, attribute, 0, 0, text));
          break;
        case 3:
          ASSERT_EQ(anna.DeleteItem(file, id), model.erase(id) == 1) << anna.GetErrorDetail();
          break;
        case 4:
          ASSERT_EQ(anna.ReadAttribute(text, file, id, attribute), isThere);
          ASSERT_EQ(text, mv::Extract(known, attribute));
          break;
        case 5:
          anna.WriteOutput("", true);
          ASSERT_EQ(trimmed(SeenByBen(name, id)), isThere ? known : "(none)");
          break;
        default:
          ASSERT_EQ(below(2) == 0 ? anna.ReadItem(text, file, id) : anna.ReadItemLocked(text, file, id),
                    isThere);
          ASSERT_EQ(trimmed(text), known);
      }
    }
  }
}

}  // namespace
}  // namespace nvadmin::engine
