#include "host/LineServer.h"

#include <netdb.h>
#include <netinet/in.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <exception>
#include <optional>
#include <system_error>
#include <vector>

#include <fmt/format.h>

#include "engine/CodePage.h"
#include "host/LineSession.h"
#include "host/ServerLog.h"

namespace nvadmin::host {

namespace {

constexpr int kBacklog = 512;
constexpr std::chrono::seconds kAcceptPause{1};
constexpr int kPauseLook = 200;  // milliseconds
// What epoll tells of: listeners by their place, the wake-up, sessions by their number from kFirstSession on.
constexpr std::uint64_t kWakeUp = 100;
constexpr std::uint64_t kFirstSession = 1000;

std::string SystemText(int number) { return std::generic_category().message(number); }

// A file descriptor that closes itself.
class Descriptor {
 public:
  explicit Descriptor(int number) : number_(number) {}
  ~Descriptor() {
    if (number_ >= 0) close(number_);
  }
  Descriptor(Descriptor&& other) noexcept : number_(other.Release()) {}
  Descriptor& operator=(Descriptor&&) = delete;
  int Number() const { return number_; }
  int Release() {
    const int number = number_;
    number_ = -1;
    return number;
  }

 private:
  int number_;
};

struct AddressList {
  explicit AddressList(const std::string& host, std::uint16_t port) {
    addrinfo hints{};
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_flags = AI_PASSIVE | AI_ADDRCONFIG;
    const int error = getaddrinfo(host.c_str(), std::to_string(port).c_str(), &hints, &first);
    if (error != 0) {
      throw EngineFailure(
          fmt::format("the host {} isn't known: {}", engine::ForeignText(host), gai_strerror(error)));
    }
  }
  ~AddressList() { freeaddrinfo(first); }
  AddressList(const AddressList&) = delete;
  AddressList& operator=(const AddressList&) = delete;

  addrinfo* first = nullptr;
};

struct Endpoint {
  std::string host;
  std::string port;
  std::string Text() const {
    return host.find(':') == std::string::npos ? fmt::format("{}:{}", host, port)
                                               : fmt::format("[{}]:{}", host, port);
  }
};

Endpoint ReadEndpoint(const sockaddr_storage& address, socklen_t length) {
  std::array<char, NI_MAXHOST> host{};
  std::array<char, NI_MAXSERV> port{};
  getnameinfo(reinterpret_cast<const sockaddr*>(&address), length, host.data(), host.size(), port.data(),
              port.size(), NI_NUMERICHOST | NI_NUMERICSERV);
  return {host.data(), port.data()};
}

Endpoint LocalEndpoint(int socket) {
  sockaddr_storage address{};
  socklen_t length = sizeof address;
  getsockname(socket, reinterpret_cast<sockaddr*>(&address), &length);
  return ReadEndpoint(address, length);
}

void SetPort(sockaddr* address, std::uint16_t port) {
  if (address->sa_family == AF_INET6) {
    reinterpret_cast<sockaddr_in6*>(address)->sin6_port = htons(port);
  } else {
    reinterpret_cast<sockaddr_in*>(address)->sin_port = htons(port);
  }
}

bool IsLoopbackAddress(const sockaddr* address) {
  if (address->sa_family == AF_INET6)
    return IN6_IS_ADDR_LOOPBACK(&reinterpret_cast<const sockaddr_in6*>(address)->sin6_addr);
  return ntohl(reinterpret_cast<const sockaddr_in*>(address)->sin_addr.s_addr) >> 24 == IN_LOOPBACKNET;
}

// A host may stand for several addresses; all of them get the same port.
std::vector<Descriptor> Listen(const std::string& host, std::uint16_t port) {
  const AddressList addresses(host, port);
  std::vector<Descriptor> listeners;
  for (const addrinfo* at = addresses.first; at != nullptr; at = at->ai_next) {
    Descriptor listener(socket(at->ai_family, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    const int on = 1;
    setsockopt(listener.Number(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    if (at->ai_family == AF_INET6) setsockopt(listener.Number(), IPPROTO_IPV6, IPV6_V6ONLY, &on, sizeof on);
    SetPort(at->ai_addr, port);
    if (bind(listener.Number(), at->ai_addr, at->ai_addrlen) != 0 ||
        listen(listener.Number(), kBacklog) != 0) {
      throw EngineFailure(
          fmt::format("can't listen on {}:{}: {}", engine::ForeignText(host), port, SystemText(errno)));
    }
    if (port == 0) port = static_cast<std::uint16_t>(std::stoi(LocalEndpoint(listener.Number()).port));
    listeners.push_back(std::move(listener));
  }
  return listeners;
}

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
  }

  void Watch(int descriptor, std::uint32_t what, std::uint64_t as) const {
    epoll_event event{};
    event.events = what;
    event.data.u64 = as;
    if (epoll_ctl(events.Number(), EPOLL_CTL_ADD, descriptor, &event) != 0)
      throw EngineFailure(fmt::format("a connection can't be watched: {}", SystemText(errno)));
  }
  void WatchListeners() const {
    for (std::size_t place = 0; place < listeners.size(); ++place)
      Watch(listeners[place].Number(), EPOLLIN, place);
  }
  void IgnoreListeners() const {
    for (const Descriptor& listener : listeners)
      epoll_ctl(events.Number(), EPOLL_CTL_DEL, listener.Number(), nullptr);
  }

  void Accept(int listener);
  void Open(Descriptor socket, const Endpoint& client);
  void Refuse(int socket, const Endpoint& client, std::string_view why) const;

  LineServerSettings settings;
  ServerSessions& sessions;
  LineSessionContext context;
  std::vector<Descriptor> listeners;
  Descriptor events;
  Descriptor wakeUp;
  std::unique_ptr<TlsServer> tls;
  std::string address;
  std::optional<std::chrono::steady_clock::time_point> pausedUntil;  // nothing is accepted until then
};

// Takes the connections that wait. When the system has no place for another, the listeners rest for a moment.
void LineServer::State::Accept(int listener) {
  for (;;) {
    sockaddr_storage client{};
    socklen_t length = sizeof client;
    Descriptor socket(
        accept4(listener, reinterpret_cast<sockaddr*>(&client), &length, SOCK_CLOEXEC | SOCK_NONBLOCK));
    if (socket.Number() >= 0) {
      Open(std::move(socket), ReadEndpoint(client, length));
      continue;
    }
    const bool isDone = errno == EAGAIN || errno == EWOULDBLOCK;
    if (isDone) return;
    if (errno == EINTR || errno == ECONNABORTED) continue;
    LogEvent(fmt::format("no connection can be taken for a moment: {}", SystemText(errno)));
    IgnoreListeners();
    pausedUntil = std::chrono::steady_clock::now() + kAcceptPause;
    return;
  }
}

void LineServer::State::Open(Descriptor socket, const Endpoint& client) {
  const int number = socket.Number();
  try {
    if (const std::string why = sessions.RefusalFor(client.host); !why.empty())
      return Refuse(number, client, why);
    const std::int64_t session = sessions.TakeNumber();
    std::unique_ptr<Connection> connection =
        tls != nullptr ? tls->Accept(socket.Release()) : std::make_unique<Connection>(socket.Release());
    Watch(number, EPOLLRDHUP | EPOLLONESHOT, kFirstSession + static_cast<std::uint64_t>(session));
    sessions.Open(
        session,
        std::make_shared<LineSession>(context, session, std::move(connection), client.host, client.Text()),
        client.host);
  } catch (const std::exception& failure) {
    LogEvent(fmt::format("connection from {} refused: {}", client.Text(), failure.what()));
  }
}

// Under TLS the client would have to make its handshake first to be told.
void LineServer::State::Refuse(int socket, const Endpoint& client, std::string_view why) const {
  LogEvent(fmt::format("connection from {} refused: {}", client.Text(), why));
  if (tls != nullptr) return;
  const std::string line = std::string(why) + "\r\n";
  send(socket, line.data(), line.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
  shutdown(socket, SHUT_WR);
}

LineServer::LineServer(engine::Home& home, Users& users, LogInDesk& desk, ServerSessions& sessions,
                       LineServerSettings settings)
    : state_(std::make_unique<State>(home, users, desk, sessions, std::move(settings))) {}

LineServer::~LineServer() = default;

const std::string& LineServer::Address() const { return state_->address; }

void LineServer::Run() {
  state_->WatchListeners();
  std::array<epoll_event, 64> events{};
  for (;;) {
    const int timeout = state_->pausedUntil ? kPauseLook : -1;
    const int count =
        epoll_wait(state_->events.Number(), events.data(), static_cast<int>(events.size()), timeout);
    if (state_->pausedUntil && std::chrono::steady_clock::now() >= *state_->pausedUntil) {
      state_->pausedUntil.reset();
      state_->WatchListeners();
    }
    for (int index = 0; index < count; ++index) {
      const std::uint64_t what = events[static_cast<std::size_t>(index)].data.u64;
      if (what == kWakeUp) return state_->IgnoreListeners();
      if (what >= kFirstSession) {
        state_->sessions.EndNow(static_cast<std::int64_t>(what - kFirstSession));
      } else if (!state_->pausedUntil) {
        state_->Accept(state_->listeners[what].Number());
      }
    }
  }
}

void LineServer::Stop() noexcept { eventfd_write(state_->wakeUp.Number(), 1); }

bool IsLoopback(const std::string& host) {
  const AddressList addresses(host, 0);
  for (const addrinfo* at = addresses.first; at != nullptr; at = at->ai_next) {
    if (!IsLoopbackAddress(at->ai_addr)) return false;
  }
  return true;
}

}  // namespace nvadmin::host
