#include "platform/BinaryFile.h"

#include <fcntl.h>

#include <algorithm>
#include <cerrno>

#include "platform/Files.h"
#include "platform/TransferObserver.h"

namespace nvadmin {

BinaryFile::BinaryFile(std::string_view path) : path_(path) {
  // Without O_NONBLOCK a pipe that lies there would keep the session waiting.
  file_ = platform::Handle(
      open(platform::PathOnDisk(path).c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  if (!file_.IsOpen()) platform::FailBySystem("can't open the file", path_, errno);
  length_ = static_cast<std::int64_t>(platform::LengthOfPlainFile(file_, path_));
  if (const auto& opened = platform::ObserverOfTransfers().opened) opened(path_);
}

BinaryFile::~BinaryFile() {
  if (const auto& closed = platform::ObserverOfTransfers().closed) closed();
}

void BinaryFile::Read(std::size_t count, std::string& text) {
  std::int64_t left = std::min(static_cast<std::int64_t>(count), length_ - position_);
  while (left > 0) {
    const std::size_t got = platform::ReadSome(file_, path_, static_cast<std::size_t>(left), text);
    if (got == 0) {
      platform::Fail("can't read the file", path_,
                     "it ends at byte " + std::to_string(position_) + ", and was " + std::to_string(length_) +
                         " bytes long when it was opened");
    }
    position_ += static_cast<std::int64_t>(got);
    left -= static_cast<std::int64_t>(got);
  }
}

}  // namespace nvadmin
