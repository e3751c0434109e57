#include "host/ServerLog.h"

#include <ctime>
#include <string>

#include <unistd.h>

#include "host/ScreenText.h"

namespace nvadmin::host {

namespace {

constexpr std::size_t kMostBytes = 1000;  // so that a line stays below what a pipe takes whole

}  // namespace

void LogEvent(std::string_view event) {
  const std::time_t now = std::time(nullptr);
  std::tm utc{};
  gmtime_r(&now, &utc);
  char time[32];
  const std::size_t length = std::strftime(time, sizeof time, "%Y-%m-%dT%H:%M:%SZ ", &utc);
  std::string line(time, length);
  ScreenText screen(/*hasCursor=*/false);
  // Byte by byte: a whole CR LF would end the line.
  for (const char& byte : event.substr(0, kMostBytes)) screen.Append(line, {&byte, 1}, /*lineEnd=*/false);
  screen.Append(line, event.size() > kMostBytes ? "..." : "", /*lineEnd=*/true);
  // One write a line, so that lines of several threads don't mix.
  [[maybe_unused]] const ssize_t written = write(STDERR_FILENO, line.data(), line.size());
}

}  // namespace nvadmin::host
