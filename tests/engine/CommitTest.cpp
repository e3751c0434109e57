// Output commit: what a session has shown is on disk, whatever happens next.
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <thread>

#include "tests/engine/Workshop.h"

namespace nvadmin::engine {
namespace {

class Commit : public InAccount, public TwoSessions {
 public:
  Commit() : TwoSessions(GetParam()) {
    Do("CREATE-FILE CUSTOMERS 4");
    customers = Open(anna, "CUSTOMERS");
  }
  // What ben finds at the moment when anna's port gets the text or is asked for a line.
  std::string SeenWith(const std::function<void()>& act) {
    std::string seen = "(port untouched)";
    annasPort.beforeText = annasPort.beforeLine = [&] { seen = SeenByBen("CUSTOMERS", "1"); };
    act();
    annasPort.beforeText = annasPort.beforeLine = nullptr;
    return seen;
  }
  std::string customers, line;
};

TEST_P(Commit, ComesBeforeWhateverLeaves) {
  ASSERT_TRUE(anna.WriteItem("a", customers, "1"));
  EXPECT_EQ(SeenByBen("CUSTOMERS", "1"), "(none)") << "the write shares a transaction";
  EXPECT_EQ(SeenWith([&] { anna.WriteOutput("text", false); }), "a");
  ASSERT_TRUE(anna.WriteItem("b", customers, "1"));
  EXPECT_EQ(SeenWith([&] { anna.ReadInput(line, -1, true, -1.0F); }), "b");
  ASSERT_TRUE(anna.WriteItem("c", customers, "1"));
  anna.EndTypedSentence();
  EXPECT_EQ(SeenByBen("CUSTOMERS", "1"), "c");
  ASSERT_TRUE(anna.WriteItem("d", customers, "1"));
  ASSERT_EQ(Type(anna, "LOGTO MS"), "OK");
  EXPECT_EQ(SeenByBen("CUSTOMERS", "1"), "d");
}

TEST_P(Commit, LeavesNothingOpenAcrossAWait) {
  ASSERT_FALSE(anna.ReadItemLocked(line, customers, "1"));
  bool wrote = false;
  annasPort.beforeLine = [&] { wrote = ben.WriteItem("x", Open(ben, "CUSTOMERS"), "2"); };
  anna.ReadInput(line, -1, true, -1.0F);
  EXPECT_TRUE(wrote) << ben.GetErrorDetail();
}

TEST_P(Commit, WaitsBehindAProgressLineForAWhile) {
  const auto showProgress = [&] { anna.WriteOutput("20 / 100<AUTORX>", true); };
  const auto takeAnswer = [&] { anna.ReadInput(line, -1, true, -1.0F); };
  ASSERT_TRUE(anna.WriteItem("a", customers, "1"));
  EXPECT_EQ(SeenWith(showProgress), "a") << "a terminal waits for a person behind such a line";

  annasPort.showsPages = true;
  ASSERT_TRUE(anna.WriteItem("b", customers, "1"));
  EXPECT_EQ(SeenWith(showProgress), "a");
  EXPECT_EQ(SeenWith(takeAnswer), "a");
  EXPECT_EQ(SeenWith(takeAnswer), "b") << "the second wait has no progress line before it";

  ASSERT_TRUE(anna.WriteItem("c", customers, "1"));
  EXPECT_EQ(SeenWith(showProgress), "b");
  EXPECT_EQ(SeenWith([&] { anna.WriteOutput("no progress", true); }), "c");
  EXPECT_EQ(SeenWith([&] { anna.WriteOutput("<AUTORX>", false); }), "c")
      << "nothing is open: nothing changes";

  ASSERT_TRUE(anna.WriteItem("d", customers, "1"));
  std::this_thread::sleep_for(std::chrono::milliseconds(600));
  EXPECT_EQ(SeenWith(showProgress), "d") << "older than half a second";

  for (int number = 0; number < 9999; ++number)
    ASSERT_TRUE(anna.WriteItem("x", customers, std::to_string(number + 2)));
  ASSERT_TRUE(anna.WriteItem("e", customers, "1"));
  EXPECT_EQ(SeenWith(showProgress), "e") << "10,000 items";
}

class CommitOfAKilledProgram : public InAccount {};

const auto kStores = testing::Values("JETS", kNative, kOnServer);
INSTANTIATE_TEST_SUITE_P(Stores, Commit, kStores);
INSTANTIATE_TEST_SUITE_P(Stores, CommitOfAKilledProgram, kStores);

[[noreturn]] void WriteUntilKilled(const TestFolder& folder, std::string_view account, int pipe) {
  Home home(folder.home);
  ScriptedPort port;
  port.beforeText = [pipe] {
    if (write(pipe, ".", 1) < 0) _exit(1);
  };
  EngineSession session(home, port, {std::string(account), "child", "a desk"});
  std::string file;
  session.OpenFile("CUSTOMERS", file);
  for (int number = 1;; ++number) {
    session.WriteItem(std::to_string(number) + "\xFEhalf\xFEwhole", file, std::to_string(number));
    session.WriteItem("second", file, std::to_string(number) + "b");
    session.WriteOutput(".", false);
  }
}

TEST_P(CommitOfAKilledProgram, HoldsWhatWasShown) {
  const TestFolder folder(GetParam());
  const SessionSettings anna = {std::string(GetParam()), "anna", "a desk"};
  ScriptedPort port;
  {
    Home home(folder.home);
    EngineSession session(home, port, anna);
    ASSERT_NE(Type(session, "CREATE-FILE CUSTOMERS 4"), "ERROR");
  }
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  const pid_t child = fork();
  if (child == 0) WriteUntilKilled(folder, GetParam(), ends[1]);
  close(ends[1]);
  int shown = 0;
  for (char letter = 0; read(ends[0], &letter, 1) == 1;) {
    if (++shown == 25) kill(child, SIGKILL);
  }
  close(ends[0]);
  int status = 0;
  waitpid(child, &status, 0);
  ASSERT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL) << status;
  ASSERT_GE(shown, 25);

  Home home(folder.home);
  EngineSession session(home, port, anna);
  std::string file, item;
  ASSERT_EQ(session.OpenFile("CUSTOMERS", file), kTrue);
  for (int number = 1; number <= shown; ++number) {
    const std::string id = std::to_string(number);
    ASSERT_TRUE(session.ReadItem(item, file, id)) << session.GetErrorDetail() << " of " << shown;
    ASSERT_EQ(item, id + "\xFEhalf\xFEwhole");
    ASSERT_TRUE(session.ReadItem(item, file, id + "b"));
  }
  EXPECT_TRUE(session.WriteItem("after", file, "1"))
      << "the dead program's locks are gone: " << session.GetErrorDetail();
}

}  // namespace
}  // namespace nvadmin::engine
