// Item locks between all sessions and programs on one home, and who these sessions are.
// A lock is known by account, table and item ID; a session may also lock a whole table, which nobody else
// then holds an item of. A lock belongs to a session and ends with it; the locks of a program that died go
// too. On the same machine its pid tells, at once and alone, so a program that was stopped for a while keeps
// its locks; for a program in another container or machine its heartbeat does (every 2 s, stale after 15 s).
//
// The sessions of one program share a connection to engine/LockFile.h, a heartbeat and what they know of
// each other: between them a lock is refused without a look at the file.
//
// Together with the store's write transaction the locks are exact. (1) A locked read takes the lock first,
// then opens the write transaction and reads, so it sees every write that was allowed before it. (2) A write
// opens the write transaction first, then asks Check; whoever locks later waits for its commit. (3) Check
// costs almost nothing while no other session holds any lock: one look at the file's version, about a
// microsecond.
//
// The locks of an account whose files lie on a server lie there too: see engine/ServerLocks.h.
#pragma once

#include <cstdint>
#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "engine/LockFile.h"
#include "engine/ServerLocks.h"

namespace nvadmin::engine {

// A session's view of the locks. Use it on the session's thread. Account and table count as they are spelled;
// an ID may hold any byte. All routines may fail with a StoreFailure that names the file; the lock is then as
// it was.
class Locks {
 public:
  // `user` and `from` are how others see the session, "anna at terminal pts/3" in a refusal.
  Locks(const std::filesystem::path& file, std::string_view user, std::string_view from);
  ~Locks();  // releases what the session holds
  Locks(const Locks&) = delete;
  Locks& operator=(const Locks&) = delete;

  // The session's number: from 1, the lowest that no other living session on the home had when it began.
  std::int32_t Number() const;
  // The account in which others see the session from now on.
  void SetAccount(std::string_view account);
  // From now on the locks of this account lie in the database at `place`.
  void UseServer(std::string_view account, const StorePlace& place);
  // Call when a write transaction has been opened on the account's store, before the first Check.
  void BeginChecks(std::string_view account);

  // Takes the lock, or finds that this session has it already. False when another holds it, or the whole
  // table: `refusal` becomes "[920] item 'ID' of TABLE is locked by HOLDER". Never waits for a holder.
  bool Take(std::string_view account, std::string_view table, std::string_view id, std::string& refusal);
  // The same for the whole table: false when another session holds anything of it.
  bool TakeTable(std::string_view account, std::string_view table, std::string& refusal);
  // True when no other session holds the item; else false and the refusal. Takes nothing. A session whose own
  // lock was taken from it, because its program showed no heartbeat, is refused too, until it takes or
  // releases the lock.
  bool Check(std::string_view account, std::string_view table, std::string_view id, std::string& refusal);
  bool Holds(std::string_view account, std::string_view table, std::string_view id) const;

  // Locks that the session doesn't have are released already.
  void Release(std::string_view account, std::string_view table, std::string_view id);
  void ReleaseTable(std::string_view account, std::string_view table);  // its items and itself
  void ReleaseAll();

  // Of all programs that live: the sessions on this home, and the locks on it and on the servers used here.
  std::vector<ListedSession> AllSessions() const;
  // Why a server's can't be told goes to `unseen`.
  std::vector<ListedLock> AllLocks(std::vector<std::string>& unseen) const;

 private:
  struct Seat;
  class Sharing;

  ServerLocks* ServerOf(std::string_view account) const;

  std::shared_ptr<Sharing> sharing_;
  std::unique_ptr<Seat> seat_;
  std::map<std::string, std::unique_ptr<ServerLocks>, std::less<>> servers_;  // by account
};

}  // namespace nvadmin::engine
