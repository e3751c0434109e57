// What the thin layer adds to SQLite: transactions that end, and failures that name the file and the way out.
#include "engine/stores/Sqlite.h"

#include <gtest/gtest.h>

#include "tests/support/TemporaryFolder.h"

namespace nvadmin::engine {
namespace {

using namespace std::chrono_literals;
using namespace std::string_literals;

TEST(Sqlite, TransactionsEndWithTheirScopeAndWaitForOthers) {
  const TemporaryFolder folder;
  Database one(folder / "a.sqlite", OpenMode::kMake, 0ms);
  one.Execute("PRAGMA journal_mode = WAL; CREATE TABLE t(a UNIQUE)");
  Database other(folder / "a.sqlite", OpenMode::kExisting, 0ms);
  {
    WriteTransaction dropped(one);
    one.Execute("INSERT INTO t VALUES(1)");
    EXPECT_EQ(FailureOf([&] { other.Begin(); }),
              (folder / "a.sqlite").string() +
                  " is locked by another program; try again, or end the program that holds it");
  }
  EXPECT_FALSE(one.InTransaction());
  one.Execute("INSERT INTO t VALUES(1)");  // fails if the dropped one is there
  // A commit that fails leaves nothing open: here a row without the one that it refers to.
  one.Execute("PRAGMA foreign_keys = ON; CREATE TABLE c(a REFERENCES t(a) DEFERRABLE INITIALLY DEFERRED)");
  one.Begin();
  one.Execute("INSERT INTO c VALUES(7)");
  EXPECT_NE(FailureOf([&] { one.Commit(); }).find("FOREIGN KEY"), std::string::npos);
  EXPECT_FALSE(one.InTransaction());
}

TEST(Sqlite, AStatementIsExactlyOne) {
  const TemporaryFolder folder;
  Database database(folder / "a.sqlite", OpenMode::kMake, 0ms);
  EXPECT_EQ(FailureOf([&] { Statement(database, "SELECT 1;"); }), "");
  for (const char* sql : {"", "-- nothing", "SELECT 1; SELECT 2"})
    EXPECT_EQ(FailureOf([&] { Statement(database, sql); }), "not exactly one SQL statement: "s + sql);
}

}  // namespace
}  // namespace nvadmin::engine
