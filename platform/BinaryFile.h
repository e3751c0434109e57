// A file that is read in pieces, from its start to the length that it had when it was opened. The observer of
// transfers is told when it is opened and closed.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "platform/Files.h"

namespace nvadmin {

class BinaryFile {
 public:
  // `path` is absolute, in bytes of the code page, with "\" or the system's separator between folders. Fails,
  // naming it, when it is no plain file or can't be opened.
  explicit BinaryFile(std::string_view path);
  ~BinaryFile();
  BinaryFile(const BinaryFile&) = delete;
  BinaryFile& operator=(const BinaryFile&) = delete;

  std::int64_t Length() const { return static_cast<std::int64_t>(span_.length); }
  // Reads the next bytes of the file, as many as there is room for, or those that are left; answers how many.
  // Fails, naming the file and the place, when they can't be read, as from a file that was cut short
  // meanwhile.
  std::size_t Read(std::span<char> room);

 private:
  std::string path_;
  platform::Handle file_;
  platform::FileSpan span_;
};

}  // namespace nvadmin
