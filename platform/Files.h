// What the routines of this folder share: names on disk, handles, failures.
#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <string_view>
#include <utility>

namespace nvadmin::platform {

inline constexpr char kSeparator = '\\';

// "WHAT 'PATH': WHY", of a path that is too long for any system its first 200 characters and its length; and
// the same with the system's text for an error number.
[[noreturn]] void Fail(std::string_view what, std::string_view path, std::string_view why);
[[noreturn]] void FailBySystem(std::string_view what, std::string_view path, int number);

// The name in UTF-8.
std::string NameOnDisk(std::string_view name);
// The same for a path, with the system's separator.
std::string PathOnDisk(std::string_view path);
// The other way; false when the name has a character without a byte.
bool ReadNameOnDisk(std::string_view onDisk, std::string& name);

// A file or folder handle that closes itself.
class Handle {
 public:
  explicit Handle(int number = -1) : number_(number) {}
  ~Handle();
  Handle(Handle&& other) noexcept : number_(std::exchange(other.number_, -1)) {}
  Handle& operator=(Handle&& other) noexcept {
    std::swap(number_, other.number_);
    return *this;
  }

  int Number() const { return number_; }
  bool IsOpen() const { return number_ >= 0; }
  int Release() { return std::exchange(number_, -1); }

 private:
  int number_;
};

// The length of an open file. Fails when it is no plain file.
std::size_t LengthOfPlainFile(const Handle& file, std::string_view path);

// How far a file of a length has been read.
struct FileSpan {
  std::size_t position = 0;
  std::size_t length = 0;
};
// Reads the next bytes, as many as there is room for, or those that are left; answers how many. Fails, naming
// the place, when they can't be read, as from a file that was cut short meanwhile.
std::size_t ReadBytes(const Handle& file, std::string_view path, FileSpan& span, std::span<char> room);

// Has the system back memory that nothing was written to yet with large pages, where it has them: the first
// touching of much memory then costs a fraction.
void TakeLargePages(std::span<char> memory);

}  // namespace nvadmin::platform
