// The port of a session on a line connection: plain bytes both ways, nothing converted and nothing escaped.
// LF or CR LF ends a line that comes in; the lines that go out end in CR LF. There is no cursor.
//
// What goes out is gathered up to 64 KiB, and then waits for the client to take it: a session holds no more
// of it. A client that takes nothing for a while is cut off, and so is one that sends a line or a request
// beyond its limit, or nothing. Why a connection ended is kept for the log; the client is told where it can
// be. An end that came from another thread counts from the next line on, also before lines that are there.
#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

#include "host/Connection.h"
#include "host/SessionPort.h"

namespace nvadmin::host {

struct LineLimits {
  std::size_t lineBytes = std::size_t{16} << 20;
  // A request of a client program may come in many lines, each of them asked for with a frame of its own.
  std::size_t requestBytes = std::size_t{64} << 20;
  std::chrono::seconds idle{3600};  // for a whole line to come
  std::chrono::seconds stall{60};   // for the client to take something of what goes out
};

class LinePort final : public SessionPort {
 public:
  LinePort(std::unique_ptr<Connection> connection, const LineLimits& limits)
      : connection_(std::move(connection)), limits_(limits) {}

  engine::InputResult ReadLine(std::string& line, std::int32_t length, bool echoLineEnd) override;
  void Write(std::string_view text, bool lineEnd) override;
  void Flush() override;
  std::string CursorString(std::int32_t /*column*/, std::int32_t /*row*/) override { return {}; }

  engine::InputResult ReadSentence(std::string& sentence) override;
  void EndOpenLine() override;
  std::string_view OpenLine() const override { return openLine_; }
  bool IsLost() const override { return lost_ || hungUp_; }

  // Before anything else: what the connection needs to be ready. False, with the end's reason, when it isn't
  // by then.
  bool Open(std::chrono::steady_clock::time_point until);
  // A line of the log-in, of at most `most` bytes, which must be there by `until`.
  engine::InputResult ReadLogInLine(std::string& line, std::size_t most,
                                    std::chrono::steady_clock::time_point until);
  // Ends the connection. What was printed still goes out, and behind it `why`, for the client to read; empty:
  // the session came to its own end. Does nothing when it is lost already. Doesn't fail.
  void Close(std::string_view why) noexcept;
  // Behind the end, when nothing else is left to do: see Connection.
  void AwaitHangUp() noexcept { connection_->AwaitHangUp(); }
  // Why the connection ended; empty while it hasn't.
  std::string_view EndReason() const { return endReason_; }

  // --- From any thread ---

  bool IsEnding() const { return lost_ || hungUp_ || ending_; }

  // The client has hung up: nothing more can be read or written.
  void HangUp() noexcept;
  // The session ends at its next wait for a line.
  void EndSoon() noexcept;
  int Socket() const { return connection_->Socket(); }

 private:
  engine::InputResult TakeLine(std::string& line, std::size_t most,
                               std::chrono::steady_clock::time_point until);
  bool ReceiveMore(std::chrono::steady_clock::time_point until);
  bool SendAll(std::string_view bytes);
  void RequireOpen();
  bool IsOver();
  void Lose(std::string_view reason);
  void NoteOpenLine(std::string_view text, bool lineEnd);

  std::unique_ptr<Connection> connection_;
  LineLimits limits_;
  std::string read_;              // what came in
  std::size_t lineStart_ = 0;     // where the line that was taken last begins in it
  std::size_t next_ = 0;          // where the next line begins
  std::size_t requestBytes_ = 0;  // of the lines of a request so far
  bool asksForMore_ = false;      // the client was asked for the next line of its request
  std::string gathered_;
  std::string openLine_;
  std::string endReason_;
  std::atomic<bool> lost_ = false;
  std::atomic<bool> hungUp_ = false;
  std::atomic<bool> ending_ = false;
};

}  // namespace nvadmin::host
