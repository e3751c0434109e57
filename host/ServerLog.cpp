#include "host/ServerLog.h"

#include <chrono>
#include <ctime>
#include <map>
#include <mutex>
#include <string>

#include <fmt/format.h>
#include <unistd.h>

#include "host/ScreenText.h"

namespace nvadmin::host {

namespace {

constexpr std::size_t kMostBytes = 1000;  // so that a line stays below what a pipe takes whole

using Clock = std::chrono::steady_clock;

constexpr std::chrono::seconds kSpan{1};

// The events of a kind within a span of time.
struct Flood {
  Clock::time_point start;
  int lines = 0;
  int leftOut = 0;
};

std::mutex floodsMutex;
std::map<std::string, Flood, std::less<>> floods;

void WriteLine(std::string_view event) {
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

// Requires the mutex. Ends the spans that are over.
void TellLeftOut() {
  const Clock::time_point now = Clock::now();
  for (auto& [kind, flood] : floods) {
    if (now - flood.start < kSpan) continue;
    if (flood.leftOut > 0) WriteLine(fmt::format("{} more {} left out", flood.leftOut, kind));
    flood = {now};
  }
}

}  // namespace

void LogEvent(std::string_view event) {
  const std::lock_guard lock(floodsMutex);
  TellLeftOut();
  WriteLine(event);
}

void LogEventOfMany(std::string_view kind, std::string_view event) {
  const std::lock_guard lock(floodsMutex);
  TellLeftOut();
  auto flood = floods.find(kind);
  if (flood == floods.end()) flood = floods.emplace(kind, Flood{Clock::now()}).first;
  if (flood->second.lines == kMostLinesOfKind) {
    ++flood->second.leftOut;
    return;
  }
  ++flood->second.lines;
  WriteLine(event);
}

}  // namespace nvadmin::host
