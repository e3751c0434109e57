#include "engine/stores/Sqlite.h"

#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

#include "engine/CodePage.h"

namespace nvadmin::engine {

namespace {

constexpr mode_t kFileMode = 0600;

// What a primary result code says of the file, and the way out.
struct Trouble {
  int code;
  const char* what;
  const char* wayOut;
};

constexpr Trouble kTroubles[] = {
    {SQLITE_CORRUPT, "is damaged", "end all programs that use it; if it stays so, restore it from a backup"},
    {SQLITE_NOTADB, "is damaged or no database",
     "end all programs that use it; if it stays so, restore it from a backup"},
    {SQLITE_FULL, "can't grow: the disk is full", "free some space and try again"},
    {SQLITE_READONLY, "is read only", "give this user write permission for the file and its folder"},
    {SQLITE_CANTOPEN, "can't be opened",
     "check that it exists and that this user may write it and its folder"},
    {SQLITE_BUSY, "is locked by another program", "try again, or end the program that holds it"},
    {SQLITE_LOCKED, "is locked by another session", "try again, or end the session that holds it"},
    {SQLITE_PROTOCOL, "is locked by another program", "try again, or end the program that holds it"},
    {SQLITE_IOERR, "can't be read or written", "check its disk"},
    {SQLITE_NOLFS, "is too large for its file system", "move it to another disk"},
    {SQLITE_NOMEM, "needs more memory than there is", "end other programs and try again"},
    {SQLITE_INTERRUPT, "interrupted", ""},
};

const Trouble* FindTrouble(int code) {
  for (const Trouble& trouble : kTroubles) {
    if (trouble.code == (code & 0xFF)) return &trouble;
  }
  return nullptr;
}

// The operating system's error number behind a failed opening, reading or writing; 0 when there is none to be
// found.
int SystemError(sqlite3* connection, int code) {
  const int primary = code & 0xFF;
  if (connection == nullptr || (primary != SQLITE_CANTOPEN && primary != SQLITE_IOERR)) return 0;
  int number = sqlite3_system_errno(connection);
  // A failed commit leaves its number with the file alone: the database, or its journal or log.
  if (number == 0) sqlite3_file_control(connection, "main", SQLITE_FCNTL_LAST_ERRNO, &number);
  sqlite3_file* journal = nullptr;
  if (number == 0) sqlite3_file_control(connection, "main", SQLITE_FCNTL_JOURNAL_POINTER, &journal);
  if (journal != nullptr && journal->pMethods != nullptr) {
    journal->pMethods->xFileControl(journal, SQLITE_FCNTL_LAST_ERRNO, &number);
  }
  return number;
}

// A quota or a limit on file sizes reaches SQLite as a failed write; to the user it is a full disk.
bool IsLackOfRoom(int systemError) {
  return systemError == ENOSPC || systemError == EDQUOT || systemError == EFBIG;
}

std::string FailureText(std::string_view file, sqlite3* connection, int code) {
  const int systemError = SystemError(connection, code);
  if (IsLackOfRoom(systemError)) code = SQLITE_FULL;
  if (code == SQLITE_READONLY_DBMOVED) {
    return fmt::format("{} was moved or removed while it was open; start the session again", file);
  }
  const Trouble* trouble = FindTrouble(code);
  if (trouble == nullptr) {
    const char* reason = connection != nullptr ? sqlite3_errmsg(connection) : sqlite3_errstr(code);
    return fmt::format("{} refused a statement: {}", file, ForeignText(reason));
  }
  if (trouble->code == SQLITE_INTERRUPT) return trouble->what;
  const std::string reason =
      systemError == 0 ? "" : fmt::format(" ({})", std::generic_category().message(systemError));
  return fmt::format("{} {}{}; {}", file, trouble->what, reason, trouble->wayOut);
}

[[noreturn]] void FailStatement(sqlite3* connection, int code) {
  throw StoreFailure(SqliteFailureText(connection, code));
}

// SQLite takes a null pointer for NULL, also where the length is 0.
const char* DataOf(std::string_view bytes) { return bytes.data() != nullptr ? bytes.data() : ""; }

}  // namespace

std::string SqliteFailureText(sqlite3* connection, int code) {
  const char* file = sqlite3_db_filename(connection, "main");
  return FailureText(ForeignText(file != nullptr ? file : ""), connection, code);
}

void RemoveDatabase(const std::filesystem::path& file) {
  // The database itself last: a side file that outlived it would be taken for a part of the next.
  for (const char* ending : {"-wal", "-shm", "-journal", ""}) {
    const std::string part = file.native() + ending;
    if (unlink(part.c_str()) == 0 || errno == ENOENT) continue;
    throw StoreFailure(fmt::format("{} can't be removed ({}); give this user write permission for its folder",
                                   ForeignText(part), std::generic_category().message(errno)));
  }
}

bool IsStoreTrouble(int code) { return FindTrouble(code) != nullptr; }

Statement::Statement(Database& database, std::string_view sql) {
  sqlite3_stmt* prepared = nullptr;
  const char* tail = nullptr;
  const int code = sqlite3_prepare_v3(database.Handle(), sql.data(), static_cast<int>(sql.size()),
                                      SQLITE_PREPARE_PERSISTENT, &prepared, &tail);
  statement_.reset(prepared);
  if (code != SQLITE_OK) database.Fail(code);
  if (prepared == nullptr || tail != sql.data() + sql.size()) {
    throw StoreFailure(fmt::format("not exactly one SQL statement: {}", sql));
  }
}

Statement& Statement::BindText(int parameter, std::string_view utf8) {
  const int code =
      sqlite3_bind_text64(Handle(), parameter, DataOf(utf8), utf8.size(), SQLITE_STATIC, SQLITE_UTF8);
  if (code != SQLITE_OK) FailStatement(sqlite3_db_handle(Handle()), code);
  return *this;
}

Statement& Statement::BindBlob(int parameter, std::string_view bytes) {
  const int code = sqlite3_bind_blob64(Handle(), parameter, DataOf(bytes), bytes.size(), SQLITE_STATIC);
  if (code != SQLITE_OK) FailStatement(sqlite3_db_handle(Handle()), code);
  return *this;
}

Statement& Statement::BindInteger(int parameter, std::int64_t value) {
  const int code = sqlite3_bind_int64(Handle(), parameter, value);
  if (code != SQLITE_OK) FailStatement(sqlite3_db_handle(Handle()), code);
  return *this;
}

Statement& Statement::BindNull(int parameter) {
  const int code = sqlite3_bind_null(Handle(), parameter);
  if (code != SQLITE_OK) FailStatement(sqlite3_db_handle(Handle()), code);
  return *this;
}

bool Statement::Step() {
  const int code = sqlite3_step(Handle());
  if (code == SQLITE_ROW) return true;
  if (code != SQLITE_DONE) {
    StoreFailure failure(SqliteFailureText(sqlite3_db_handle(Handle()), code));
    Reset();
    throw failure;
  }
  Reset();
  return false;
}

void Statement::Run() {
  while (Step()) {
  }
}

std::string_view Statement::Text(int column) const {
  const unsigned char* text = sqlite3_column_text(Handle(), column);
  if (text == nullptr) return {};
  return {reinterpret_cast<const char*>(text),
          static_cast<std::size_t>(sqlite3_column_bytes(Handle(), column))};
}

Database::Database(const std::filesystem::path& file, OpenMode mode, std::chrono::milliseconds patience) {
  const std::string name = std::filesystem::absolute(file).string();
  const int makes = mode == OpenMode::kMake ? SQLITE_OPEN_CREATE : 0;
  // Made without being opened: a close would drop the locks that other connections of this program have got
  // on it meanwhile. What goes wrong is told by the opening.
  if (makes != 0) mknod(name.c_str(), S_IFREG | kFileMode, 0);
  sqlite3* opened = nullptr;
  const int code =
      sqlite3_open_v2(name.c_str(), &opened,
                      SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX | SQLITE_OPEN_EXRESCODE | makes, nullptr);
  connection_.reset(opened);
  if (code != SQLITE_OK) throw StoreFailure(FailureText(ForeignText(name), opened, code));

  sqlite3_busy_timeout(opened, static_cast<int>(patience.count()));
  sqlite3_db_config(opened, SQLITE_DBCONFIG_DQS_DML, 0, nullptr);
  sqlite3_db_config(opened, SQLITE_DBCONFIG_DQS_DDL, 0, nullptr);
  sqlite3_db_config(opened, SQLITE_DBCONFIG_DEFENSIVE, 1, nullptr);
  sqlite3_db_config(opened, SQLITE_DBCONFIG_TRUSTED_SCHEMA, 0, nullptr);

  // What isn't a database shows at the first read; a file that may not be written opens read only without a
  // word.
  Execute("PRAGMA schema_version");
  if (sqlite3_db_readonly(opened, "main") == 1) Fail(SQLITE_READONLY);
  begin_ = Statement(*this, "BEGIN IMMEDIATE");
  commit_ = Statement(*this, "COMMIT");
  rollback_ = Statement(*this, "ROLLBACK");
}

void Database::Execute(const char* sql) {
  const int code = sqlite3_exec(Handle(), sql, nullptr, nullptr, nullptr);
  if (code != SQLITE_OK) Fail(code);
}

void Database::Begin() { begin_.Run(); }

void Database::Commit() {
  try {
    commit_.Run();
  } catch (const StoreFailure&) {
    Rollback();
    throw;
  }
}

void Database::Rollback() noexcept {
  if (!InTransaction()) return;
  sqlite3_step(rollback_.Handle());
  rollback_.Reset();
}

void Database::Fail(int code) const { throw StoreFailure(SqliteFailureText(Handle(), code)); }

}  // namespace nvadmin::engine
