#include "host/Connection.h"

#include <fcntl.h>
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

constexpr std::chrono::milliseconds kParting{200};

Moved Outcome(ssize_t bytes, Transfer whenBusy) {
  if (bytes > 0) return {Transfer::kMoved, static_cast<std::size_t>(bytes)};
  const bool isBusy = bytes < 0 && (errno == EAGAIN || errno == EWOULDBLOCK);
  return {isBusy ? whenBusy : Transfer::kGone, 0};
}

}  // namespace

Connection::Connection(int socket) : socket_(socket) {
  fcntl(socket, F_SETFL, fcntl(socket, F_GETFL) | O_NONBLOCK);
  // A reply is one write: waiting for more of it would only cost time. Not every socket knows the option.
  const int on = 1;
  setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
}

Connection::~Connection() { close(socket_); }

Moved Connection::Receive(char* to, std::size_t most) {
  ssize_t bytes = 0;
  do {
    bytes = recv(socket_, to, most, 0);
  } while (bytes < 0 && errno == EINTR);
  return Outcome(bytes, Transfer::kNeedsInput);
}

Moved Connection::Send(std::string_view bytes) {
  ssize_t sent = 0;
  do {
    sent = send(socket_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
  } while (sent < 0 && errno == EINTR);
  return Outcome(sent, Transfer::kNeedsRoom);
}

bool Connection::Wait(Transfer transfer, std::chrono::steady_clock::time_point until) const {
  pollfd waited{socket_, static_cast<short>(transfer == Transfer::kNeedsRoom ? POLLOUT : POLLIN), 0};
  for (;;) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(until - std::chrono::steady_clock::now());
    const auto most = static_cast<decltype(left)::rep>(std::numeric_limits<int>::max());
    const int milliseconds = static_cast<int>(std::clamp(left.count(), decltype(left)::rep{0}, most));
    const int ready = poll(&waited, 1, milliseconds);
    if (ready > 0) return true;
    if (ready == 0 && milliseconds < most) return false;
  }
}

void Connection::FinishOutput() {
  shutdown(socket_, SHUT_WR);
  const auto until = std::chrono::steady_clock::now() + kParting;
  std::array<char, 4096> dropped;
  for (;;) {
    const Moved moved = Connection::Receive(dropped.data(), dropped.size());
    if (moved.transfer == Transfer::kGone) return;
    if (std::chrono::steady_clock::now() >= until) return;
    if (moved.transfer != Transfer::kMoved && !Wait(moved.transfer, until)) return;
  }
}

void Connection::StopInput() noexcept { shutdown(socket_, SHUT_RD); }
void Connection::Break() noexcept { shutdown(socket_, SHUT_RDWR); }

}  // namespace nvadmin::host
