// A session whose account lies on a server: what it tells, and what is there, when the server, the way to it
// or a lock is lost in the middle of its work.
#include <chrono>
#include <thread>

#include "tests/engine/Workshop.h"
#include "tests/support/SocketProxy.h"

namespace nvadmin::engine {
namespace {

class ServerLost : public testing::Test {
 protected:
  void SetUp() override {
    if (!MariaDatabase::IsThere()) GTEST_SKIP() << MariaDatabase::kSkipped;
    database_ = std::make_unique<MariaDatabase>();
    Home::Make(folder_ / "home");
    home_ = std::make_unique<Home>(folder_ / "home");
    proxy_ = std::make_unique<SocketProxy>((folder_ / "proxy").string(), MariaDatabase::Socket());
    ASSERT_TRUE(proxy_->IsThere());
    std::string error;
    for (const auto& [name, socket] :
         {std::pair("SALES", (folder_ / "proxy").string()), std::pair("DIRECT", MariaDatabase::Socket())}) {
      ASSERT_TRUE(home_->AddAccount(
          {name, "MYSQL", "mariadb://root@/" + database_->Name() + "?socket=" + socket}, error))
          << error;
    }
    anna_ = std::make_unique<EngineSession>(*home_, port_, SessionSettings{"SALES", "anna", "desk 1"});
    ASSERT_NE(Type(*anna_, "CREATE-FILE STOCK 3"), "ERROR");
    anna_->OpenFile("STOCK", stock_);
    port_.output.clear();
  }
  // What ben sees over a way of his own.
  std::string There(std::string_view id) {
    ScriptedPort port;
    EngineSession ben(*home_, port, {"DIRECT", "ben", "desk 2"});
    std::string file, item;
    ben.OpenFile("STOCK", file);
    return ben.ReadItem(item, file, id) ? item : "(none)";
  }

  const TemporaryFolder folder_;
  std::unique_ptr<MariaDatabase> database_;
  std::unique_ptr<Home> home_;
  std::unique_ptr<SocketProxy> proxy_;
  ScriptedPort port_;
  std::unique_ptr<EngineSession> anna_;
  std::string stock_, line_;
};

// What can't be committed is no answer: nothing leaves the session but the failure.
TEST_F(ServerLost, NothingIsToldThatIsNotThere) {
  const struct {
    const char* name;
    const char* text;
    SocketProxy::Cut cut;
    std::function<void()> leave;  // what would tell of the write
    const char* failure;
    const char* there;
  } kCases[] = {
      {"text", "COMMIT", SocketProxy::Cut::kBefore, [this] { anna_->WriteOutput("OK", true); },
       "whether the writes since the last commit are there is not known", "(none)"},
      {"a committed answer", "COMMIT", SocketProxy::Cut::kBehind, [this] { anna_->WriteOutput("OK", true); },
       "whether the writes since the last commit are there is not known", "tea"},
      {"a wait", "tea", SocketProxy::Cut::kBefore, [this] { anna_->ReadInput(line_, -1, true, -1.0F); },
       "the writes since the last commit are lost", "(none)"},
      {"the end", "tea", SocketProxy::Cut::kBehind, [this] { anna_->EndTypedSentence(); },
       "the writes since the last commit are lost", "(none)"},
  };
  for (const auto& row : kCases) {
    SCOPED_TRACE(row.name);
    ASSERT_FALSE(anna_->ReadItemLocked(line_, stock_, "1"));
    anna_->CommitWrites();
    ASSERT_TRUE(anna_->WriteItem("tea", stock_, "1"));
    proxy_->CutAt(row.text, row.cut);
    bool wasAsked = false;
    port_.beforeLine = [&] { wasAsked = true; };
    const std::string failure = FailureOf(row.leave);
    port_.beforeLine = nullptr;
    EXPECT_TRUE(proxy_->HasCut());
    EXPECT_TRUE(failure.starts_with("account SALES at this machine: ")) << failure;
    EXPECT_NE(failure.find(row.failure), std::string::npos) << failure;
    EXPECT_EQ(port_.output, "");
    EXPECT_FALSE(wasAsked);
    EXPECT_EQ(There("1"), row.there);
    EXPECT_FALSE(anna_->HoldsItem(stock_, "1")) << "the lock that waited for the commit is released";

    ASSERT_TRUE(anna_->WriteItem("later", stock_, "2")) << "the session goes on";
    anna_->WriteOutput("OK", true);
    EXPECT_EQ(There("2"), "later");
    anna_->DeleteItem(stock_, "1");
    anna_->DeleteItem(stock_, "2");
    anna_->CommitWrites();
    port_.output.clear();
  }
}

TEST_F(ServerLost, ALockedReadWaitsForWritesThatWereAllowedBefore) {
  ASSERT_TRUE(anna_->WriteItem("new", stock_, "1"));
  std::string read;
  std::jthread other([&] {
    ScriptedPort port;
    EngineSession ben(*home_, port, {"DIRECT", "ben", "desk 2"});
    std::string file;
    ben.OpenFile("STOCK", file);
    EXPECT_TRUE(ben.ReadItemLocked(read, file, "1"));
    ben.CommitWrites();
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
  });
  std::this_thread::sleep_for(std::chrono::milliseconds(300));
  ASSERT_TRUE(anna_->WriteItem("newer", stock_, "1")) << "its turn isn't over";
  anna_->CommitWrites();
  std::this_thread::sleep_for(std::chrono::milliseconds(150));
  EXPECT_FALSE(anna_->WriteItem("late", stock_, "1"));
  EXPECT_TRUE(anna_->GetErrorDetail().starts_with("[920]")) << anna_->GetErrorDetail();
  EXPECT_FALSE(anna_->DeleteItem(stock_, "1"));
  EXPECT_TRUE(anna_->GetErrorDetail().starts_with("[920]")) << anna_->GetErrorDetail();
  anna_->CommitWrites();
  EXPECT_EQ(Type(*anna_, "CLEAR-FILE STOCK"), "ERROR");
  EXPECT_TRUE(anna_->GetErrorDetail().starts_with("[920]")) << anna_->GetErrorDetail();
  other.join();
  EXPECT_EQ(read, "newer");
}

// Whose lock others took over is let write nothing with it, also by a write that would keep it.
TEST_F(ServerLost, ALostLockIsNotWrittenUnder) {
  for (const char* id : {"1", "2", "3"}) anna_->ReadItemLocked(line_, stock_, id);
  anna_->CommitWrites();
  database_->Run("DELETE FROM nvadmin_programs; DELETE FROM nvadmin_locks");
  EXPECT_FALSE(anna_->WriteItemKeepLock("x", stock_, "1"));
  EXPECT_NE(anna_->GetErrorDetail().find("[920] the lock of item '1' of stock was lost"), std::string::npos)
      << anna_->GetErrorDetail();
  EXPECT_FALSE(anna_->WriteAttribute("x", stock_, "2", 1));
  EXPECT_FALSE(anna_->DeleteItem(stock_, "3"));
  anna_->CommitWrites();
  EXPECT_FALSE(anna_->ReadItemLocked(line_, stock_, "1"));
  EXPECT_EQ(anna_->GetErrorDetail(), "") << "it is locked anew";
  EXPECT_TRUE(anna_->WriteItem("x", stock_, "1")) << anna_->GetErrorDetail();
}

}  // namespace
}  // namespace nvadmin::engine
