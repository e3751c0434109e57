#include "engine/stores/OpenStore.h"

#include <fmt/format.h>

#include "engine/stores/SqliteStore.h"

namespace nvadmin::engine {

std::unique_ptr<Store> OpenStore(const Home& home, const Account& account) {
  if (account.datastore.starts_with("MV")) {
    throw StoreFailure(
        fmt::format("account {}: the datastore word {} needs a native multivalue store, which isn't "
                    "supported here; add the account with JET, MSSQL, MYSQL or ORACLE",
                    account.name, account.datastore));
  }
  if (!account.store.empty()) {
    throw StoreFailure(
        fmt::format("account {}: a store at an address ({}) isn't supported here; add the account "
                    "without one, and it is kept in the home",
                    account.name, account.store));
  }
  return std::make_unique<SqliteStore>(home.DatabaseFile(account), account.name, account.datastore);
}

}  // namespace nvadmin::engine
