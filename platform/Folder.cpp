#include "platform/Folder.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
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
using platform::ReadNameOnDisk;
using platform::ReadSome;

constexpr mode_t kFolderMode = 0700;
constexpr mode_t kFileMode = 0600;
constexpr std::size_t kReadBytes = 65'536;

// One level down; a link isn't followed.
Handle OpenFolderBelow(int folder, std::string_view level) {
  return Handle(openat(folder, NameOnDisk(level).c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
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
           std::string("it must stay in the folder '").append(path).append("' and hold no '/'"));
    }
    levels.push_back(level);
  }
  return levels;
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
  Place place{Handle(openat(handle_, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC)), {}, path_};
  const std::vector<std::string_view> levels = LevelsOf(name, path_);
  for (std::size_t level = 0; place.folder.IsOpen() && level + 1 < levels.size(); ++level) {
    place.path.append(1, kSeparator).append(levels[level]);
    place.folder = OpenFolderBelow(place.folder.Number(), levels[level]);
  }
  if (!place.folder.IsOpen()) FailBySystem("can't open the folder", place.path, errno);
  place.name = NameOnDisk(levels.back());
  place.path.append(1, kSeparator).append(levels.back());
  return place;
}

Folder Folder::MakeSubfolder(std::string_view name) const {
  while (name.ends_with(kSeparator)) name.remove_suffix(1);
  if (name.empty()) return Folder(fcntl(handle_, F_DUPFD_CLOEXEC, 0), path_);
  const Place place = FindPlace(name);
  if (mkdirat(place.folder.Number(), place.name.c_str(), kFolderMode) != 0 && errno != EEXIST) {
    FailBySystem("can't make the folder", place.path, errno);
  }
  Handle made(
      openat(place.folder.Number(), place.name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  if (!made.IsOpen()) FailBySystem("can't open the folder", place.path, errno);
  return Folder(made.Release(), place.path);
}

std::string Folder::PathOf(std::string_view name) const { return FindPlace(name).path; }

std::vector<std::string> Folder::FileNames() const {
  std::vector<std::string> names;
  Handle handle(openat(handle_, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  DIR* list = handle.IsOpen() ? fdopendir(handle.Number()) : nullptr;
  if (list == nullptr) FailBySystem("can't list the folder", path_, errno);
  handle.Release();  // closedir closes it
  while (const dirent* entry = readdir(list)) {
    const std::string_view onDisk = entry->d_name;
    struct stat state {};
    std::string name;
    const bool isPlain = !onDisk.starts_with('.') &&
                         fstatat(handle_, entry->d_name, &state, AT_SYMLINK_NOFOLLOW) == 0 &&
                         S_ISREG(state.st_mode);
    if (isPlain && ReadNameOnDisk(onDisk, name)) names.push_back(std::move(name));
  }
  closedir(list);
  return names;
}

std::string Folder::ReadFile(std::string_view name) const {
  const Place place = FindPlace(name);
  // Without O_NONBLOCK a pipe that lies there would keep the session waiting.
  const Handle file(
      openat(place.folder.Number(), place.name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  if (!file.IsOpen()) FailBySystem("can't open the file", place.path, errno);
  std::string text;
  text.reserve(LengthOfPlainFile(file, place.path) + 1);
  while (ReadSome(file, place.path, std::max(kReadBytes, text.capacity() - text.size()), text) > 0) {
  }
  return text;
}

void Folder::WriteFile(std::string_view name, std::string_view text) const {
  const Place place = FindPlace(name);
  const std::string hidden = ".nvadmin-" + std::to_string(getpid()) + "-" + std::to_string(handle_);
  const int folder = place.folder.Number();
  const Handle file(
      openat(folder, hidden.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, kFileMode));
  if (!file.IsOpen()) FailBySystem("can't make the file", place.path, errno);
  try {
    WriteAll(file, text, place.path);
    if (renameat(folder, hidden.c_str(), folder, place.name.c_str()) != 0) {
      FailBySystem("can't make the file", place.path, errno);
    }
  } catch (...) {
    unlinkat(folder, hidden.c_str(), 0);
    throw;
  }
}

}  // namespace nvadmin
