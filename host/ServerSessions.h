// The sessions of a server, whatever carries them: how many there may be, a thread for each, and their end.
// Knows no sockets.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>

namespace nvadmin::host {

struct SessionLimits {
  std::size_t all = 1000;
  std::size_t perAddress = 200;
};

// One session. Serve runs on a thread of its own; the others may be called from any thread while it runs.
class ServedSession {
 public:
  virtual ~ServedSession() = default;
  // Returns when the session is over. Doesn't fail.
  virtual void Serve() noexcept = 0;
  // Ends the session when it waits for its user, or as soon as what it is doing is done.
  virtual void EndSoon() noexcept = 0;
  // Ends it at once, a running statement included.
  virtual void EndNow() noexcept = 0;
};

class ServerSessions {
 public:
  explicit ServerSessions(const SessionLimits& limits) : limits_(limits) {}
  // Ends what still runs, and waits for it.
  ~ServerSessions();
  ServerSessions(const ServerSessions&) = delete;
  ServerSessions& operator=(const ServerSessions&) = delete;

  // Why no session can be opened from this address now, for its user to read; empty when one can.
  std::string RefusalFor(std::string_view address);
  // A number for a session, from 1, never given twice.
  std::int64_t TakeNumber() { return ++lastNumber_; }
  // Starts the session. Requires that RefusalFor was empty. Fails when the system has no thread for it.
  void Open(std::int64_t number, std::shared_ptr<ServedSession> session, std::string_view address);
  // Ends a session at once; does nothing for one that is over.
  void EndNow(std::int64_t number) noexcept;

  void EndAllSoon();
  void EndAllNow();
  // False when some are still running after that time.
  bool WaitForAll(std::chrono::milliseconds patience);

 private:
  struct Running {
    std::shared_ptr<ServedSession> session;
    std::string address;
    std::thread thread;
  };

  void Run(std::int64_t number, ServedSession& session);
  void JoinOver();

  SessionLimits limits_;
  std::mutex mutex_;
  std::condition_variable ended_;
  std::map<std::int64_t, Running> running_;
  std::map<std::string, std::size_t, std::less<>> perAddress_;
  std::list<std::thread> over_;  // threads that only want to be joined
  std::atomic<std::int64_t> lastNumber_ = 0;
};

}  // namespace nvadmin::host
