// A folder that lives as long as a test, and what else the tests of files share.
#pragma once

#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <exception>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <string_view>

namespace nvadmin {

class TemporaryFolder {
 public:
  TemporaryFolder() {
    std::string name = (std::filesystem::temp_directory_path() / "nvadmin-test-XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr) ADD_FAILURE() << "can't make " << name;
    path_ = name;
  }
  ~TemporaryFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;

  std::filesystem::path operator/(const std::filesystem::path& name) const { return path_ / name; }
  const std::filesystem::path& Path() const { return path_; }

  std::filesystem::path Put(const std::filesystem::path& name, std::string_view bytes) const {
    std::ofstream(path_ / name, std::ios::binary) << bytes;
    return path_ / name;
  }
  std::string Text(const std::filesystem::path& name) const {
    std::ifstream stream(path_ / name, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
  }

 private:
  std::filesystem::path path_;
};

// The text of the failure that `action` ends in; empty when it doesn't fail.
template <typename Action>
std::string FailureOf(Action&& action) {
  try {
    action();
  } catch (const std::exception& failure) {
    return failure.what();
  }
  return {};
}

// Runs `action` in a program of its own and returns the text that it returns, or that of its failure.
// Requires that no other thread runs. A failed expectation in it shows in the text.
template <typename Action>
std::string RunInChild(Action&& action) {
  const TemporaryFolder folder;
  const pid_t child = fork();
  if (child == 0) {
    std::string text;
    text = FailureOf([&] { text = action(); }) + text;
    folder.Put("answer", text);
    _exit(testing::Test::HasFailure());
  }
  int status = 0;
  waitpid(child, &status, 0);
  return (status == 0 ? "" : "the child failed; ") + folder.Text("answer");
}

}  // namespace nvadmin
