// Runs a command a number of times and prints its least wall time in seconds and its largest resident memory
// in KiB.
//   bench_measure TIMES OUTPUT COMMAND...     standard output of the command goes to the file OUTPUT
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>

namespace {

struct Run {
  double seconds = 0;
  long residentKib = 0;
};

[[noreturn]] void Execute(const char* output, char** command) {
  const int file = open(output, O_WRONLY | O_CREAT | O_TRUNC, 0600);
  const int nothing = open("/dev/null", O_RDONLY);
  if (file < 0 || nothing < 0 || dup2(file, STDOUT_FILENO) < 0 || dup2(nothing, STDIN_FILENO) < 0) {
    std::perror(output);
    _exit(127);
  }
  execvp(command[0], command);
  std::perror(command[0]);
  _exit(127);
}

bool RunOnce(const char* output, char** command, Run& run) {
  const auto start = std::chrono::steady_clock::now();
  const pid_t child = fork();
  if (child == 0) Execute(output, command);
  int status = 0;
  rusage usage{};
  if (child < 0 || wait4(child, &status, 0, &usage) != child) return false;
  run.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  run.residentKib = usage.ru_maxrss;
  return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 4) {
    std::fputs("usage: bench_measure TIMES OUTPUT COMMAND...\n", stderr);
    return 2;
  }
  Run best{1e9, 0};
  for (int left = std::atoi(argv[1]); left > 0; --left) {
    Run run;
    if (!RunOnce(argv[2], argv + 3, run)) {
      std::fprintf(stderr, "bench_measure: %s failed\n", argv[3]);
      return 1;
    }
    best.seconds = std::min(best.seconds, run.seconds);
    best.residentKib = std::max(best.residentKib, run.residentKib);
  }
  std::printf("%.4f %ld\n", best.seconds, best.residentKib);
}
