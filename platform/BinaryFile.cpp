#include "platform/BinaryFile.h"

#include <fcntl.h>

#include <cerrno>

#include "platform/Files.h"
#include "platform/TransferObserver.h"

namespace nvadmin {

BinaryFile::BinaryFile(std::string_view path) : path_(path) {
  // Without O_NONBLOCK a pipe that lies there would keep the session waiting.
  file_ = platform::Handle(
      open(platform::PathOnDisk(path).c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  if (!file_.IsOpen()) platform::FailBySystem("can't open the file", path_, errno);
  span_.length = platform::LengthOfPlainFile(file_, path_);
  if (const auto& opened = platform::ObserverOfTransfers().opened) opened(path_);
}

BinaryFile::~BinaryFile() {
  if (const auto& closed = platform::ObserverOfTransfers().closed) closed();
}

std::size_t BinaryFile::Read(std::span<char> room) { return platform::ReadBytes(file_, path_, span_, room); }

}  // namespace nvadmin
