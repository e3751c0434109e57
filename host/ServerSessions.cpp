#include "host/ServerSessions.h"

#include <fmt/format.h>

namespace nvadmin::host {

ServerSessions::~ServerSessions() {
  EndAllNow();
  WaitForAll(std::chrono::hours(24));
  JoinOver();
}

std::string ServerSessions::RefusalFor(std::string_view address) {
  JoinOver();
  const std::lock_guard lock(mutex_);
  if (running_.size() >= limits_.all)
    return fmt::format("the server has as many sessions as it may have, {}: try again later", limits_.all);
  const auto here = perAddress_.find(address);
  if (here != perAddress_.end() && here->second >= limits_.perAddress)
    return fmt::format("{} has as many sessions as one address may have, {}: end one first", address,
                       limits_.perAddress);
  return {};
}

void ServerSessions::Open(std::int64_t number, std::shared_ptr<ServedSession> session,
                          std::string_view address) {
  const std::lock_guard lock(mutex_);
  ServedSession& served = *session;
  std::thread thread([this, number, &served] { Run(number, served); });
  // The thread can't end before it gets the mutex.
  running_.emplace(number, Running{std::move(session), std::string(address), std::move(thread)});
  ++perAddress_[std::string(address)];
}

void ServerSessions::Run(std::int64_t number, ServedSession& session) {
  session.Serve();
  std::shared_ptr<ServedSession> last;  // goes when the mutex is free again
  const std::lock_guard lock(mutex_);
  const auto entry = running_.find(number);
  last = std::move(entry->second.session);
  over_.push_back(std::move(entry->second.thread));
  const auto here = perAddress_.find(entry->second.address);
  if (--here->second == 0) perAddress_.erase(here);
  running_.erase(entry);
  ended_.notify_all();
}

void ServerSessions::JoinOver() {
  std::list<std::thread> over;
  {
    const std::lock_guard lock(mutex_);
    over.swap(over_);
  }
  for (std::thread& thread : over) thread.join();
}

void ServerSessions::EndNow(std::int64_t number) noexcept {
  const std::lock_guard lock(mutex_);
  const auto entry = running_.find(number);
  if (entry != running_.end()) entry->second.session->EndNow();
}

void ServerSessions::EndAllSoon() {
  const std::lock_guard lock(mutex_);
  for (auto& [number, entry] : running_) entry.session->EndSoon();
}

void ServerSessions::EndAllNow() {
  const std::lock_guard lock(mutex_);
  for (auto& [number, entry] : running_) entry.session->EndNow();
}

bool ServerSessions::WaitForAll(std::chrono::milliseconds patience) {
  std::unique_lock lock(mutex_);
  return ended_.wait_for(lock, patience, [this] { return running_.empty(); });
}

}  // namespace nvadmin::host
