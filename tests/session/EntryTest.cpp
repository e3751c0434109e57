// BP: the start-up sequence, the road that a sentence takes, and failures that must come through.
#include <gtest/gtest.h>

#include <thread>

#include "session/basNvLibrary.h"
#include "tests/support/ScriptedSession.h"
#include "tests/support/TemporaryFolder.h"

namespace nvadmin::test {
namespace {

using Entry = ScriptedSession;

TEST_F(Entry, StartUpAsksInOrderAndKeepsTheSecondWordOfWhoAndAllOfTheDatastore) {
  engine.Answer("WHO", "12 SALES Main office");
  engine.Answer("SYSTEM DATASTORE", "MV 2 x");
  bp.CallBack(&engine);
  EXPECT_EQ(engine.Calls(),
            "GetSharedDictionary()\n"
            "ExecuteSentence(WHO) '12 SALES Main office'\n"
            "ExecuteSentence(SYSTEM DATASTORE) 'MV 2 x'\n");
  EXPECT_EQ(Session().CurrentAccount, "SALES");
  EXPECT_EQ(Session().DatastoreKind, "MV 2 x");
  EXPECT_NE(Session().SharedDictionary, nullptr);
}

TEST_F(Entry, AFailureInTheMiddleOfStartUpKeepsWhatWasSetAndReachesTheEngine) {
  engine.Answer("WHO", "1 OTHER");
  engine.NextCalls("ExecuteSentence", {{}, {.detail = "store is down", .fails = true}});
  EXPECT_THROW(bp.CallBack(&engine), EngineFailure);
  EXPECT_EQ(Session().CurrentAccount, "OTHER");
  EXPECT_EQ(Session().DatastoreKind, "JET");
  EXPECT_EQ(Session().Engine, &engine);
}

TEST_F(Entry, TakingTheEngineAwayAndANewStartKeepCacheAndListPosition) {
  engine.File("syscon")["A"] = "kept";
  std::string item;
  RREAD(item, engine.FileVar("syscon"), "A");
  engine.Answer("SELECT X", Dyn("1^2"), NumberedKeys(3));
  EExecute("SELECT X");
  std::int32_t position = 0;
  RReadNext(item, position);
  const MvServices* helper = Session().Mv.get();
  bp.CmdSentence(" kept As is ");
  bp.CallBackClose();
  bp.Test();
  EXPECT_EQ(Session().Engine, nullptr);
  EXPECT_EQ(Session().CurrentAccount, "DEMO");
  EXPECT_EQ(Session().CmdSentenceText, " kept As is ");
  EXPECT_EQ(Session().Mv.get(), helper);

  bp.CallBack(&engine);
  engine.Forget();
  EXPECT_TRUE(RREAD(item, engine.FileVar("syscon"), "A"));
  EXPECT_EQ(engine.CallCount("ReadItem"), 0);
  EXPECT_TRUE(RReadNext(item, position));
  EXPECT_EQ(item, "2");
  bp.CallBack(nullptr);
  EXPECT_EQ(Session().Engine, nullptr);
}

TEST_F(Entry, EveryThreadHasAStateOfItsOwn) {
  bp.CmdSentence("LIST F");
  std::thread([this] {
    EXPECT_EQ(Session().Engine, nullptr);
    EXPECT_EQ(Session().CmdSentenceText, "");
    bp.CmdSentence("SORT F");
  }).join();
  EXPECT_EQ(Session().CmdSentenceText, "LIST F");
}

// The road shows in the first thing printed; every sentence is refused by the engine.
TEST_F(Entry, DispatchTable) {
  constexpr std::string_view kSelect = "ERROR: no$\n";
  constexpr std::string_view kReport = "Can not open";
  constexpr std::string_view kNothing = "";
  const struct {
    std::string_view name, sentence, mode, want;
    int modeAsked;
  } kRows[] = {
      {"leading blank empties the first word", " LIST F", "", kNothing, 0},
      {"word ends at a blank only", "LIST\tF", "", kNothing, 0},
      {"known to the engine only", "QSELECT F", "", kNothing, 0},
      {"small letters", "list F", "", kReport, 1},
      {"mode word in small letters is a terminal", "LIST F", "html", kReport, 1},
      {"plain select doesn't ask for the mode", "select F", "HTML", kSelect, 0},
      {"from in any case", "select a, b From t", "", "[CLEAR]select a", 1},
      {"semicolon alone", "SELECT F;", "", "[CLEAR]SELECT F;{CRLF}\n$\n", 1},
      {"blank behind the semicolon", "SELECT F; ", "", kSelect, 0},
      {"from at the very end", "SELECT F FROM", "", kSelect, 0},
      {"from behind a line break", "SELECT F\r\nFROM t", "", kSelect, 0},
      {"semicolon glued to the verb", "SELECT;", "", kNothing, 0},
      {"sql signs mean nothing to pselect", "PSELECT A FROM B;", "HTML", kSelect, 0},
  };
  engine.RefuseFile("f", "");
  for (const auto& row : kRows) {
    SCOPED_TRACE(row.name);
    engine.RefuseSentence(row.sentence, "no");
    engine.OutputMode(row.mode);
    const std::string screen = Run(row.sentence);
    EXPECT_EQ(screen.substr(0, row.want.size()), row.want) << screen;
    EXPECT_EQ(screen.empty(), row.want.empty()) << screen;
    EXPECT_EQ(engine.CallCount("GetOutputMode"), row.modeAsked);
  }
}

TEST_F(Entry, ABrowserGetsPages) {
  engine.OutputMode("HTML");
  engine.RefuseFile("f", "");
  engine.RefuseSentence("LIST F", "no");
  engine.RefuseSentence("SELECT TOP 500 F;", "no");
  for (std::string_view sentence : {"LIST F", "SELECT F;"}) {
    engine.Type({""});
    EXPECT_EQ(Run(sentence).substr(0, 18), "<TX>IREPLACE|doc1=") << sentence;
  }
}

TEST_F(Entry, AFailureOfAnyOperationLeavesQueryAsItIs) {
  engine.File("f")["1"] = "x";
  engine.File("f_dict")["A"] = Dyn("A^1");
  engine.Answer("LIST F A", Dyn("^^A"), NumberedKeys(1));
  for (std::string_view operation : {"GetOutputMode", "ExecuteSentence", "OpenFile", "ReadItem",
                                     "CursorString", "WriteOutput", "ReadInput"}) {
    engine.NextCalls(operation, {{.detail = "the store is down", .fails = true}});
    EXPECT_EQ(FailureOf([&] { Run("LIST F A"); }), "the store is down") << operation;
    EXPECT_EQ(Session().Engine, &engine);
  }
}

}  // namespace
}  // namespace nvadmin::test
