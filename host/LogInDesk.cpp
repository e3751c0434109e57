#include "host/LogInDesk.h"

#include <algorithm>

#include "host/ClientAddress.h"
#include "host/Passwords.h"

namespace nvadmin::host {

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kHashesAtOnce = 2;
constexpr std::chrono::seconds kPatience{60};
constexpr std::chrono::milliseconds kAskAgain{100};
constexpr std::size_t kLongestKey = 64;  // no name of a user is longer

// What failures are counted under: the same for all spellings of a name.
std::string KeyOf(std::string_view text) {
  std::string key(text.substr(0, kLongestKey));
  for (char& letter : key) {
    if (letter >= 'A' && letter <= 'Z') letter = static_cast<char>(letter - 'A' + 'a');
  }
  return key;
}

}  // namespace

// One log-in on its way.
struct LogInDesk::Visit {
  std::string user;  // both as keys
  std::string address;
  const std::function<bool()>& abandoned;
  Clock::time_point arrival = Clock::now();
};

LogInDesk::LogInDesk(engine::Home& home, Users& users)
    : home_(home), users_(users), hashOfNobody_(HashOfNobody()) {}

std::optional<LoggedIn> LogInDesk::LogIn(std::string_view user, std::string_view password,
                                         std::string_view account, std::string_view address,
                                         const std::function<bool()>& abandoned) {
  const Visit visit{KeyOf(user), KeyOf(CountedAddress(address)), abandoned};
  if (!AwaitTurn(visit)) return std::nullopt;

  std::optional<LoggedIn> found;
  try {
    found = Check(user, password, account);
  } catch (...) {
    const std::lock_guard lock(mutex_);
    LeavePlace();
    throw;
  }
  // The failure counts before the place is free: the next to hash sees it.
  const std::lock_guard lock(mutex_);
  if (found) {
    userDelays_.Forget(visit.user);
  } else {
    userDelays_.Failed(visit.user, Clock::now());
    addressDelays_.Failed(visit.address, Clock::now());
  }
  LeavePlace();
  return found;
}

void LogInDesk::LeavePlace() {
  --hashing_;
  changed_.notify_all();
}

bool LogInDesk::IsDelayed(const Visit& visit) const {
  const auto ready = std::max(userDelays_.ReadyAt(visit.user), addressDelays_.ReadyAt(visit.address));
  return Clock::now() < std::min(ready, visit.arrival + LogInDelays::kLongestDelay);
}

// False: too many wait already, or it was given up.
bool LogInDesk::AwaitDelay(const Visit& visit, std::unique_lock<std::mutex>& lock) {
  if (!IsDelayed(visit)) return true;
  const auto ofUser = waiting_.try_emplace(visit.address + ' ' + visit.user).first;
  const auto ofAddress = waiting_.try_emplace(visit.address).first;
  const bool mayWait = ofUser->second < kMostWaitingOfUser && ofAddress->second < kMostWaitingOfAddress;
  ++ofUser->second;
  ++ofAddress->second;
  const bool hasWaited = mayWait && AwaitThat(visit, lock, [&] { return !IsDelayed(visit); });
  for (const auto& place : {ofUser, ofAddress}) {
    if (--place->second == 0) waiting_.erase(place);
  }
  return hasWaited;
}

// Takes a place among the hashes. While a log-in stands in the queue others may fail for the same user: then
// it goes back to wait. False, without a place: too many wait, it was given up or took too long.
bool LogInDesk::AwaitTurn(const Visit& visit) {
  std::unique_lock lock(mutex_);
  do {
    if (!AwaitDelay(visit, lock)) return false;
    const auto place = queue_.insert(queue_.end(), &visit);
    const bool isNext =
        AwaitThat(visit, lock, [&] { return place == queue_.begin() && hashing_ < kHashesAtOnce; });
    queue_.erase(place);
    changed_.notify_all();
    if (!isNext) return false;
  } while (IsDelayed(visit));
  ++hashing_;
  return true;
}

template <typename Condition>
bool LogInDesk::AwaitThat(const Visit& visit, std::unique_lock<std::mutex>& lock,
                          const Condition& condition) {
  while (!condition()) {
    changed_.wait_for(lock, kAskAgain);
    if (Clock::now() - visit.arrival > kPatience) return false;
    lock.unlock();
    const bool abandoned = visit.abandoned && visit.abandoned();
    lock.lock();
    if (abandoned) return false;
  }
  return true;
}

// The same work whatever is wrong, so that the time tells nothing either.
std::optional<LoggedIn> LogInDesk::Check(std::string_view user, std::string_view password,
                                         std::string_view account) {
  std::optional<User> found = users_.Find(user);
  const bool matches = IsPassword(password, found ? found->passwordHash : hashOfNobody_);
  if (!found || !matches) return std::nullopt;
  const std::optional<std::string> entered = ChooseAccount(*found, account);
  if (!entered) return std::nullopt;
  found->passwordHash.clear();
  LoggedIn loggedIn{found->name, *entered, {}};
  loggedIn.mayEnter = [user = std::move(*found)](std::string_view name) { return user.MayEnter(name); };
  return loggedIn;
}

std::optional<std::string> LogInDesk::ChooseAccount(const User& user, std::string_view account) const {
  if (!account.empty()) {
    const std::optional<engine::Account> found = home_.FindAccount(account);
    return found && user.MayEnter(found->name) ? std::optional(found->name) : std::nullopt;
  }
  std::optional<std::string> only;
  for (const engine::Account& candidate : home_.Accounts()) {
    if (!user.MayEnter(candidate.name)) continue;
    if (only) return std::nullopt;
    only = candidate.name;
  }
  return only;
}

}  // namespace nvadmin::host
