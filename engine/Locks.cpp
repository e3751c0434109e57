#include "engine/Locks.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <stop_token>
#include <string>
#include <thread>
#include <tuple>
#include <utility>

#include "engine/SignalsBlocked.h"

namespace nvadmin::engine {

namespace fs = std::filesystem;

namespace {

constexpr std::chrono::milliseconds kBeat{2'000};
constexpr std::chrono::milliseconds kStale{15'000};

struct Locked {
  explicit Locked(const LockedView& thing) : account(thing.account), table(thing.table), id(thing.id) {}
  operator LockedView() const { return {account, table, id}; }  // NOLINT: a view of itself
  std::string account;
  std::string table;
  std::optional<std::string> id;
};

// A whole table comes before its items.
struct LockedOrder {
  using is_transparent = void;
  bool operator()(const LockedView& a, const LockedView& b) const {
    return std::tie(a.account, a.table, a.id) < std::tie(b.account, b.table, b.id);
  }
};

using LockedSet = std::set<Locked, LockedOrder>;

bool IsOfTable(const LockedView& thing, const LockedView& table) {
  return thing.account == table.account && thing.table == table.table;
}

LockedView TableOf(const LockedView& thing) { return {thing.account, thing.table, std::nullopt}; }

void EraseTable(LockedSet& things, const LockedView& table) {
  const auto first = things.lower_bound(table);
  auto last = first;
  while (last != things.end() && IsOfTable(*last, table)) ++last;
  things.erase(first, last);
}

std::string Refusal(const LockedView& thing, std::string_view user, std::string_view from) {
  const std::string what = thing.id ? fmt::format("item '{}' of {}", *thing.id, thing.table)
                                    : fmt::format("an item of {}", thing.table);
  return fmt::format("[920] {} is locked by {} at {}", what, user, from);
}

}  // namespace

// One session, as the others of its program see it.
struct Locks::Seat {
  std::string user;
  std::string from;
  std::string account;
  std::int64_t since = MillisecondsNow();
  LockFile::Session session;
  LockedSet held;
  LockedSet lost;  // held once, until others took this program for dead
};

// What the sessions of one program share. Any thread: every routine holds the mutex.
class Locks::Sharing {
 public:
  static std::shared_ptr<Sharing> Of(const fs::path& file);

  explicit Sharing(const fs::path& file);
  ~Sharing();

  void Join(Seat& seat);
  void Leave(Seat& seat);
  void SetAccount(Seat& seat, std::string_view account);
  std::int32_t NumberOf(const Seat& seat);

  bool Take(Seat& seat, const LockedView& thing, std::string& refusal);
  bool Check(Seat& seat, const LockedView& thing, std::string& refusal);
  bool Holds(const Seat& seat, const LockedView& thing);
  void Release(Seat& seat, const LockedView& thing);
  void ReleaseTable(Seat& seat, const LockedView& table);
  void ReleaseAll(Seat& seat);

  std::vector<ListedSession> AllSessions();
  std::vector<ListedLock> AllLocks();

 private:
  // What other programs have to say about a lock.
  enum class Elsewhere { kFree, kHeld, kHeldByTheDead };

  void BeatUntil(const std::stop_token& stop);
  void ClearLeftBehind();
  void Refresh();
  void LoseAll();
  void Register();
  void BeginChange(std::optional<WriteTransaction>& transaction);
  bool IsAlive(const LockProgram& other) const;
  void RemoveDeadPrograms();
  bool HoldsNow(const Seat& seat, const LockedView& thing);
  const Seat* FindOtherHere(const Seat& seat, const LockedView& thing) const;
  Elsewhere LookElsewhere(const LockedView& thing, std::string& refusal);
  bool ClearTheDead(const LockedView& thing, std::string& refusal);
  void ForgetHeld(Seat& seat);

  std::mutex mutex_;
  LockFile file_;
  ProgramRun run_ = ThisRun();
  std::int64_t program_ = 0;  // our number in the file; 0: not registered
  std::vector<Seat*> seats_;
  std::vector<std::int64_t> leftBehind_;              // rows of sessions that are over
  std::map<LockedView, Seat*, LockedOrder> holders_;  // of our sessions; the views point into Seat::held

  // The version changes with the commits of others only. What it stood for is asked after it was read, so a
  // change in between shows the next time.
  std::int64_t version_ = -1;
  bool quiet_ = false;  // no other program held any lock at that version

  std::condition_variable_any wake_;
  std::jthread heartbeat_;  // last: it ends before what it uses
};

// ---- The program and its sessions

std::shared_ptr<Locks::Sharing> Locks::Sharing::Of(const fs::path& path) {
  static std::mutex mutex;
  // A forked program has a sharing of its own.
  static std::map<std::pair<pid_t, fs::path>, std::weak_ptr<Sharing>> all;
  const fs::path file = fs::absolute(path);
  const std::lock_guard guard(mutex);
  std::erase_if(all, [](const auto& entry) { return entry.second.expired(); });
  std::weak_ptr<Sharing>& known = all[{getpid(), file}];
  std::shared_ptr<Sharing> sharing = known.lock();
  if (sharing == nullptr) {
    sharing = std::make_shared<Sharing>(file);
    known = sharing;
  }
  return sharing;
}

Locks::Sharing::Sharing(const fs::path& file) : file_(file) {
  Register();
  const SignalsBlocked blocked;
  heartbeat_ = std::jthread([this](const std::stop_token& stop) { BeatUntil(stop); });
}

Locks::Sharing::~Sharing() {
  heartbeat_ = {};
  try {
    WriteTransaction transaction(file_.Connection());
    file_.RemoveProgram(program_);
    transaction.Commit();
  } catch (const StoreFailure&) {
    // Others find that the program has ended.
  }
}

// A beat that fails (a full disk) is made up for by the next ones; only the seventh in a row makes the
// program stale.
void Locks::Sharing::BeatUntil(const std::stop_token& stop) {
  std::unique_lock lock(mutex_);
  while (!wake_.wait_for(lock, stop, kBeat, [&stop] { return stop.stop_requested(); })) {
    try {
      if (!file_.Beat(program_)) LoseAll();
      if (program_ == 0) Register();
      ClearLeftBehind();
    } catch (const StoreFailure&) {
    }
  }
}

// Ends what the sessions couldn't that left while a foreign program held the file.
void Locks::Sharing::ClearLeftBehind() {
  for (; !leftBehind_.empty(); leftBehind_.pop_back()) {
    WriteTransaction transaction(file_.Connection());
    file_.RemoveSession(program_, leftBehind_.back());
    transaction.Commit();
  }
}

// Learns what changed since the last look.
void Locks::Sharing::Refresh() {
  const std::int64_t now = file_.Version();
  if (now == version_) return;
  quiet_ = !file_.OthersHoldLocks(program_);
  if (program_ != 0 && !file_.HasProgram(program_)) LoseAll();
  version_ = now;
}

void Locks::Sharing::LoseAll() {
  program_ = 0;
  holders_.clear();
  for (Seat* seat : seats_) {
    seat->lost.merge(seat->held);
    seat->held.clear();
  }
}

// Gives the program and its sessions their rows, and clears away programs that died.
void Locks::Sharing::Register() {
  WriteTransaction transaction(file_.Connection());
  RemoveDeadPrograms();
  const std::int64_t program = file_.AddProgram(run_);
  std::vector<LockFile::Session> sessions;
  for (const Seat* seat : seats_)
    sessions.push_back(file_.AddSession(program, seat->user, seat->from, seat->account, seat->since));
  transaction.Commit();

  program_ = program;
  for (std::size_t place = 0; place < seats_.size(); ++place) seats_[place]->session = sessions[place];
  version_ = -1;
}

// The write transaction, with this program in the file and all known of the others.
void Locks::Sharing::BeginChange(std::optional<WriteTransaction>& transaction) {
  for (;;) {
    transaction.emplace(file_.Connection());
    Refresh();
    if (program_ != 0) return;
    transaction.reset();
    Register();
  }
}

bool Locks::Sharing::IsAlive(const LockProgram& other) const {
  if (!run_.machine.empty() && other.run.machine == run_.machine) return IsRunning(other.run);
  const std::int64_t silence = MillisecondsNow() - other.heartbeat;
  return silence <= kStale.count() && silence >= -kStale.count();
}

// Requires a write transaction.
void Locks::Sharing::RemoveDeadPrograms() {
  for (const LockProgram& other : file_.Programs()) {
    if (other.number == program_ || IsAlive(other)) continue;
    file_.RemoveProgram(other.number);
    version_ = -1;
  }
}

void Locks::Sharing::Join(Seat& seat) {
  const std::lock_guard guard(mutex_);
  std::optional<WriteTransaction> transaction;
  BeginChange(transaction);
  const LockFile::Session session =
      file_.AddSession(program_, seat.user, seat.from, seat.account, seat.since);
  transaction->Commit();
  seat.session = session;
  seats_.push_back(&seat);
}

void Locks::Sharing::Leave(Seat& seat) {
  const std::lock_guard guard(mutex_);
  ForgetHeld(seat);
  std::erase(seats_, &seat);
  try {
    WriteTransaction transaction(file_.Connection());
    file_.RemoveSession(program_, seat.session.row);
    transaction.Commit();
  } catch (const StoreFailure&) {
    // There is nobody left to tell; for others the locks stay for a while.
    leftBehind_.push_back(seat.session.row);
  }
}

void Locks::Sharing::SetAccount(Seat& seat, std::string_view account) {
  const std::lock_guard guard(mutex_);
  file_.SetAccount(seat.session.row, account);
  seat.account = account;
}

std::int32_t Locks::Sharing::NumberOf(const Seat& seat) {
  const std::lock_guard guard(mutex_);
  return seat.session.number;
}

// ---- Who holds what

bool Locks::Sharing::HoldsNow(const Seat& seat, const LockedView& thing) {
  if (!seat.held.contains(thing)) return false;
  Refresh();
  return seat.held.contains(thing);
}

// Another session of this program whose lock stands in the way; null: none.
const Locks::Seat* Locks::Sharing::FindOtherHere(const Seat& seat, const LockedView& thing) const {
  if (holders_.empty()) return nullptr;
  const LockedView table = TableOf(thing);
  const auto isOther = [&seat](const auto& entry) { return entry.second != &seat; };
  if (!thing.id) {
    auto holder = holders_.lower_bound(table);
    while (holder != holders_.end() && IsOfTable(holder->first, table) && !isOther(*holder)) ++holder;
    return holder != holders_.end() && IsOfTable(holder->first, table) ? holder->second : nullptr;
  }
  for (const LockedView& hindering : {table, thing}) {
    const auto holder = holders_.find(hindering);
    if (holder != holders_.end() && isOther(*holder)) return holder->second;
  }
  return nullptr;
}

Locks::Sharing::Elsewhere Locks::Sharing::LookElsewhere(const LockedView& thing, std::string& refusal) {
  if (quiet_) return Elsewhere::kFree;
  const std::optional<LockFile::Obstacle> obstacle = file_.FindObstacle(thing, program_);
  if (!obstacle) return Elsewhere::kFree;
  if (!IsAlive(obstacle->program)) return Elsewhere::kHeldByTheDead;
  refusal = Refusal(thing, obstacle->user, obstacle->from);
  return Elsewhere::kHeld;
}

// Requires a write transaction. False when a living program holds the thing; dead ones lose all their locks.
bool Locks::Sharing::ClearTheDead(const LockedView& thing, std::string& refusal) {
  for (;;) {
    const Elsewhere found = LookElsewhere(thing, refusal);
    if (found != Elsewhere::kHeldByTheDead) return found == Elsewhere::kFree;
    RemoveDeadPrograms();
  }
}

bool Locks::Sharing::Take(Seat& seat, const LockedView& thing, std::string& refusal) {
  const std::lock_guard guard(mutex_);
  if (HoldsNow(seat, thing)) return true;
  if (const Seat* other = FindOtherHere(seat, thing)) {
    refusal = Refusal(thing, other->user, other->from);
    return false;
  }
  // What is refused doesn't wait for the writers of other programs.
  if (!quiet_ && LookElsewhere(thing, refusal) == Elsewhere::kHeld) return false;

  std::optional<WriteTransaction> transaction;
  BeginChange(transaction);
  if (!ClearTheDead(thing, refusal)) return false;
  file_.AddLock(thing, program_, seat.session.row);
  transaction->Commit();

  const auto lost = seat.lost.find(thing);
  if (lost != seat.lost.end()) seat.lost.erase(lost);
  const auto held = seat.held.emplace(thing).first;
  holders_.emplace(*held, &seat);
  return true;
}

bool Locks::Sharing::Check(Seat& seat, const LockedView& thing, std::string& refusal) {
  const std::lock_guard guard(mutex_);
  if (const Seat* other = FindOtherHere(seat, thing)) {
    refusal = Refusal(thing, other->user, other->from);
    return false;
  }
  Refresh();
  if (!seat.lost.empty() && seat.lost.contains(thing)) {
    refusal = fmt::format(
        "[920] the lock of item '{}' of {} was lost, as this program showed no heartbeat for {} s; "
        "read the item again",
        thing.id.value_or(""), thing.table, kStale.count() / 1000);
    return false;
  }
  const Elsewhere found = LookElsewhere(thing, refusal);
  if (found != Elsewhere::kHeldByTheDead) return found == Elsewhere::kFree;
  std::optional<WriteTransaction> transaction;
  BeginChange(transaction);
  if (!ClearTheDead(thing, refusal)) return false;
  transaction->Commit();
  return true;
}

bool Locks::Sharing::Holds(const Seat& seat, const LockedView& thing) {
  const std::lock_guard guard(mutex_);
  return HoldsNow(seat, thing);
}

// ---- Releases: one statement each, so the file changes whole or not at all.

void Locks::Sharing::Release(Seat& seat, const LockedView& thing) {
  const std::lock_guard guard(mutex_);
  const auto lost = seat.lost.find(thing);
  if (lost != seat.lost.end()) seat.lost.erase(lost);
  const auto held = seat.held.find(thing);
  if (held == seat.held.end()) return;
  file_.RemoveLock(thing, seat.session.row);
  holders_.erase(*held);
  seat.held.erase(held);
}

void Locks::Sharing::ReleaseTable(Seat& seat, const LockedView& table) {
  const std::lock_guard guard(mutex_);
  EraseTable(seat.lost, table);
  auto held = seat.held.lower_bound(table);
  if (held == seat.held.end() || !IsOfTable(*held, table)) return;
  file_.RemoveLocksOfTable(table.account, table.table, seat.session.row);
  for (; held != seat.held.end() && IsOfTable(*held, table); ++held) holders_.erase(*held);
  EraseTable(seat.held, table);
}

void Locks::Sharing::ReleaseAll(Seat& seat) {
  const std::lock_guard guard(mutex_);
  seat.lost.clear();
  if (seat.held.empty()) return;
  file_.RemoveLocks(program_, seat.session.row);
  ForgetHeld(seat);
}

void Locks::Sharing::ForgetHeld(Seat& seat) {
  for (const Locked& held : seat.held) holders_.erase(held);
  seat.held.clear();
}

// ---- Lists

std::vector<ListedSession> Locks::Sharing::AllSessions() {
  const std::lock_guard guard(mutex_);
  std::optional<WriteTransaction> transaction;
  BeginChange(transaction);
  RemoveDeadPrograms();
  transaction->Commit();
  return file_.Sessions();
}

std::vector<ListedLock> Locks::Sharing::AllLocks() {
  const std::lock_guard guard(mutex_);
  std::optional<WriteTransaction> transaction;
  BeginChange(transaction);
  RemoveDeadPrograms();
  transaction->Commit();
  return file_.Locks();
}

// ---- A session's view

Locks::Locks(const fs::path& file, std::string_view user, std::string_view from)
    : sharing_(Sharing::Of(file)), seat_(std::make_unique<Seat>()) {
  seat_->user = user;
  seat_->from = from;
  sharing_->Join(*seat_);
}

Locks::~Locks() { sharing_->Leave(*seat_); }

std::int32_t Locks::Number() const { return sharing_->NumberOf(*seat_); }
void Locks::SetAccount(std::string_view account) { sharing_->SetAccount(*seat_, account); }

ServerLocks* Locks::ServerOf(std::string_view account) const {
  if (servers_.empty()) return nullptr;
  const auto server = servers_.find(account);
  return server == servers_.end() ? nullptr : server->second.get();
}

void Locks::UseServer(std::string_view account, const StorePlace& place) {
  servers_[std::string(account)] = std::make_unique<ServerLocks>(place, account, seat_->user, seat_->from);
}

void Locks::BeginChecks(std::string_view account) {
  if (ServerLocks* server = ServerOf(account)) server->BeginChecks();
}

bool Locks::Take(std::string_view account, std::string_view table, std::string_view id,
                 std::string& refusal) {
  if (ServerLocks* server = ServerOf(account)) return server->Take(table, id, refusal);
  return sharing_->Take(*seat_, {account, table, id}, refusal);
}

bool Locks::TakeTable(std::string_view account, std::string_view table, std::string& refusal) {
  if (ServerLocks* server = ServerOf(account)) return server->Take(table, std::nullopt, refusal);
  return sharing_->Take(*seat_, {account, table, std::nullopt}, refusal);
}

bool Locks::Check(std::string_view account, std::string_view table, std::string_view id,
                  std::string& refusal) {
  if (ServerLocks* server = ServerOf(account)) return server->Check(table, id, refusal);
  return sharing_->Check(*seat_, {account, table, id}, refusal);
}

bool Locks::Holds(std::string_view account, std::string_view table, std::string_view id) const {
  if (ServerLocks* server = ServerOf(account)) return server->Holds(table, id);
  return sharing_->Holds(*seat_, {account, table, id});
}

void Locks::Release(std::string_view account, std::string_view table, std::string_view id) {
  if (ServerLocks* server = ServerOf(account)) return server->Release(table, id);
  sharing_->Release(*seat_, {account, table, id});
}

void Locks::ReleaseTable(std::string_view account, std::string_view table) {
  if (ServerLocks* server = ServerOf(account)) return server->ReleaseTable(table);
  sharing_->ReleaseTable(*seat_, {account, table, std::nullopt});
}

void Locks::ReleaseAll() {
  for (const auto& [account, server] : servers_) server->ReleaseAll();
  sharing_->ReleaseAll(*seat_);
}

std::vector<ListedSession> Locks::AllSessions() const { return sharing_->AllSessions(); }

std::vector<ListedLock> Locks::AllLocks(std::vector<std::string>& unseen) const {
  std::vector<ListedLock> locks = sharing_->AllLocks();
  for (const auto& [account, server] : servers_) {
    try {
      for (ListedLock& lock : server->AllLocks()) locks.push_back(std::move(lock));
    } catch (const StoreFailure& failure) {
      unseen.emplace_back(failure.what());
    }
  }
  return locks;
}

}  // namespace nvadmin::engine
