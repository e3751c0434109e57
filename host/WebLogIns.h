// Who is logged in at the web server: a table from the random tokens in browsers' cookies to users. It
// forgets a log-in so long after its last use, and of too many the one used longest ago. It knows no
// clock; the caller says what time it is. One thread at a time.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace nvadmin::host {

struct WebLogIn {
  std::int64_t number = 0;  // from 1, none twice
  std::string user;
  std::string account;
  // The user's at the log-in: another means that the password is another.
  std::string passwordHash;
};

class WebLogIns {
 public:
  using TimePoint = std::chrono::steady_clock::time_point;
  static constexpr std::chrono::hours kLife{12};

  explicit WebLogIns(std::chrono::seconds life = kLife, std::size_t most = 4096) : life_(life), most_(most) {}

  // The token of the new log-in, whose number is given here.
  std::string Add(WebLogIn logIn, TimePoint now);
  // A use of the log-in. None: there is no such token, or no longer.
  std::optional<WebLogIn> Find(std::string_view token, TimePoint now);
  // The number of the log-in that went; 0: there was none.
  std::int64_t Remove(std::string_view token);
  std::size_t Count() const { return entries_.size(); }

 private:
  struct Entry {
    std::string token;
    WebLogIn logIn;
    TimePoint used;
  };
  using Entries = std::vector<Entry>;

  void ForgetOld(TimePoint now);
  Entries::iterator Locate(std::string_view token);

  std::chrono::seconds life_;
  std::size_t most_;
  std::int64_t lastNumber_ = 0;
  Entries entries_;
};

}  // namespace nvadmin::host
