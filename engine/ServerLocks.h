// Item locks of an account whose files lie in a database on a server: they lie there too, so all programs on
// all hosts that use the database see them. One object is one session's locks in one account; engine/Locks.h
// has the rules, which are the same.
//
// A lock is a row of nvadmin_locks. It belongs to a session of a program; a program is a row of
// nvadmin_programs with a heartbeat every 2 s. All times are the database's. Invariants:
//
// 1. A lock is taken by adding its row and then looking who else is there: of two that meet, at least one
//    sees the other. Each statement is a transaction of its own, so nobody waits for a holder.
// 2. A program that showed no heartbeat for 15 s counts as dead: who meets its locks removes the program and
//    all of them. Only a program judges so whose own heartbeat has been even for some seconds, and waits so
//    long: a server that stood still, or whose clock jumped, lets all programs show theirs first.
// 3. A program that finds itself removed has lost its locks, and its writes of what they were for are
// refused.
// 4. What the other sessions hold is read once for each write transaction: whoever takes a lock later can't
//    read the item before that transaction's end.
// 5. Each taking has a number, its claim, by which it is released. So a release that the server carries out
//    late, behind a connection that was lost, hits no lock that was taken since.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "engine/LockFile.h"
#include "engine/stores/Maria.h"
#include "engine/stores/OpenStore.h"

namespace nvadmin::engine {

// Use it on the session's thread. Releases don't fail: what the server can't be told now is told it by the
// program's heartbeat when it is back. All other routines may fail with a StoreFailure that names the
// database; a lock that was to be taken then isn't held.
class ServerLocks {
 public:
  ServerLocks(const StorePlace& place, std::string_view account, std::string_view user,
              std::string_view from);
  ~ServerLocks();  // releases what the session holds
  ServerLocks(const ServerLocks&) = delete;
  ServerLocks& operator=(const ServerLocks&) = delete;

  // An id of nothing is the whole table.
  bool Take(std::string_view table, std::optional<std::string_view> id, std::string& refusal);
  // Call at the start of each write transaction.
  void BeginChecks() { othersAreKnown_ = false; }
  bool Check(std::string_view table, std::string_view id, std::string& refusal);
  bool Holds(std::string_view table, std::string_view id);

  void Release(std::string_view table, std::string_view id);
  void ReleaseTable(std::string_view table);
  void ReleaseAll();

  // Of all programs, the dead ones that this one can tell left out.
  std::vector<ListedLock> AllLocks();

 private:
  class Program;
  enum class Life { kLives, kDead, kUnclear };  // unclear: no heartbeat, and this program may not judge yet
  using Thing = std::pair<std::string, std::optional<std::string>>;  // table and ID
  struct Holder {
    std::string user, place;
  };

  std::string Me() const;
  std::string LifeOfHolder() const;
  void JoinProgram();
  bool IsRegistered();
  bool HoldsNow(const Thing& thing);
  void LoseAll();
  void RemoveProgram(std::int64_t program);
  MariaRows QueryLiving(const std::string& sql, std::span<const std::string_view> parameters,
                        std::size_t programColumn);
  std::string Refusal(const Thing& thing, const Holder& holder) const;
  void AddRow(const Thing& thing, std::int64_t claim);
  std::optional<Holder> FindObstacle(const Thing& thing, std::int64_t claim, bool& isAdded);
  std::optional<Holder> Claim(const Thing& thing, std::int64_t claim);
  void RemoveClaims(std::int64_t first, std::int64_t last);
  void LearnOthers();

  StorePlace place_;
  std::string account_, user_, from_;
  MariaConnection connection_;
  std::int64_t session_;
  std::shared_ptr<Program> shared_;
  std::int64_t program_ = 0;            // under which the locks are held
  std::int64_t lastClaim_ = 0;          // of this session
  bool isUnsure_ = false;               // rows of it may be there that it doesn't hold
  std::map<Thing, std::int64_t> held_;  // with their claims
  std::set<Thing> lost_;                // held once, until others took this program for dead
  bool othersAreKnown_ = false;
  bool othersAreMany_ = false;  // then each item is asked for
  std::set<Thing> others_;
};

}  // namespace nvadmin::engine
