// The file locks.sqlite of a home as one program sees it: the programs and sessions that are there, and what
// they have locked. It knows the tables; engine/Locks.h has the rules.
//
// The file holds nothing lasting: whoever finds that no program uses it makes it anew, so what a crash left
// in it, damage included, is gone. The empty file locks.sqlite-gate beside it tells who uses it. Nothing is
// flushed to disk.
//
// Changes of the programs take microseconds. A foreign one that holds the file for longer lets a routine fail
// after 3 s, and until it is over the next ones almost at once, so that sessions don't wait in turn.
//
// Not for several threads at once. Routines that change more than one row require a write transaction on
// Connection(). All may fail with a StoreFailure that names the file. Names and IDs are bytes of the code
// page.
#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "engine/ProgramRun.h"
#include "engine/stores/Sqlite.h"

namespace nvadmin::engine {

// What can be locked: an item of a table, or all of it.
struct LockedView {
  std::string_view account;
  std::string_view table;
  std::optional<std::string_view> id;  // nothing: the whole table
};

// A program that has registered.
struct LockProgram {
  std::int64_t number = 0;  // never used twice
  ProgramRun run;
  std::int64_t heartbeat = 0;  // milliseconds since 1970
};

struct ListedSession {
  std::int32_t number = 0;
  std::string user, account, from;
  std::int64_t since = 0;  // milliseconds since 1970
  std::int64_t locks = 0;
};

struct ListedLock {
  std::string account, table;
  std::optional<std::string> id;  // nothing: the whole table
  std::string user, from;
  std::int64_t since = 0;  // milliseconds since 1970
};

std::int64_t MillisecondsNow();

class LockFile {
 public:
  // What a session is known by in the file.
  struct Session {
    std::int64_t row = 0;     // never used twice; 0: not registered
    std::int32_t number = 0;  // for people: the lowest that no other living session had
  };
  // A lock that stands in somebody's way.
  struct Obstacle {
    LockProgram program;
    std::string user, from;
  };

  explicit LockFile(const std::filesystem::path& file);
  ~LockFile();
  LockFile(const LockFile&) = delete;
  LockFile& operator=(const LockFile&) = delete;

  Database& Connection() { return *database_; }
  // Changes with the commits of other programs, and with those alone.
  std::int64_t Version();

  std::int64_t AddProgram(const ProgramRun& run);
  bool HasProgram(std::int64_t program);
  std::vector<LockProgram> Programs();
  bool Beat(std::int64_t program);           // false when it isn't there
  void RemoveProgram(std::int64_t program);  // with its sessions and locks

  Session AddSession(std::int64_t program, std::string_view user, std::string_view from,
                     std::string_view account, std::int64_t since);
  void SetAccount(std::int64_t session, std::string_view account);
  void RemoveSession(std::int64_t program, std::int64_t session);  // with its locks

  bool OthersHoldLocks(std::int64_t program);
  // A lock of another program on the thing, on its whole table, or, for a whole table, on anything in it.
  std::optional<Obstacle> FindObstacle(const LockedView& thing, std::int64_t program);
  void AddLock(const LockedView& thing, std::int64_t program, std::int64_t session);
  void RemoveLock(const LockedView& thing, std::int64_t session);
  void RemoveLocksOfTable(std::string_view account, std::string_view table, std::int64_t session);
  void RemoveLocks(std::int64_t program, std::int64_t session);

  std::vector<ListedSession> Sessions();  // in order of number
  std::vector<ListedLock> Locks();        // in byte order of account, table and ID

 private:
  class Gate;
  using Clock = std::chrono::steady_clock;

  static int PauseBeforeTry(void* file, int tries);
  static std::unique_ptr<Database> Open(const std::filesystem::path& file, Gate& gate);

  Clock::time_point waitingSince_;
  Clock::time_point gaveUpAt_;
  std::unique_ptr<Gate> gate_;
  std::unique_ptr<Database> database_;
  Statement readVersion_, others_, hasProgram_, beat_;
  Statement findItem_, findTable_, add_, remove_, removeTable_, removeAll_;
};

}  // namespace nvadmin::engine
