// A folder of files whose names come from users and items, and the files in it. Names and paths are bytes of
// the code page and use "\" between folders; on disk they are what the system uses.
//
// Nothing outside the folder can be reached: a name with ".." or "." as a part, an empty part, a "/" or a
// NUL, or with a symbolic link on its way is a failure that names it. So are a folder or file that is
// missing, can't be read or written, or has a name that the system refuses.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace nvadmin {

class Folder {
 public:
  // Opens a folder that exists. `path` is absolute; a "\" at its end is allowed.
  explicit Folder(std::string_view path);
  ~Folder();
  Folder(Folder&& other) noexcept;
  Folder& operator=(Folder&&) = delete;

  // The folder below this one; its last level is made, for its owner alone (mode 0700), where it is missing.
  // One that is there may be no symbolic link. An empty name: this folder.
  Folder MakeSubfolder(std::string_view name) const;

  // The plain files, in the order in which the file system delivers them: no folders, no links, nothing that
  // begins with ".", and no name that holds "\" or a character without a byte in the code page.
  std::vector<std::string> FileNames() const;

  // The full path of a name in the folder; the file itself need not be there.
  std::string PathOf(std::string_view name) const;

  // The file up to the length that it had when it was opened. Fails when that is more than 1,000,000,000
  // bytes, more than any store takes in an item, or when the file is cut short meanwhile.
  std::string ReadFile(std::string_view name) const;
  // Makes the file, for its owner alone (mode 0600). It is written under a hidden name and moved into place,
  // so whoever looks, and whatever is killed, finds whole files. In the place of an old one, or of a symbolic
  // link, stands a new file: mode, owner and links of the old one are lost.
  void WriteFile(std::string_view name, std::string_view text) const;

 private:
  struct Place;  // of a file: its open folder and its own name
  explicit Folder(int handle, std::string path);
  Place FindPlace(std::string_view name) const;

  int handle_;
  std::string path_;  // for messages
};

}  // namespace nvadmin
