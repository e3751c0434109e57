#include "host/Connection.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <limits>

namespace nvadmin::host {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::seconds kLongestCall{10};
constexpr std::chrono::seconds kParting{1};

struct Option {
  int level;
  int name;
  int value;
};

constexpr Option kOptions[] = {
    // A reply is one write: waiting for more of it would only cost time.
    {IPPROTO_TCP, TCP_NODELAY, 1},
    // A client whose machine or network died is noticed after two minutes.
    {SOL_SOCKET, SO_KEEPALIVE, 1},
    {IPPROTO_TCP, TCP_KEEPIDLE, 60},
    {IPPROTO_TCP, TCP_KEEPINTVL, 15},
    {IPPROTO_TCP, TCP_KEEPCNT, 4},
};

bool MayTryAgain() { return errno == EINTR || errno == EAGAIN || errno == EWOULDBLOCK; }

}  // namespace

Connection::Connection(int socket) : socket_(socket) {
  // Not every kind of socket knows all of this; it does without.
  for (const Option& option : kOptions)
    setsockopt(socket, option.level, option.name, &option.value, sizeof option.value);
  const timeval longestCall{kLongestCall.count(), 0};
  setsockopt(socket, SOL_SOCKET, SO_RCVTIMEO, &longestCall, sizeof longestCall);
}

Connection::~Connection() { close(socket_); }

// A wait that has long to go is left to the receiving call: a request costs one system call to take.
Moved Connection::Receive(char* to, std::size_t most, TimePoint until) {
  for (;;) {
    const bool hasLong = until - Clock::now() > kLongestCall;
    if (!hasLong && !Wait(POLLIN, until)) return {Transfer::kLate, 0};
    const ssize_t bytes = recv(socket_, to, most, hasLong ? 0 : MSG_DONTWAIT);
    if (bytes > 0) return {Transfer::kMoved, static_cast<std::size_t>(bytes)};
    if (bytes == 0 || !MayTryAgain()) return {};
  }
}

Moved Connection::Send(std::string_view bytes, TimePoint until) {
  for (;;) {
    const ssize_t sent = send(socket_, bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
    if (sent > 0) return {Transfer::kMoved, static_cast<std::size_t>(sent)};
    if (!MayTryAgain()) return {};
    if (!Wait(POLLOUT, until)) return {Transfer::kLate, 0};
  }
}

bool Connection::Wait(short event, TimePoint until) const {
  using Milliseconds = std::chrono::milliseconds;
  constexpr Milliseconds kMost{std::numeric_limits<int>::max()};
  pollfd waited{socket_, event, 0};
  for (;;) {
    const auto left =
        std::clamp(std::chrono::ceil<Milliseconds>(until - Clock::now()), Milliseconds(0), kMost);
    const int ready = poll(&waited, 1, static_cast<int>(left.count()));
    if (ready > 0) return true;
    if (ready == 0 && left < kMost) return false;
  }
}

void Connection::EndOutput() noexcept { shutdown(socket_, SHUT_WR); }

void Connection::AwaitHangUp() noexcept {
  const auto until = Clock::now() + kParting;
  std::array<char, 16'384> dropped;
  while (Clock::now() < until &&
         Connection::Receive(dropped.data(), dropped.size(), until).transfer == Transfer::kMoved) {
  }
}

void Connection::StopInput() noexcept { shutdown(socket_, SHUT_RD); }
void Connection::Break() noexcept { shutdown(socket_, SHUT_RDWR); }

}  // namespace nvadmin::host
