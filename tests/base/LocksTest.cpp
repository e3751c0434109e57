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
#include "tests/support/TemporaryFolder.h"

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

// Account, table and ID together are the lock, each byte for byte.
TEST(Locks, WhatLooksAlikeIsNotTheSame) {
  const TemporaryFolder folder;
  Locks one(folder / "locks.sqlite", "one");
  Locks other(folder / "locks.sqlite", "other");
  const std::string nul("a\0b", 3);
  const std::array<std::string, 3> items[] = {
      {"A", "T", "1"}, {"A", "T", "01"}, {"A", "t", "1"}, {"B", "T", "1"}, {"A", "T", ""},
      {"A", "T", nul}, {"A", "T", "a"},  {"AT", "", "1"}, {"", "AT", "1"}, {"A", "T", "\xFE"},
  };
  std::string refusal;
  for (const auto& item : items) {
    ASSERT_TRUE(other.Check(item[0], item[1], item[2], refusal)) << refusal;
    ASSERT_TRUE(one.Take(item[0], item[1], item[2], refusal)) << refusal;
    ASSERT_FALSE(other.Check(item[0], item[1], item[2], refusal)) << item[2];
  }
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
  std::vector<std::jthread> threads;
  for (int n = 0; n < 4; ++n) {
    threads.emplace_back([&, n] {
      Locks locks(folder / "locks.sqlite", "thread " + std::to_string(n));
      for (int own = 0; own < 25;) {
        if (!Take(locks, "T", "counter")) {
          std::this_thread::yield();
          continue;
        }
        EXPECT_FALSE(inside.exchange(true));
        EXPECT_TRUE(inside.exchange(false));
        ++own;
        locks.Release("ACC", "T", "counter");
      }
    });
  }
}

// Random operations of several sessions, which also come and go, against a map from item to session.
TEST(Locks, RandomOperationsAgreeWithAMap) {
  const unsigned seed = std::random_device{}();
  std::mt19937 random(seed);
  const TemporaryFolder folder;
  constexpr std::size_t kSessions = 3;
  constexpr const char* kTables[] = {"B", "B2", "b"};
  constexpr const char* kIds[] = {"", "1", "2", "12"};
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
    const std::string table = kTables[random() % 3];
    const std::string id = kIds[random() % 4];
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
    EXPECT_EQ(pipe(ready), 0);
    pid_ = fork();
    if (pid_ == 0) {
      Locks locks(file, "other program");
      if (!Take(locks, "T", "1") || !Take(locks, "T", "2") || write(ready[1], "y", 1) != 1) _exit(1);
      for (;;) pause();
    }
    close(ready[1]);
    char answer = 'n';
    EXPECT_EQ(read(ready[0], &answer, 1), 1) << "the other program has no locks";
    close(ready[0]);
  }
  ~OtherProgram() {
    Send(SIGKILL);
    waitpid(pid_, nullptr, 0);
  }
  OtherProgram(const OtherProgram&) = delete;
  OtherProgram& operator=(const OtherProgram&) = delete;

  void Send(int number) const { kill(pid_, number); }
  // Waits until it is dead, but leaves the corpse.
  void Kill() const {
    Send(SIGKILL);
    siginfo_t info;
    waitid(P_PID, static_cast<id_t>(pid_), &info, WEXITED | WNOWAIT);
  }

 private:
  pid_t pid_ = -1;
};

TEST(Locks, AKilledProgramLosesItsLocksAtOnce) {
  const TemporaryFolder folder;
  const OtherProgram other(folder / "locks.sqlite");
  Locks mine(folder / "locks.sqlite", "mine");
  std::string refusal;
  EXPECT_FALSE(mine.Take("ACC", "T", "1", refusal));
  EXPECT_EQ(refusal, "[920] item '1' of T is locked by other program");
  EXPECT_FALSE(mine.Check("ACC", "T", "2", refusal));
  EXPECT_EQ(refusal, "[920] item '2' of T is locked by other program");
  other.Kill();
  EXPECT_TRUE(Check(mine, "T", "2"));
  EXPECT_TRUE(Take(mine, "T", "1"));
}

void Change(const fs::path& file, const char* sql) {
  Database(file, OpenMode::kExisting, 1000ms).Execute(sql);
}

// Makes all sessions look as if their programs ran on another machine and had been silent for so long.
void MoveSessionsAway(const fs::path& file, std::chrono::seconds silence) {
  const std::string milliseconds = std::to_string(std::chrono::milliseconds(silence).count());
  Change(file, ("UPDATE sessions SET machine = 'elsewhere', heartbeat = unixepoch() * 1000 - " + milliseconds)
                   .c_str());
}

TEST(Locks, AStoppedProgramOfThisMachineKeepsItsLocks) {
  const TemporaryFolder folder;
  const OtherProgram other(folder / "locks.sqlite");
  other.Send(SIGSTOP);
  Change(folder / "locks.sqlite", "UPDATE sessions SET heartbeat = 0");
  Locks mine(folder / "locks.sqlite", "mine");
  EXPECT_FALSE(Take(mine, "T", "1"));
  // A pid that now belongs to another run of a program doesn't count.
  Change(folder / "locks.sqlite", "UPDATE sessions SET started = started - 1");
  EXPECT_TRUE(Take(mine, "T", "1"));
}

TEST(Locks, ElsewhereTheHeartbeatCounts) {
  const struct {
    std::chrono::seconds silence;
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
  EXPECT_TRUE(Take(late, "T", "1") && Check(late, "T", "1"));
  EXPECT_FALSE(Check(late, "T", "2"));
  late.Release("ACC", "T", "2");
  late.ReleaseTable("ACC", "U");
  EXPECT_TRUE(Check(late, "T", "2") && Check(late, "U", "3"));
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
  for (int tries = 0; tries < 200 && heartbeat() == first; ++tries) std::this_thread::sleep_for(50ms);
  EXPECT_GE(heartbeat(), first + 1900);
}

TEST(Locks, ADamagedFileIsMadeAnewUnlessOthersUseIt) {
  const TemporaryFolder folder;
  const fs::path file = folder / "locks.sqlite";
  folder.Put(file, std::string(10'000, '#'));
  std::optional<Locks> user(std::in_place, file, "user");
  ASSERT_TRUE(Take(*user, "T", "1"));

  Change(file, "PRAGMA wal_checkpoint(TRUNCATE)");
  std::fstream(file, std::ios::binary | std::ios::in | std::ios::out) << std::string(100, '#');
  const std::string failure = FailureOf([&] { Locks(file, "late"); });
  EXPECT_TRUE(failure.starts_with(file.string() + " is damaged")) << failure;

  user.reset();
  Locks next(file, "next");
  EXPECT_TRUE(Take(next, "T", "1"));
}

}  // namespace
}  // namespace nvadmin::engine
