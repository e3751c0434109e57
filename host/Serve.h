// Runs the servers of a home.
#pragma once

#include <chrono>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "engine/Home.h"
#include "host/LinePort.h"
#include "host/ServerSessions.h"
#include "host/TclSession.h"
#include "host/WebLogIns.h"
#include "host/WebPort.h"

namespace nvadmin::host {

inline constexpr char kUsualWeb[] = "127.0.0.1:8080";

struct ServeSettings {
  // HOST:PORT, [HOST]:PORT for IPv6; port 0: one that is free. Without both, the web server has kUsualWeb.
  std::string line;
  std::string web;
  std::string certificate;  // PEM files; both or none
  std::string key;
  bool insecure = false;              // plain text is allowed beyond this machine
  std::vector<std::string> webNames;  // by which browsers may know the web server; see IsWebName
  LineLimits lineLimits;              // for both servers, as far as both have them
  std::chrono::seconds resume = WebLimits().resume;
  SessionLimits sessionLimits;
  std::chrono::seconds logIn{60};
  std::chrono::seconds loggedIn = WebLogIns::kLife;  // after a browser's last use
};

// Whether the text is a HOST:PORT as above.
bool IsAddress(const std::string& text);
// Whether it is NAME, or https://NAME for one that a proxy serves under TLS.
bool IsWebName(const std::string& text);

// Requires neither or both of the PEM files. Returns when a signal ended it (see RunServe).
// Fails, naming what can't be used.
ExitCode Serve(engine::Home& home, const ServeSettings& settings,
               std::function<void(std::string_view line)> trace);

}  // namespace nvadmin::host
