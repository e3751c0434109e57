// A folder that lives as long as a test, and what else the tests of files share.
#pragma once

#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <exception>
#include <filesystem>
#include <string>

class TemporaryFolder {
 public:
  TemporaryFolder() {
    std::string name = (std::filesystem::temp_directory_path() / "nvadmin-test-XXXXXX").string();
    path_ = mkdtemp(name.data());
  }
  ~TemporaryFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;

  std::filesystem::path operator/(const std::filesystem::path& name) const { return path_ / name; }
  const std::filesystem::path& Path() const { return path_; }

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
// Requires that no other thread runs.
template <typename Action>
std::string RunInChild(Action&& action) {
  int ends[2];
  if (pipe(ends) != 0) return "no pipe";
  const pid_t child = fork();
  if (child == 0) {
    std::string text;
    text = FailureOf([&] { text = action(); }) + text;
    _exit(write(ends[1], text.data(), text.size()) == static_cast<ssize_t>(text.size()) ? 0 : 1);
  }
  close(ends[1]);
  std::string text;
  char part[4096];
  for (ssize_t count = 1; (count = read(ends[0], part, sizeof part)) > 0;)
    text.append(part, static_cast<std::size_t>(count));
  close(ends[0]);
  int status = 0;
  waitpid(child, &status, 0);
  return WIFEXITED(status) && WEXITSTATUS(status) == 0 ? text : "the child crashed; " + text;
}
