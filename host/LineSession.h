// One session of the line server: the log-in, then the TCL prompt.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "engine/Home.h"
#include "host/LinePort.h"
#include "host/LogInDesk.h"
#include "host/ServedPrompt.h"
#include "host/ServerSessions.h"
#include "host/Users.h"

namespace nvadmin::host {

// What all sessions of a line server share; lent.
struct LineSessionContext {
  engine::Home& home;
  Users& users;
  LogInDesk& desk;
  LineLimits limits;
  std::chrono::seconds logIn;
  std::function<void(std::string_view line)> trace;
};

class LineSession final : public ServedSession {
 public:
  // `host` and `from` are the client's address without and with its port.
  LineSession(LineSessionContext context, std::int64_t number, std::unique_ptr<Connection> connection,
              std::string host, std::string from);

  void Serve() noexcept override;
  void Refuse(std::string_view why) noexcept override { port_.Close(why); }
  void EndSoon() noexcept override;
  void EndNow() noexcept override;

 private:
  void LogInAndRun();
  std::optional<LoggedIn> LogIn(std::chrono::steady_clock::time_point until);
  bool Ask(std::string_view question, std::string& answer, std::chrono::steady_clock::time_point until);
  void LogRefusal(std::string_view name) const;

  LineSessionContext context_;
  std::string host_;
  LinePort port_;
  ServedPrompt prompt_;
};

}  // namespace nvadmin::host
