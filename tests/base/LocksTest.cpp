// Item locks between sessions and programs; what dies gives its locks back, what lives keeps them.
#include "engine/Locks.h"

#include <gtest/gtest.h>

#include <array>
#include <fstream>
#include <map>
#include <optional>
#include <random>
#include <thread>

#include "engine/stores/Sqlite.h"
#include "tests/support/TemporaryFolder.h"

namespace nvadmin::engine {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using namespace std::string_literals;

// A lock file of its own.
class LocksTest : public testing::Test {
 protected:
  Locks Open(std::string_view user) const { return Locks(file_, user, "desk"); }
  // A session that counts as one of another program, since it spells the file in another way.
  Locks OpenElsewhere(std::string_view user) const { return Locks(elsewhere_, user, "desk"); }
  void Change(const std::string& sql) const {
    Database(file_, OpenMode::kExisting, 1000ms).Execute(sql.c_str());
  }
  // Makes all programs look as if they ran on another machine and had been silent for so long.
  void MoveProgramsAway(std::chrono::seconds silence) const {
    Change("UPDATE programs SET machine = 'elsewhere', heartbeat = unixepoch() * 1000 - " +
           std::to_string(std::chrono::milliseconds(silence).count()));
  }

  const TemporaryFolder folder_;
  const fs::path file_ = folder_ / "locks.sqlite";
  const fs::path elsewhere_ = folder_ / "./locks.sqlite";
};

bool Take(Locks& locks, std::string_view table, std::string_view id) {
  std::string refusal;
  const bool taken = locks.Take("ACC", table, id, refusal);
  EXPECT_EQ(taken, refusal.empty()) << refusal;
  return taken;
}

bool Check(Locks& locks, std::string_view table, std::string_view id) {
  std::string refusal;
  const bool free = locks.Check("ACC", table, id, refusal);
  EXPECT_EQ(free, refusal.empty()) << refusal;
  return free;
}

// Random operations of several sessions, which also come and go, against a map from item to session. Account,
// table and ID together are the lock, each byte for byte.
TEST_F(LocksTest, RandomOperationsAgreeWithAMap) {
  const unsigned seed = std::random_device{}();
  std::mt19937 random(seed);
  using Item = std::array<std::string, 3>;
  const Item items[] = {
      {"A", "T", "1"}, {"A", "T", "01"}, {"A", "T", ""},    {"A", "T", "a\0b"s},
      {"A", "T", "a"}, {"A", "t", "1"},  {"A", "T2", "01"}, {"A", "T", "\xFE"},
      {"B", "T", "1"}, {"B", "T", "12"}, {"AT", "", "1"},   {"", "AT", "1"},
  };
  std::array<std::unique_ptr<Locks>, 3> sessions;
  std::map<Item, std::size_t> holders;
  for (int step = 0; step < 4000 && !HasFailure(); ++step) {
    SCOPED_TRACE("seed " + std::to_string(seed) + ", step " + std::to_string(step));
    const std::size_t mine = random() % sessions.size();
    std::unique_ptr<Locks>& session = sessions[mine];
    if (session == nullptr) session = std::make_unique<Locks>(mine == 0 ? elsewhere_ : file_, "anna", "desk");
    const Item& item = items[random() % std::size(items)];
    const auto& [account, table, id] = item;
    const auto holder = holders.find(item);
    const bool isFree = holder == holders.end() || holder->second == mine;
    const auto drop = [&](bool isAll) {
      std::erase_if(holders, [&](const auto& lock) {
        return lock.second == mine && (isAll || (lock.first[0] == item[0] && lock.first[1] == item[1]));
      });
    };
    const auto operation = random() % 20;
    std::string refusal;
    if (operation < 7) {
      EXPECT_EQ(session->Take(account, table, id, refusal), isFree) << refusal;
      if (isFree) holders[item] = mine;
    } else if (operation < 12) {
      EXPECT_EQ(session->Check(account, table, id, refusal), isFree) << refusal;
    } else if (operation < 14) {
      EXPECT_EQ(session->Holds(account, table, id), isFree && holder != holders.end());
    } else if (operation < 17) {
      session->Release(account, table, id);
      if (isFree) holders.erase(item);
    } else if (operation < 18) {
      session->ReleaseTable(account, table);
      drop(/*isAll=*/false);
    } else if (operation < 19) {
      session->ReleaseAll();
      drop(/*isAll=*/true);
    } else {
      session.reset();
      drop(/*isAll=*/true);
    }
  }
}

// Another program that has taken the items 1 and 2 of T when the constructor returns.
class OtherProgram : public ChildProgram {
 public:
  explicit OtherProgram(const fs::path& file)
      : ChildProgram([&file](const auto& tell) {
          Locks locks(file, "ben", "desk 2");
          if (Take(locks, "T", "1") && Take(locks, "T", "2")) tell();
          for (;;) pause();
        }) {
    Await(1);
  }
};

TEST_F(LocksTest, AKilledProgramLosesItsLocksAtOnce) {
  OtherProgram other(file_);
  Locks mine = Open("mine");
  std::string refusal;
  EXPECT_FALSE(mine.Take("ACC", "T", "1", refusal));
  EXPECT_EQ(refusal, "[920] item '1' of T is locked by ben at desk 2");
  EXPECT_FALSE(mine.Check("ACC", "T", "2", refusal));
  EXPECT_EQ(refusal, "[920] item '2' of T is locked by ben at desk 2");
  other.Kill();
  EXPECT_TRUE(Check(mine, "T", "2"));
  EXPECT_TRUE(Take(mine, "T", "1"));
}

TEST_F(LocksTest, AStoppedProgramOfThisMachineKeepsItsLocks) {
  OtherProgram other(file_);
  other.Send(SIGSTOP);
  Change("UPDATE programs SET heartbeat = 0");
  Locks mine = Open("mine");
  EXPECT_FALSE(Take(mine, "T", "1"));
  // A pid that now belongs to another run of a program doesn't count.
  Change("UPDATE programs SET started = started - 1");
  EXPECT_TRUE(Take(mine, "T", "1"));
}

TEST_F(LocksTest, AForeignWriterHoldsNobodyForLong) {
  std::optional<Locks> leaving(std::in_place, file_, "leaving", "desk");
  Locks mine = Open("mine");
  Locks others = OpenElsewhere("other");
  ASSERT_TRUE(Take(*leaving, "T", "1"));
  Database foreign(file_, OpenMode::kExisting, 0ms);
  foreign.Begin();
  const auto start = std::chrono::steady_clock::now();
  for (int round = 0; round < 5; ++round) {
    EXPECT_NE(FailureOf([&] { Take(mine, "T", "2"); }).find("locks.sqlite is locked by another program"),
              std::string::npos);
    EXPECT_NE(FailureOf([&] { Open("late"); }), "");
  }
  leaving.reset();
  EXPECT_LT(std::chrono::steady_clock::now() - start, 5s);
  foreign.Rollback();
  // What was left behind goes with a heartbeat.
  bool isFree = false;
  for (int tries = 0; tries < 100 && !isFree; ++tries) {
    std::this_thread::sleep_for(100ms);
    std::string refusal;
    isFree = others.Take("ACC", "T", "1", refusal);
  }
  EXPECT_TRUE(isFree);
  EXPECT_TRUE(Take(mine, "T", "2"));
}

TEST_F(LocksTest, ElsewhereTheHeartbeatCounts) {
  const struct {
    std::chrono::seconds silence;
    bool alive;
  } kCases[] = {{0s, true}, {13s, true}, {17s, false}, {24h, false}, {-13s, true}, {-1h, false}};
  for (const auto& row : kCases) {
    Locks gone = OpenElsewhere("gone");
    Locks mine = Open("mine");
    ASSERT_TRUE(Take(gone, "T", "1") && Take(gone, "T", "2"));
    MoveProgramsAway(row.silence);
    EXPECT_NE(Check(mine, "T", "2"), row.alive) << row.silence.count();
    EXPECT_NE(Take(mine, "T", "1"), row.alive) << row.silence.count();
  }
}

TEST_F(LocksTest, ASessionLearnsThatItsLocksWereTakenAway) {
  Locks late = OpenElsewhere("late");
  Locks quick = Open("quick");
  ASSERT_TRUE(Take(late, "T", "1") && Take(late, "T", "2") && Take(late, "U", "3"));
  MoveProgramsAway(1h);
  ASSERT_TRUE(Take(quick, "T", "1"));
  quick.ReleaseAll();

  EXPECT_FALSE(late.Holds("ACC", "T", "1"));
  std::string refusal;
  EXPECT_FALSE(late.Check("ACC", "T", "1", refusal)) << "it was free for others to change";
  EXPECT_EQ(refusal,
            "[920] the lock of item '1' of T was lost, as this program showed no heartbeat for 15 s; "
            "read the item again");
  EXPECT_TRUE(Take(late, "T", "1") && Check(late, "T", "1"));
  EXPECT_FALSE(Check(late, "T", "2"));
  late.Release("ACC", "T", "2");
  late.ReleaseTable("ACC", "U");
  EXPECT_TRUE(Check(late, "T", "2") && Check(late, "U", "3"));
}

TEST_F(LocksTest, TheHeartbeatBeats) {
  Locks locks = Open("locks");
  ASSERT_TRUE(Take(locks, "T", "1"));
  Database file(file_, OpenMode::kExisting, 1000ms);
  Statement read(file, "SELECT heartbeat FROM programs");
  const auto heartbeat = [&read] {
    const ResetAtEnd reset(read);
    return read.Step() ? read.Integer(0) : 0;
  };
  const std::int64_t first = heartbeat();
  for (int tries = 0; tries < 200 && heartbeat() == first; ++tries) std::this_thread::sleep_for(50ms);
  EXPECT_GE(heartbeat(), first + 1900);
}

TEST_F(LocksTest, ADamagedFileIsMadeAnewUnlessOthersUseIt) {
  folder_.Put(file_, std::string(10'000, '#'));
  std::optional<Locks> user(std::in_place, file_, "user", "desk");
  ASSERT_TRUE(Take(*user, "T", "1"));

  Change("PRAGMA wal_checkpoint(TRUNCATE)");
  std::fstream(file_, std::ios::binary | std::ios::in | std::ios::out) << std::string(100, '#');
  const std::string failure = FailureOf([&] { OpenElsewhere("late"); });
  EXPECT_TRUE(failure.starts_with(file_.string() + " is damaged")) << failure;

  user.reset();
  Locks next = Open("next");
  EXPECT_TRUE(Take(next, "T", "1"));
}

TEST_F(LocksTest, AMissingFolderIsToldByName) {
  const std::string failure = FailureOf([&] { Locks(folder_ / "nowhere/locks.sqlite", "late", "desk"); });
  EXPECT_TRUE(failure.starts_with((folder_ / "nowhere/locks.sqlite-gate can't be opened").string()))
      << failure;
}

}  // namespace
}  // namespace nvadmin::engine
