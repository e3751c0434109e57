#include "StoreKinds.h"

#include <gtest/gtest.h>

#include "engine/stores/SqliteStore.h"
#include "tests/base/TemporaryFolder.h"

namespace nvadmin::engine {

namespace {

class SqliteAccount final : public TestAccount {
 public:
  explicit SqliteAccount(std::string datastore) : datastore_(std::move(datastore)) {}
  std::unique_ptr<Store> Open() const override {
    return std::make_unique<SqliteStore>(folder_ / "TEST.sqlite", "TEST", datastore_);
  }

 private:
  TemporaryFolder folder_;
  std::string datastore_;
};

}  // namespace

const std::vector<StoreKind>& StoreKinds() {
  static const std::vector<StoreKind> kinds = {
      {"SqliteJet", [] { return std::unique_ptr<TestAccount>(new SqliteAccount("JET")); }},
      {"SqliteMssql", [] { return std::unique_ptr<TestAccount>(new SqliteAccount("MSSQL")); }},
      {"SqliteMysql", [] { return std::unique_ptr<TestAccount>(new SqliteAccount("MYSQL")); }},
      {"SqliteOracle", [] { return std::unique_ptr<TestAccount>(new SqliteAccount("ORACLE")); }},
  };
  return kinds;
}

TableHandle MustOpen(Store& store, std::string_view name) {
  TableHandle table = -1;
  std::string error;
  EXPECT_TRUE(store.OpenTable(name, table, error)) << error;
  return table;
}

void MustWrite(Store& store, TableHandle table, std::string_view id, std::string_view item) {
  std::string error;
  store.BeginWrites();
  EXPECT_TRUE(store.Write(table, id, item, error)) << error;
}

}  // namespace nvadmin::engine
