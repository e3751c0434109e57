#include "engine/LockFile.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <system_error>
#include <thread>

#include "engine/CodePage.h"

namespace nvadmin::engine {

namespace fs = std::filesystem;

namespace {

constexpr std::chrono::milliseconds kPatience{3'000};
constexpr std::chrono::milliseconds kLittlePatience{50};  // for so long after it gave up:
constexpr std::chrono::seconds kWary{5};
constexpr int kQuickTries = 1'000;
constexpr std::chrono::microseconds kQuickPause{100};
constexpr std::chrono::microseconds kSlowPause{1'000};

// Whole tables are locked under the ID 0, a number, which no blob equals.
constexpr std::int64_t kWholeTable = 0;

constexpr const char* kMakeTables =
    "CREATE TABLE IF NOT EXISTS programs(number INTEGER PRIMARY KEY AUTOINCREMENT, machine TEXT, pid INTEGER,"
    " started INTEGER, heartbeat INTEGER);"
    "CREATE TABLE IF NOT EXISTS sessions(row INTEGER PRIMARY KEY AUTOINCREMENT, program INTEGER NOT NULL,"
    " number INTEGER NOT NULL UNIQUE, user BLOB, place BLOB, account BLOB, since INTEGER);"
    "CREATE TABLE IF NOT EXISTS locks(account BLOB, tbl BLOB, id BLOB, program INTEGER NOT NULL,"
    " session INTEGER NOT NULL, since INTEGER, PRIMARY KEY(account, tbl, id)) WITHOUT ROWID;"
    "CREATE INDEX IF NOT EXISTS locks_of_session ON locks(program, session);";

constexpr std::string_view kFindObstacle =
    "SELECT l.program, p.machine, p.pid, p.started, p.heartbeat, s.user, s.place FROM locks l"
    " LEFT JOIN programs p ON p.number = l.program LEFT JOIN sessions s ON s.row = l.session"
    " WHERE l.account = ?1 AND l.tbl = ?2 AND l.program <> ?3";

// Parameters 1 to 3.
Statement& BindThing(Statement& statement, const LockedView& thing) {
  statement.BindBlob(1, thing.account).BindBlob(2, thing.table);
  return thing.id ? statement.BindBlob(3, *thing.id) : statement.BindInteger(3, kWholeTable);
}

LockProgram ProgramOf(const Statement& row) {
  return {row.Integer(0), {std::string(row.Text(1)), row.Integer(2), row.Integer(3)}, row.Integer(4)};
}

}  // namespace

std::int64_t MillisecondsNow() {
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  return std::chrono::duration_cast<std::chrono::milliseconds>(now).count();
}

// Who uses the file: every program holds the gate, shared. Who gets it alone is the only user.
class LockFile::Gate {
 public:
  explicit Gate(const fs::path& file)
      : name_(file.native() + "-gate"), handle_(open(name_.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600)) {
    if (handle_ < 0) Fail();
    alone_ = Hold(F_OFD_SETLK, F_WRLCK);
    if (!alone_ && !Hold(F_OFD_SETLKW, F_RDLCK)) Fail();
  }
  ~Gate() { close(handle_); }
  Gate(const Gate&) = delete;
  Gate& operator=(const Gate&) = delete;

  bool IsAlone() const { return alone_; }
  // Lets others in, after a user that was alone has made the file.
  void Share() {
    if (alone_ && !Hold(F_OFD_SETLK, F_RDLCK)) Fail();
    alone_ = false;
  }

 private:
  // Locks of this kind belong to the open file, not to the process.
  bool Hold(int command, short kind) {
    struct flock whole = {};
    whole.l_type = kind;
    whole.l_whence = SEEK_SET;
    while (fcntl(handle_, command, &whole) != 0) {
      if (errno != EINTR) return false;
    }
    return true;
  }

  [[noreturn]] void Fail() {
    const int number = errno;
    if (handle_ >= 0) close(handle_);
    throw StoreFailure(
        fmt::format("{} can't be opened and locked ({}); give this user write permission for the file "
                    "and its folder",
                    ForeignText(name_), std::generic_category().message(number)));
  }

  std::string name_;
  int handle_;
  bool alone_ = false;
};

// Waits for another program's change, which takes microseconds: pauses that grow, as SQLite's own do, would
// let a busy program keep the others out. 0 when it has waited long enough.
int LockFile::PauseBeforeTry(void* file, int tries) {
  LockFile& self = *static_cast<LockFile*>(file);
  const Clock::time_point now = Clock::now();
  if (tries == 0) self.waitingSince_ = now;
  const bool isWary = self.waitingSince_ - self.gaveUpAt_ < kWary;
  if (now - self.waitingSince_ > (isWary ? kLittlePatience : kPatience)) {
    self.gaveUpAt_ = now;
    return 0;
  }
  std::this_thread::sleep_for(tries < kQuickTries ? kQuickPause : kSlowPause);
  return 1;
}

// Removes the file when nobody uses it, then opens it, made where it is missing.
std::unique_ptr<Database> LockFile::Open(const fs::path& file, Gate& gate) {
  if (gate.IsAlone()) RemoveDatabase(file);
  auto database = std::make_unique<Database>(file, OpenMode::kMake, kPatience);
  // Small pages: a lock is a few bytes, and each change writes its pages anew.
  database->Execute("PRAGMA page_size = 1024");
  database->Execute("PRAGMA journal_mode = WAL");
  database->Execute("PRAGMA synchronous = OFF");
  database->Execute(kMakeTables);
  gate.Share();
  return database;
}

LockFile::LockFile(const fs::path& file)
    : gate_(std::make_unique<Gate>(file)),
      database_(Open(file, *gate_)),
      readVersion_(*database_, "PRAGMA data_version"),
      others_(*database_, "SELECT (SELECT min(program) FROM locks), (SELECT max(program) FROM locks)"),
      hasProgram_(*database_, "SELECT 1 FROM programs WHERE number = ?1"),
      beat_(*database_, "UPDATE programs SET heartbeat = ?2 WHERE number = ?1"),
      findItem_(*database_, fmt::format("{} AND l.id IN (?4, {}) LIMIT 1", kFindObstacle, kWholeTable)),
      findTable_(*database_, fmt::format("{} LIMIT 1", kFindObstacle)),
      // What a session of this program couldn't remove at its end doesn't hinder the next.
      add_(*database_,
           "INSERT OR REPLACE INTO locks(account, tbl, id, program, session, since)"
           " VALUES(?1, ?2, ?3, ?4, ?5, ?6)"),
      remove_(*database_, "DELETE FROM locks WHERE account = ?1 AND tbl = ?2 AND id = ?3 AND session = ?4"),
      removeTable_(*database_, "DELETE FROM locks WHERE account = ?1 AND tbl = ?2 AND session = ?3"),
      removeAll_(*database_, "DELETE FROM locks WHERE program = ?1 AND session = ?2") {
  sqlite3_busy_handler(database_->Handle(), PauseBeforeTry, this);
}

LockFile::~LockFile() = default;

std::int64_t LockFile::Version() {
  const ResetAtEnd reset(readVersion_);
  readVersion_.Step();
  return readVersion_.Integer(0);
}

// ---- Programs

std::int64_t LockFile::AddProgram(const ProgramRun& run) {
  Statement add(*database_, "INSERT INTO programs(machine, pid, started, heartbeat) VALUES(?1, ?2, ?3, ?4)");
  add.BindText(1, run.machine).BindInteger(2, run.pid).BindInteger(3, run.started);
  add.BindInteger(4, MillisecondsNow()).Run();
  return sqlite3_last_insert_rowid(database_->Handle());
}

bool LockFile::HasProgram(std::int64_t program) {
  const ResetAtEnd reset(hasProgram_);
  return hasProgram_.BindInteger(1, program).Step();
}

std::vector<LockProgram> LockFile::Programs() {
  Statement read(*database_, "SELECT number, machine, pid, started, heartbeat FROM programs");
  std::vector<LockProgram> programs;
  while (read.Step()) programs.push_back(ProgramOf(read));
  return programs;
}

bool LockFile::Beat(std::int64_t program) {
  beat_.BindInteger(1, program).BindInteger(2, MillisecondsNow()).Run();
  return database_->Changes() > 0;
}

void LockFile::RemoveProgram(std::int64_t program) {
  for (const char* table : {"locks WHERE program", "sessions WHERE program", "programs WHERE number"})
    Statement(*database_, fmt::format("DELETE FROM {} = ?1", table)).BindInteger(1, program).Run();
}

// ---- Sessions

LockFile::Session LockFile::AddSession(std::int64_t program, std::string_view user, std::string_view from,
                                       std::string_view account, std::int64_t since) {
  Statement add(*database_,
                "INSERT INTO sessions(program, number, user, place, account, since)"
                " SELECT ?1, min(number), ?2, ?3, ?4, ?5 FROM"
                " (SELECT 1 AS number UNION ALL SELECT number + 1 FROM sessions)"
                " WHERE number NOT IN (SELECT number FROM sessions) RETURNING row, number");
  add.BindInteger(1, program).BindBlob(2, user).BindBlob(3, from).BindBlob(4, account).BindInteger(5, since);
  add.Step();
  const Session session{add.Integer(0), static_cast<std::int32_t>(add.Integer(1))};
  add.Run();
  return session;
}

void LockFile::SetAccount(std::int64_t session, std::string_view account) {
  Statement set(*database_, "UPDATE sessions SET account = ?2 WHERE row = ?1");
  set.BindInteger(1, session).BindBlob(2, account).Run();
}

void LockFile::RemoveSession(std::int64_t program, std::int64_t session) {
  RemoveLocks(program, session);
  Statement(*database_, "DELETE FROM sessions WHERE row = ?1").BindInteger(1, session).Run();
}

std::vector<ListedSession> LockFile::Sessions() {
  Statement read(*database_,
                 "SELECT number, user, account, place, since, (SELECT count(*) FROM locks l"
                 " WHERE l.program = s.program AND l.session = s.row) FROM sessions s ORDER BY number");
  std::vector<ListedSession> sessions;
  while (read.Step()) {
    sessions.push_back({static_cast<std::int32_t>(read.Integer(0)), std::string(read.Text(1)),
                        std::string(read.Text(2)), std::string(read.Text(3)), read.Integer(4),
                        read.Integer(5)});
  }
  return sessions;
}

// ---- Locks

bool LockFile::OthersHoldLocks(std::int64_t program) {
  const ResetAtEnd reset(others_);
  others_.Step();
  return !others_.IsNull(0) && (others_.Integer(0) != program || others_.Integer(1) != program);
}

std::optional<LockFile::Obstacle> LockFile::FindObstacle(const LockedView& thing, std::int64_t program) {
  Statement& find = thing.id ? findItem_ : findTable_;
  find.BindBlob(1, thing.account).BindBlob(2, thing.table).BindInteger(3, program);
  if (thing.id) find.BindBlob(4, *thing.id);
  const ResetAtEnd reset(find);
  if (!find.Step()) return std::nullopt;
  return Obstacle{ProgramOf(find), std::string(find.Text(5)), std::string(find.Text(6))};
}

void LockFile::AddLock(const LockedView& thing, std::int64_t program, std::int64_t session) {
  BindThing(add_, thing).BindInteger(4, program).BindInteger(5, session).BindInteger(6, MillisecondsNow());
  add_.Run();
}

void LockFile::RemoveLock(const LockedView& thing, std::int64_t session) {
  BindThing(remove_, thing).BindInteger(4, session).Run();
}

void LockFile::RemoveLocksOfTable(std::string_view account, std::string_view table, std::int64_t session) {
  removeTable_.BindBlob(1, account).BindBlob(2, table).BindInteger(3, session).Run();
}

void LockFile::RemoveLocks(std::int64_t program, std::int64_t session) {
  removeAll_.BindInteger(1, program).BindInteger(2, session).Run();
}

std::vector<ListedLock> LockFile::Locks() {
  Statement read(*database_,
                 "SELECT l.account, l.tbl, l.id, s.user, s.place, l.since FROM locks l"
                 " LEFT JOIN sessions s ON s.row = l.session ORDER BY l.account, l.tbl, l.id");
  std::vector<ListedLock> locks;
  while (read.Step()) {
    ListedLock& lock = locks.emplace_back();
    lock.account = read.Text(0);
    lock.table = read.Text(1);
    const bool isItem = sqlite3_column_type(read.Handle(), 2) == SQLITE_BLOB;
    if (isItem) lock.id = read.Text(2);
    lock.user = read.Text(3);
    lock.from = read.Text(4);
    lock.since = read.Integer(5);
  }
  return locks;
}

}  // namespace nvadmin::engine
