// What the thin layer adds to SQLite: failures that name file and way out, transactions that end.
#include "engine/stores/Sqlite.h"

#include <gtest/gtest.h>

#include "tests/support/TemporaryFolder.h"

namespace nvadmin::engine {
namespace {

using namespace std::chrono_literals;

TEST(Sqlite, AFileThatCantBeUsedFailsWhenOpenedAndIsNamed) {
  const TemporaryFolder folder;
  folder.Put("text.sqlite", std::string(5000, 'x'));
  // The head's version for writing (byte 18), from a system yet to come.
  { Database(folder / "whole.sqlite", OpenMode::kMake, 0ms).Execute("CREATE TABLE t(a)"); }
  std::string bytes = folder.Text("whole.sqlite");
  bytes[18] = 9;
  folder.Put("unwritable.sqlite", bytes);
  std::filesystem::create_directory(folder / "folder.sqlite");

  const struct {
    const char* name;
    OpenMode mode;
    const char* want;
  } kCases[] = {
      {"missing.sqlite", OpenMode::kExisting, "can't be opened (No such file or directory)"},
      {"folder.sqlite", OpenMode::kMake, "can't be opened"},
      {"text.sqlite", OpenMode::kExisting, "is damaged or no database; end all programs that use it"},
      {"unwritable.sqlite", OpenMode::kExisting, "is read only; give this user write permission"},
  };
  for (const auto& row : kCases) {
    const std::string failure = FailureOf([&] { Database(folder / row.name, row.mode, 0ms); });
    EXPECT_EQ(failure.find((folder / row.name).string()), 0U) << row.name << ": " << failure;
    EXPECT_NE(failure.find(row.want), std::string::npos) << row.name << ": " << failure;
  }
  EXPECT_FALSE(std::filesystem::exists(folder / "missing.sqlite"));
}

TEST(Sqlite, StatementsThatArentOneStatementFail) {
  const TemporaryFolder folder;
  Database database(folder / "a.sqlite", OpenMode::kMake, 0ms);
  for (const char* sql : {"", "SELECT 1; SELECT 2", "SELECT \"no column\""})
    EXPECT_NE(FailureOf([&] { Statement(database, sql); }), "") << sql;
  EXPECT_EQ(FailureOf([&] { Statement(database, "SELECT missing"); }),
            (folder / "a.sqlite").string() + " refused a statement: no such column: missing");
}

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

TEST(Sqlite, AnInterruptedStatementSaysSoAndNothingElse) {
  const TemporaryFolder folder;
  Database database(folder / "a.sqlite", OpenMode::kMake, 0ms);
  Statement endless(database,
                    "WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n) SELECT i FROM n");
  ASSERT_TRUE(endless.Step());
  sqlite3_interrupt(database.Handle());
  EXPECT_EQ(FailureOf([&] { endless.Run(); }), "interrupted");
  EXPECT_TRUE(endless.Step()) << "it can be run again";
}

}  // namespace
}  // namespace nvadmin::engine
