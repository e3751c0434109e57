#include "host/ServerSessions.h"

#include <system_error>
#include <utility>

#include <fmt/format.h>

#include "host/ClientAddress.h"

namespace nvadmin::host {

namespace {

constexpr std::chrono::milliseconds kEndAgain{100};

}  // namespace

ServerSessions::~ServerSessions() {
  do {
    EndAllNow();
  } while (!WaitForAll(kEndAgain));
  if (lastEnded_.joinable()) lastEnded_.join();
}

std::string ServerSessions::RefusalFor(std::string_view address) const {
  if (running_.size() >= limits_.all)
    return fmt::format("the server has as many sessions as it may have, {}: try again later", limits_.all);
  const auto here = perAddress_.find(address);
  if (here != perAddress_.end() && here->second >= limits_.perAddress)
    return fmt::format("{} has as many sessions as one address may have, {}: end one first", address,
                       limits_.perAddress);
  return {};
}

std::string ServerSessions::Open(std::string_view from,
                                 const std::function<std::shared_ptr<ServedSession>(std::int64_t)>& make) {
  const std::string address = CountedAddress(from);
  const std::lock_guard lock(mutex_);
  if (std::string refusal = RefusalFor(address); !refusal.empty()) return refusal;
  const std::int64_t number = ++lastNumber_;
  const std::shared_ptr<ServedSession> session = make(number);
  std::size_t& here = perAddress_[address];
  const auto entry = running_.emplace(number, Running{session, address, {}}).first;
  ++here;
  try {
    // It can't end before it gets the mutex.
    entry->second.thread = std::thread([this, number, &served = *session] { Run(number, served); });
    return {};
  } catch (const std::system_error& failure) {
    Forget(entry);
    session->Refuse("the system has no place for another session: try again later");
    return fmt::format("the system has no thread for it: {}", failure.code().message());
  }
}

void ServerSessions::Forget(RunningSessions::iterator entry) {
  const auto here = perAddress_.find(entry->second.address);
  if (--here->second == 0) perAddress_.erase(here);
  running_.erase(entry);
}

void ServerSessions::Run(std::int64_t number, ServedSession& session) {
  session.Serve();
  std::shared_ptr<ServedSession> last;  // goes when the mutex is free again
  std::thread before;
  {
    const std::lock_guard lock(mutex_);
    const auto entry = running_.find(number);
    last = std::move(entry->second.session);
    before = std::exchange(lastEnded_, std::move(entry->second.thread));
    Forget(entry);
    ended_.notify_all();
  }
  if (before.joinable()) before.join();
}

bool ServerSessions::EndNow(std::int64_t number) noexcept {
  const std::lock_guard lock(mutex_);
  const auto entry = running_.find(number);
  if (entry == running_.end()) return false;
  entry->second.session->EndNow();
  return true;
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
