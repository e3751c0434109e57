#include "host/Serve.h"

#include <pthread.h>
#include <sys/resource.h>

#include <charconv>
#include <csignal>
#include <optional>
#include <thread>

#include <fmt/format.h>

#include "engine/CodePage.h"
#include "host/LineServer.h"
#include "host/Listeners.h"
#include "host/LogInDesk.h"
#include "host/ServerLog.h"
#include "host/Users.h"
#include "host/WebServer.h"

namespace nvadmin::host {

namespace {

constexpr std::chrono::milliseconds kPatience{10'000};
constexpr std::chrono::milliseconds kLastPatience{3'000};
constexpr std::chrono::milliseconds kLook{50};

struct HostAndPort {
  std::string host;
  std::uint16_t port = 0;
};

std::optional<HostAndPort> ReadAddress(const std::string& text) {
  const std::size_t colon = text.rfind(':');
  if (colon == std::string::npos) return std::nullopt;
  std::string host = text.substr(0, colon);
  if (host.starts_with('[') && host.ends_with(']')) host = host.substr(1, host.size() - 2);
  std::uint16_t port = 0;
  const char* const end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data() + colon + 1, end, port);
  if (host.empty() || error != std::errc() || stop != end) return std::nullopt;
  return HostAndPort{host, port};
}

void RequireSafety(const ServeSettings& settings, const std::string& address) {
  if (!settings.certificate.empty() || settings.insecure || IsLoopback(ReadAddress(address).value().host))
    return;
  throw EngineFailure(fmt::format(
      "{} can be reached from other machines, and passwords would travel in plain text: give --tls-cert and "
      "--tls-key, listen on 127.0.0.1, or allow it with --insecure",
      engine::ForeignText(address)));
}

// A session needs a handful of open files; the usual limit would do for a few hundred sessions.
void RaiseFileLimit() {
  rlimit files{};
  if (getrlimit(RLIMIT_NOFILE, &files) != 0 || files.rlim_cur >= files.rlim_max) return;
  files.rlim_cur = files.rlim_max;
  setrlimit(RLIMIT_NOFILE, &files);
}

sigset_t BlockEndSignals() {
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGTERM);
  sigaddset(&signals, SIGINT);
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);
  return signals;
}

// Lets what runs end. A second signal, or the end of patience, ends it at once.
void EndSessions(ServerSessions& sessions, const sigset_t& signals) {
  sessions.EndAllSoon();
  const auto until = std::chrono::steady_clock::now() + kPatience;
  while (!sessions.WaitForAll(std::chrono::milliseconds(0)) && std::chrono::steady_clock::now() < until) {
    const timespec look{0, std::chrono::nanoseconds(kLook).count()};
    if (sigtimedwait(&signals, nullptr, &look) > 0) break;
  }
  const auto last = std::chrono::steady_clock::now() + kLastPatience;
  while (std::chrono::steady_clock::now() < last) {
    sessions.EndAllNow();
    if (sessions.WaitForAll(kLook)) return;
  }
  // What is answered is on disk, and the locks go with the program.
  LogEvent("ended with sessions that didn't stop");
  std::_Exit(static_cast<int>(ExitCode::kFailed));
}

// How to add a user, with the home and an account as they are.
std::string UserAddCommand(const engine::Home& home) {
  const std::vector<engine::Account> accounts = home.Accounts();
  return fmt::format("nvadmin --home {} user add NAME --account {}",
                     engine::ForeignText(home.Folder().string()),
                     accounts.empty() ? "A,B" : accounts.front().name);
}

LineServerSettings ForLineServer(const ServeSettings& settings, std::function<void(std::string_view)> trace) {
  const HostAndPort address = ReadAddress(settings.line).value();
  return {address.host,        address.port,   settings.certificate, settings.key,
          settings.lineLimits, settings.logIn, std::move(trace)};
}

WebServerSettings ForWebServer(const ServeSettings& settings, std::function<void(std::string_view)> trace) {
  const HostAndPort address = ReadAddress(settings.web).value();
  const LineLimits& line = settings.lineLimits;
  std::vector<WebName> names;
  for (const std::string& name : settings.webNames) names.push_back(ReadWebName(name).value());
  return {address.host,           address.port,     settings.certificate,
          settings.key,           std::move(names), {line.lineBytes, line.idle, line.stall, settings.resume},
          settings.sessionLimits, settings.logIn,   settings.loggedIn,
          std::move(trace)};
}

}  // namespace

bool IsAddress(const std::string& text) { return ReadAddress(text).has_value(); }
bool IsWebName(const std::string& text) { return ReadWebName(text).has_value(); }

ExitCode Serve(engine::Home& home, const ServeSettings& given,
               std::function<void(std::string_view line)> trace) {
  ServeSettings settings = given;
  if (settings.line.empty() && settings.web.empty()) settings.web = kUsualWeb;
  for (const std::string& address : {settings.line, settings.web}) {
    if (!address.empty()) RequireSafety(settings, address);
  }
  RaiseFileLimit();
  const sigset_t signals = BlockEndSignals();

  Users users(home);
  LogInDesk desk(home, users);
  ServerSessions sessions(settings.sessionLimits);
  std::optional<LineServer> lineServer;
  std::optional<WebServer> webServer;
  if (!settings.line.empty()) {
    lineServer.emplace(home, users, desk, sessions, ForLineServer(settings, trace));
    LogEvent(fmt::format("line server listens on {}{}", lineServer->Address(),
                         settings.certificate.empty() ? "" : " under TLS"));
  }
  if (!settings.web.empty()) {
    webServer.emplace(home, users, desk, sessions, ForWebServer(settings, trace));
    LogEvent(fmt::format("web server listens on {}", webServer->Address()));
  }
  if (users.IsEmpty())
    LogEvent(
        fmt::format("no users yet: add one with '{}', also while the server runs", UserAddCommand(home)));

  std::thread lineThread([&] {
    if (lineServer) lineServer->Run();
  });
  std::thread webThread([&] {
    if (webServer) webServer->Run();
  });
  int signal = 0;
  sigwait(&signals, &signal);
  LogEvent(fmt::format("ending on signal {}", signal == SIGTERM ? "SIGTERM" : "SIGINT"));
  if (lineServer) lineServer->Stop();
  if (webServer) webServer->Stop();
  lineThread.join();
  EndSessions(sessions, signals);
  if (webServer) webServer->Finish();
  webThread.join();
  LogEvent("ended");
  return ExitCode::kFine;
}

}  // namespace nvadmin::host
