// Item locks in a database, between sessions and between programs.
#include <signal.h>

#include <chrono>
#include <functional>
#include <thread>

#include "engine/Locks.h"
#include "engine/stores/OpenStore.h"
#include "tests/support/MariaServer.h"
#include "tests/support/TemporaryFolder.h"

namespace nvadmin::engine {
namespace {

class ServerLocksTest : public testing::Test {
 protected:
  void SetUp() override {
    if (!MariaDatabase::IsThere()) GTEST_SKIP() << MariaDatabase::kSkipped;
    database_ = std::make_unique<MariaDatabase>();
    Home::Make(folder_ / "home");
    OpenStore(Home(folder_ / "home"), Account());  // makes the tables
  }
  engine::Account Account() const { return {"ACC", "MYSQL", database_->Address()}; }
  StorePlace Place() const { return FindStorePlace(Home(folder_ / "home"), Account()); }
  // Each has a lock file of its own, as on another host: only the database joins them.
  std::unique_ptr<Locks> Open(const std::string& user) const {
    auto locks = std::make_unique<Locks>(folder_ / (user + ".sqlite"), user, "desk");
    locks->UseServer("ACC", Place());
    return locks;
  }
  // As if the program that registered first had shown no heartbeat for a while, and the others theirs for
  // long.
  void AgeFirst() const {
    database_->Run(
        "UPDATE nvadmin_programs SET steady = steady - 20000;"
        "UPDATE nvadmin_programs SET beat = beat - 20000 ORDER BY number LIMIT 1");
  }

  const TemporaryFolder folder_;
  std::unique_ptr<MariaDatabase> database_;
};

std::string Taken(Locks& locks, const char* table, std::string_view id) {
  std::string refusal;
  return locks.Take("ACC", table, id, refusal) ? "" : refusal;
}
std::vector<ListedLock> Listed(const Locks& locks) {
  std::vector<std::string> unseen;
  std::vector<ListedLock> listed = locks.AllLocks(unseen);
  for (const std::string& reason : unseen) listed.emplace_back().account = reason;
  return listed;
}
std::string Checked(Locks& locks, const char* table, std::string_view id) {
  std::string refusal;
  locks.BeginChecks("ACC");
  return locks.Check("ACC", table, id, refusal) ? "" : refusal;
}

double SecondsOf(const std::function<void()>& action) {
  const auto begin = std::chrono::steady_clock::now();
  action();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
}

TEST_F(ServerLocksTest, ExcludeOthersAndNameTheHolder) {
  const std::unique_ptr<Locks> anna = Open("anna"), ben = Open("ben");
  std::array<char, 256> host{};
  gethostname(host.data(), host.size() - 1);
  const std::string held = " is locked by anna at desk on " + std::string(host.data());
  const std::string zero("a\0\xE9'", 4);
  EXPECT_EQ(Taken(*anna, "t", zero), "");
  EXPECT_EQ(Taken(*anna, "t", zero), "");
  EXPECT_EQ(Taken(*ben, "t", zero), "[920] item '" + zero + "' of t" + held);
  EXPECT_EQ(Checked(*ben, "t", zero), "[920] item '" + zero + "' of t" + held);
  for (const std::string& id : {std::string("a"), std::string("A"), zero + " ", std::string(5000, 'x')}) {
    EXPECT_EQ(Checked(*ben, "t", id), "");
    EXPECT_EQ(Taken(*ben, "t", id), "");
  }
  EXPECT_EQ(Checked(*anna, "t", zero), "");
  EXPECT_EQ(Taken(*ben, "u", zero), "");

  std::string refusal;
  EXPECT_FALSE(ben->TakeTable("ACC", "t", refusal));
  EXPECT_EQ(refusal, "[920] an item of t" + held);
  EXPECT_TRUE(ben->Holds("ACC", "t", "a")) << "a refused table leaves the items";
  anna->ReleaseAll();
  EXPECT_TRUE(ben->TakeTable("ACC", "t", refusal));
  EXPECT_NE(Taken(*anna, "t", "new"), "");
  EXPECT_NE(Checked(*anna, "t", "new"), "");
  EXPECT_EQ(Taken(*anna, "T", "new"), "");

  const std::vector<ListedLock> locks = Listed(*anna);
  ASSERT_EQ(locks.size(), 7U);
  EXPECT_EQ(locks[0].account + " " + locks[0].table + " " + locks[0].user, "ACC T anna");
  EXPECT_LT(std::abs(locks[0].since - MillisecondsNow()), 60'000);
  ben->ReleaseTable("ACC", "t");
  EXPECT_EQ(Taken(*anna, "t", zero), "");
  EXPECT_EQ(Listed(*anna).size(), 3U);
}

TEST_F(ServerLocksTest, OfTheDeadAreTakenOver) {
  ChildProgram dead([this](const auto& tell) {
    const std::unique_ptr<Locks> locks = Open("dead");
    if (Taken(*locks, "t", "1").empty() && Taken(*locks, "t", "2").empty()) tell();
    for (;;) pause();
  });
  dead.Await(1);
  dead.Kill();
  const std::unique_ptr<Locks> anna = Open("anna"), ben = Open("ben");
  EXPECT_NE(Taken(*anna, "t", "1"), "") << "it may live on another host";
  EXPECT_NE(Checked(*ben, "t", "2"), "");
  AgeFirst();
  EXPECT_EQ(Taken(*anna, "t", "1"), "");
  EXPECT_EQ(Listed(*anna).size(), 1U);
  EXPECT_EQ(Checked(*ben, "t", "2"), "");
  EXPECT_EQ(database_->Run("SELECT count(*) FROM nvadmin_programs"), "1\n");
}

// Behind a pause of the server, or a jump of its clock, every heartbeat looks old, or far ahead, to who comes
// first: nobody loses a lock then.
TEST_F(ServerLocksTest, NobodyIsTakenForDeadByAClockThatJumps) {
  ChildProgram other([this](const auto& tell) {
    const std::unique_ptr<Locks> locks = Open("other");
    if (Taken(*locks, "t", "1").empty()) tell();
    for (;;) pause();
  });
  other.Await(1);
  const std::unique_ptr<Locks> anna = Open("anna");
  EXPECT_EQ(Taken(*anna, "t", "2"), "");
  for (const char* jump : {"- 20000", "+ 3600000"}) {
    other.Send(SIGSTOP);  // its next beat is late, later than the first of the one who asks
    database_->Run(std::string("UPDATE nvadmin_programs SET steady = 0, beat = beat ") + jump);
    EXPECT_EQ(Listed(*anna).size(), 2U) << jump;
    std::jthread waking([&] {
      std::this_thread::sleep_for(std::chrono::milliseconds(2600));
      other.Send(SIGCONT);
    });
    EXPECT_NE(Taken(*anna, "t", "1"), "") << jump;
    EXPECT_NE(Checked(*anna, "t", "1"), "") << jump;
    EXPECT_TRUE(anna->Holds("ACC", "t", "2"));
  }
}

// A program that has only begun can't tell yet who is dead: it waits for that, but only for what it wants.
TEST_F(ServerLocksTest, OfTheDeadAreTakenOverByTheYoungToo) {
  ChildProgram dead([this](const auto& tell) {
    const std::unique_ptr<Locks> locks = Open("dead");
    if (Taken(*locks, "t", "1").empty()) tell();
    for (;;) pause();
  });
  dead.Await(1);
  dead.Kill();
  database_->Run("UPDATE nvadmin_programs SET beat = beat - 20000");
  const std::unique_ptr<Locks> young = Open("young");
  EXPECT_LT(SecondsOf([&] {
              EXPECT_EQ(Taken(*young, "t", "2"), "");
              EXPECT_EQ(Checked(*young, "t", "3"), "");
              EXPECT_EQ(Listed(*young).size(), 2U);
            }),
            2);
  EXPECT_EQ(Checked(*young, "t", "1"), "");
  EXPECT_EQ(Taken(*young, "t", "1"), "");
}

// A program that stood still and was taken for dead isn't let write what others lock now.
TEST_F(ServerLocksTest, LostByAProgramThatStoodStill) {
  ChildProgram still([this](const auto& tell) {
    const std::unique_ptr<Locks> locks = Open("still");
    if (!Taken(*locks, "t", "1").empty() || !Taken(*locks, "t", "2").empty()) _exit(1);
    tell();
    raise(SIGSTOP);
    if (Checked(*locks, "t", "2").find("was lost") == std::string::npos) _exit(1);
    tell();
    if (Checked(*locks, "t", "1").find("[920]") != 0 || locks->Holds("ACC", "t", "2")) _exit(1);
    tell();
    if (Taken(*locks, "t", "2").empty() && Checked(*locks, "t", "2").empty()) tell();
    _exit(0);
  });
  still.Await(1);
  std::this_thread::sleep_for(std::chrono::milliseconds(200));
  const std::unique_ptr<Locks> anna = Open("anna");
  EXPECT_NE(Taken(*anna, "t", "1"), "");
  AgeFirst();
  EXPECT_EQ(Taken(*anna, "t", "1"), "");
  still.Send(SIGCONT);
  still.Await(3);
  EXPECT_EQ(still.Kill(), 4) << "the program was let write";
}

// The heartbeat keeps a lock, and a program that was removed by mistake comes back by itself.
TEST_F(ServerLocksTest, AHeartbeatKeepsThem) {
  const std::unique_ptr<Locks> anna = Open("anna");
  EXPECT_EQ(Taken(*anna, "t", "1"), "");
  AgeFirst();
  std::this_thread::sleep_for(std::chrono::milliseconds(2600));
  const std::unique_ptr<Locks> ben = Open("ben");
  EXPECT_NE(Taken(*ben, "t", "1"), "");
  database_->Run("DELETE FROM nvadmin_programs");
  std::this_thread::sleep_for(std::chrono::milliseconds(2600));
  EXPECT_FALSE(anna->Holds("ACC", "t", "1"));
  EXPECT_EQ(Taken(*anna, "t", "1"), "");
  EXPECT_NE(Taken(*ben, "t", "1"), "");
}

// Sessions take and release items, and now and then the whole table; whoever has one is alone with it.
TEST_F(ServerLocksTest, NoTwoHoldTheSame) {
  constexpr int kItems = 4;
  constexpr int kRounds = 80;
  std::array<std::atomic<int>, kItems> holders{};
  std::atomic<int> taken = 0, tables = 0;
  std::vector<std::jthread> sessions;
  for (int session = 0; session < 4; ++session) {
    sessions.emplace_back([&, session] {
      const std::unique_ptr<Locks> locks = Open("user" + std::to_string(session));
      std::string refusal;
      for (int round = 0; round < kRounds; ++round) {
        const bool isTable = round % 8 == session;
        const int item = (round * 7 + session * 3) % kItems;
        const bool isTaken = isTable ? locks->TakeTable("ACC", "t", refusal)
                                     : Taken(*locks, "t", std::to_string(item)).empty();
        if (!isTaken) continue;
        ++(isTable ? tables : taken);
        const int first = isTable ? 0 : item, last = isTable ? kItems - 1 : item;
        for (int held = first; held <= last; ++held) EXPECT_EQ(++holders[static_cast<std::size_t>(held)], 1);
        for (int held = first; held <= last; ++held) --holders[static_cast<std::size_t>(held)];
        locks->ReleaseTable("ACC", "t");
      }
    });
  }
  sessions.clear();
  EXPECT_GT(taken, kRounds / 2);
  EXPECT_GT(tables, 0);
  EXPECT_EQ(database_->Run("SELECT count(*) FROM nvadmin_locks"), "0\n");
}

// Whether the lock is free in the end.
bool IsFreeInTime(Locks& locks, const char* table, std::string_view id) {
  for (int tries = 0; tries < 100; ++tries) {
    if (Taken(locks, table, id).empty()) return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
  }
  return false;
}

// While the server is gone nobody waits for it or fails who only lets go; when it is back the locks are as
// the sessions know them.
TEST(ServerLocksOverARestart, AreAsTheSessionsKnowThem) {
  if (!MariaDatabase::IsThere()) GTEST_SKIP() << MariaDatabase::kSkipped;
  const TemporaryFolder folder;
  const OwnMariaServer server((folder / "server").string(), "--innodb-flush-log-at-trx-commit=1");
  ASSERT_TRUE(server.IsThere());
  MariaDatabase::AsRoot("CREATE DATABASE d CHARACTER SET latin1 COLLATE latin1_nopad_bin", server.Socket());
  Home::Make(folder / "home");
  const Account account = {"ACC", "MYSQL",
                           "mariadb://root@/d?connect-timeout=1&timeout=10&socket=" + server.Socket()};
  OpenStore(Home(folder / "home"), account);
  const auto open = [&](const std::string& user) {
    auto locks = std::make_unique<Locks>(folder / (user + ".sqlite"), user, "desk");
    locks->UseServer("ACC", FindStorePlace(Home(folder / "home"), account));
    return locks;
  };
  const std::unique_ptr<Locks> anna = open("anna"), carl = open("carl");
  std::unique_ptr<Locks> ben = open("ben");
  for (const char* id : {"kept", "let go", "of a table"}) EXPECT_EQ(Taken(*anna, id, id), "");
  EXPECT_EQ(Taken(*ben, "t", "of one who left"), "");

  ASSERT_TRUE(server.Do("kill"));
  EXPECT_LT(SecondsOf([&] {
              anna->Release("ACC", "let go", "let go");
              anna->ReleaseTable("ACC", "of a table");
              ben.reset();
            }),
            10);
  EXPECT_FALSE(anna->Holds("ACC", "let go", "let go"));
  EXPECT_NE(FailureOf([&] { Taken(*anna, "t", "new"); }).find("account ACC, locks: the store is unavailable"),
            std::string::npos);
  EXPECT_FALSE(anna->Holds("ACC", "t", "new"));
  const std::vector<ListedLock> listed = Listed(*anna);
  ASSERT_EQ(listed.size(), 1U);
  EXPECT_NE(listed[0].account.find("the store is unavailable"), std::string::npos) << listed[0].account;

  ASSERT_TRUE(server.Do("resume", "--innodb-flush-log-at-trx-commit=1"));
  for (const char* id : {"let go", "of a table"}) EXPECT_TRUE(IsFreeInTime(*carl, id, id)) << id;
  for (const char* id : {"of one who left", "new"}) EXPECT_TRUE(IsFreeInTime(*carl, "t", id)) << id;
  EXPECT_NE(Taken(*carl, "kept", "kept"), "");
  EXPECT_TRUE(anna->Holds("ACC", "kept", "kept"));
  EXPECT_EQ(Checked(*anna, "kept", "kept"), "");
  EXPECT_NE(Checked(*anna, "let go", "let go"), "");

  // A server that stands still and then does what it was told long ago takes no lock that is newer.
  ASSERT_TRUE(server.Do("pause"));
  EXPECT_LT(SecondsOf([&] { anna->Release("ACC", "kept", "kept"); }), 25);
  ASSERT_TRUE(server.Do("continue"));
  EXPECT_EQ(Taken(*anna, "kept", "kept"), "");
  std::this_thread::sleep_for(std::chrono::milliseconds(2600));
  EXPECT_NE(Taken(*carl, "kept", "kept"), "");
  EXPECT_EQ(Checked(*anna, "kept", "kept"), "");
}

}  // namespace
}  // namespace nvadmin::engine
