#include "engine/stores/OpenStore.h"

#include <fmt/format.h>

#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <system_error>

#include "engine/CodePage.h"
#include "engine/stores/MariaStore.h"
#include "engine/stores/NativeStore.h"
#include "engine/stores/SqliteStore.h"
#include "engine/stores/TableNames.h"

namespace nvadmin::engine {

namespace {

constexpr std::string_view kServerWord = "mysql";

// The first line of the file.
std::string ReadPassword(const Account& account, const std::filesystem::path& file) {
  errno = 0;
  std::ifstream stream(file, std::ios::binary);
  std::string password;
  std::getline(stream, password);
  if (stream.bad() || !stream.is_open()) {
    throw StoreFailure(fmt::format("account {}: the password can't be read from {}: {}", account.name,
                                   ForeignText(file.string()), std::generic_category().message(errno)));
  }
  if (password.ends_with('\r')) password.pop_back();
  return password;
}

// From the file that the address names, the environment, or what was kept when the account was added.
std::string FindPassword(const Home& home, const Account& account, const MariaAddress& address) {
  if (!address.passwordFile.empty()) return ReadPassword(account, ToUtf8(address.passwordFile));
  if (const char* given = std::getenv(kStorePasswordVariable)) return given;
  const std::filesystem::path kept = home.PasswordFile(account);
  return std::filesystem::exists(kept) ? ReadPassword(account, kept) : "";
}

}  // namespace

StorePlace FindStorePlace(const Home& home, const Account& account) {
  StorePlace place;
  std::string error;
  if (FoldTableName(account.datastore) != kServerWord) {
    error =
        fmt::format("the datastore word {} has no store at an address ({}); use {}, or leave the address out",
                    account.datastore, account.store, "MYSQL");
  }
  if (!error.empty() || !ReadMariaAddress(account.store, place.address, error))
    throw StoreFailure(fmt::format("account {}: {}", account.name, error));
  place.password = FindPassword(home, account, place.address);
  return place;
}

std::unique_ptr<Store> OpenStore(const Home& home, const Account& account) {
  if (!account.store.empty()) {
    StorePlace place = FindStorePlace(home, account);
    return std::make_unique<MariaStore>(std::move(place.address), std::move(place.password), account.name);
  }
  const std::filesystem::path file = home.DatabaseFile(account);
  std::unique_ptr<ItemTables> store;
  if (account.IsNative())
    store = std::make_unique<NativeStore>(file, account.name);
  else
    store = std::make_unique<SqliteStore>(file, account.name, account.datastore);
  if (account.synchronous == Synchronous::kNormal) store->RelaxCommits();
  return store;
}

}  // namespace nvadmin::engine
