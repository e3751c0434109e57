#include "platform/Clock.h"

#include <chrono>
#include <ctime>

namespace nvadmin {

float SecondsSinceMidnight() {
  const auto now = std::chrono::system_clock::now();
  const std::time_t seconds = std::chrono::system_clock::to_time_t(now);
  std::tm local{};
  localtime_r(&seconds, &local);
  const std::chrono::duration<float> fraction = now - std::chrono::system_clock::from_time_t(seconds);
  return static_cast<float>(local.tm_hour * 3600 + local.tm_min * 60 + local.tm_sec) + fraction.count();
}

}  // namespace nvadmin
