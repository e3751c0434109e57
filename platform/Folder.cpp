#include "platform/Folder.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <utility>

#include "platform/Files.h"

namespace nvadmin {

namespace {

using platform::Fail;
using platform::FailBySystem;
using platform::Handle;
using platform::kSeparator;
using platform::LengthOfPlainFile;
using platform::NameOnDisk;
using platform::PathOnDisk;
using platform::ReadBytes;
using platform::ReadNameOnDisk;

constexpr mode_t kFolderMode = 0700;
constexpr mode_t kFileMode = 0600;
constexpr std::size_t kMostFileBytes = 1'000'000'000;

// A further handle of an open folder.
Handle OpenAgain(int folder, std::string_view path) {
  Handle again(openat(folder, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!again.IsOpen()) FailBySystem("can't open the folder", path, errno);
  return again;
}

// One level down; a link isn't followed.
Handle OpenFolderBelow(int folder, const std::string& onDisk, std::string_view path) {
  Handle below(openat(folder, onDisk.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  if (!below.IsOpen()) FailBySystem("can't open the folder", path, errno);
  return below;
}

// The levels of a name. Fails when one of them leads out of its folder.
std::vector<std::string_view> LevelsOf(std::string_view name, std::string_view path) {
  std::vector<std::string_view> levels;
  for (std::size_t start = 0; start <= name.size();) {
    const std::size_t end = std::min(name.find(kSeparator, start), name.size());
    const std::string_view level = name.substr(start, end - start);
    start = end + 1;
    if (level.empty() || level == "." || level == ".." ||
        level.find_first_of(std::string_view("/\0", 2)) != std::string_view::npos) {
      Fail("this name can't be used for a file or folder", name,
           std::string("it must stay in the folder '").append(path).append("' and hold no '/' and no NUL"));
    }
    levels.push_back(level);
  }
  return levels;
}

// A new file under a hidden name, which becomes `hidden`. Whatever lies under such a name is left alone: it
// may be another program's that is being written, or what a killed one left.
Handle MakeHiddenFile(int folder, std::string& hidden, std::string_view path) {
  static std::atomic<unsigned> count = 0;
  Handle file;
  do {
    hidden = ".nvadmin-" + std::to_string(getpid()) + "-" + std::to_string(count++);
    file = Handle(openat(folder, hidden.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, kFileMode));
  } while (!file.IsOpen() && errno == EEXIST);
  if (!file.IsOpen()) FailBySystem("can't make the file", path, errno);
  return file;
}

void WriteAll(const Handle& file, std::string_view text, std::string_view path) {
  while (!text.empty()) {
    const ssize_t written = write(file.Number(), text.data(), text.size());
    if (written < 0 && errno == EINTR) continue;
    if (written < 0) FailBySystem("can't write the file", path, errno);
    text.remove_prefix(static_cast<std::size_t>(written));
  }
}

}  // namespace

struct Folder::Place {
  Handle folder;
  std::string name;  // on disk
  std::string path;  // for messages
};

Folder::Folder(std::string_view path) : Folder(-1, std::string(path)) {
  while (path_.size() > 1 && path_.back() == kSeparator) path_.pop_back();
  handle_ = open(PathOnDisk(path_).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (handle_ < 0) FailBySystem("can't open the folder", path_, errno);
}

Folder::Folder(int handle, std::string path) : handle_(handle), path_(std::move(path)) {}

Folder::Folder(Folder&& other) noexcept
    : handle_(std::exchange(other.handle_, -1)), path_(std::move(other.path_)) {}

Folder::~Folder() {
  if (handle_ >= 0) close(handle_);
}

Folder::Place Folder::FindPlace(std::string_view name) const {
  Place place{OpenAgain(handle_, path_), {}, path_};
  const std::vector<std::string_view> levels = LevelsOf(name, path_);
  for (std::size_t level = 0; level + 1 < levels.size(); ++level) {
    place.path.append(1, kSeparator).append(levels[level]);
    place.folder = OpenFolderBelow(place.folder.Number(), NameOnDisk(levels[level]), place.path);
  }
  place.name = NameOnDisk(levels.back());
  place.path.append(1, kSeparator).append(levels.back());
  return place;
}

Folder Folder::MakeSubfolder(std::string_view name) const {
  while (name.ends_with(kSeparator)) name.remove_suffix(1);
  if (name.empty()) return Folder(OpenAgain(handle_, path_).Release(), path_);
  const Place place = FindPlace(name);
  if (mkdirat(place.folder.Number(), place.name.c_str(), kFolderMode) != 0 && errno != EEXIST) {
    FailBySystem("can't make the folder", place.path, errno);
  }
  return Folder(OpenFolderBelow(place.folder.Number(), place.name, place.path).Release(), place.path);
}

std::string Folder::PathOf(std::string_view name) const { return FindPlace(name).path; }

std::vector<std::string> Folder::FileNames() const {
  std::vector<std::string> names;
  Handle handle = OpenAgain(handle_, path_);
  DIR* list = fdopendir(handle.Number());
  if (list == nullptr) FailBySystem("can't list the folder", path_, errno);
  handle.Release();  // closedir closes it
  for (errno = 0; const dirent* entry = readdir(list); errno = 0) {
    const std::string_view onDisk = entry->d_name;
    struct stat state {};
    std::string name;
    const bool isPlain = !onDisk.starts_with('.') && onDisk.find(kSeparator) == std::string_view::npos &&
                         fstatat(handle_, entry->d_name, &state, AT_SYMLINK_NOFOLLOW) == 0 &&
                         S_ISREG(state.st_mode);
    if (isPlain && ReadNameOnDisk(onDisk, name)) names.push_back(std::move(name));
  }
  const int number = errno;
  closedir(list);
  if (number != 0) FailBySystem("can't list the folder", path_, number);
  return names;
}

std::string Folder::ReadFile(std::string_view name) const {
  const Place place = FindPlace(name);
  // Without O_NONBLOCK a pipe that lies there would keep the session waiting.
  const Handle file(
      openat(place.folder.Number(), place.name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  if (!file.IsOpen()) FailBySystem("can't open the file", place.path, errno);
  const std::size_t length = LengthOfPlainFile(file, place.path);
  if (length > kMostFileBytes) {
    Fail("can't read the file", place.path,
         "it is " + std::to_string(length) + " bytes long, and an item has at most " +
             std::to_string(kMostFileBytes));
  }
  std::string text(length, '\0');
  platform::FileSpan span{0, length};
  ReadBytes(file, place.path, span, text);
  return text;
}

void Folder::WriteFile(std::string_view name, std::string_view text) const {
  const Place place = FindPlace(name);
  const int folder = place.folder.Number();
  std::string hidden;
  Handle file = MakeHiddenFile(folder, hidden, place.path);
  try {
    WriteAll(file, text, place.path);
    // A file system across a network tells of a full disk only now.
    if (close(file.Release()) != 0) FailBySystem("can't write the file", place.path, errno);
    if (renameat(folder, hidden.c_str(), folder, place.name.c_str()) != 0) {
      FailBySystem("can't make the file", place.path, errno);
    }
  } catch (...) {
    unlinkat(folder, hidden.c_str(), 0);
    throw;
  }
}

}  // namespace nvadmin
