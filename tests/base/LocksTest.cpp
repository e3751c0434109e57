// Item locks between sessions, threads and programs; what dies gives its locks back, what lives keeps them.
#include "engine/Locks.h"

#include <gtest/gtest.h>
#include <signal.h>

#include <array>
#include <atomic>
#include <fstream>
#include <map>
#include <optional>
#include <random>
#include <thread>

#include "engine/stores/Sqlite.h"
#include "tests/base/TemporaryFolder.h"

namespace nvadmin::engine {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

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

TEST(Locks, OneHolderAtATime) {
  const TemporaryFolder folder;
  Locks anna(folder / "locks.sqlite", "anna at pts/3");
  Locks bert(folder / "locks.sqlite", "bert at pts/4");
  ASSERT_TRUE(Take(anna, "STOCK", "1"));
  EXPECT_TRUE(Take(anna, "STOCK", "1")) << "again by its holder";
  EXPECT_TRUE(anna.Holds("ACC", "STOCK", "1"));
  EXPECT_TRUE(Check(anna, "STOCK", "1"));

  std::string refusal;
  EXPECT_FALSE(bert.Take("ACC", "STOCK", "1", refusal));
  EXPECT_EQ(refusal, "[920] item '1' of STOCK is locked by anna at pts/3");
  refusal.clear();
  EXPECT_FALSE(bert.Check("ACC", "STOCK", "1", refusal));
  EXPECT_EQ(refusal, "[920] item '1' of STOCK is locked by anna at pts/3");
  EXPECT_FALSE(bert.Holds("ACC", "STOCK", "1"));

  bert.Release("ACC", "STOCK", "1");
  EXPECT_FALSE(Check(bert, "STOCK", "1")) << "another can't release it";
  anna.Release("ACC", "STOCK", "1");
  EXPECT_FALSE(anna.Holds("ACC", "STOCK", "1"));
  EXPECT_TRUE(Take(bert, "STOCK", "1"));
  EXPECT_FALSE(Check(anna, "STOCK", "1"));
}

// Account, table and ID together are the lock, each byte for byte.
TEST(Locks, WhatLooksAlikeIsNotTheSame) {
  const TemporaryFolder folder;
  Locks one(folder / "locks.sqlite", "one");
  Locks other(folder / "locks.sqlite", "other");
  const std::string nul("a\0b", 3);
  const std::array<std::string, 3> items[] = {
      {"A", "T", "1"},        {"A", "T", "01"},
      {"A", "t", "1"},        {"B", "T", "1"},
      {"A", "T", ""},         {"A", "T", "a"},
      {"A", "T", nul},        {"AT", "", "1"},
      {"", "AT", "1"},        {"A", "T", "1 "},
      {"A", "T", "\xFE"},     {"A", "T", "\xE9"},
      {"A", "T", "\xC3\xA9"}, {"A", "T", std::string(10'000, 'x')},
  };
  std::string refusal;
  for (const auto& item : items) ASSERT_TRUE(other.Check(item[0], item[1], item[2], refusal)) << refusal;
  for (const auto& item : items) {
    ASSERT_TRUE(other.Check(item[0], item[1], item[2], refusal)) << refusal;
    ASSERT_TRUE(one.Take(item[0], item[1], item[2], refusal)) << refusal;
    ASSERT_FALSE(other.Check(item[0], item[1], item[2], refusal)) << item[2];
  }
}

TEST(Locks, ReleaseByItemByTableAndByTheSessionsEnd) {
  const TemporaryFolder folder;
  std::optional<Locks> holder(std::in_place, folder / "locks.sqlite", "holder");
  Locks other(folder / "locks.sqlite", "other");
  for (const char* table : {"A", "B", "B2", "C"}) {
    for (const char* id : {"", "1", "2"}) ASSERT_TRUE(Take(*holder, table, id));
  }
  ASSERT_TRUE(Take(other, "B", "3"));

  holder->ReleaseTable("ACC", "B");
  for (const char* id : {"", "1", "2"}) {
    EXPECT_FALSE(holder->Holds("ACC", "B", id));
    EXPECT_TRUE(Check(other, "B", id));
    EXPECT_FALSE(Check(other, "A", id));
    EXPECT_FALSE(Check(other, "B2", id));
  }
  EXPECT_FALSE(Check(*holder, "B", "3")) << "another's lock of the same table stays";

  holder->ReleaseAll();
  EXPECT_TRUE(Check(other, "A", "1") && Check(other, "C", "2"));
  EXPECT_TRUE(Take(*holder, "D", "1"));
  EXPECT_FALSE(Check(other, "D", "1"));
  holder.reset();
  EXPECT_TRUE(Take(other, "D", "1"));
}

// Check looks at nothing but the file's version while all is quiet; it mustn't sleep through what comes then.
TEST(Locks, AQuietCheckWakesUp) {
  const TemporaryFolder folder;
  Locks writer(folder / "locks.sqlite", "writer");
  Locks other(folder / "locks.sqlite", "other");
  for (int round = 0; round < 20; ++round) {
    for (int quiet = 0; quiet < 3; ++quiet) ASSERT_TRUE(Check(writer, "T", "1")) << round;
    ASSERT_TRUE(Take(writer, "T", "own")) << "own changes don't blind it";
    ASSERT_TRUE(Take(other, "T", "1"));
    ASSERT_FALSE(Check(writer, "T", "1")) << round;
    ASSERT_TRUE(Check(writer, "T", "2")) << round;
    other.Release("ACC", "T", "1");
    ASSERT_TRUE(Check(writer, "T", "1")) << round;
    if (round % 2 != 0) writer.ReleaseAll();
  }
}

TEST(Locks, ThreadsNeverHoldTheSameItemTogether) {
  const TemporaryFolder folder;
  std::atomic<bool> inside = false;
  std::atomic<int> turns = 0;
  {
    std::vector<std::jthread> threads;
    for (int n = 0; n < 4; ++n) {
      threads.emplace_back([&, n] {
        Locks locks(folder / "locks.sqlite", "thread " + std::to_string(n));
        for (int own = 0; own < 25;) {
          std::string refusal;
          if (!locks.Take("ACC", "T", "counter", refusal)) {
            std::this_thread::yield();
            continue;
          }
          EXPECT_FALSE(inside.exchange(true));
          EXPECT_TRUE(inside.exchange(false));
          ++turns;
          ++own;
          locks.Release("ACC", "T", "counter");
        }
      });
    }
  }
  EXPECT_EQ(turns, 100);
}

// Random operations of several sessions, which also come and go, against a map from item to session.
TEST(Locks, RandomOperationsAgreeWithAMap) {
  const unsigned seed = std::random_device{}();
  std::mt19937 random(seed);
  const TemporaryFolder folder;
  constexpr std::size_t kSessions = 3;
  std::array<std::unique_ptr<Locks>, kSessions> sessions;
  std::map<std::pair<std::string, std::string>, std::size_t> holders;
  const auto drop = [&holders](std::size_t session, const std::string* table) {
    std::erase_if(holders, [&](const auto& lock) {
      return lock.second == session && (table == nullptr || lock.first.first == *table);
    });
  };
  for (int step = 0; step < 4000; ++step) {
    SCOPED_TRACE("seed " + std::to_string(seed) + ", step " + std::to_string(step));
    const std::size_t mine = random() % kSessions;
    std::unique_ptr<Locks>& session = sessions[mine];
    if (session == nullptr) session = std::make_unique<Locks>(folder / "locks.sqlite", std::to_string(mine));
    const std::string table(1, static_cast<char>('A' + random() % 3));
    const std::string id = std::to_string(random() % 4);
    const auto holder = holders.find({table, id});
    const bool free = holder == holders.end() || holder->second == mine;
    const auto operation = random() % 20;
    if (operation < 7) {
      ASSERT_EQ(Take(*session, table, id), free);
      if (free) holders[{table, id}] = mine;
    } else if (operation < 12) {
      ASSERT_EQ(Check(*session, table, id), free);
    } else if (operation < 14) {
      ASSERT_EQ(session->Holds("ACC", table, id), free && holder != holders.end());
    } else if (operation < 17) {
      session->Release("ACC", table, id);
      if (free) holders.erase({table, id});
    } else if (operation < 18) {
      session->ReleaseTable("ACC", table);
      drop(mine, &table);
    } else if (operation < 19) {
      session->ReleaseAll();
      drop(mine, nullptr);
    } else {
      session.reset();
      drop(mine, nullptr);
    }
  }
}

// Another program that has taken the items 1 and 2 of T when the constructor returns.
class OtherProgram {
 public:
  explicit OtherProgram(const fs::path& file) {
    int ready[2];
    if (pipe(ready) != 0) return;
    pid_ = fork();
    if (pid_ == 0) {
      Locks locks(file, "other program");
      std::string refusal;
      const bool taken = locks.Take("ACC", "T", "1", refusal) && locks.Take("ACC", "T", "2", refusal);
      if (write(ready[1], taken ? "y" : "n", 1) != 1) _exit(1);
      for (;;) pause();
    }
    close(ready[1]);
    char answer = 'n';
    holds_ = read(ready[0], &answer, 1) == 1 && answer == 'y';
    close(ready[0]);
  }
  ~OtherProgram() {
    Send(SIGKILL);
    waitpid(pid_, nullptr, 0);
  }
  OtherProgram(const OtherProgram&) = delete;
  OtherProgram& operator=(const OtherProgram&) = delete;

  bool Holds() const { return holds_; }
  void Send(int number) const { kill(pid_, number); }
  // Waits until it is dead, but leaves the corpse.
  void Kill() const {
    Send(SIGKILL);
    siginfo_t info;
    waitid(P_PID, static_cast<id_t>(pid_), &info, WEXITED | WNOWAIT);
  }

 private:
  pid_t pid_ = -1;
  bool holds_ = false;
};

TEST(Locks, AKilledProgramLosesItsLocksAtOnce) {
  const TemporaryFolder folder;
  const OtherProgram other(folder / "locks.sqlite");
  ASSERT_TRUE(other.Holds());
  Locks mine(folder / "locks.sqlite", "mine");
  std::string refusal;
  EXPECT_FALSE(mine.Take("ACC", "T", "1", refusal));
  EXPECT_EQ(refusal, "[920] item '1' of T is locked by other program");
  EXPECT_FALSE(Check(mine, "T", "2"));
  other.Kill();
  EXPECT_TRUE(Check(mine, "T", "2"));
  EXPECT_TRUE(Take(mine, "T", "1"));
}

TEST(Locks, WhatACrashLeftIsGoneWhenNobodyElseIsThere) {
  const TemporaryFolder folder;
  const OtherProgram other(folder / "locks.sqlite");
  ASSERT_TRUE(other.Holds());
  other.Kill();
  Locks mine(folder / "locks.sqlite", "mine");
  EXPECT_TRUE(Take(mine, "T", "1"));
  Database file(folder / "locks.sqlite", OpenMode::kExisting, 1000ms);
  Statement count(file, "SELECT (SELECT count(*) FROM locks), (SELECT count(*) FROM sessions)");
  ASSERT_TRUE(count.Step());
  EXPECT_EQ(count.Integer(0), 1);
  EXPECT_EQ(count.Integer(1), 1);
}

// Makes all sessions look as if their programs ran on another machine and had been silent for so long.
void MoveSessionsAway(const fs::path& file, std::chrono::milliseconds silence) {
  Database database(file, OpenMode::kExisting, 1000ms);
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  Statement(database, "UPDATE sessions SET machine = 'elsewhere', heartbeat = ?1")
      .BindInteger(1, std::chrono::duration_cast<std::chrono::milliseconds>(now - silence).count())
      .Run();
}

TEST(Locks, AStoppedProgramOfThisMachineKeepsItsLocks) {
  const TemporaryFolder folder;
  const OtherProgram other(folder / "locks.sqlite");
  ASSERT_TRUE(other.Holds());
  other.Send(SIGSTOP);
  Database(folder / "locks.sqlite", OpenMode::kExisting, 1000ms).Execute("UPDATE sessions SET heartbeat = 0");
  Locks mine(folder / "locks.sqlite", "mine");
  EXPECT_FALSE(Take(mine, "T", "1"));
  // A pid that now belongs to another run of a program doesn't count.
  Database(folder / "locks.sqlite", OpenMode::kExisting, 1000ms)
      .Execute("UPDATE sessions SET started = started - 1");
  EXPECT_TRUE(Take(mine, "T", "1"));
}

TEST(Locks, ElsewhereTheHeartbeatCounts) {
  const struct {
    std::chrono::milliseconds silence;
    bool alive;
  } kCases[] = {{0s, true}, {13s, true}, {17s, false}, {24h, false}, {-13s, true}, {-1h, false}};
  for (const auto& row : kCases) {
    const TemporaryFolder folder;
    Locks gone(folder / "locks.sqlite", "gone");
    Locks mine(folder / "locks.sqlite", "mine");
    ASSERT_TRUE(Take(gone, "T", "1") && Take(gone, "T", "2"));
    MoveSessionsAway(folder / "locks.sqlite", row.silence);
    EXPECT_NE(Check(mine, "T", "2"), row.alive) << row.silence.count();
    EXPECT_NE(Take(mine, "T", "1"), row.alive) << row.silence.count();
  }
}

TEST(Locks, ASessionLearnsThatItsLocksWereTakenAway) {
  const TemporaryFolder folder;
  Locks late(folder / "locks.sqlite", "late");
  Locks quick(folder / "locks.sqlite", "quick");
  ASSERT_TRUE(Take(late, "T", "1") && Take(late, "T", "2") && Take(late, "U", "3"));
  MoveSessionsAway(folder / "locks.sqlite", 1h);
  ASSERT_TRUE(Take(quick, "T", "1"));
  quick.ReleaseAll();

  EXPECT_FALSE(late.Holds("ACC", "T", "1"));
  std::string refusal;
  EXPECT_FALSE(late.Check("ACC", "T", "1", refusal)) << "it was free for others to change";
  EXPECT_EQ(refusal,
            "[920] the lock of item '1' of T was lost, as this program showed no heartbeat for 15 s; "
            "read the item again");
  EXPECT_TRUE(Take(late, "T", "1"));
  EXPECT_TRUE(Check(late, "T", "1"));
  EXPECT_FALSE(Check(quick, "T", "1"));
  EXPECT_FALSE(Check(late, "T", "2"));
  late.Release("ACC", "T", "2");
  EXPECT_TRUE(Check(late, "T", "2"));
  late.ReleaseTable("ACC", "U");
  EXPECT_TRUE(Check(late, "U", "3"));
}

TEST(Locks, TheHeartbeatBeats) {
  const TemporaryFolder folder;
  Locks locks(folder / "locks.sqlite", "locks");
  ASSERT_TRUE(Take(locks, "T", "1"));
  Database file(folder / "locks.sqlite", OpenMode::kExisting, 1000ms);
  Statement read(file, "SELECT heartbeat FROM sessions");
  const auto heartbeat = [&read] {
    const ResetAtEnd reset(read);
    return read.Step() ? read.Integer(0) : 0;
  };
  const std::int64_t first = heartbeat();
  const auto end = std::chrono::steady_clock::now() + 10s;
  while (heartbeat() == first && std::chrono::steady_clock::now() < end) std::this_thread::sleep_for(50ms);
  EXPECT_GE(heartbeat(), first + 1900);
  EXPECT_LE(heartbeat(), first + 12'000);
}

TEST(Locks, ADamagedFileIsMadeAnewUnlessOthersUseIt) {
  const TemporaryFolder folder;
  const fs::path file = folder / "locks.sqlite";
  std::ofstream(file) << std::string(10'000, '#');
  std::optional<Locks> user(std::in_place, file, "user");
  ASSERT_TRUE(Take(*user, "T", "1"));

  Database(file, OpenMode::kExisting, 1000ms).Execute("PRAGMA wal_checkpoint(TRUNCATE)");
  std::fstream(file, std::ios::binary | std::ios::in | std::ios::out) << std::string(100, '#');
  const std::string failure = FailureOf([&] { Locks(file, "late"); });
  EXPECT_EQ(failure.find(file.string() + " is damaged"), 0U) << failure;
  EXPECT_NE(failure.find("end all programs that use it"), std::string::npos) << failure;

  user.reset();
  Locks next(file, "next");
  EXPECT_TRUE(Take(next, "T", "1"));
}

TEST(Locks, AFolderThatIsMissingIsNamed) {
  const TemporaryFolder folder;
  const std::string failure = FailureOf([&] { Locks(folder / "none/locks.sqlite", "x"); });
  EXPECT_EQ(failure,
            (folder / "none/locks.sqlite-gate").string() +
                " can't be opened and locked (No such file or directory); give this user write permission "
                "for the file and its folder");
}

}  // namespace
}  // namespace nvadmin::engine
