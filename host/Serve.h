// Runs the servers of a home.
#pragma once

#include <chrono>
#include <functional>
#include <string>
#include <string_view>

#include "engine/Home.h"
#include "host/LinePort.h"
#include "host/ServerSessions.h"
#include "host/TclSession.h"

namespace nvadmin::host {

struct ServeSettings {
  std::string line;         // HOST:PORT of the line server, [HOST]:PORT for IPv6; port 0: one that is free
  std::string certificate;  // PEM files; both or none
  std::string key;
  bool insecure = false;  // plain text is allowed beyond this machine
  LineLimits lineLimits;
  SessionLimits sessionLimits;
  std::chrono::seconds logIn{60};
};

// Whether the text is a HOST:PORT as above.
bool IsAddress(const std::string& text);

// Requires an address, and neither or both of the PEM files. Returns when a signal ended it (see RunServe).
// Fails, naming what can't be used.
ExitCode Serve(engine::Home& home, const ServeSettings& settings,
               std::function<void(std::string_view line)> trace);

}  // namespace nvadmin::host
