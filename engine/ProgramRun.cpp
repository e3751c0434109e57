#include "engine/ProgramRun.h"

#include <fmt/format.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <fstream>

namespace nvadmin::engine {

namespace {

std::string FirstLine(const std::string& file) {
  std::ifstream stream(file);
  std::string line;
  std::getline(stream, line);
  return line;
}

// When the process began, and whether it is a corpse.
struct ProcessState {
  std::int64_t started = 0;
  bool dead = false;
};

ProcessState ReadProcessState(std::int64_t pid) {
  const std::string line = FirstLine(fmt::format("/proc/{}/stat", pid));
  // The second field is the program's name in parentheses and may hold anything; the state is the third.
  const std::size_t nameEnd = line.rfind(')');
  if (nameEnd == std::string::npos || line.size() < nameEnd + 3) return {};
  ProcessState state;
  state.dead = line[nameEnd + 2] == 'Z' || line[nameEnd + 2] == 'X';
  std::size_t at = nameEnd + 2;
  constexpr int kFieldsToStart = 19;  // from the state to the time of the start
  for (int field = 0; field < kFieldsToStart && at != std::string::npos; ++field) at = line.find(' ', at + 1);
  if (at != std::string::npos) state.started = std::strtoll(line.c_str() + at + 1, nullptr, 10);
  return state;
}

}  // namespace

ProgramRun ThisRun() {
  ProgramRun run;
  const std::string boot = FirstLine("/proc/sys/kernel/random/boot_id");
  struct stat space;
  if (!boot.empty() && stat("/proc/self/ns/pid", &space) == 0) {
    run.machine = fmt::format("{}/{}", boot, space.st_ino);
  }
  run.pid = getpid();
  run.started = ReadProcessState(run.pid).started;
  return run;
}

bool IsRunning(const ProgramRun& run) {
  if (kill(static_cast<pid_t>(run.pid), 0) != 0 && errno == ESRCH) return false;
  const ProcessState state = ReadProcessState(run.pid);
  if (state.dead) return false;
  return state.started == 0 || run.started == 0 || state.started == run.started;
}

}  // namespace nvadmin::engine
