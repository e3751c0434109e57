#include "host/LogInDelays.h"

#include <algorithm>

namespace nvadmin::host {

LogInDelays::TimePoint LogInDelays::ReadyAt(std::string_view key) const {
  const auto found = failures_.find(key);
  if (found == failures_.end()) return TimePoint::min();
  const int beyond = found->second.count - kFreeFailures;
  if (beyond < 0) return found->second.last;
  constexpr int kMostDoublings = 5;
  const std::chrono::seconds delay(1 << std::min(beyond, kMostDoublings));
  return found->second.last + std::min(delay, kLongestDelay);
}

void LogInDelays::Failed(std::string_view key, TimePoint now) {
  auto found = failures_.find(key);
  if (found == failures_.end()) {
    if (failures_.size() >= kMostKeys) {
      failures_.erase(std::min_element(failures_.begin(), failures_.end(), [](const auto& a, const auto& b) {
        return a.second.last < b.second.last;
      }));
    }
    found = failures_.try_emplace(std::string(key)).first;
  }
  Failures& failures = found->second;
  if (now - failures.last > kMemory) failures.count = 0;
  failures.count = std::min(failures.count + 1, 1000);
  failures.last = now;
}

void LogInDelays::Forget(std::string_view key) {
  const auto found = failures_.find(key);
  if (found != failures_.end()) failures_.erase(found);
}

}  // namespace nvadmin::host
