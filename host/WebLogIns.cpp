#include "host/WebLogIns.h"

#include <algorithm>

#include "host/Passwords.h"

namespace nvadmin::host {

std::string WebLogIns::Add(WebLogIn logIn, TimePoint now) {
  ForgetOld(now);
  if (entries_.size() >= most_) {
    entries_.erase(std::min_element(entries_.begin(), entries_.end(),
                                    [](const Entry& a, const Entry& b) { return a.used < b.used; }));
  }
  logIn.number = ++lastNumber_;
  entries_.push_back({NewToken(), std::move(logIn), now});
  return entries_.back().token;
}

std::optional<WebLogIn> WebLogIns::Find(std::string_view token, TimePoint now) {
  ForgetOld(now);
  const auto found = Locate(token);
  if (found == entries_.end()) return std::nullopt;
  found->used = now;
  return found->logIn;
}

std::int64_t WebLogIns::Remove(std::string_view token) {
  const auto found = Locate(token);
  if (found == entries_.end()) return 0;
  const std::int64_t number = found->logIn.number;
  entries_.erase(found);
  return number;
}

void WebLogIns::ForgetOld(TimePoint now) {
  std::erase_if(entries_, [this, now](const Entry& entry) { return now - entry.used > life_; });
}

WebLogIns::Entries::iterator WebLogIns::Locate(std::string_view token) {
  return std::find_if(entries_.begin(), entries_.end(),
                      [token](const Entry& entry) { return IsSameToken(entry.token, token); });
}

}  // namespace nvadmin::host
