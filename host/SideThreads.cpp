#include "host/SideThreads.h"

#include <system_error>
#include <thread>
#include <utility>

namespace nvadmin::host {

SideThreads::~SideThreads() {
  std::unique_lock lock(mutex_);
  left_.wait(lock, [this] { return count_ == 0; });
}

bool SideThreads::Start(std::string_view key, std::function<void()> job) {
  {
    const std::lock_guard lock(mutex_);
    const auto here = perKey_.find(key);
    if (count_ >= most_ || (here != perKey_.end() && here->second >= mostPerKey_)) return false;
    ++count_;
    ++perKey_[std::string(key)];
  }
  try {
    std::thread([this, name = std::string(key), job = std::move(job)]() mutable {
      std::exchange(job, nullptr)();
      Leave(name);
    }).detach();
    return true;
  } catch (const std::system_error&) {
    Leave(std::string(key));
    return false;
  }
}

// The last touch of a job's thread: it may be the one that the destructor waits for.
void SideThreads::Leave(const std::string& key) {
  const std::lock_guard lock(mutex_);
  --count_;
  const auto here = perKey_.find(key);
  if (--here->second == 0) perKey_.erase(here);
  left_.notify_all();
}

}  // namespace nvadmin::host
