// The sessions of a server, whatever carries them: how many there may be, a thread for each, and their end.
// Knows no sockets.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <functional>
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

// One session. Serve runs on a thread of its own; EndSoon and EndNow may be called from any thread while it
// runs, also more than once.
class ServedSession {
 public:
  virtual ~ServedSession() = default;
  // Returns when the session is over. Doesn't fail.
  virtual void Serve() noexcept = 0;
  // Instead of Serve: tells the user why there is no session.
  virtual void Refuse(std::string_view why) noexcept = 0;
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

  // Starts the session that `make` gives for the session's number: from 1, none given twice. Answers why
  // there can't be one from this address (see CountedAddress) now, for its user to read, and empty when there
  // is. Over a limit nothing is made; a session for which the system has no thread is refused. What `make`
  // throws comes through.
  std::string Open(std::string_view address,
                   const std::function<std::shared_ptr<ServedSession>(std::int64_t number)>& make);
  // Ends a session at once. An end that meets the session between two steps may be missed: call it again
  // while it answers true, that the session still runs.
  bool EndNow(std::int64_t number) noexcept;

  void EndAllSoon();
  // As EndNow.
  void EndAllNow();
  // False when some are still running after that time.
  bool WaitForAll(std::chrono::milliseconds patience);

 private:
  struct Running {
    std::shared_ptr<ServedSession> session;
    std::string address;
    std::thread thread;
  };
  using RunningSessions = std::map<std::int64_t, Running>;

  // Both require the mutex.
  std::string RefusalFor(std::string_view address) const;
  void Forget(RunningSessions::iterator entry);
  void Run(std::int64_t number, ServedSession& session);

  SessionLimits limits_;
  std::mutex mutex_;
  std::condition_variable ended_;
  std::int64_t lastNumber_ = 0;
  RunningSessions running_;
  std::map<std::string, std::size_t, std::less<>> perAddress_;
  std::thread lastEnded_;  // each session's thread joins the one that ended before it
};

}  // namespace nvadmin::host
