#include "engine/ServerLocks.h"

#include <fmt/format.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <stop_token>
#include <thread>
#include <tuple>

#include "engine/SignalsBlocked.h"

namespace nvadmin::engine {

namespace {

constexpr std::chrono::seconds kBeat{2};
constexpr int kStaleMs = 15'000;
constexpr int kSurelyThereMs = 10'000;  // behind its last beat nobody takes a program for dead
constexpr int kGapMs = 6'000;           // between beats: then they aren't even
constexpr int kEvenBeatsMs = 4'000;     // for so long, and others may be judged
// Who may not judge yet whether a holder is dead waits so long and looks so often.
constexpr std::chrono::milliseconds kMostPatience{8'000}, kGlance{250};
// Those that died without a lock that others met are removed in the end: soon behind the start of another,
// and then now and then.
constexpr int kForgottenMs = 24 * 3600 * 1000;
constexpr int kBeatsBetweenSweeps = 1000, kFirstSweep = 5;
constexpr std::size_t kMostKnownOthers = 1000;
constexpr int kMostTries = 20;
// A beat that hangs has to fail while there is time for the next.
constexpr std::uint32_t kBeatConnectSeconds = 3, kBeatAnswerSeconds = 8;
constexpr std::uint32_t kLockAnswerSeconds = 20;

// Milliseconds since 1970, by the database's clock and whatever its time zone.
constexpr std::string_view kNow = "(TIMESTAMPDIFF(MICROSECOND, '1970-01-01', UTC_TIMESTAMP(3)) DIV 1000)";
// A whole table has a digest that no item has.
constexpr std::string_view kWholeDigest = "REPEAT(x'00', 32)";
constexpr std::string_view kItemDigest = "UNHEX(SHA2(?, 256))";

// For sessions and claims of this program.
std::int64_t NextNumber() {
  static std::atomic<std::int64_t> last = 0;
  return ++last;
}

std::string HostName() {
  std::array<char, 256> name{};
  return gethostname(name.data(), name.size() - 1) == 0 ? name.data() : "an unknown host";
}

// Also while this machine sleeps.
std::int64_t LocalMilliseconds() {
  timespec time{};
  clock_gettime(CLOCK_BOOTTIME, &time);
  return std::int64_t{time.tv_sec} * 1000 + time.tv_nsec / 1'000'000;
}

// A clock that was set back leaves beats that lie ahead of it.
std::string StaleCondition(std::string_view beat, int limitMs) {
  return fmt::format("ABS({} - {}) > {}", kNow, beat, limitMs);
}

// Whether a program may take others for dead.
std::string JudgeCondition(std::int64_t program) {
  return fmt::format(
      "EXISTS (SELECT 1 FROM nvadmin_programs j "
      "WHERE j.number = {} AND ABS({} - j.beat) < {} AND {} - j.steady >= {})",
      program, kNow, kGapMs, kNow, kEvenBeatsMs);
}

MariaAddress WithTimeouts(MariaAddress address, std::uint32_t connectSeconds, std::uint32_t answerSeconds) {
  address.connectSeconds = std::min(address.connectSeconds, connectSeconds);
  address.answerSeconds = std::min(address.answerSeconds, answerSeconds);
  return address;
}

// A statement that is a transaction of its own. What the server undid, since two were in each other's way, is
// said again.
std::uint64_t Change(MariaConnection& connection, const std::string& sql,
                     std::span<const std::string_view> parameters) {
  for (int tries = 1;; ++tries) {
    try {
      return connection.Change(sql, parameters, IfLost::kAgain);
    } catch (const MariaFailure& failure) {
      if (failure.Code() != maria_error::kDeadlock || tries == kMostTries) throw;
    }
  }
}

// Rows of a session, by their claims.
struct Claims {
  std::int64_t program, session, first, last;
};

void Remove(MariaConnection& connection, const Claims& claims) {
  const std::string first = std::to_string(claims.first), last = std::to_string(claims.last);
  const std::string_view parameters[] = {first, last};
  Change(
      connection,
      fmt::format("DELETE FROM nvadmin_locks WHERE program = {} AND session = {} AND claim BETWEEN ? AND ?",
                  claims.program, claims.session),
      parameters);
}

}  // namespace

// What the sessions of this program share on one database: the program's row, and the thread that keeps it
// alive.
class ServerLocks::Program {
 public:
  static std::shared_ptr<Program> Of(const StorePlace& place, const std::string& name);

  Program(const StorePlace& place, const std::string& name)
      : connection_(WithTimeouts(place.address, kBeatConnectSeconds, kBeatAnswerSeconds), place.password,
                    name) {
    Register(connection_);
    const SignalsBlocked blocked;
    heartbeat_ = std::jthread([this](const std::stop_token& stop) { BeatUntil(stop); });
  }
  ~Program() {
    heartbeat_ = {};
    // Without a word others find in time that there is no heartbeat.
    if (!IsSurelyThere(number_)) return;
    try {
      const std::string number = std::to_string(number_.load());
      const std::string_view parameters[] = {number};
      Change(connection_, "DELETE FROM nvadmin_locks WHERE program = ?", parameters);
      Change(connection_, "DELETE FROM nvadmin_programs WHERE number = ?", parameters);
    } catch (const StoreFailure&) {
    }
  }

  std::int64_t Number() const { return number_; }
  // False: only the database knows.
  bool IsSurelyThere(std::int64_t number) const {
    // In this order: the number that has beaten is known no later than its beat.
    const bool hasBeaten = LocalMilliseconds() - lastBeat_ < kSurelyThereMs;
    return hasBeaten && number_ == number;
  }
  // Another number, when others have removed this one.
  void Renew(MariaConnection& connection, std::int64_t removed) {
    const std::lock_guard guard(renewing_);
    if (number_ == removed) Register(connection);
  }
  // What a session couldn't remove itself.
  void LeaveBehind(const Claims& claims) {
    const std::lock_guard guard(mutex_);
    leftBehind_.push_back(claims);
  }

 private:
  void Register(MariaConnection& connection) {
    const std::int64_t begun = LocalMilliseconds();
    const std::string add =
        fmt::format("INSERT INTO nvadmin_programs (beat, steady) VALUES ({0}, {0}) RETURNING number", kNow);
    number_ = connection.Query(add, {}, IfLost::kAgain).Integer(0, 0);
    lastBeat_ = begun;
  }

  void Beat() {
    const std::int64_t begun = LocalMilliseconds();
    const std::int64_t beating = number_;
    const std::string number = std::to_string(beating);
    const std::string_view parameters[] = {number};
    const std::string beat = fmt::format(
        "UPDATE nvadmin_programs SET steady = IF(ABS({0} - beat) > {1}, {0}, steady), beat = {0} "
        "WHERE number = ?",
        kNow, kGapMs);
    if (Change(connection_, beat, parameters) == 0) return Renew(connection_, beating);
    lastBeat_ = begun;
    if (++beats_ % kBeatsBetweenSweeps != kFirstSweep) return;
    Change(connection_,
           fmt::format("DELETE FROM nvadmin_programs WHERE {} AND {}", StaleCondition("beat", kForgottenMs),
                       JudgeCondition(number_)),
           {});
  }

  // A beat that fails is made up for by the next ones.
  void BeatUntil(const std::stop_token& stop) {
    std::unique_lock lock(mutex_);
    while (!wake_.wait_for(lock, stop, kBeat, [&stop] { return stop.stop_requested(); })) {
      std::vector<Claims> left = std::exchange(leftBehind_, {});
      lock.unlock();
      try {
        Beat();
        for (; !left.empty(); left.pop_back()) Remove(connection_, left.back());
      } catch (const StoreFailure&) {
      }
      lock.lock();
      leftBehind_.insert(leftBehind_.end(), left.begin(), left.end());
    }
  }

  MariaConnection connection_;  // the thread's, once it runs
  int beats_ = 0;
  std::atomic<std::int64_t> number_ = 0;
  std::atomic<std::int64_t> lastBeat_ = 0;  // when it was sent, by LocalMilliseconds
  std::mutex renewing_;
  std::mutex mutex_;
  std::vector<Claims> leftBehind_;
  std::condition_variable_any wake_;
  std::jthread heartbeat_;  // last: it ends before what it uses
};

std::shared_ptr<ServerLocks::Program> ServerLocks::Program::Of(const StorePlace& place,
                                                               const std::string& name) {
  struct Slot {
    std::mutex mutex;
    std::weak_ptr<Program> program;
  };
  static std::mutex mutex;
  // A forked program has a row of its own, and so has who comes with another password: the old one may no
  // longer be let in.
  static std::map<std::tuple<pid_t, std::string, std::string, std::string, std::string>, Slot> slots;
  std::string hosts = place.address.socket;
  for (const MariaHost& host : place.address.hosts) hosts += ',' + host.Shown();
  std::unique_lock guard(mutex);
  Slot& slot = slots[{getpid(), hosts, place.address.database, place.address.user, place.password}];
  guard.unlock();

  // Who waits for a server that doesn't answer keeps nobody from another.
  const std::lock_guard slotGuard(slot.mutex);
  std::shared_ptr<Program> program = slot.program.lock();
  if (program == nullptr) {
    program = std::make_shared<Program>(place, name);
    slot.program = program;
  }
  return program;
}

ServerLocks::ServerLocks(const StorePlace& place, std::string_view account, std::string_view user,
                         std::string_view from)
    : place_(place),
      account_(account),
      user_(user),
      from_(fmt::format("{} on {}", from, HostName())),
      connection_(WithTimeouts(place.address, place.address.connectSeconds, kLockAnswerSeconds),
                  place.password, fmt::format("account {}, locks", account)),
      session_(NextNumber()) {}

ServerLocks::~ServerLocks() { ReleaseAll(); }

// The condition by which a row is this session's.
std::string ServerLocks::Me() const {
  return fmt::format("(l.program = {} AND l.session = {})", program_, session_);
}

// Whether the program p of a lock l lives: a Life.
std::string ServerLocks::LifeOfHolder() const {
  return fmt::format("IF(p.number IS NULL, {0}, IF({1}, IF({2}, {0}, {3}), {4}))",
                     static_cast<int>(Life::kDead), StaleCondition("p.beat", kStaleMs),
                     JudgeCondition(program_), static_cast<int>(Life::kUnclear),
                     static_cast<int>(Life::kLives));
}

void ServerLocks::JoinProgram() {
  if (shared_ == nullptr) shared_ = Program::Of(place_, fmt::format("account {}, locks", account_));
  if (program_ != 0 && !shared_->IsSurelyThere(program_) && !IsRegistered())
    shared_->Renew(connection_, program_);
  const std::int64_t number = shared_->Number();
  if (number == program_) return;
  LoseAll();
  program_ = number;
}

void ServerLocks::LoseAll() {
  for (const auto& [thing, claim] : held_) lost_.insert(thing);
  held_.clear();
}

bool ServerLocks::IsRegistered() {
  const std::string number = std::to_string(program_);
  const std::string_view parameters[] = {number};
  return connection_.Query("SELECT 1 FROM nvadmin_programs WHERE number = ?", parameters, IfLost::kAgain)
             .Count() > 0;
}

bool ServerLocks::HoldsNow(const Thing& thing) {
  if (!held_.contains(thing)) return false;
  if (shared_->IsSurelyThere(program_) || IsRegistered()) return true;
  LoseAll();
  return false;
}

// One that shows a heartbeat again meanwhile stays.
void ServerLocks::RemoveProgram(std::int64_t program) {
  const std::string number = std::to_string(program);
  const std::string_view parameters[] = {number};
  Change(
      connection_,
      fmt::format("DELETE FROM nvadmin_programs WHERE number = ? AND {}", StaleCondition("beat", kStaleMs)),
      parameters);
  const MariaRows rows =
      connection_.Query("SELECT 1 FROM nvadmin_programs WHERE number = ?", parameters, IfLost::kAgain);
  // A number never comes back.
  if (rows.Count() == 0) Change(connection_, "DELETE FROM nvadmin_locks WHERE program = ?", parameters);
}

std::string ServerLocks::Refusal(const Thing& thing, const Holder& holder) const {
  const std::string what = thing.second ? fmt::format("item '{}' of {}", *thing.second, thing.first)
                                        : fmt::format("an item of {}", thing.first);
  return fmt::format("[920] {} is locked by {} at {}", what, holder.user, holder.place);
}

// ---- Taking

// Nothing happens where another's row stands; an older one of this session gets the claim.
void ServerLocks::AddRow(const Thing& thing, std::int64_t claim) {
  const auto& [table, id] = thing;
  const std::string add = fmt::format(
      "INSERT INTO nvadmin_locks (tbl, digest, id, claim, user, place, program, session, since) "
      "VALUES (?, {}, {}, ?, ?, ?, {}, {}, {}) "
      "ON DUPLICATE KEY UPDATE claim = IF(program = {} AND session = {}, VALUES(claim), claim)",
      id ? kItemDigest : kWholeDigest, id ? "?" : "NULL", program_, session_, kNow, program_, session_);
  const std::string claimText = std::to_string(claim);
  std::vector<std::string_view> parameters = {table};
  if (id) parameters.insert(parameters.end(), 2, *id);
  parameters.insert(parameters.end(), {claimText, user_, from_});
  Change(connection_, add, parameters);
}

// Who has a lock on the thing, on its whole table, or, for a whole table, on anything in it. The dead that
// are met lose theirs; of one of which that isn't clear yet it is waited for, until this program can tell or
// the other shows a heartbeat. `isAdded`: the row of this claim is there.
std::optional<ServerLocks::Holder> ServerLocks::FindObstacle(const Thing& thing, std::int64_t claim,
                                                             bool& isAdded) {
  enum { kAdded, kProgram, kLife, kUser, kPlace };
  const std::string find = fmt::format(
      "SELECT (SELECT COUNT(*) FROM nvadmin_locks WHERE program = {} AND session = {} AND claim = ?), "
      "l.program, {} AS life, l.user, l.place FROM nvadmin_state s LEFT JOIN (nvadmin_locks l LEFT JOIN "
      "nvadmin_programs p ON p.number = l.program) ON l.tbl = ?{} AND NOT {} "
      "WHERE s.id = 1 ORDER BY life LIMIT 1",
      program_, session_, LifeOfHolder(),
      thing.second ? fmt::format(" AND l.digest IN ({}, {})", kWholeDigest, kItemDigest) : "", Me());
  const std::string claimText = std::to_string(claim);
  std::vector<std::string_view> parameters = {claimText, thing.first};
  if (thing.second) parameters.push_back(*thing.second);
  MariaRows rows = QueryLiving(find, parameters, kProgram);
  const auto isUnclear = [&rows] {
    return rows.Count() > 0 && !rows.IsNull(0, kProgram) &&
           rows.Integer(0, kLife) == static_cast<int>(Life::kUnclear);
  };
  const auto patience = std::chrono::steady_clock::now() + kMostPatience;
  while (isUnclear() && std::chrono::steady_clock::now() < patience) {
    std::this_thread::sleep_for(kGlance);
    rows = QueryLiving(find, parameters, kProgram);
  }
  isAdded = rows.Count() > 0 && rows.Integer(0, kAdded) > 0;
  if (rows.Count() == 0 || rows.IsNull(0, kProgram)) return std::nullopt;
  return Holder{std::string(rows.Text(0, kUser)), std::string(rows.Text(0, kPlace))};
}

// Runs a query whose rows name a program and, in the next column, its life. The dead are removed, and the
// query run again.
MariaRows ServerLocks::QueryLiving(const std::string& sql, std::span<const std::string_view> parameters,
                                   std::size_t programColumn) {
  for (int tries = 1;; ++tries) {
    MariaRows rows = connection_.Query(sql, parameters, IfLost::kAgain);
    std::set<std::int64_t> dead;
    for (std::size_t row = 0; row < rows.Count(); ++row) {
      if (!rows.IsNull(row, programColumn) &&
          rows.Integer(row, programColumn + 1) == static_cast<int>(Life::kDead)) {
        dead.insert(rows.Integer(row, programColumn));
      }
    }
    if (dead.empty() || tries == kMostTries) return rows;
    for (const std::int64_t program : dead) RemoveProgram(program);
  }
}

// The holder that is in the way; nothing: the lock is taken.
std::optional<ServerLocks::Holder> ServerLocks::Claim(const Thing& thing, std::int64_t claim) {
  for (int tries = 0; tries < kMostTries; ++tries) {
    AddRow(thing, claim);
    bool isAdded = false;
    const std::optional<Holder> obstacle = FindObstacle(thing, claim, isAdded);
    if (obstacle && isAdded) RemoveClaims(claim, claim);
    if (obstacle || isAdded) return obstacle;
    // Another's row stood there until now.
  }
  throw StoreFailure(fmt::format(
      "account {}: a lock of {} can't be taken: whatever is added to nvadmin_locks is gone at once", account_,
      thing.first));
}

bool ServerLocks::Take(std::string_view table, std::optional<std::string_view> id, std::string& refusal) {
  const Thing thing{table, id};
  JoinProgram();
  if (HoldsNow(thing)) return true;
  const std::int64_t claim = lastClaim_ = NextNumber();
  try {
    if (const std::optional<Holder> obstacle = Claim(thing, claim)) {
      refusal = Refusal(thing, *obstacle);
      return false;
    }
  } catch (const StoreFailure&) {
    // It may be taken all the same, or be yet.
    isUnsure_ = true;
    shared_->LeaveBehind({program_, session_, claim, claim});
    throw;
  }
  lost_.erase(thing);
  held_.emplace(thing, claim);
  return true;
}

// ---- Checks

// What the others hold, and whether this program still counts as alive.
void ServerLocks::LearnOthers() {
  enum { kRegistered, kProgram, kLife, kTable, kId };
  const auto learn = [this] {
    return QueryLiving(
        fmt::format("SELECT (SELECT COUNT(*) FROM nvadmin_programs WHERE number = {}), l.program, {}, "
                    "l.tbl, l.id FROM nvadmin_state s LEFT JOIN (nvadmin_locks l LEFT JOIN "
                    "nvadmin_programs p ON p.number = l.program) ON NOT {} WHERE s.id = 1 LIMIT {}",
                    program_, LifeOfHolder(), Me(), kMostKnownOthers + 1),
        {}, kProgram);
  };
  MariaRows rows = learn();
  if (shared_ == nullptr && rows.Count() > 0 && !rows.IsNull(0, kProgram)) {
    JoinProgram();  // who only watches can't tell the dead from the living
    rows = learn();
  }
  if (shared_ != nullptr && rows.Count() > 0 && rows.Integer(0, kRegistered) == 0) {
    shared_->Renew(connection_, program_);
    JoinProgram();
  }
  others_.clear();
  othersAreMany_ = rows.Count() > kMostKnownOthers;
  for (std::size_t row = 0; row < rows.Count() && !othersAreMany_; ++row) {
    if (rows.IsNull(row, kProgram)) continue;
    Thing thing{rows.Text(row, kTable), std::nullopt};
    if (!rows.IsNull(row, kId)) thing.second = rows.Text(row, kId);
    others_.insert(std::move(thing));
  }
  othersAreKnown_ = true;
}

bool ServerLocks::Check(std::string_view table, std::string_view id, std::string& refusal) {
  if (!othersAreKnown_) LearnOthers();
  if (!othersAreMany_ && others_.empty() && lost_.empty()) return true;
  const Thing thing{table, std::string(id)};
  if (lost_.contains(thing)) {
    refusal = fmt::format(
        "[920] the lock of item '{}' of {} was lost, as this program showed no heartbeat for {} s; read the "
        "item again",
        id, table, kStaleMs / 1000);
    return false;
  }
  if (!othersAreMany_ && !others_.contains(thing) && !others_.contains({thing.first, std::nullopt}))
    return true;
  bool isAdded = false;
  const std::optional<Holder> obstacle = FindObstacle(thing, /*claim=*/0, isAdded);
  if (obstacle) refusal = Refusal(thing, *obstacle);
  return !obstacle;
}

bool ServerLocks::Holds(std::string_view table, std::string_view id) {
  return !held_.empty() && HoldsNow({std::string(table), std::string(id)});
}

// ---- Releases

// Later, where the server doesn't answer.
void ServerLocks::RemoveClaims(std::int64_t first, std::int64_t last) {
  const Claims claims{program_, session_, first, last};
  try {
    if (shared_->IsSurelyThere(program_)) return Remove(connection_, claims);
  } catch (const StoreFailure&) {
    isUnsure_ = true;
  }
  shared_->LeaveBehind(claims);
}

void ServerLocks::Release(std::string_view table, std::string_view id) {
  const Thing thing{table, std::string(id)};
  lost_.erase(thing);
  const auto held = held_.find(thing);
  if (held == held_.end()) return;
  const std::int64_t claim = held->second;
  held_.erase(held);
  RemoveClaims(claim, claim);
}

void ServerLocks::ReleaseTable(std::string_view table) {
  std::erase_if(lost_, [table](const Thing& thing) { return thing.first == table; });
  for (auto held = held_.lower_bound({std::string(table), std::nullopt});
       held != held_.end() && held->first.first == table; held = held_.erase(held)) {
    RemoveClaims(held->second, held->second);
  }
}

void ServerLocks::ReleaseAll() {
  lost_.clear();
  if (held_.empty() && !isUnsure_) return;
  held_.clear();
  isUnsure_ = false;
  RemoveClaims(0, lastClaim_);
}

std::vector<ListedLock> ServerLocks::AllLocks() {
  enum { kProgram, kLife, kTable, kId, kUser, kPlace, kSince };
  const MariaRows rows = QueryLiving(
      fmt::format("SELECT l.program, {}, l.tbl, l.id, l.user, l.place, l.since FROM nvadmin_locks l LEFT "
                  "JOIN nvadmin_programs p ON p.number = l.program ORDER BY l.tbl, l.id LIMIT 100000",
                  LifeOfHolder()),
      {}, kProgram);
  std::vector<ListedLock> locks;
  for (std::size_t row = 0; row < rows.Count(); ++row) {
    ListedLock& lock = locks.emplace_back();
    lock.account = account_;
    lock.table = rows.Text(row, kTable);
    if (!rows.IsNull(row, kId)) lock.id = rows.Text(row, kId);
    lock.user = rows.Text(row, kUser);
    lock.from = rows.Text(row, kPlace);
    lock.since = rows.Integer(row, kSince);
  }
  return locks;
}

}  // namespace nvadmin::engine
