#include "StoreKinds.h"

#include <gtest/gtest.h>

#include "engine/Home.h"
#include "engine/stores/OpenStore.h"
#include "engine/stores/TableNames.h"
#include "tests/support/TemporaryFolder.h"

namespace nvadmin::engine {

namespace {

class EmbeddedAccount final : public TestAccount {
 public:
  explicit EmbeddedAccount(std::string datastore) : datastore_(std::move(datastore)) {
    Home::Make(folder_ / "home");
  }
  std::unique_ptr<Store> Open() const override {
    return OpenStore(Home(folder_ / "home"), {"TEST", datastore_, ""});
  }

 private:
  TemporaryFolder folder_;
  std::string datastore_;
};

}  // namespace

std::string StoreKind::Spelling(std::string_view file) const {
  return isNative ? std::string(file) : MapTableName(file);
}

const std::vector<StoreKind>& StoreKinds() {
  static const std::vector<StoreKind> kinds = {
      {"SqliteJet", [] { return std::unique_ptr<TestAccount>(new EmbeddedAccount("JET")); }},
      {"SqliteMssql", [] { return std::unique_ptr<TestAccount>(new EmbeddedAccount("MSSQL")); }},
      {"SqliteMysql", [] { return std::unique_ptr<TestAccount>(new EmbeddedAccount("MYSQL")); }},
      {"SqliteOracle", [] { return std::unique_ptr<TestAccount>(new EmbeddedAccount("ORACLE")); }},
      {"Native", [] { return std::unique_ptr<TestAccount>(new EmbeddedAccount("MVTEST")); },
       /*isNative=*/true},
  };
  return kinds;
}

std::vector<StoreKind> RelationalKinds() {
  std::vector<StoreKind> kinds = StoreKinds();
  std::erase_if(kinds, [](const StoreKind& kind) { return kind.isNative; });
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
