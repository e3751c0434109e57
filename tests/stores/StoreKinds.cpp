#include "StoreKinds.h"

#include <algorithm>

#include "engine/Home.h"
#include "engine/stores/OpenStore.h"
#include "engine/stores/TableNames.h"

namespace nvadmin::engine {

TestAccount::TestAccount(std::string_view datastore) : datastore_(datastore) {
  Home::Make(folder_ / "home");
  if (datastore != kServer) return;
  datastore_ = "MYSQL";
  if (MariaDatabase::IsThere()) server_ = std::make_unique<MariaDatabase>();
}

std::unique_ptr<Store> TestAccount::Open() const {
  return OpenStore(Home(folder_ / "home"),
                   {"TEST", datastore_, server_ != nullptr ? server_->Address() : ""});
}

std::filesystem::path TestAccount::File() const { return folder_ / "home/accounts/TEST.sqlite"; }

std::string StoreTest::Spelling(std::string_view file) const {
  return IsNative() ? std::string(file) : MapTableName(file);
}

std::string Dyn(std::string text) {
  std::replace(text.begin(), text.end(), '^', '\xFE');
  std::replace(text.begin(), text.end(), ']', '\xFD');
  return text;
}

TableHandle MakeTable(Store& store, std::string_view name, std::int32_t columns) {
  std::string error;
  EXPECT_TRUE(store.CreateTable(name, columns, error)) << error;
  return MustOpen(store, name);
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

std::string RefusalOfWrite(Store& store, TableHandle table, std::string_view id, std::string_view item) {
  std::string error;
  store.BeginWrites();
  EXPECT_FALSE(store.Write(table, id, item, error));
  return error;
}

std::string ItemOf(Store& store, TableHandle table, std::string_view id) {
  std::string item = "rest of another item";
  if (store.Read(table, id, item)) return item;
  EXPECT_EQ(item, "");
  return "(none)";
}

std::string Scanned(Store& store, TableHandle table, const Projection& projection) {
  std::string seen;
  store.Scan(table, projection, [&](std::string_view id, std::span<const std::string_view> values) {
    seen += id;
    for (const std::string_view value : values) seen.append(",").append(value);
    seen += ';';
    return true;
  });
  return seen;
}

std::string Sql(Store& store, std::string_view statement) {
  ResultGrid grid;
  grid.Start(1);
  grid.AppendCell("rest");
  bool isQuery = false;
  std::string message, error;
  const bool isDone = store.RunSql(statement, grid, isQuery, message, error);
  EXPECT_EQ(isDone, error.empty()) << statement << ": " << error;
  if (!isDone || !isQuery) {
    EXPECT_EQ(grid.HighestRow(), isQuery ? 0 : 1) << "a failed query empties the grid: " << statement;
    return isDone ? message : "ERROR " + error;
  }
  EXPECT_EQ(message, std::to_string(grid.HighestRow()) + " row(s)");
  std::string rows;
  for (std::int32_t row = 1; row <= grid.HighestRow(); ++row) {
    for (std::int32_t column = 0; column <= grid.HighestColumn(); ++column)
      rows.append(column > 0 ? "," : "").append(grid.Cell(column, row));
    rows += ';';
  }
  return rows;
}

}  // namespace nvadmin::engine
