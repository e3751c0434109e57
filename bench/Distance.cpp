// Runs a command with a proxy before a server's socket, which makes the way there as long as a network's, and
// writes to standard error how many exchanges there were.
//   bench_distance SOCKET TARGET MICROSECONDS COMMAND...     a round trip takes so long; status: the
//   command's
#include <spawn.h>
#include <sys/wait.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>

#include "tests/support/SocketProxy.h"

int main(int argc, char** argv) {
  if (argc < 5) {
    std::fputs("usage: bench_distance SOCKET TARGET MICROSECONDS COMMAND...\n", stderr);
    return 2;
  }
  const nvadmin::SocketProxy proxy(argv[1], argv[2], std::chrono::microseconds(std::atoi(argv[3])));
  pid_t child = -1;
  int status = 0;
  if (!proxy.IsThere() || posix_spawnp(&child, argv[4], nullptr, nullptr, argv + 4, environ) != 0 ||
      waitpid(child, &status, 0) != child) {
    std::fprintf(stderr, "bench_distance: %s can't be listened at, or %s not be run\n", argv[1], argv[4]);
    return 1;
  }
  std::fprintf(stderr, "%lld exchanges\n", static_cast<long long>(proxy.Exchanges()));
  return WIFEXITED(status) ? WEXITSTATUS(status) : 1;
}
