// The web server: the page and its files over HTTP, and a connection (WebSocket) for each page's session. One
// thread carries all of them; sessions run on threads of their own.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "engine/Home.h"
#include "host/LogInDesk.h"
#include "host/ServerSessions.h"
#include "host/Users.h"
#include "host/WebLogIns.h"
#include "host/WebPort.h"
#include "host/WebSite.h"

namespace nvadmin::host {

struct WebServerSettings {
  std::string host;
  std::uint16_t port = 0;   // 0: one that is free
  std::string certificate;  // PEM files; empty: plain text
  std::string key;
  std::vector<WebName> names;  // by which browsers may know it, beside those of this machine
  WebLimits limits;
  SessionLimits sessionLimits;  // connections are limited to four times as many
  std::chrono::seconds logIn{60};
  std::chrono::seconds loggedIn = WebLogIns::kLife;
  std::function<void(std::string_view line)> trace;
};

class WebServer {
 public:
  // Takes the address. All but the settings is lent. Fails, naming address or file, when one can't be used.
  WebServer(engine::Home& home, Users& users, LogInDesk& desk, ServerSessions& sessions,
            WebServerSettings settings);
  ~WebServer();
  WebServer(const WebServer&) = delete;
  WebServer& operator=(const WebServer&) = delete;

  // What to give a browser, with the port's real number.
  const std::string& Address() const;
  // Serves until Finish.
  void Run();
  // Any thread. Nobody comes in any more; sessions go on.
  void Stop() noexcept;
  // Any thread, when the sessions have ended: their pages are told, which may take a second, and Run returns.
  void Finish() noexcept;

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace nvadmin::host
