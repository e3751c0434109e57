#include "host/Listeners.h"

#include <netdb.h>
#include <netinet/in.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <system_error>
#include <utility>

#include <fmt/format.h>

#include "engine/CodePage.h"
#include "session/EngineCallBack.h"

namespace nvadmin::host {

namespace {

constexpr int kBacklog = 512;

struct AddressList {
  explicit AddressList(const std::string& host, std::uint16_t port) {
    addrinfo hints{};
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_flags = AI_PASSIVE;
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

// 0, or why not.
int TryListen(int socket, const addrinfo& address) {
  if (socket < 0) return errno;
  const int on = 1;
  setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  if (address.ai_family == AF_INET6) setsockopt(socket, IPPROTO_IPV6, IPV6_V6ONLY, &on, sizeof on);
  const bool listens =
      bind(socket, address.ai_addr, address.ai_addrlen) == 0 && listen(socket, kBacklog) == 0;
  return listens ? 0 : errno;
}

// The machine doesn't have such an address; where a family is switched off, either is said.
bool IsNotHere(int error) { return error == EAFNOSUPPORT || error == EADDRNOTAVAIL; }

}  // namespace

Descriptor::~Descriptor() {
  if (number_ >= 0) close(number_);
}

int Descriptor::Release() { return std::exchange(number_, -1); }

std::string Endpoint::Text() const {
  return host.find(':') == std::string::npos ? fmt::format("{}:{}", host, port)
                                             : fmt::format("[{}]:{}", host, port);
}

Endpoint ReadEndpoint(const sockaddr* address, socklen_t length) {
  std::array<char, NI_MAXHOST> host{};
  std::array<char, NI_MAXSERV> port{};
  getnameinfo(address, length, host.data(), host.size(), port.data(), port.size(),
              NI_NUMERICHOST | NI_NUMERICSERV);
  return {host.data(), port.data()};
}

Endpoint LocalEndpoint(int socket) {
  sockaddr_storage address{};
  socklen_t length = sizeof address;
  getsockname(socket, reinterpret_cast<sockaddr*>(&address), &length);
  return ReadEndpoint(reinterpret_cast<const sockaddr*>(&address), length);
}

std::vector<Descriptor> Listen(const std::string& host, std::uint16_t port) {
  const AddressList addresses(host, port);
  std::vector<Descriptor> listeners;
  int error = 0;
  for (const addrinfo* at = addresses.first; at != nullptr; at = at->ai_next) {
    Descriptor listener(socket(at->ai_family, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    SetPort(at->ai_addr, port);
    error = TryListen(listener.Number(), *at);
    if (IsNotHere(error)) continue;
    if (error != 0) break;
    if (port == 0) port = static_cast<std::uint16_t>(std::stoi(LocalEndpoint(listener.Number()).port));
    listeners.push_back(std::move(listener));
  }
  if (error == 0 || (IsNotHere(error) && !listeners.empty())) return listeners;
  throw EngineFailure(fmt::format("can't listen on {}: {}",
                                  Endpoint{engine::ForeignText(host), std::to_string(port)}.Text(),
                                  std::generic_category().message(error)));
}

bool IsLoopback(const std::string& host) {
  const AddressList addresses(host, 0);
  for (const addrinfo* at = addresses.first; at != nullptr; at = at->ai_next) {
    if (!IsLoopbackAddress(at->ai_addr)) return false;
  }
  return true;
}

}  // namespace nvadmin::host
