// What the thin layer adds to SQLite: failures that name file and way out, transactions that end, bytes kept
// whole.
#include "engine/stores/Sqlite.h"

#include <gtest/gtest.h>

#include <fstream>
#include <set>

#include "tests/base/TemporaryFolder.h"

namespace nvadmin::engine {
namespace {

using namespace std::chrono_literals;

void WriteFile(const std::filesystem::path& file, const std::string& bytes) {
  std::ofstream(file, std::ios::binary) << bytes;
}

std::string ReadWhole(const std::filesystem::path& file) {
  std::ifstream stream(file, std::ios::binary);
  return {std::istreambuf_iterator<char>(stream), {}};
}

TEST(Sqlite, AFileThatCantBeUsedFailsWhenOpenedAndIsNamed) {
  const TemporaryFolder folder;
  WriteFile(folder / "text.sqlite", std::string(5000, 'x'));
  // The head's versions for writing (byte 18) and reading (byte 19), from a system yet to come.
  { Database(folder / "whole.sqlite", OpenMode::kMake, 0ms).Execute("CREATE TABLE t(a)"); }
  for (const auto& [name, at] : {std::pair("unwritable.sqlite", 18), std::pair("unreadable.sqlite", 19)}) {
    std::string bytes = ReadWhole(folder / "whole.sqlite");
    bytes[static_cast<std::size_t>(at)] = 9;
    WriteFile(folder / name, bytes);
  }
  std::filesystem::create_directory(folder / "folder.sqlite");

  const struct {
    const char* name;
    OpenMode mode;
    const char* want;
  } kCases[] = {
      {"missing.sqlite", OpenMode::kExisting, "can't be opened (No such file or directory)"},
      {"nowhere/new.sqlite", OpenMode::kMake, "can't be opened (No such file or directory)"},
      {"folder.sqlite", OpenMode::kMake, "can't be opened"},
      {"text.sqlite", OpenMode::kExisting, "is damaged or no database; end all programs that use it"},
      {"unwritable.sqlite", OpenMode::kExisting, "is read only; give this user write permission"},
      {"unreadable.sqlite", OpenMode::kExisting, "is damaged or no database"},
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
  for (const char* sql : {"", "-- nothing", "SELECT 1; SELECT 2", "SELEKT 1", "SELECT \"no column\""}) {
    EXPECT_NE(FailureOf([&] { Statement(database, sql); }), "") << sql;
  }
  EXPECT_EQ(FailureOf([&] { Statement(database, "SELECT missing"); }),
            (folder / "a.sqlite").string() + " refused a statement: no such column: missing");
  EXPECT_FALSE(IsStoreTrouble(SQLITE_CONSTRAINT_UNIQUE));
  EXPECT_TRUE(IsStoreTrouble(SQLITE_IOERR_WRITE));
}

TEST(Sqlite, BytesAreKeptWhole) {
  const TemporaryFolder folder;
  Database database(folder / "a.sqlite", OpenMode::kMake, 0ms);
  Statement echo(database, "SELECT ?1, ?2, ?3, ?4");
  const std::string text("a\0b", 3);
  const std::string blob("\0\xFE\xFF", 3);
  ASSERT_TRUE(echo.BindText(1, text).BindBlob(2, blob).BindText(3, {}).BindInteger(4, -5).Step());
  EXPECT_EQ(echo.Text(0), text);
  EXPECT_EQ(echo.Text(1), blob);
  EXPECT_FALSE(echo.IsNull(2));
  EXPECT_EQ(echo.Text(2), "");
  EXPECT_EQ(echo.Integer(3), -5);
  EXPECT_FALSE(echo.Step());
  ASSERT_TRUE(echo.BindNull(1).Step()) << "the end resets";
  EXPECT_TRUE(echo.IsNull(0));
  EXPECT_EQ(echo.Text(0), "");
}

TEST(Sqlite, TransactionsEndWithTheirScopeAndWaitForOthers) {
  const TemporaryFolder folder;
  Database one(folder / "a.sqlite", OpenMode::kMake, 0ms);
  one.Execute("PRAGMA journal_mode = WAL; CREATE TABLE t(a UNIQUE)");
  Database other(folder / "a.sqlite", OpenMode::kExisting, 0ms);
  const auto rows = [&other] {
    Statement count(other, "SELECT count(*) FROM t");
    const ResetAtEnd reset(count);
    return count.Step() ? count.Integer(0) : -1;
  };
  {
    WriteTransaction dropped(one);
    one.Execute("INSERT INTO t VALUES(1)");
    EXPECT_EQ(FailureOf([&] { other.Begin(); }),
              (folder / "a.sqlite").string() +
                  " is locked by another program; try again, or end the program that holds it");
  }
  EXPECT_FALSE(one.InTransaction());
  EXPECT_EQ(rows(), 0);
  {
    WriteTransaction kept(one);
    one.Execute("INSERT INTO t VALUES(1)");
    EXPECT_EQ(one.Changes(), 1);
    kept.Commit();
  }
  EXPECT_EQ(rows(), 1);

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

TEST(Sqlite, RemovingADatabaseTakesItsSideFilesAndNoOthers) {
  const TemporaryFolder folder;
  for (const char* name :
       {"a.sqlite", "a.sqlite-wal", "a.sqlite-shm", "a.sqlite-journal", "a.sqlite-gate", "aa.sqlite"}) {
    WriteFile(folder / name, "x");
  }
  RemoveDatabase(folder / "a.sqlite");
  RemoveDatabase(folder / "a.sqlite");
  std::set<std::string> left;
  for (const auto& entry : std::filesystem::directory_iterator(folder.Path()))
    left.insert(entry.path().filename());
  EXPECT_EQ(left, (std::set<std::string>{"a.sqlite-gate", "aa.sqlite"}));
}

}  // namespace
}  // namespace nvadmin::engine
