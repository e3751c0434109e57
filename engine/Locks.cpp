#include "engine/Locks.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <fstream>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <stop_token>
#include <string>
#include <system_error>
#include <thread>
#include <tuple>
#include <vector>

#include "engine/CodePage.h"
#include "engine/stores/Sqlite.h"

namespace nvadmin::engine {

namespace fs = std::filesystem;

namespace {

constexpr std::chrono::milliseconds kPatience{10'000};
constexpr std::chrono::milliseconds kBeat{2'000};
constexpr std::chrono::milliseconds kStale{15'000};

// Session numbers are never used twice, so a session knows when it was removed. Names and IDs are blobs of
// the code page.
constexpr const char* kMakeTables =
    "CREATE TABLE IF NOT EXISTS sessions(id INTEGER PRIMARY KEY AUTOINCREMENT, holder BLOB, machine TEXT,"
    " pid INTEGER, started INTEGER, heartbeat INTEGER);"
    "CREATE TABLE IF NOT EXISTS locks(account BLOB, tbl BLOB, id BLOB, session INTEGER NOT NULL,"
    " PRIMARY KEY(account, tbl, id)) WITHOUT ROWID;"
    "CREATE INDEX IF NOT EXISTS locks_of_session ON locks(session);";

// Who uses the lock file: every session holds the gate, shared. Who gets it alone is the only user.
class Gate {
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
  // Locks of this kind belong to the open file, so the sessions of one program count each for itself.
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

std::string FirstLine(const std::string& file) {
  std::ifstream stream(file);
  std::string line;
  std::getline(stream, line);
  return line;
}

// One run of one program. `machine` is what makes a pid unique: this boot of this kernel, and the pid
// namespace; empty where the system doesn't tell.
struct Program {
  std::string machine;
  std::int64_t pid = 0;
  std::int64_t started = 0;  // in the system's ticks; 0: not known
};

// When the process began, and whether it is a corpse that its parent hasn't fetched yet.
struct ProcessState {
  std::int64_t started = 0;
  bool dead = false;
};

ProcessState ReadProcessState(std::int64_t pid) {
  const std::string line = FirstLine(fmt::format("/proc/{}/stat", pid));
  // The second field is the program's name in parentheses and may hold anything; the state is the third.
  const std::size_t nameEnd = line.rfind(')');
  if (nameEnd == std::string::npos || line.size() < nameEnd + 3) return {};
  ProcessState state;
  state.dead = line[nameEnd + 2] == 'Z' || line[nameEnd + 2] == 'X';
  std::size_t at = nameEnd + 2;
  constexpr int kFieldsToStart = 19;  // from the state to the time of the start
  for (int field = 0; field < kFieldsToStart && at != std::string::npos; ++field) at = line.find(' ', at + 1);
  if (at != std::string::npos) state.started = std::strtoll(line.c_str() + at + 1, nullptr, 10);
  return state;
}

Program ThisProgram() {
  Program program;
  const std::string boot = FirstLine("/proc/sys/kernel/random/boot_id");
  struct stat space;
  if (!boot.empty() && stat("/proc/self/ns/pid", &space) == 0) {
    program.machine = fmt::format("{}/{}", boot, space.st_ino);
  }
  program.pid = getpid();
  program.started = ReadProcessState(program.pid).started;
  return program;
}

std::int64_t Milliseconds() {
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  return std::chrono::duration_cast<std::chrono::milliseconds>(now).count();
}

bool IsRunning(const Program& program) {
  if (kill(static_cast<pid_t>(program.pid), 0) != 0 && errno == ESRCH) return false;
  const ProcessState state = ReadProcessState(program.pid);
  if (state.dead) return false;
  // A process that can't be looked into counts as the one we mean.
  return state.started == 0 || program.started == 0 || state.started == program.started;
}

// Shows every 2 s that this program lives. There is one for all sessions of the program on a lock file; its
// thread ends with the last of them.
class Heartbeat {
 public:
  static std::shared_ptr<Heartbeat> Of(const fs::path& file, const Program& program) {
    static std::mutex mutex;
    static std::map<fs::path, std::weak_ptr<Heartbeat>> heartbeats;
    const std::lock_guard guard(mutex);
    std::weak_ptr<Heartbeat>& known = heartbeats[file];
    std::shared_ptr<Heartbeat> heartbeat = known.lock();
    if (heartbeat == nullptr) {
      heartbeat = std::make_shared<Heartbeat>(file, program);
      known = heartbeat;
    }
    return heartbeat;
  }

  Heartbeat(const fs::path& file, const Program& program) : file_(file), program_(program) {
    // Signals are for the program's own threads.
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    thread_ = std::jthread([this](const std::stop_token& stop) { Run(stop); });
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
  }

 private:
  void Run(const std::stop_token& stop) {
    std::unique_lock lock(mutex_);
    while (!wake_.wait_for(lock, stop, kBeat, [&stop] { return stop.stop_requested(); })) Beat();
  }

  // A beat that fails (a full disk) is made up for by the next ones; only the seventh in a row makes the
  // program stale.
  void Beat() {
    try {
      Database database(file_, OpenMode::kExisting, kBeat);
      database.Execute("PRAGMA synchronous = OFF");
      Statement update(database,
                       "UPDATE sessions SET heartbeat = ?1 WHERE machine = ?2 AND pid = ?3 AND started = ?4");
      update.BindInteger(1, Milliseconds()).BindText(2, program_.machine).BindInteger(3, program_.pid);
      update.BindInteger(4, program_.started).Run();
    } catch (const StoreFailure&) {
    }
  }

  fs::path file_;
  Program program_;
  std::mutex mutex_;
  std::condition_variable_any wake_;
  std::jthread thread_;  // last: it ends before what it uses
};

struct ItemView {
  std::string_view account;
  std::string_view table;
  std::string_view id;
};

struct Item {
  explicit Item(const ItemView& item) : account(item.account), table(item.table), id(item.id) {}
  operator ItemView() const { return {account, table, id}; }  // NOLINT: a view of itself
  std::string account;
  std::string table;
  std::string id;
};

struct ItemOrder {
  using is_transparent = void;
  bool operator()(const ItemView& a, const ItemView& b) const {
    return std::tie(a.account, a.table, a.id) < std::tie(b.account, b.table, b.id);
  }
};

using ItemSet = std::set<Item, ItemOrder>;

void EraseItem(ItemSet& items, const ItemView& item) {
  const auto found = items.find(item);
  if (found != items.end()) items.erase(found);
}

void EraseTable(ItemSet& items, std::string_view account, std::string_view table) {
  const auto first = items.lower_bound(ItemView{account, table, {}});
  auto last = first;
  while (last != items.end() && last->account == account && last->table == table) ++last;
  items.erase(first, last);
}

struct Owner {
  std::int64_t session = 0;
  std::string holder;
  Program program;
  std::int64_t heartbeat = 0;  // milliseconds since 1970
};

void BindItem(Statement& statement, const ItemView& item) {
  statement.BindBlob(1, item.account).BindBlob(2, item.table).BindBlob(3, item.id);
}

// Removes the file when nobody uses it, then opens it, made where it is missing.
std::unique_ptr<Database> OpenLockFile(const fs::path& file, Gate& gate) {
  if (gate.IsAlone()) RemoveDatabase(file);
  auto database = std::make_unique<Database>(file, OpenMode::kMake, kPatience);
  database->Execute("PRAGMA journal_mode = WAL");
  database->Execute("PRAGMA synchronous = OFF");
  database->Execute(kMakeTables);
  gate.Share();
  return database;
}

}  // namespace

struct Locks::State {
  State(const fs::path& path, std::string_view name)
      : file(fs::absolute(path)),
        holder(name),
        program(ThisProgram()),
        gate(file),
        database(OpenLockFile(file, gate)) {}

  // Learns what changed since the last look.
  void Refresh();
  std::optional<Owner> FindOwner(const ItemView& item);
  bool IsAlive(const Owner& owner) const;
  // Requires a write transaction. True when no other living session holds the item; a dead one loses all its
  // locks.
  bool FreeOfOthers(const ItemView& item, std::string& refusal);
  // Requires a write transaction. Gives the session its row and clears away sessions that died.
  std::int64_t Register();
  // Also requires one. What is known of the others has to be learnt anew.
  void RemoveSession(std::int64_t number);

  fs::path file;
  std::string holder;
  Program program;
  Gate gate;
  std::unique_ptr<Database> database;
  std::shared_ptr<Heartbeat> heartbeat;

  std::int64_t session = 0;  // the number of our row in sessions; 0: none yet
  ItemSet held;
  ItemSet lost;  // held once, until others took us for dead

  // The version changes with the commits of others only. What it stood for is asked after it was read, so a
  // change in between shows the next time.
  std::int64_t version = -1;
  bool quiet = false;  // no other session held any lock at that version

  Statement readVersion{*database, "PRAGMA data_version"};
  Statement look{*database,
                 "SELECT (SELECT min(session) FROM locks), (SELECT max(session) FROM locks),"
                 " EXISTS(SELECT 1 FROM sessions WHERE id = ?1)"};
  Statement find{*database,
                 "SELECT l.session, s.holder, s.machine, s.pid, s.started, s.heartbeat"
                 " FROM locks l LEFT JOIN sessions s ON s.id = l.session"
                 " WHERE l.account = ?1 AND l.tbl = ?2 AND l.id = ?3"};
  Statement take{*database, "INSERT INTO locks(account, tbl, id, session) VALUES(?1, ?2, ?3, ?4)"};
  Statement release{*database,
                    "DELETE FROM locks WHERE account = ?1 AND tbl = ?2 AND id = ?3 AND session = ?4"};
  Statement releaseTable{*database, "DELETE FROM locks WHERE account = ?1 AND tbl = ?2 AND session = ?3"};
  Statement releaseAll{*database, "DELETE FROM locks WHERE session = ?1"};
};

void Locks::State::Refresh() {
  std::int64_t now = version;
  {
    ResetAtEnd reset(readVersion);
    if (readVersion.Step()) now = readVersion.Integer(0);
  }
  if (now == version) return;

  ResetAtEnd reset(look);
  look.BindInteger(1, session).Step();
  quiet = look.IsNull(0) || (look.Integer(0) == session && look.Integer(1) == session);
  if (session != 0 && look.Integer(2) == 0) {
    lost.merge(held);
    held.clear();
    session = 0;
  }
  version = now;
}

std::optional<Owner> Locks::State::FindOwner(const ItemView& item) {
  BindItem(find, item);
  ResetAtEnd reset(find);
  if (!find.Step()) return std::nullopt;
  Owner owner;
  owner.session = find.Integer(0);
  owner.holder = find.Text(1);
  owner.program = {std::string(find.Text(2)), find.Integer(3), find.Integer(4)};
  owner.heartbeat = find.Integer(5);
  return owner;
}

bool Locks::State::IsAlive(const Owner& owner) const {
  if (!program.machine.empty() && owner.program.machine == program.machine) return IsRunning(owner.program);
  const std::int64_t silence = Milliseconds() - owner.heartbeat;
  return silence <= kStale.count() && silence >= -kStale.count();
}

bool Locks::State::FreeOfOthers(const ItemView& item, std::string& refusal) {
  const std::optional<Owner> owner = FindOwner(item);
  if (!owner || owner->session == session) return true;
  if (!IsAlive(*owner)) {
    RemoveSession(owner->session);
    return true;
  }
  refusal = fmt::format("[920] item '{}' of {} is locked by {}", item.id, item.table, owner->holder);
  return false;
}

std::int64_t Locks::State::Register() {
  std::vector<std::int64_t> dead;
  Statement others(*database, "SELECT id, machine, pid, started, heartbeat FROM sessions");
  while (others.Step()) {
    const Owner owner{others.Integer(0),
                      {},
                      {std::string(others.Text(1)), others.Integer(2), others.Integer(3)},
                      others.Integer(4)};
    if (!IsAlive(owner)) dead.push_back(owner.session);
  }
  for (const std::int64_t number : dead) RemoveSession(number);

  Statement add(*database,
                "INSERT INTO sessions(holder, machine, pid, started, heartbeat) VALUES(?1, ?2, ?3, ?4, ?5)");
  add.BindBlob(1, holder).BindText(2, program.machine).BindInteger(3, program.pid);
  add.BindInteger(4, program.started).BindInteger(5, Milliseconds()).Run();
  return sqlite3_last_insert_rowid(database->Handle());
}

void Locks::State::RemoveSession(std::int64_t number) {
  version = -1;
  releaseAll.BindInteger(1, number).Run();
  Statement(*database, "DELETE FROM sessions WHERE id = ?1").BindInteger(1, number).Run();
}

Locks::Locks(const fs::path& file, std::string_view holder) : state_(std::make_unique<State>(file, holder)) {}

Locks::~Locks() {
  if (state_->session == 0) return;
  try {
    WriteTransaction transaction(*state_->database);
    state_->RemoveSession(state_->session);
    transaction.Commit();
  } catch (const StoreFailure&) {
    // The locks stay until this program ends; there is nobody left to tell.
  }
}

bool Locks::Take(std::string_view account, std::string_view table, std::string_view id,
                 std::string& refusal) {
  const ItemView item{account, table, id};
  if (Holds(account, table, id)) return true;

  // The heartbeat runs before the lock is there for others to judge.
  if (state_->heartbeat == nullptr) state_->heartbeat = Heartbeat::Of(state_->file, state_->program);
  WriteTransaction transaction(*state_->database);
  state_->Refresh();
  if (!state_->FreeOfOthers(item, refusal)) return false;
  const std::int64_t session = state_->session != 0 ? state_->session : state_->Register();
  BindItem(state_->take, item);
  state_->take.BindInteger(4, session).Run();
  transaction.Commit();

  state_->session = session;
  EraseItem(state_->lost, item);
  state_->held.emplace(item);
  return true;
}

bool Locks::Check(std::string_view account, std::string_view table, std::string_view id,
                  std::string& refusal) {
  State& state = *state_;
  state.Refresh();
  if (state.quiet && state.lost.empty()) return true;

  const ItemView item{account, table, id};
  if (state.lost.contains(item)) {
    refusal = fmt::format(
        "[920] the lock of item '{}' of {} was lost, as this program showed no heartbeat for {} s; "
        "read the item again",
        id, table, kStale.count() / 1000);
    return false;
  }
  const std::optional<Owner> owner = state.FindOwner(item);
  if (!owner || owner->session == state.session) return true;
  WriteTransaction transaction(*state.database);
  if (!state.FreeOfOthers(item, refusal)) return false;
  transaction.Commit();
  return true;
}

bool Locks::Holds(std::string_view account, std::string_view table, std::string_view id) const {
  const ItemView item{account, table, id};
  if (!state_->held.contains(item)) return false;
  state_->Refresh();
  return state_->held.contains(item);
}

void Locks::Release(std::string_view account, std::string_view table, std::string_view id) {
  const ItemView item{account, table, id};
  EraseItem(state_->lost, item);
  const auto held = state_->held.find(item);
  if (held == state_->held.end()) return;
  BindItem(state_->release, item);
  state_->release.BindInteger(4, state_->session).Run();
  state_->held.erase(held);
}

void Locks::ReleaseTable(std::string_view account, std::string_view table) {
  EraseTable(state_->lost, account, table);
  const auto first = state_->held.lower_bound(ItemView{account, table, {}});
  if (first == state_->held.end() || first->account != account || first->table != table) return;
  state_->releaseTable.BindBlob(1, account).BindBlob(2, table).BindInteger(3, state_->session).Run();
  EraseTable(state_->held, account, table);
}

void Locks::ReleaseAll() {
  state_->lost.clear();
  if (state_->held.empty()) return;
  state_->releaseAll.BindInteger(1, state_->session).Run();
  state_->held.clear();
}

}  // namespace nvadmin::engine
