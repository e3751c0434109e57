// A folder that lives as long as a test, and what else the tests of files share.
#pragma once

#include <gtest/gtest.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <exception>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <limits>
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

// A program of its own that lives until it is killed, by the destructor at the latest. It runs `action`,
// which is given a routine that tells of a step done. Requires that no other thread runs.
class ChildProgram {
 public:
  template <typename Action>
  explicit ChildProgram(Action&& action) {
    int ends[2];
    EXPECT_EQ(pipe(ends), 0);
    steps_ = ends[0];
    pid_ = fork();
    if (pid_ != 0) {
      close(ends[1]);
      return;
    }
    prctl(PR_SET_PDEATHSIG, SIGKILL);  // it doesn't outlive a test program that crashes
    FailureOf([&] { action([&] { return write(ends[1], "s", 1) == 1; }); });
    for (;;) pause();
  }
  ~ChildProgram() {
    Kill();
    waitpid(pid_, nullptr, 0);
    close(steps_);
  }
  ChildProgram(const ChildProgram&) = delete;
  ChildProgram& operator=(const ChildProgram&) = delete;

  void Send(int signal) const { kill(pid_, signal); }
  // Waits for so many steps.
  void Await(int steps) {
    for (char step; steps > 0 && read(steps_, &step, 1) == 1; --steps) ++told_;
  }
  // Waits until it is dead, but leaves the corpse. The steps that it had told of.
  int Kill() {
    Send(SIGKILL);
    siginfo_t info;
    waitid(P_PID, static_cast<id_t>(pid_), &info, WEXITED | WNOWAIT);
    Await(std::numeric_limits<int>::max());
    return told_;
  }

 private:
  pid_t pid_ = -1;
  int steps_ = -1;
  int told_ = 0;
};

}  // namespace nvadmin
