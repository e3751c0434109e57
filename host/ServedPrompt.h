// The TCL prompt of someone who logged in to a server, and what the server's log says of the session.
#pragma once

#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <string_view>
#include <utility>

#include "engine/Home.h"
#include "host/LogInDesk.h"
#include "host/SessionPort.h"
#include "host/TclSession.h"

namespace nvadmin::host {

// To a user whose account can't be opened.
inline constexpr std::string_view kAccountUnopened =
    "The account can't be opened; the server's log tells why.";

class ServedPrompt {
 public:
  // Home and port are lent. `number` is the session's, `from` the client's address with its port.
  ServedPrompt(engine::Home& home, SessionPort& port, std::function<void(std::string_view line)> trace,
               std::int64_t number, std::string from)
      : home_(home), port_(port), trace_(std::move(trace)), number_(number), from_(std::move(from)) {}

  // Runs sentences until OFF or the loss of the port. False when the account couldn't be opened: why is in
  // the log.
  bool Run(LoggedIn user);
  // Stops the sentence under way, if there is one. Any thread.
  void Interrupt() noexcept;

  // An event of this session, and the same as a line for LogEventOfMany. Any thread.
  void Log(std::string_view event) const;
  std::string LogLine(std::string_view event) const;

 private:
  void SetRunning(TclSession* session);

  engine::Home& home_;
  SessionPort& port_;
  std::function<void(std::string_view line)> trace_;
  std::int64_t number_;
  std::string from_;

  std::mutex runningMutex_;
  TclSession* running_ = nullptr;
};

}  // namespace nvadmin::host
