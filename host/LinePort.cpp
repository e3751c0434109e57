#include "host/LinePort.h"

#include <algorithm>

#include <fmt/format.h>

namespace nvadmin::host {

namespace {

constexpr std::string_view kLineEnd = "\r\n";
constexpr std::size_t kGatheredBytes = 65'536;
constexpr std::size_t kReceivedBytes = 16'384;
constexpr std::size_t kKeptCapacity = std::size_t{1} << 20;
constexpr std::size_t kKeptOpenLine = 16;  // enough to tell a prompt
// By this frame a client program is asked for the next line of its request.
constexpr std::string_view kNextLineFrame = "<TXA><NEXT></TXA>";
constexpr std::string_view kRequestEnd = "</TXB>";  // in any letter case
constexpr std::string_view kHungUp = "the client hung up";
constexpr std::string_view kServerEnds = "the server ends";

using Clock = std::chrono::steady_clock;

std::string LongerThan(std::string_view what, std::size_t bytes) {
  return fmt::format("{} is longer than {} bytes", what, bytes);
}

bool EndsRequest(std::string_view line) {
  const auto isSame = [](char a, char b) { return a == b || (a >= 'a' && a <= 'z' && a - 'a' + 'A' == b); };
  return std::search(line.begin(), line.end(), kRequestEnd.begin(), kRequestEnd.end(), isSame) != line.end();
}

}  // namespace

// --- In ---

engine::InputResult LinePort::ReadLine(std::string& line, std::int32_t length, bool /*echoLineEnd*/) {
  const engine::InputResult result = TakeLine(line, limits_.lineBytes, Clock::now() + limits_.idle);
  if (length >= 0 && line.size() > static_cast<std::size_t>(length))
    line.resize(static_cast<std::size_t>(length));
  return result;
}

engine::InputResult LinePort::ReadSentence(std::string& sentence) {
  return TakeLine(sentence, limits_.lineBytes, Clock::now() + limits_.idle);
}

bool LinePort::Open(Clock::time_point until) {
  std::string error;
  if (connection_->Open(until, error)) return true;
  Lose(ending_ ? kServerEnds : error);
  connection_->EndOutput();
  return false;
}

engine::InputResult LinePort::ReadLogInLine(std::string& line, std::size_t most, Clock::time_point until) {
  constexpr char kTlsHandshake = '\x16';
  if (read_.empty() && !IsOver()) {
    Flush();
    if (ReceiveMore(until) && read_.front() == kTlsHandshake)
      Close("this port speaks plain text, without TLS");
  }
  return TakeLine(line, most, until);
}

engine::InputResult LinePort::TakeLine(std::string& line, std::size_t most, Clock::time_point until) {
  line.clear();
  if (IsOver()) return engine::InputResult::kLost;
  Flush();
  std::size_t searched = next_;
  std::size_t end = std::string::npos;
  while ((end = read_.find('\n', searched)) == std::string::npos) {
    const std::size_t unfinished = read_.size() - next_;
    // The line's own end may still be two bytes.
    if (unfinished > most + 1) Close(LongerThan("a line", most));
    if (!ReceiveMore(until)) return engine::InputResult::kLost;
    searched = unfinished;
  }

  const std::size_t length = end - next_;
  const bool endsInCr = length > 0 && read_[end - 1] == '\r';
  line.assign(read_, next_, endsInCr ? length - 1 : length);
  lineStart_ = next_;
  next_ = end + 1;
  openLine_.clear();
  requestBytes_ = (asksForMore_ ? requestBytes_ : 0) + line.size();
  asksForMore_ = false;
  if (line.size() > most) {
    Close(LongerThan("a line", most));
  } else if (requestBytes_ > limits_.requestBytes) {
    Close(LongerThan("a request", limits_.requestBytes));
  }
  if (!lost_) return engine::InputResult::kLine;
  line.clear();
  return engine::InputResult::kLost;
}

// Appends what comes; what was taken goes. False when nothing came in time or nothing will.
bool LinePort::ReceiveMore(Clock::time_point until) {
  if (IsOver()) return false;
  read_.erase(0, next_);
  lineStart_ = next_ = 0;
  if (read_.empty() && read_.capacity() > kKeptCapacity) read_.shrink_to_fit();
  const std::size_t before = read_.size();
  read_.resize(before + kReceivedBytes);
  const Moved moved = connection_->Receive(read_.data() + before, kReceivedBytes, until);
  read_.resize(before + moved.bytes);
  switch (moved.transfer) {
    case Transfer::kMoved:
      return true;
    case Transfer::kLate:
      Close("no line came in time");
      break;
    case Transfer::kGone:
      // The server ends a wait by stopping the input.
      if (!IsOver()) Lose(kHungUp);
      break;
  }
  return false;
}

// --- Out ---

void LinePort::Write(std::string_view text, bool lineEnd) {
  RequireOpen();
  // Behind a request's end it is the text of an item.
  asksForMore_ =
      text == kNextLineFrame && !EndsRequest(std::string_view(read_).substr(lineStart_, next_ - lineStart_));
  gathered_ += text;
  if (lineEnd) gathered_ += kLineEnd;
  NoteOpenLine(text, lineEnd);
  if (gathered_.size() >= kGatheredBytes) Flush();
}

void LinePort::NoteOpenLine(std::string_view text, bool lineEnd) {
  if (const std::size_t end = text.rfind('\n'); end != std::string_view::npos) {
    openLine_.clear();
    text.remove_prefix(end + 1);
  }
  if (lineEnd) {
    openLine_.clear();
  } else if (openLine_.size() < kKeptOpenLine) {
    openLine_ += text.substr(0, kKeptOpenLine);
  }
}

void LinePort::EndOpenLine() {
  if (!openLine_.empty()) Write("", /*lineEnd=*/true);
}

void LinePort::Flush() {
  RequireOpen();
  if (gathered_.empty()) return;
  const bool sent = SendAll(gathered_);
  gathered_.clear();
  if (gathered_.capacity() > kKeptCapacity) gathered_.shrink_to_fit();
  if (!sent) throw PortLost("");
}

bool LinePort::SendAll(std::string_view bytes) {
  while (!bytes.empty()) {
    const Moved moved = connection_->Send(bytes, Clock::now() + limits_.stall);
    bytes.remove_prefix(moved.bytes);
    switch (moved.transfer) {
      case Transfer::kMoved:
        break;
      case Transfer::kLate:
        Lose("the client took nothing of what was sent to it");
        return false;
      case Transfer::kGone:
        Lose(kHungUp);
        return false;
    }
  }
  return true;
}

// --- The end ---

void LinePort::RequireOpen() {
  if (hungUp_) Lose(kHungUp);
  if (lost_) throw PortLost("");
}

// Whether the end has come, from whatever side.
bool LinePort::IsOver() {
  if (hungUp_) {
    Lose(kHungUp);
  } else if (ending_) {
    Close(kServerEnds);
  }
  return lost_;
}

void LinePort::Lose(std::string_view reason) {
  const bool isServers = hungUp_ && ending_;
  if (!lost_) endReason_ = isServers ? kServerEnds : reason;
  lost_ = true;
}

void LinePort::Close(std::string_view why) noexcept {
  if (lost_) return;
  try {
    std::string last = std::move(gathered_);
    gathered_.clear();
    if (!openLine_.empty()) last += kLineEnd;
    if (!why.empty()) last.append(why).append(kLineEnd);
    Lose(hungUp_ ? kHungUp : why.empty() ? "the user ended it" : why);
    // Nobody waits for a client that is thrown out.
    std::string_view rest = last;
    while (!rest.empty()) {
      const Moved moved = connection_->Send(rest, Clock::now());
      if (moved.transfer != Transfer::kMoved) break;
      rest.remove_prefix(moved.bytes);
    }
  } catch (const std::exception&) {
    lost_ = true;
  }
  connection_->EndOutput();
}

void LinePort::HangUp() noexcept {
  hungUp_ = true;
  connection_->Break();
}

void LinePort::EndSoon() noexcept {
  ending_ = true;
  connection_->StopInput();
}

}  // namespace nvadmin::host
