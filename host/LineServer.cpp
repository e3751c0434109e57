#include "host/LineServer.h"

#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <exception>
#include <optional>
#include <system_error>
#include <vector>

#include <fmt/format.h>

#include "host/LineSession.h"
#include "host/Listeners.h"
#include "host/ServerLog.h"

namespace nvadmin::host {

namespace {

constexpr int kMostAccepts = 64;  // before other events are looked at
constexpr std::chrono::seconds kAcceptPause{1};
constexpr int kLookMilliseconds = 100;  // while something is to be done again
// What epoll tells of: listeners by their place, the wake-up, sessions by their number from kFirstSession on.
constexpr std::uint64_t kWakeUp = 100;
constexpr std::uint64_t kFirstSession = 1000;

std::string SystemText(int number) { return std::generic_category().message(number); }

}  // namespace

struct LineServer::State {
  State(engine::Home& home, Users& users, LogInDesk& desk, ServerSessions& served, LineServerSettings given)
      : settings(std::move(given)),
        sessions(served),
        context{home, users, desk, settings.limits, settings.logIn, settings.trace},
        listeners(Listen(settings.host, settings.port)),
        events(epoll_create1(EPOLL_CLOEXEC)),
        wakeUp(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    if (!settings.certificate.empty()) tls = std::make_unique<TlsServer>(settings.certificate, settings.key);
    address = LocalEndpoint(listeners.front().Number()).Text();
    Watch(wakeUp.Number(), EPOLLIN, kWakeUp);
    for (std::size_t place = 0; place < listeners.size(); ++place)
      Watch(listeners[place].Number(), EPOLLIN, place);
  }

  void Control(int operation, int descriptor, std::uint32_t what, std::uint64_t as) const {
    epoll_event event{};
    event.events = what;
    event.data.u64 = as;
    if (epoll_ctl(events.Number(), operation, descriptor, &event) != 0)
      throw EngineFailure(fmt::format("a connection can't be watched: {}", SystemText(errno)));
  }
  void Watch(int descriptor, std::uint32_t what, std::uint64_t as) const {
    Control(EPOLL_CTL_ADD, descriptor, what, as);
  }
  void WatchListeners(bool accepts) const {
    for (std::size_t place = 0; place < listeners.size(); ++place)
      Control(EPOLL_CTL_MOD, listeners[place].Number(), accepts ? std::uint32_t{EPOLLIN} : 0, place);
  }

  void Accept(int listener);
  void Open(Descriptor socket, const Endpoint& client);
  void Refuse(int socket, std::string_view why) const;
  void LookAgain();

  LineServerSettings settings;
  ServerSessions& sessions;
  LineSessionContext context;
  std::vector<Descriptor> listeners;
  Descriptor events;
  Descriptor wakeUp;
  std::unique_ptr<TlsServer> tls;
  std::string address;
  std::optional<std::chrono::steady_clock::time_point> pausedUntil;  // nothing is accepted until then
  std::vector<std::int64_t> hungUp;                                  // sessions that may still run
};

// Takes connections that wait, some at a time: a flood of them must not keep the watch from what else
// happens. When the system has no place for another, the listeners rest for a moment.
void LineServer::State::Accept(int listener) {
  for (int taken = 0; taken < kMostAccepts; ++taken) {
    sockaddr_storage client{};
    socklen_t length = sizeof client;
    Descriptor socket(accept4(listener, reinterpret_cast<sockaddr*>(&client), &length, SOCK_CLOEXEC));
    if (socket.Number() >= 0) {
      Open(std::move(socket), ReadEndpoint(reinterpret_cast<const sockaddr*>(&client), length));
      continue;
    }
    const bool isDone = errno == EAGAIN || errno == EWOULDBLOCK;
    if (isDone) return;
    if (errno == EINTR || errno == ECONNABORTED) continue;
    LogEvent(fmt::format("no connection can be taken for a moment: {}", SystemText(errno)));
    WatchListeners(/*accepts=*/false);
    pausedUntil = std::chrono::steady_clock::now() + kAcceptPause;
    return;
  }
}

void LineServer::State::Open(Descriptor socket, const Endpoint& client) {
  const auto makeSession = [&](std::int64_t session) {
    const int number = socket.Number();
    std::unique_ptr<Connection> connection =
        tls != nullptr ? tls->Accept(socket.Release()) : std::make_unique<Connection>(socket.Release());
    Watch(number, EPOLLRDHUP | EPOLLONESHOT, kFirstSession + static_cast<std::uint64_t>(session));
    return std::make_shared<LineSession>(context, session, std::move(connection), client.host, client.Text());
  };
  try {
    const std::string why = sessions.Open(client.host, makeSession);
    if (why.empty()) return;
    if (socket.Number() >= 0) Refuse(socket.Number(), why);
    LogEventOfMany("refused connections", fmt::format("connection from {} refused: {}", client.Text(), why));
  } catch (const std::exception& failure) {
    LogEventOfMany("failed connections",
                   fmt::format("connection from {} failed: {}", client.Text(), failure.what()));
  }
}

// Under TLS the client would have to make its handshake first to be told.
void LineServer::State::Refuse(int socket, std::string_view why) const {
  if (tls != nullptr) return;
  const std::string line = std::string(why) + "\r\n";
  send(socket, line.data(), line.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
  shutdown(socket, SHUT_WR);
  // With bytes unread the line could be lost on its way.
  std::array<char, 4096> dropped;
  recv(socket, dropped.data(), dropped.size(), MSG_DONTWAIT);
}

void LineServer::State::LookAgain() {
  std::erase_if(hungUp, [this](std::int64_t session) { return !sessions.EndNow(session); });
  if (!pausedUntil || std::chrono::steady_clock::now() < *pausedUntil) return;
  pausedUntil.reset();
  WatchListeners(/*accepts=*/true);
}

LineServer::LineServer(engine::Home& home, Users& users, LogInDesk& desk, ServerSessions& sessions,
                       LineServerSettings settings)
    : state_(std::make_unique<State>(home, users, desk, sessions, std::move(settings))) {}

LineServer::~LineServer() = default;

const std::string& LineServer::Address() const { return state_->address; }

void LineServer::Run() {
  std::array<epoll_event, 64> events{};
  for (;;) {
    const bool looksAgain = state_->pausedUntil || !state_->hungUp.empty();
    const int count = epoll_wait(state_->events.Number(), events.data(), static_cast<int>(events.size()),
                                 looksAgain ? kLookMilliseconds : -1);
    for (int index = 0; index < count; ++index) {
      const std::uint64_t what = events[static_cast<std::size_t>(index)].data.u64;
      if (what == kWakeUp) return state_->listeners.clear();
      if (what >= kFirstSession) {
        state_->hungUp.push_back(static_cast<std::int64_t>(what - kFirstSession));
      } else if (!state_->pausedUntil) {
        state_->Accept(state_->listeners[what].Number());
      }
    }
    state_->LookAgain();
  }
}

void LineServer::Stop() noexcept { eventfd_write(state_->wakeUp.Number(), 1); }

}  // namespace nvadmin::host
