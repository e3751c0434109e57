// A connection of bytes to somebody far away, plain or under TLS. Never blocks by itself.
// Used on its session's thread, StopInput and Break apart, which may come from any.
#pragma once

#include <chrono>
#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

namespace nvadmin::host {

enum class Transfer {
  kMoved,       // at least one byte
  kNeedsInput,  // try again when the connection can be read
  kNeedsRoom,   // try again when it can be written
  kGone,        // the other side closed it, or it broke
};

struct Moved {
  Transfer transfer = Transfer::kGone;
  std::size_t bytes = 0;
};

class Connection {
 public:
  // Takes the socket over.
  explicit Connection(int socket);
  virtual ~Connection();
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  virtual Moved Receive(char* to, std::size_t most);
  virtual Moved Send(std::string_view bytes);

  // Waits until what `transfer` asks for can be done. False when that took longer than `until`.
  bool Wait(Transfer transfer, std::chrono::steady_clock::time_point until) const;
  // Tells the other side that nothing more is sent, and takes in for a moment what it still sends: otherwise
  // what was sent last could be lost on its way.
  void FinishOutput();

  // No more input: a wait for it ends, and every later Receive is kGone.
  void StopInput() noexcept;
  // The same both ways.
  void Break() noexcept;
  int Socket() const { return socket_; }

 private:
  int socket_;
};

// The certificate and key of a server, for the connections that it takes.
class TlsServer {
 public:
  // PEM files. TLS 1.2 and up. Fails, naming the file, when they can't be used.
  TlsServer(const std::string& certificateFile, const std::string& keyFile);
  ~TlsServer();
  TlsServer(const TlsServer&) = delete;
  TlsServer& operator=(const TlsServer&) = delete;

  // Takes the socket over. The handshake is made by the first transfers. Must not outlive the server.
  std::unique_ptr<Connection> Accept(int socket) const;

 private:
  struct Context;
  std::unique_ptr<Context> context_;
};

}  // namespace nvadmin::host
