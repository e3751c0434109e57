// How long log-ins wait after failures: a table of names or addresses, bounded in size, that forgets. It
// knows no clock; the caller says what time it is.
#pragma once

#include <chrono>
#include <cstddef>
#include <map>
#include <string>
#include <string_view>

namespace nvadmin::host {

class LogInDelays {
 public:
  using TimePoint = std::chrono::steady_clock::time_point;

  static constexpr int kFreeFailures = 3;
  static constexpr std::chrono::seconds kLongestDelay{30};
  static constexpr std::chrono::minutes kMemory{15};  // without a failure meanwhile
  static constexpr std::size_t kMostKeys = 4096;      // then the one that failed longest ago is forgotten

  // When the next log-in may be checked: the last failure and the delay, up to 30 s; long ago for a key
  // without failures.
  TimePoint ReadyAt(std::string_view key) const;
  void Failed(std::string_view key, TimePoint now);
  void Forget(std::string_view key);

 private:
  struct Failures {
    int count = 0;
    TimePoint last;
  };
  std::map<std::string, Failures, std::less<>> failures_;
};

}  // namespace nvadmin::host
