#include "host/WebPort.h"

#include <exception>
#include <utility>

#include <fmt/format.h>

#include "engine/CodePage.h"

namespace nvadmin::host {

namespace {

constexpr std::string_view kLineEnd = "\r\n";
constexpr std::size_t kGatheredBytes = std::size_t{16} << 10;  // of UTF-8, in one message
constexpr std::size_t kTextBytes = 4096;                       // of a text that are looked at together
constexpr std::size_t kQueuedBytes = std::size_t{8} << 20;     // then the session waits
constexpr std::size_t kMostLines = 10'000;                     // that the session hasn't taken yet
constexpr std::string_view kServerEnds = "the server ends";

}  // namespace

WebPort::WebPort(std::string token, std::string account, const WebLimits& limits)
    : token_(std::move(token)),
      limits_(limits),
      screen_(/*hasCursor=*/true, kLineEnd),
      account_(engine::ToUtf8(account)) {}

// --- Out ---

void WebPort::Write(std::string_view text, bool lineEnd) {
  if (IsLost()) throw PortLost("");
  progressShown_ = false;
  // A long text goes in parts; a CR LF in the middle of one stays whole.
  while (text.size() > kTextBytes) {
    const std::size_t part = text[kTextBytes - 1] == '\r' ? kTextBytes - 1 : kTextBytes;
    screen_.Append(gathered_, text.substr(0, part), /*lineEnd=*/false);
    text.remove_prefix(part);
    if (gathered_.size() >= kGatheredBytes) Flush();
  }
  screen_.Append(gathered_, text, lineEnd);
  if (gathered_.size() >= kGatheredBytes) Flush();
}

void WebPort::Flush() {
  if (IsLost()) throw PortLost("");
  if (gathered_.empty()) return;
  std::string message = "E";
  message += gathered_;
  gathered_.clear();
  Send(std::move(message));
}

void WebPort::WriteMessage(std::string_view text, bool lineEnd) {
  Flush();
  std::string message;
  message.reserve(1 + engine::Utf8Size(text) + 1 + kLineEnd.size());
  message += 'A';
  engine::AppendUtf8(message, text);
  if (lineEnd) message += kLineEnd;
  NoteOpenLine(text, lineEnd);
  progressShown_ = lineEnd && text.ends_with(engine::kProgressWord);
  Send(std::move(message));
}

// Where the add-in's text leaves the line. A frame's stands on none; as it is never a prompt, it doesn't
// matter.
void WebPort::NoteOpenLine(std::string_view text, bool lineEnd) {
  const std::size_t end = text.rfind('\n');
  if (lineEnd || end != std::string_view::npos) screen_.CloseLine();
  if (lineEnd || text.ends_with("</TX>")) return;
  if (end != std::string_view::npos) text.remove_prefix(end + 1);
  std::string shown;
  screen_.Append(shown, text.substr(0, kTextBytes), /*lineEnd=*/false);
}

void WebPort::EndOpenLine() {
  if (!screen_.OpenLine().empty()) Write("", /*lineEnd=*/true);
}

void WebPort::Send(std::string message) {
  const auto shared = std::make_shared<const std::string>(std::move(message));
  std::unique_lock lock(mutex_);
  changed_.wait(lock, [this] { return lost_ || HasRoom(); });
  if (lost_) throw PortLost("");
  kept_.Add(shared);
  Queue(shared);
}

bool WebPort::HasRoom() const { return channel_ == nullptr || queuedBytes_ < kQueuedBytes; }

void WebPort::Queue(WebMessage message) {
  if (channel_ == nullptr) return;
  queuedBytes_ += message->size();
  queue_.push_back(std::move(message));
  Wake();
}

void WebPort::Wake() {
  if (channel_ == nullptr || channelTold_) return;
  channelTold_ = true;
  channel_->OutputWaits();
}

void WebPort::ShowAccount(std::string_view account) {
  const std::lock_guard lock(mutex_);
  account_ = engine::ToUtf8(account);
  Queue(std::make_shared<const std::string>("T" + account_));
}

// --- In ---

engine::InputResult WebPort::ReadLine(std::string& line, std::int32_t length, bool /*echoLineEnd*/) {
  const engine::InputResult result = Take(line, Wanted::kAnswer);
  if (length >= 0 && line.size() > static_cast<std::size_t>(length))
    line.resize(static_cast<std::size_t>(length));
  return result;
}

engine::InputResult WebPort::ReadSentence(std::string& sentence) { return Take(sentence, Wanted::kSentence); }

engine::InputResult WebPort::Take(std::string& line, Wanted wanted) {
  const auto until = Clock::now() + limits_.idle;
  for (;;) {
    line.clear();
    if (IsLost()) return engine::InputResult::kLost;
    const bool isProgress = std::exchange(progressShown_, false);
    if (!isProgress) BeginWait(wanted);
    Flush();
    if (isProgress) return engine::InputResult::kLine;
    const std::string question = screen_.OpenLine();
    const std::optional<Line> taken = AwaitLine(wanted, until);
    if (!taken) return engine::InputResult::kLost;
    if (taken->number == 0 && wanted == Wanted::kSentence) {
      gathered_ += kLineEnd;
      gathered_ += question;
      continue;
    }
    screen_.CloseLine();
    std::string refused;
    if (engine::FromUtf8(taken->utf8, line, refused)) return engine::InputResult::kLine;
    gathered_ += fmt::format("{} is not in the code page Windows-1252: give the line without it\r\n{}",
                             refused, question);
    screen_.ResumeLine(question);
  }
}

// From before the user sees what is waited for. An interrupt that came earlier counts for a question at the
// terminal, and for nothing else.
void WebPort::BeginWait(Wanted wanted) {
  const std::lock_guard lock(mutex_);
  if (wanted == Wanted::kSentence || kept_.ShowsFrame()) interrupted_ = false;
  wanted_ = wanted;
}

// Without a number: an interrupt came instead. None: the port is lost.
std::optional<WebPort::Line> WebPort::AwaitLine(Wanted wanted, Clock::time_point until) {
  std::unique_lock lock(mutex_);
  const bool inTime =
      changed_.wait_until(lock, until, [&] { return lost_ || ending_ || !input_.empty() || interrupted_; });
  wanted_ = Wanted::kNothing;
  if (ending_) {
    End(kServerEnds);
  } else if (!inTime) {
    End("no line came in time");
  }
  if (lost_) return std::nullopt;
  const bool isInterrupted = std::exchange(interrupted_, false);
  // A sentence that is there already was given before.
  if (isInterrupted && (wanted == Wanted::kAnswer || input_.empty())) return Line{};
  Line line = std::move(input_.front());
  input_.pop_front();
  inputBytes_ -= line.utf8.size();
  const auto note = std::make_shared<const std::string>(fmt::format("K{}", line.number));
  kept_.Add(note);
  Queue(note);
  return line;
}

bool WebPort::IsInterrupted() const {
  const std::lock_guard lock(mutex_);
  return interrupted_;
}

WebPort::Taken WebPort::TakeLine(std::uint64_t number, std::string_view utf8) {
  const std::lock_guard lock(mutex_);
  if (number <= received_) return Taken::kKnown;
  if (number != received_ + 1) return Taken::kMissing;
  const bool isFull =
      !input_.empty() && (input_.size() >= kMostLines || inputBytes_ + utf8.size() > limits_.lineBytes);
  if (isFull) return Taken::kFull;
  input_.push_back({number, std::string(utf8)});
  inputBytes_ += utf8.size();
  received_ = number;
  changed_.notify_all();
  return Taken::kAccepted;
}

void WebPort::Interrupt(const std::function<void()>& stop) {
  const std::lock_guard lock(mutex_);
  const bool isForms = kept_.EndsInFrame() || (wanted_ == Wanted::kAnswer && kept_.ShowsFrame());
  if (isForms) return;
  if (wanted_ != Wanted::kSentence) stop();
  interrupted_ = true;
  changed_.notify_all();
}

// --- The connections ---

void WebPort::Attach(std::shared_ptr<WebChannel> channel, std::uint64_t seen) {
  const std::lock_guard lock(mutex_);
  if (channel_ != nullptr) channel_->Moved();
  channel_ = std::move(channel);
  channelTold_ = endSent_ = false;
  queue_.clear();
  queuedBytes_ = 0;
  KeptOutput::Replay replay = kept_.After(seen);
  Queue(
      std::make_shared<const std::string>(fmt::format("S{} {} {} {} {} {}", token_, screen_.CursorWord(),
                                                      limits_.lineBytes, received_, replay.next, account_)));
  for (WebMessage& message : replay.messages) Queue(std::move(message));
  changed_.notify_all();
}

void WebPort::Detach(const WebChannel& channel) noexcept {
  const std::lock_guard lock(mutex_);
  if (channel_.get() != &channel) return;
  channel_.reset();
  queue_.clear();
  queuedBytes_ = 0;
  detachedSince_ = Clock::now();
  changed_.notify_all();
}

WebMessage WebPort::NextOutput(const WebChannel& channel, bool& isLast) {
  const std::lock_guard lock(mutex_);
  isLast = false;
  if (channel_.get() != &channel) return nullptr;
  if (queue_.empty()) {
    channelTold_ = false;
    if (!lost_ || endSent_) return nullptr;
    isLast = endSent_ = true;
    return std::make_shared<const std::string>("X" + engine::ToUtf8(endReason_));
  }
  WebMessage message = std::move(queue_.front());
  queue_.pop_front();
  const bool hadRoom = HasRoom();
  queuedBytes_ -= message->size();
  if (!hadRoom && HasRoom()) changed_.notify_all();
  return message;
}

bool WebPort::IsAbandoned(Clock::time_point now) const {
  const std::lock_guard lock(mutex_);
  return channel_ == nullptr && now - detachedSince_ > limits_.resume;
}

// --- The end ---

bool WebPort::IsLost() const {
  const std::lock_guard lock(mutex_);
  return lost_;
}

std::string WebPort::EndReason() const {
  const std::lock_guard lock(mutex_);
  return endReason_;
}

void WebPort::End(std::string_view reason) {
  if (lost_) return;
  lost_ = true;
  endReason_ = ending_ ? kServerEnds : reason;
  Wake();
  changed_.notify_all();
}

void WebPort::Close(std::string_view reason) noexcept {
  try {
    if (!IsLost()) Flush();
  } catch (const std::exception&) {
    // It was lost meanwhile, or what was gathered is.
  }
  Lose(reason);
}

void WebPort::EndSoon() noexcept {
  const std::lock_guard lock(mutex_);
  ending_ = true;
  changed_.notify_all();
}

void WebPort::Lose(std::string_view reason) noexcept {
  const std::lock_guard lock(mutex_);
  End(reason);
}

}  // namespace nvadmin::host
