#include "host/Users.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <filesystem>

#include "engine/CodePage.h"
#include "engine/stores/Sqlite.h"
#include "host/Passwords.h"

namespace nvadmin::host {

namespace {

using engine::Statement;

constexpr std::chrono::milliseconds kPatience{10'000};
constexpr std::size_t kLongestName = 64;

constexpr const char* kMakeTables =
    "CREATE TABLE IF NOT EXISTS users(name TEXT PRIMARY KEY COLLATE NOCASE, password TEXT NOT NULL)"
    " WITHOUT ROWID;"
    "CREATE TABLE IF NOT EXISTS entries(name TEXT COLLATE NOCASE, account TEXT,"
    " PRIMARY KEY(name, account)) WITHOUT ROWID;";

bool IsName(std::string_view name) {
  const auto fits = [](char c) {
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '_' ||
           c == '-' || c == '.';
  };
  return !name.empty() && name.size() <= kLongestName && std::all_of(name.begin(), name.end(), fits);
}

bool CheckName(std::string_view name, std::string& error) {
  if (IsName(name)) return true;
  error = fmt::format("'{}' can't be a user's name; use 1 to {} letters, digits, '_', '-' and '.'",
                      engine::ForeignText(name), kLongestName);
  return false;
}

bool CheckPassword(std::string_view password, std::string& error) {
  if (password.size() >= kShortestPassword && password.size() <= kLongestPassword) return true;
  error = fmt::format("the password has {} characters; use {} to {}", password.size(), kShortestPassword,
                      kLongestPassword);
  return false;
}

std::string UnknownUser(std::string_view name) {
  return fmt::format("there is no user {}; 'nvadmin user list' shows the users", engine::ForeignText(name));
}

std::string TakenName(std::string_view name) {
  return fmt::format(
      "there is a user {0} already; 'nvadmin user passwd {0}' sets the password, 'nvadmin user accounts {0} "
      "--account A,B' the accounts",
      name);
}

std::string UnknownAccounts(const std::vector<std::string>& accounts) {
  return fmt::format(
      "there is no account {}; 'nvadmin account list' shows the accounts, 'nvadmin account add NAME "
      "--datastore WORD' adds one",
      fmt::join(accounts, ", "));
}

}  // namespace

struct Users::File {
  explicit File(const std::filesystem::path& path) : database(path, engine::OpenMode::kMake, kPatience) {
    database.Execute("PRAGMA synchronous = FULL");
    database.Execute(kMakeTables);
  }

  bool Has(std::string_view name) {
    Statement find(database, "SELECT 1 FROM users WHERE name = ?1");
    const engine::ResetAtEnd reset(find);
    return find.BindText(1, name).Step();
  }
  std::vector<std::string> AccountsOf(std::string_view name) {
    Statement read(database, "SELECT account FROM entries WHERE name = ?1 ORDER BY account");
    read.BindText(1, name);
    std::vector<std::string> accounts;
    while (read.Step()) accounts.emplace_back(read.Text(0));
    return accounts;
  }
  // Requires a write transaction.
  void PutAccounts(std::string_view name, const std::vector<std::string>& accounts) {
    Statement(database, "DELETE FROM entries WHERE name = ?1").BindText(1, name).Run();
    Statement add(database, "INSERT INTO entries(name, account) VALUES(?1, ?2) ON CONFLICT DO NOTHING");
    for (const std::string& account : accounts) add.BindText(1, name).BindText(2, account).Run();
  }

  engine::Database database;
};

bool User::MayEnter(std::string_view account) const {
  return std::any_of(accounts.begin(), accounts.end(), [account](const std::string& allowed) {
    return allowed == account || allowed == kEveryAccount;
  });
}

Users::Users(engine::Home& home)
    : home_(home), file_(std::make_unique<File>(home.Folder() / "users.sqlite")) {}

Users::~Users() = default;

bool Users::IsEmpty() {
  const std::lock_guard guard(mutex_);
  Statement any(file_->database, "SELECT 1 FROM users");
  const engine::ResetAtEnd reset(any);
  return !any.Step();
}

std::vector<User> Users::All() {
  const std::lock_guard guard(mutex_);
  Statement read(file_->database, "SELECT name, password FROM users ORDER BY name");
  std::vector<User> all;
  while (read.Step()) {
    const std::string name(read.Text(0));
    all.push_back({name, file_->AccountsOf(name), std::string(read.Text(1))});
  }
  return all;
}

std::optional<User> Users::Find(std::string_view name) {
  const std::lock_guard guard(mutex_);
  Statement read(file_->database, "SELECT name, password FROM users WHERE name = ?1");
  const engine::ResetAtEnd reset(read);
  if (!read.BindText(1, name).Step()) return std::nullopt;
  return User{std::string(read.Text(0)), file_->AccountsOf(name), std::string(read.Text(1))};
}

bool Users::Has(std::string_view name, std::string& error) {
  const std::lock_guard guard(mutex_);
  if (file_->Has(name)) return true;
  error = UnknownUser(name);
  return false;
}

bool Users::CheckAccounts(std::vector<std::string>& accounts, std::string& error) const {
  std::vector<std::string> unknown;
  for (std::string& name : accounts) {
    if (name == kEveryAccount) continue;
    if (const std::optional<engine::Account> account = home_.FindAccount(name)) {
      name = account->name;
    } else {
      unknown.push_back(engine::ForeignText(name));
    }
  }
  if (!unknown.empty()) {
    error = UnknownAccounts(unknown);
  } else if (accounts.empty()) {
    error = "give at least one account, or '*' for every account";
  } else if (accounts.size() > 1 && std::count(accounts.begin(), accounts.end(), kEveryAccount) > 0) {
    error = "'*' stands for every account; give it alone";
  } else {
    return true;
  }
  return false;
}

bool Users::CanAdd(std::string_view name, std::vector<std::string> accounts, std::string& error) {
  if (!CheckName(name, error) || !CheckAccounts(accounts, error)) return false;
  const std::lock_guard guard(mutex_);
  if (!file_->Has(name)) return true;
  error = TakenName(name);
  return false;
}

bool Users::Add(std::string_view name, std::vector<std::string> accounts, std::string_view password,
                std::string& error) {
  if (!CheckName(name, error) || !CheckAccounts(accounts, error) || !CheckPassword(password, error))
    return false;
  const std::string hash = HashPassword(password);

  const std::lock_guard guard(mutex_);
  engine::WriteTransaction transaction(file_->database);
  if (file_->Has(name)) {
    error = TakenName(name);
    return false;
  }
  Statement add(file_->database, "INSERT INTO users(name, password) VALUES(?1, ?2)");
  add.BindText(1, name).BindText(2, hash).Run();
  file_->PutAccounts(name, accounts);
  transaction.Commit();
  return true;
}

bool Users::SetPassword(std::string_view name, std::string_view password, std::string& error) {
  if (!CheckPassword(password, error)) return false;
  const std::string hash = HashPassword(password);
  const std::lock_guard guard(mutex_);
  Statement set(file_->database, "UPDATE users SET password = ?2 WHERE name = ?1");
  set.BindText(1, name).BindText(2, hash).Run();
  if (file_->database.Changes() > 0) return true;
  error = UnknownUser(name);
  return false;
}

bool Users::SetAccounts(std::string_view name, std::vector<std::string> accounts, std::string& error) {
  if (!CheckAccounts(accounts, error)) return false;
  const std::lock_guard guard(mutex_);
  engine::WriteTransaction transaction(file_->database);
  if (!file_->Has(name)) {
    error = UnknownUser(name);
    return false;
  }
  file_->PutAccounts(name, accounts);
  transaction.Commit();
  return true;
}

bool Users::Remove(std::string_view name, std::string& error) {
  const std::lock_guard guard(mutex_);
  engine::WriteTransaction transaction(file_->database);
  if (!file_->Has(name)) {
    error = UnknownUser(name);
    return false;
  }
  file_->PutAccounts(name, {});
  Statement(file_->database, "DELETE FROM users WHERE name = ?1").BindText(1, name).Run();
  transaction.Commit();
  return true;
}

void Users::ForgetAccount(std::string_view account) {
  const std::lock_guard guard(mutex_);
  Statement forget(file_->database, "DELETE FROM entries WHERE account = ?1 COLLATE NOCASE");
  forget.BindText(1, account).Run();
}

}  // namespace nvadmin::host
