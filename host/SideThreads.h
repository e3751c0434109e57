// Threads beside a server's own, each for one job that may have to wait: so many at once, and so many for one
// key (an address, say).
#pragma once

#include <condition_variable>
#include <cstddef>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <string_view>

namespace nvadmin::host {

class SideThreads {
 public:
  SideThreads(std::size_t most, std::size_t mostPerKey) : most_(most), mostPerKey_(mostPerKey) {}
  // Waits for all jobs.
  ~SideThreads();
  SideThreads(const SideThreads&) = delete;
  SideThreads& operator=(const SideThreads&) = delete;

  // Runs the job, which doesn't fail, on a thread of its own. False, and nothing is run: there are too many,
  // or the system has no thread.
  bool Start(std::string_view key, std::function<void()> job);

 private:
  void Leave(const std::string& key);

  std::size_t most_;
  std::size_t mostPerKey_;
  std::mutex mutex_;
  std::condition_variable left_;
  std::size_t count_ = 0;
  std::map<std::string, std::size_t, std::less<>> perKey_;
};

}  // namespace nvadmin::host
