// Item locks between all sessions and programs on one home, in the file locks.sqlite.
// A lock is known by account, table and item ID. It belongs to a session and ends with it; the locks of a
// program that died go too. On the same machine its pid tells, at once and alone, so a program that was
// stopped for a while keeps its locks; for a program in another container or machine its heartbeat does
// (every 2 s, stale after 15 s). The file holds nothing lasting: whoever finds that no session uses it makes
// it anew, so what a crash left in it, damage included, is gone. The empty file locks.sqlite-gate beside it
// tells who uses it.
//
// Together with the store's write transaction the locks are exact. (1) A locked read takes the lock first,
// then opens the write transaction and reads, so it sees every write that was allowed before it. (2) A write
// opens the write transaction first, then asks Check; whoever locks later waits for its commit. (3) Check
// costs almost nothing while no other session holds any lock: one look at the file's version, about a
// microsecond.
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <string_view>

namespace nvadmin::engine {

// A session's view of the lock table. Use it on the session's thread. Account and table count as they are
// spelled; an ID may hold any byte. All routines may fail with a StoreFailure that names the file; the lock
// is then as it was.
class Locks {
 public:
  // `holder` is how others see the session in a refusal: user and port, for instance "anna at terminal
  // pts/3".
  Locks(const std::filesystem::path& file, std::string_view holder);
  ~Locks();  // releases what the session holds
  Locks(const Locks&) = delete;
  Locks& operator=(const Locks&) = delete;

  // Takes the lock, or finds that this session has it already. False when another holds it: `refusal` becomes
  // "[920] item 'ID' of TABLE is locked by HOLDER". Never waits for a holder.
  bool Take(std::string_view account, std::string_view table, std::string_view id, std::string& refusal);
  // True when no other session holds the item; else false and the refusal. Takes nothing. A session whose own
  // lock was taken from it, because its program showed no heartbeat, is refused too, until it takes or
  // releases the lock.
  bool Check(std::string_view account, std::string_view table, std::string_view id, std::string& refusal);
  bool Holds(std::string_view account, std::string_view table, std::string_view id) const;

  // Locks that the session doesn't have are released already.
  void Release(std::string_view account, std::string_view table, std::string_view id);
  void ReleaseTable(std::string_view account, std::string_view table);
  void ReleaseAll();

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace nvadmin::engine
