#include "host/ScreenPort.h"

#include <cerrno>
#include <system_error>

#include <fmt/format.h>
#include <poll.h>
#include <unistd.h>

#include "engine/CodePage.h"

namespace nvadmin::host {

namespace {

constexpr std::size_t kOutputBytes = 65536;

// Waits until a descriptor that doesn't block by itself takes more.
void WaitUntilWritable(int descriptor) {
  pollfd waited{descriptor, POLLOUT, 0};
  poll(&waited, 1, /*timeout=*/-1);
}

}  // namespace

engine::InputResult ScreenPort::ReadLine(std::string& line, std::int32_t length, bool echoLineEnd) {
  const engine::InputResult result = Read(line, Asked::kAnswer, echoLineEnd);
  if (length >= 0 && line.size() > static_cast<std::size_t>(length))
    line.resize(static_cast<std::size_t>(length));
  return result;
}

engine::InputResult ScreenPort::ReadSentence(std::string& sentence) {
  return Read(sentence, Asked::kSentence, /*endLine=*/true);
}

engine::InputResult ScreenPort::Read(std::string& bytes, Asked asked, bool endLine) {
  std::string utf8;
  for (;;) {
    bytes.clear();
    if (lost_) return engine::InputResult::kLost;
    Flush();
    const std::string question = screen_.OpenLine();
    const engine::InputResult result = WaitForLine(utf8, asked);
    if (result == engine::InputResult::kLost) return result;
    if (inputEchoes_) {
      screen_.CloseLine();
    } else if (endLine) {
      EndOpenLine();
    }
    std::string refused;
    if (result == engine::InputResult::kEnd || engine::FromUtf8(utf8, bytes, refused)) return result;
    ++refusedLines_;
    gathered_ += fmt::format("{} is not in the code page Windows-1252: give the line without it\n{}", refused,
                             question);
    screen_.ResumeLine(question);
  }
}

void ScreenPort::Write(std::string_view text, bool lineEnd) {
  if (lost_) throw PortLost("");
  screen_.Append(gathered_, text, lineEnd);
  if (gathered_.size() >= kOutputBytes) Flush();
}

void ScreenPort::EndOpenLine() {
  if (!screen_.OpenLine().empty()) Write("", /*lineEnd=*/true);
}

void ScreenPort::Flush() {
  if (lost_) throw PortLost("");
  std::string_view rest = gathered_;
  while (!rest.empty()) {
    const ssize_t written = write(output_, rest.data(), rest.size());
    if (written >= 0) {
      rest.remove_prefix(static_cast<std::size_t>(written));
    } else if (errno == EAGAIN) {
      WaitUntilWritable(output_);
    } else if (errno != EINTR) {
      lost_ = true;
      const bool readerWent = errno == EPIPE || errno == EIO;
      const std::string reason = std::generic_category().message(errno);
      gathered_.clear();
      throw PortLost(readerWent ? "" : "can't write the output: " + reason);
    }
  }
  gathered_.clear();
}

}  // namespace nvadmin::host
