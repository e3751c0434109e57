// A connection of bytes to somebody far away, plain or under TLS.
// Used on its session's thread, StopInput and Break apart, which may come from any.
#pragma once

#include <chrono>
#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

struct ssl_ctx_st;

namespace nvadmin::host {

enum class Transfer {
  kMoved,  // at least one byte
  kLate,   // nothing in time
  kGone,   // the other side closed it, or it broke
};

struct Moved {
  Transfer transfer = Transfer::kGone;
  std::size_t bytes = 0;
};

class Connection {
 public:
  using TimePoint = std::chrono::steady_clock::time_point;

  // Takes the socket over.
  explicit Connection(int socket);
  virtual ~Connection();
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  // Settles what must be settled before the first byte. False, with the reason for the log, when the other
  // side doesn't do its part until then.
  virtual bool Open(TimePoint /*until*/, std::string& /*error*/) { return true; }

  // Wait for bytes, and for room for some of them.
  virtual Moved Receive(char* to, std::size_t most, TimePoint until);
  virtual Moved Send(std::string_view bytes, TimePoint until);

  // Tells the other side that nothing more is sent.
  virtual void EndOutput() noexcept;
  // Takes in for a moment what the other side still sends, until it hangs up too. A connection that is closed
  // with bytes unread drops what was sent last.
  void AwaitHangUp() noexcept;

  // No more input: a wait for it ends, and once what has come already is taken, every Receive is kGone.
  void StopInput() noexcept;
  // The same both ways.
  void Break() noexcept;
  int Socket() const { return socket_; }

 protected:
  // Waits for one of poll's events. False when it took longer.
  bool Wait(short event, TimePoint until) const;

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

  // Takes the socket over; the connection's Open makes the handshake. It must not outlive the server.
  std::unique_ptr<Connection> Accept(int socket) const;
  // The library's own object, which a caller that keeps it counts as one more user.
  ssl_ctx_st* NativeContext() const;

 private:
  struct Context;
  std::unique_ptr<Context> context_;
};

}  // namespace nvadmin::host
