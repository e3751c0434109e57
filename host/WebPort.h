// The port of a web session: numbered messages to a page and numbered lines from it, over connections that
// come and go. What the messages are is told in docs/web.md.
//
// While no connection is there the session goes on: its output is kept as KeptOutput keeps it, and a wait for
// a line lasts until the page has come back or the port is lost. While one is there, output that it hasn't
// taken is queued for it; over 8 MiB of that, the session's thread waits. Text of the add-in is one message a
// call, with the cursor strings in it, whose word the page is told; the engine's own text is gathered, and
// shown as on any screen: nothing in it acts.
//
// The session's thread uses it as a port; the routines below "From any thread" are the connections'.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include "host/KeptOutput.h"
#include "host/ScreenText.h"
#include "host/SessionPort.h"

namespace nvadmin::host {

struct WebLimits {
  std::size_t lineBytes = std::size_t{16} << 20;
  std::chrono::seconds idle{3600};   // for a line to come
  std::chrono::seconds stall{60};    // for the browser to take something of what goes out
  std::chrono::seconds resume{300};  // for a page that lost its connection to come back
};

// What carries a session's messages to a page. Both are called from any thread, also with locks held: they
// only leave word.
class WebChannel {
 public:
  virtual ~WebChannel() = default;
  // There is something to take with NextOutput.
  virtual void OutputWaits() noexcept = 0;
  // Another channel has the session now.
  virtual void Moved() noexcept = 0;
};

class WebPort final : public SessionPort {
 public:
  using Clock = std::chrono::steady_clock;

  // `token` is what a page shows to resume the session.
  WebPort(std::string token, std::string account, const WebLimits& limits);

  engine::InputResult ReadLine(std::string& line, std::int32_t length, bool echoLineEnd) override;
  void Write(std::string_view text, bool lineEnd) override;
  void WriteMessage(std::string_view text, bool lineEnd) override;
  void Flush() override;
  bool ShowsPages() const override { return true; }
  std::string CursorString(std::int32_t column, std::int32_t row) override {
    return screen_.CursorString(column, row);
  }

  engine::InputResult ReadSentence(std::string& sentence) override;
  void EndOpenLine() override;
  std::string_view OpenLine() const override { return screen_.OpenLine(); }  // UTF-8
  bool IsLost() const override;
  bool IsInterrupted() const override;
  void ShowAccount(std::string_view account) override;

  // The session is over: what was printed still goes out, and behind it `reason`, a word that the page knows
  // or a sentence. An earlier end keeps its reason. Doesn't fail.
  void Close(std::string_view reason) noexcept;
  // Why it ended; empty while it hasn't.
  std::string EndReason() const;

  // --- From any thread ---

  // The channel has the port from now on, and the one before it is told so. It gets the answer to the page's
  // first message, then what the page hasn't seen.
  void Attach(std::shared_ptr<WebChannel> channel, std::uint64_t seen);
  // The channel is gone. Does nothing when another has the port already.
  void Detach(const WebChannel& channel) noexcept;

  enum class Taken {
    kAccepted,
    kKnown,    // it was there already
    kMissing,  // a line before it is missing
    kFull,     // too much waits: the page may send it again later
  };
  Taken TakeLine(std::uint64_t number, std::string_view utf8);

  // The next message for the channel; null when there is none now, or the channel hasn't the port any more.
  // `isLast`: nothing comes behind it.
  WebMessage NextOutput(const WebChannel& channel, bool& isLast);

  // Stops what runs, by calling `stop`, with locks held. A wait for an answer at the terminal ends too, as an
  // empty one. A form's wait is left alone, and the prompt is shown again.
  void Interrupt(const std::function<void()>& stop);
  // The session ends at its next wait for a line.
  void EndSoon() noexcept;
  // The port is lost.
  void Lose(std::string_view reason) noexcept;
  // Whether no channel has had it for longer than a page may take to come back.
  bool IsAbandoned(Clock::time_point now) const;

 private:
  struct Line {
    std::uint64_t number = 0;
    std::string utf8;
  };
  enum class Wanted { kNothing, kSentence, kAnswer };

  engine::InputResult Take(std::string& line, Wanted wanted);
  void BeginWait(Wanted wanted);
  std::optional<Line> AwaitLine(Wanted wanted, Clock::time_point until);
  void NoteOpenLine(std::string_view text, bool lineEnd);
  // Counts, keeps and queues a message; waits for room.
  void Send(std::string message);
  // These four require the mutex.
  void Queue(WebMessage message);
  void End(std::string_view reason);
  bool HasRoom() const;
  void Wake();

  const std::string token_;
  const WebLimits limits_;

  // The session's thread alone, the cursor word apart, which never changes.
  ScreenText screen_;
  std::string gathered_;
  bool progressShown_ = false;

  mutable std::mutex mutex_;
  std::condition_variable changed_;
  std::string account_;  // UTF-8
  KeptOutput kept_;
  std::shared_ptr<WebChannel> channel_;
  bool channelTold_ = false;  // it has word that something waits
  std::deque<WebMessage> queue_;
  std::size_t queuedBytes_ = 0;
  bool endSent_ = false;
  Clock::time_point detachedSince_ = Clock::now();
  std::deque<Line> input_;
  std::size_t inputBytes_ = 0;
  std::uint64_t received_ = 0;        // lines
  Wanted wanted_ = Wanted::kNothing;  // that the session's thread waits for
  bool interrupted_ = false;
  bool ending_ = false;
  bool lost_ = false;
  std::string endReason_;
};

}  // namespace nvadmin::host
