#include "host/StreamPort.h"

#include <cerrno>
#include <system_error>

#include <poll.h>
#include <unistd.h>

namespace nvadmin::host {

namespace {

constexpr std::size_t kInputBytes = 65536;

}  // namespace

// Drops the lines taken and appends what the input has; false at its end.
bool StreamPort::ReadMore() {
  if (input_ == kNoInput) return false;
  read_.erase(0, next_);
  next_ = 0;
  const std::size_t kept = read_.size();
  read_.resize(kept + kInputBytes);
  ssize_t count = 0;
  while ((count = read(input_, read_.data() + kept, kInputBytes)) < 0) {
    if (errno == EINTR) continue;
    if (errno != EAGAIN) {
      SetLost();
      throw PortLost("can't read the input: " + std::generic_category().message(errno));
    }
    pollfd waited{input_, POLLIN, 0};
    poll(&waited, 1, /*timeout=*/-1);
  }
  read_.resize(kept + static_cast<std::size_t>(count));
  return count > 0;
}

engine::InputResult StreamPort::WaitForLine(std::string& utf8, Asked /*asked*/) {
  std::size_t searched = next_;
  std::size_t end = std::string::npos;
  while ((end = read_.find('\n', searched)) == std::string::npos) {
    const std::size_t unfinished = read_.size() - next_;
    if (!ReadMore()) break;
    searched = unfinished;
  }
  if (end == std::string::npos && next_ == read_.size()) return engine::InputResult::kEnd;

  const bool isWhole = end != std::string::npos;
  utf8.assign(read_, next_, isWhole ? end - next_ : std::string::npos);
  next_ = isWhole ? end + 1 : read_.size();
  if (utf8.ends_with('\r')) utf8.pop_back();
  return engine::InputResult::kLine;
}

}  // namespace nvadmin::host
