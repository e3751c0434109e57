#include "host/ServerLog.h"

#include <ctime>
#include <string>

#include <unistd.h>

#include "host/ScreenText.h"

namespace nvadmin::host {

void LogEvent(std::string_view event) {
  const std::time_t now = std::time(nullptr);
  std::tm utc{};
  gmtime_r(&now, &utc);
  char time[32];
  const std::size_t length = std::strftime(time, sizeof time, "%Y-%m-%dT%H:%M:%SZ ", &utc);
  std::string line(time, length);
  ScreenText(/*hasCursor=*/false).Append(line, event, /*lineEnd=*/true);
  // One write a line, so that lines of several threads don't mix.
  [[maybe_unused]] const ssize_t written = write(STDERR_FILENO, line.data(), line.size());
}

}  // namespace nvadmin::host
