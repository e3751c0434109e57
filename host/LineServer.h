// The line server: takes connections of terminals and client programs, asks them to log in, and gives each a
// session at the TCL prompt on a thread of its own.
//
// A client that hangs up, or closes its sending side, ends its session at once: a statement that runs is
// interrupted, the locks go, and what wasn't answered is there whole or not at all.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>

#include "engine/Home.h"
#include "host/Connection.h"
#include "host/LinePort.h"
#include "host/LogInDesk.h"
#include "host/ServerSessions.h"
#include "host/Users.h"

namespace nvadmin::host {

struct LineServerSettings {
  std::string host;
  std::uint16_t port = 0;   // 0: one that is free
  std::string certificate;  // PEM files; empty: plain text
  std::string key;
  LineLimits limits;
  std::chrono::seconds logIn{60};  // for the whole log-in
  std::function<void(std::string_view line)> trace;
};

class LineServer {
 public:
  // Takes the address. All but the settings is lent. Fails, naming address or file, when one can't be used.
  LineServer(engine::Home& home, Users& users, LogInDesk& desk, ServerSessions& sessions,
             LineServerSettings settings);
  ~LineServer();
  LineServer(const LineServer&) = delete;
  LineServer& operator=(const LineServer&) = delete;

  // Where it listens, with the port's real number.
  const std::string& Address() const;
  // Takes connections and watches those that are there, until Stop.
  void Run();
  // Any thread. Sessions go on.
  void Stop() noexcept;

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace nvadmin::host
