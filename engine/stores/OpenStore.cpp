#include "engine/stores/OpenStore.h"

#include <fmt/format.h>

#include "engine/stores/NativeStore.h"
#include "engine/stores/SqliteStore.h"

namespace nvadmin::engine {

std::unique_ptr<Store> OpenStore(const Home& home, const Account& account) {
  if (!account.store.empty()) {
    throw StoreFailure(
        fmt::format("account {}: a store at an address ({}) isn't supported here; add the account "
                    "without one, and it is kept in the home",
                    account.name, account.store));
  }
  const std::filesystem::path file = home.DatabaseFile(account);
  if (account.IsNative()) return std::make_unique<NativeStore>(file, account.name);
  return std::make_unique<SqliteStore>(file, account.name, account.datastore);
}

}  // namespace nvadmin::engine
