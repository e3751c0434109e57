// Who may log in, with which password, and into which accounts: the file users.sqlite (mode 0600) of a home.
// Several programs may use it at once; a server sees a change at the next log-in.
//
// A name is 1 to 64 letters, digits, "_", "-" and "."; letter case doesn't tell two apart. A password is 8 to
// 1024 bytes of the code page, kept as its argon2id hash alone. Routines may be called from any thread; they
// fail with an EngineFailure that names the file. A bool that is false leaves the reason and the way out in
// `error`.
#pragma once

#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "engine/Home.h"

namespace nvadmin::host {

// In a list of accounts: every account of the home, those that come later too. It goes alone.
inline constexpr std::string_view kEveryAccount = "*";

struct User {
  std::string name;                   // as it was spelled when the user was added
  std::vector<std::string> accounts;  // in capitals and order of name; none after their removal
  std::string passwordHash;

  // `account` in capitals.
  bool MayEnter(std::string_view account) const;
};

class Users {
 public:
  // Makes the file where it is missing. The home is lent.
  explicit Users(engine::Home& home);
  ~Users();
  Users(const Users&) = delete;
  Users& operator=(const Users&) = delete;

  bool IsEmpty();
  std::vector<User> All();  // in order of name
  std::optional<User> Find(std::string_view name);
  bool Has(std::string_view name, std::string& error);

  // Whether Add can do it but for the password.
  bool CanAdd(std::string_view name, std::vector<std::string> accounts, std::string& error);
  bool Add(std::string_view name, std::vector<std::string> accounts, std::string_view password,
           std::string& error);
  bool SetPassword(std::string_view name, std::string_view password, std::string& error);
  bool SetAccounts(std::string_view name, std::vector<std::string> accounts, std::string& error);
  bool Remove(std::string_view name, std::string& error);
  // Takes a removed account from all users, so that a later one of the same name isn't theirs.
  void ForgetAccount(std::string_view account);

 private:
  struct File;

  // Replaces names by those of the accounts.
  bool CheckAccounts(std::vector<std::string>& accounts, std::string& error) const;

  engine::Home& home_;
  std::mutex mutex_;  // held by every routine that uses the file
  std::unique_ptr<File> file_;
};

}  // namespace nvadmin::host
