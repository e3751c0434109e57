// The addresses that the servers listen on, and those of who comes: a host's sockets, and their texts.
#pragma once

#include <sys/socket.h>

#include <cstdint>
#include <string>
#include <vector>

namespace nvadmin::host {

// A file descriptor that closes itself; -1 for none.
class Descriptor {
 public:
  explicit Descriptor(int number) : number_(number) {}
  ~Descriptor();
  Descriptor(Descriptor&& other) noexcept : number_(other.Release()) {}
  Descriptor& operator=(Descriptor&&) = delete;
  int Number() const { return number_; }
  // The caller closes it from now on.
  int Release();

 private:
  int number_;
};

// One end of a connection, in numbers.
struct Endpoint {
  std::string host;
  std::string port;
  // HOST:PORT, [HOST]:PORT for IPv6.
  std::string Text() const;
};

Endpoint ReadEndpoint(const sockaddr* address, socklen_t length);
// Of this side of the socket.
Endpoint LocalEndpoint(int socket);

// Sockets, set not to wait, that listen on all addresses that the host stands for, with one port: the one
// given, or for 0 one that is free. What this machine doesn't have is left out when there is another. Fails,
// naming host and port, when one can't be used.
std::vector<Descriptor> Listen(const std::string& host, std::uint16_t port);

// Whether only this machine can reach the host. Fails when the host isn't known.
bool IsLoopback(const std::string& host);

}  // namespace nvadmin::host
