// A folder of its own for a test, removed with all that is in it.
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <string_view>

namespace nvadmin::host {

class TemporaryFolder {
 public:
  TemporaryFolder() {
    std::string name = (std::filesystem::temp_directory_path() / "nvadmin-host-XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr) ADD_FAILURE() << "can't make " << name;
    path_ = name;
  }
  ~TemporaryFolder() { std::filesystem::remove_all(path_); }
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;

  const std::filesystem::path& Path() const { return path_; }

  std::filesystem::path Put(std::string_view name, std::string_view text) const {
    std::ofstream(path_ / name, std::ios::binary) << text;
    return path_ / name;
  }

  std::string Text(std::string_view name) const {
    std::ostringstream text;
    text << std::ifstream(path_ / name, std::ios::binary).rdbuf();
    return text.str();
  }

 private:
  std::filesystem::path path_;
};

}  // namespace nvadmin::host
