// A thin layer over SQLite: connections and prepared statements that close themselves, and failures that name
// the file, what is wrong with it and the way out. It knows no table.
//
// All failures are StoreFailures. Text goes in and comes out as the bytes that SQLite keeps (UTF-8 for text
// columns); only the messages are in the code page. A connection and its statements belong to one thread at a
// time (they are opened NOMUTEX); a Database must outlive its Statements and stay where it is.
#pragma once

#include <sqlite3.h>

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <string_view>

#include "engine/stores/Store.h"

namespace nvadmin::engine {

class Database;

// What is wrong and the way out, for a result code of `connection`, as a whole sentence that begins with the
// file's name. SQLITE_INTERRUPT gives just "interrupted". Call it before anything else runs on the
// connection.
std::string SqliteFailureText(sqlite3* connection, int code);

// True when the code tells of the file, the disk, memory or an interruption: a StoreFailure whatever
// statement met it. False when the statement itself is at fault (its syntax, a constraint), which is an
// expected no for SQL that a user gave.
bool IsStoreTrouble(int code);

// Removes a database that nobody has open, with the files that SQLite keeps beside it. Missing ones are fine.
void RemoveDatabase(const std::filesystem::path& file);

// A prepared statement. Parameters count from 1, columns from 0.
class Statement {
 public:
  Statement() = default;
  // Fails when `sql` isn't exactly one statement that the database understands.
  Statement(Database& database, std::string_view sql);
  // Takes a statement over that was prepared by hand.
  explicit Statement(sqlite3_stmt* prepared) : statement_(prepared) {}

  explicit operator bool() const { return statement_ != nullptr; }
  sqlite3_stmt* Handle() const { return statement_.get(); }

  // Text and blobs aren't copied: they must stay until Reset or the end of Run. A NUL byte is a byte like
  // others.
  Statement& BindText(int parameter, std::string_view utf8);
  Statement& BindBlob(int parameter, std::string_view bytes);
  Statement& BindInteger(int parameter, std::int64_t value);
  Statement& BindNull(int parameter);

  // Goes to the next row. False after the last; the statement is then reset, as it is after a failure.
  bool Step();
  // Steps to the end, rows or none, and resets.
  void Run();
  // Ends a statement that was left in the middle: it no longer holds the database. Bindings stay. Harmless at
  // any time.
  void Reset() noexcept { sqlite3_reset(statement_.get()); }

  int ColumnCount() const { return sqlite3_column_count(statement_.get()); }
  bool IsNull(int column) const { return sqlite3_column_type(statement_.get(), column) == SQLITE_NULL; }
  // Whole, NUL bytes included; NULL is empty. Valid until the next Step or Reset.
  std::string_view Text(int column) const;
  std::int64_t Integer(int column) const { return sqlite3_column_int64(statement_.get(), column); }

 private:
  struct Finalize {
    void operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }
  };
  std::unique_ptr<sqlite3_stmt, Finalize> statement_;
};

// Resets a statement when the scope ends, however it ends: for a query whose rows aren't all fetched.
class ResetAtEnd {
 public:
  explicit ResetAtEnd(Statement& statement) : statement_(statement) {}
  ~ResetAtEnd() { statement_.Reset(); }
  ResetAtEnd(const ResetAtEnd&) = delete;
  ResetAtEnd& operator=(const ResetAtEnd&) = delete;

 private:
  Statement& statement_;
};

enum class OpenMode {
  kExisting,  // a missing file is a failure
  kMake,      // a missing file is made, empty, with mode 0600, which SQLite's files beside it take on
};

// One connection to one file, for reading and writing.
class Database {
 public:
  // Opens the file and reads its head, so that a file that is missing, damaged, no database or read only
  // fails here. `patience` is how long a statement waits for locks of other connections before it fails.
  Database(const std::filesystem::path& file, OpenMode mode, std::chrono::milliseconds patience);
  Database(const Database&) = delete;
  Database& operator=(const Database&) = delete;

  sqlite3* Handle() const { return connection_.get(); }

  // Runs statements that need no parameters; what rows they give is dropped.
  void Execute(const char* sql);

  // The write transaction. Begin waits for other writers; after a Commit that failed nothing is open and
  // nothing changed.
  void Begin();
  void Commit();
  void Rollback() noexcept;  // harmless when none is open
  bool InTransaction() const { return sqlite3_get_autocommit(Handle()) == 0; }

  // Rows that the last INSERT, UPDATE or DELETE changed.
  std::int64_t Changes() const { return sqlite3_changes64(Handle()); }

  // Throws the StoreFailure of a result code.
  [[noreturn]] void Fail(int code) const;

 private:
  struct Close {
    void operator()(sqlite3* connection) const { sqlite3_close_v2(connection); }
  };
  std::unique_ptr<sqlite3, Close> connection_;
  Statement begin_;
  Statement commit_;
  Statement rollback_;
};

// A write transaction of one scope: rolled back at its end unless committed.
class WriteTransaction {
 public:
  explicit WriteTransaction(Database& database) : database_(database) { database_.Begin(); }
  ~WriteTransaction() { database_.Rollback(); }
  WriteTransaction(const WriteTransaction&) = delete;
  WriteTransaction& operator=(const WriteTransaction&) = delete;
  void Commit() { database_.Commit(); }

 private:
  Database& database_;
};

}  // namespace nvadmin::engine
