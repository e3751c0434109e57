// Where the sessions of a server log in. A stranger learns nothing but a no: an unknown user, a wrong
// password and an account that isn't the user's get the same answer after the same work.
//
// After three failures of a user, or from an address, the next log-in waits: 1 s after the last failure, then
// twice as long after each further one, up to 30 s. Nobody waits longer than that for strangers' failures, so
// none of them can keep a user out. So that guesses made side by side gain nothing by it, only a few log-ins
// may wait for a delay at once, of one user from one address and of one address; others get their no at once.
// Hashes cost 64 MiB each, so two run at once, in the order of asking.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <list>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include <condition_variable>

#include "engine/Home.h"
#include "host/LogInDelays.h"
#include "host/Users.h"

namespace nvadmin::host {

struct LoggedIn {
  std::string user;     // as the user's name is spelled
  std::string account;  // in capitals
  // The accounts as they are at the log-in; may outlive the desk.
  std::function<bool(std::string_view account)> mayEnter;
};

// One a server; any thread.
class LogInDesk {
 public:
  static constexpr int kMostWaitingOfUser = 4;  // from one address
  static constexpr int kMostWaitingOfAddress = 16;

  // Home and users are lent.
  LogInDesk(engine::Home& home, Users& users);

  // Checks a log-in; nothing says why it failed. Waits for the delay of this user and address and for a free
  // place among the hashes, a minute at most, or not at all where too many wait already; `abandoned` is asked
  // every 100 ms meanwhile (true: give up). `user`, `password` and `account` are what the stranger gave, of
  // any length; an empty account means the user's only one. `address` is the stranger's host without the
  // port; see CountedAddress.
  std::optional<LoggedIn> LogIn(std::string_view user, std::string_view password, std::string_view account,
                                std::string_view address, const std::function<bool()>& abandoned);

 private:
  struct Visit;

  bool AwaitTurn(const Visit& visit);
  bool AwaitDelay(const Visit& visit, std::unique_lock<std::mutex>& lock);
  bool IsDelayed(const Visit& visit) const;
  void LeavePlace();  // requires the mutex
  template <typename Condition>
  bool AwaitThat(const Visit& visit, std::unique_lock<std::mutex>& lock, const Condition& condition);
  std::optional<LoggedIn> Check(std::string_view user, std::string_view password, std::string_view account);
  std::optional<std::string> ChooseAccount(const User& user, std::string_view account) const;

  engine::Home& home_;
  Users& users_;
  std::string hashOfNobody_;  // what an unknown user's password is checked against

  std::mutex mutex_;
  std::condition_variable changed_;
  std::list<const Visit*> queue_;  // for a hash, the first to come first
  int hashing_ = 0;
  LogInDelays userDelays_;
  LogInDelays addressDelays_;
  std::map<std::string, int> waiting_;  // for a delay, by user and address, and by address
};

}  // namespace nvadmin::host
