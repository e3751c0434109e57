#include "platform/Files.h"

#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <system_error>

#include "session/CodePage.h"
#include "session/EngineCallBack.h"

namespace nvadmin::platform {

namespace {

constexpr std::size_t kLongestPath = 4096;  // that a system takes
constexpr std::size_t kToldOfLonger = 200;
constexpr std::size_t kWorthLargePages = std::size_t{4} << 20;

void AppendCharacter(std::string& out, char32_t point) {
  const auto byte = [](char32_t bits) { return static_cast<char>(bits); };
  if (point < 0x80) {
    out += byte(point);
  } else if (point < 0x800) {
    out += byte(0xC0 | point >> 6);
    out += byte(0x80 | (point & 0x3F));
  } else {
    out += byte(0xE0 | point >> 12);
    out += byte(0x80 | (point >> 6 & 0x3F));
    out += byte(0x80 | (point & 0x3F));
  }
}

// The byte whose character, of two or three bytes, stands at the start of `onDisk`, which then goes on behind
// it. False: none has.
bool TakeByte(std::string_view& onDisk, char& byte) {
  const auto bits = [onDisk](std::size_t at, unsigned mask) -> char32_t {
    return at < onDisk.size() ? static_cast<unsigned char>(onDisk[at]) & mask : 0;
  };
  const bool isTwoBytes = static_cast<unsigned char>(onDisk.front()) < 0xE0;
  const char32_t point = isTwoBytes ? bits(0, 0x1F) << 6 | bits(1, 0x3F)
                                    : bits(0, 0x0F) << 12 | bits(1, 0x3F) << 6 | bits(2, 0x3F);
  const auto* high = std::find(kHighCodePoints.begin(), kHighCodePoints.end(), point);
  const char32_t number =
      high == kHighCodePoints.end() ? point : 0x80 + static_cast<char32_t>(high - kHighCodePoints.begin());
  if (number > 0xFF || CodePointOf(static_cast<unsigned char>(number)) != point) return false;
  std::string character;
  AppendCharacter(character, point);
  if (!onDisk.starts_with(character)) return false;
  onDisk.remove_prefix(character.size());
  byte = static_cast<char>(number);
  return true;
}

// Reads up to as many bytes as there is room for; answers how many, 0 at the end.
std::size_t ReadSome(const Handle& file, std::string_view path, std::span<char> room) {
  ssize_t got = 0;
  do {
    got = read(file.Number(), room.data(), room.size());
  } while (got < 0 && errno == EINTR);
  if (got < 0) FailBySystem("can't read the file", path, errno);
  return static_cast<std::size_t>(got);
}

}  // namespace

void Fail(std::string_view what, std::string_view path, std::string_view why) {
  std::string text = std::string(what).append(" '");
  const bool isTooLong = path.size() > kLongestPath;
  for (char byte : path.substr(0, isTooLong ? kToldOfLonger : path.size())) {
    // A failure's text ends at a NUL.
    if (byte == '\0') {
      text += "<NUL>";
    } else {
      text += byte;
    }
  }
  text += isTooLong ? "...' (" + std::to_string(path.size()) + " characters): " : "': ";
  throw EngineFailure(text.append(why));
}

void FailBySystem(std::string_view what, std::string_view path, int number) {
  Fail(what, path, std::generic_category().message(number));
}

std::string NameOnDisk(std::string_view name) {
  std::string onDisk;
  for (char byte : name) AppendCharacter(onDisk, CodePointOf(static_cast<unsigned char>(byte)));
  return onDisk;
}

std::string PathOnDisk(std::string_view path) {
  std::string onDisk = NameOnDisk(path);
  for (char& byte : onDisk) {
    if (byte == kSeparator) byte = '/';
  }
  return onDisk;
}

bool ReadNameOnDisk(std::string_view onDisk, std::string& name) {
  name.clear();
  while (!onDisk.empty()) {
    char byte = onDisk.front();
    const bool isAscii = static_cast<signed char>(byte) >= 0;
    if (isAscii) {
      onDisk.remove_prefix(1);
    } else if (!TakeByte(onDisk, byte)) {
      return false;
    }
    name += byte;
  }
  return true;
}

Handle::~Handle() {
  if (number_ >= 0) close(number_);
}

std::size_t LengthOfPlainFile(const Handle& file, std::string_view path) {
  struct stat state {};
  if (fstat(file.Number(), &state) != 0 || !S_ISREG(state.st_mode)) {
    Fail("can't read the file", path, "it is no plain file");
  }
  return static_cast<std::size_t>(state.st_size);
}

std::size_t ReadBytes(const Handle& file, std::string_view path, FileSpan& span, std::span<char> room) {
  const std::size_t count = std::min(room.size(), span.length - span.position);
  for (std::size_t done = 0; done < count;) {
    const std::size_t got = ReadSome(file, path, room.subspan(done, count - done));
    if (got == 0) {
      Fail("can't read the file", path,
           "it ends at byte " + std::to_string(span.position) + ", and was " + std::to_string(span.length) +
               " bytes long when it was opened");
    }
    span.position += got;
    done += got;
  }
  return count;
}

void TakeLargePages(std::span<char> memory) {
  if (memory.size() < kWorthLargePages) return;
  const auto page = static_cast<std::uintptr_t>(sysconf(_SC_PAGESIZE));
  const auto start = reinterpret_cast<std::uintptr_t>(memory.data());
  const std::uintptr_t firstPage = (start + page - 1) / page * page;
  const std::uintptr_t endOfPages = (start + memory.size()) / page * page;
  madvise(reinterpret_cast<void*>(firstPage), endOfPages - firstPage, MADV_HUGEPAGE);
}

}  // namespace nvadmin::platform
