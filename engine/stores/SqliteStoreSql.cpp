// SQL of the user on the SQLite store: what is refused, what is read as the engine's own sentence, and the
// rest, which SQLite runs under the authorizer.
#include <fmt/format.h>

#include <algorithm>

#include "engine/CodePage.h"
#include "engine/stores/SqliteStore.h"
#include "engine/stores/StoredText.h"
#include "engine/stores/TableNames.h"

namespace nvadmin::engine {

namespace {

constexpr std::uint64_t kLargestResult = std::uint64_t{1} << 30;

// First words of statements that change rows.
constexpr std::string_view kChangingWords[] = {"INSERT", "UPDATE", "DELETE", "REPLACE", "WITH"};

// Raises a flag for a scope.
class FlagRaised {
 public:
  explicit FlagRaised(bool& flag) : flag_(flag) { flag_ = true; }
  ~FlagRaised() { flag_ = false; }
  FlagRaised(const FlagRaised&) = delete;
  FlagRaised& operator=(const FlagRaised&) = delete;

 private:
  bool& flag_;
};

// An interrupt that came before the first step means nothing to SQLite: so the statement looks for itself.
class StepsWatched {
 public:
  StepsWatched(sqlite3* connection, std::atomic<bool>& interrupted) : connection_(connection) {
    constexpr int kStepsBetweenLooks = 10'000;
    sqlite3_progress_handler(
        connection_, kStepsBetweenLooks,
        [](void* flag) { return static_cast<int>(static_cast<std::atomic<bool>*>(flag)->load()); },
        &interrupted);
  }
  ~StepsWatched() { sqlite3_progress_handler(connection_, 0, nullptr, nullptr); }
  StepsWatched(const StepsWatched&) = delete;
  StepsWatched& operator=(const StepsWatched&) = delete;

 private:
  sqlite3* connection_;
};

}  // namespace

int SqliteStore::Authorize(void* store, int action, const char* first, const char* second,
                           const char* /*database*/, const char* inner) {
  constexpr std::string_view kTemporary = "it would be gone with the session";
  constexpr std::string_view kVirtual = "it may reach outside the account";
  struct Refused {
    int action;
    std::string_view what;
    std::string_view why;
  };
  static constexpr Refused kRefused[] = {
      {SQLITE_ATTACH, "ATTACH", kReachesOutside},
      {SQLITE_DETACH, "DETACH", kReachesOutside},
      {SQLITE_PRAGMA, "PRAGMA", kReachesOutside},
      {SQLITE_TRANSACTION, "a transaction", kOwnTransactions},
      {SQLITE_SAVEPOINT, "a savepoint", kOwnTransactions},
      {SQLITE_CREATE_VTABLE, "a virtual table", kVirtual},
      {SQLITE_DROP_VTABLE, "a virtual table", kVirtual},
      {SQLITE_CREATE_TEMP_TABLE, "a temporary table", kTemporary},
      {SQLITE_CREATE_TEMP_VIEW, "a temporary view", kTemporary},
      {SQLITE_CREATE_TEMP_TRIGGER, "a temporary trigger", kTemporary},
      {SQLITE_CREATE_TEMP_INDEX, "a temporary index", kTemporary},
  };
  struct Noted {
    int action;
    std::string_view what;
  };
  static constexpr Noted kNoted[] = {
      {SQLITE_CREATE_TABLE, "table {} created"},     {SQLITE_DROP_TABLE, "table {} dropped"},
      {SQLITE_CREATE_INDEX, "index {} created"},     {SQLITE_DROP_INDEX, "index {} dropped"},
      {SQLITE_CREATE_VIEW, "view {} created"},       {SQLITE_DROP_VIEW, "view {} dropped"},
      {SQLITE_CREATE_TRIGGER, "trigger {} created"}, {SQLITE_DROP_TRIGGER, "trigger {} dropped"},
  };
  SqliteStore& self = *static_cast<SqliteStore*>(store);
  if (!self.isGuarded_ && inner == nullptr) return SQLITE_OK;
  std::string refusal;
  for (const Refused& refused : kRefused) {
    if (refused.action == action) refusal = SqlRefusal(refused.what, refused.why);
  }
  if (action == SQLITE_FUNCTION) refusal = RefuseSqlFunction(second);
  if (action == SQLITE_READ) refusal = RefuseSqlTable(first);
  if (!refusal.empty()) {
    self.refusal_ = std::move(refusal);
    return SQLITE_DENY;
  }
  for (const Noted& noted : kNoted) {
    if (noted.action == action && self.noted_.empty())
      self.noted_ = fmt::format(fmt::runtime(noted.what), ForeignText(first));
  }
  return SQLITE_OK;
}

bool SqliteStore::DropIfThere(std::string_view candidate, bool& isThere, std::string& error) {
  std::string spelling;
  std::string type;
  isThere = FindSpelling(FoldTableName(candidate), spelling, type) && type == "table";
  if (!isThere) return false;
  Commit();
  return RunOwnStatement("DROP TABLE main." + QuoteSqlName(spelling), error);
}

bool SqliteStore::RunOtherSql(std::string_view statement, const std::vector<SqlToken>& tokens,
                              ResultGrid& grid, bool& isQuery, std::string& message, std::string& error) {
  RewrittenSql rewritten;
  rewritten.text = statement;
  if (hasTop_ && !RewriteTop(statement, rewritten, error)) return false;
  RewriteMemo(rewritten.text);
  const std::string utf8 = ToUtf8(rewritten.text);

  refusal_.clear();
  noted_.clear();
  sqlite3_stmt* raw = nullptr;
  const char* tail = nullptr;
  int code = SQLITE_OK;
  {
    const FlagRaised guarded(isGuarded_);
    code = sqlite3_prepare_v3(Connection().Handle(), utf8.c_str(), static_cast<int>(utf8.size()), 0, &raw,
                              &tail);
  }
  const Statement prepared(raw);
  if (code != SQLITE_OK) return SqlFailed(code, rewritten, utf8, error);
  if (HasSecondStatement(tail, error)) return false;
  if (!prepared) {
    error = kNoStatement;
    return false;
  }

  if (sqlite3_stmt_readonly(raw) == 0) Commit();  // what was written before stays, whatever becomes of this
  isQuery = prepared.ColumnCount() > 0;
  if (!FillGrid(raw, grid, code)) {
    error =
        fmt::format("the result is larger than {} MiB; narrow it with WHERE or LIMIT", kLargestResult >> 20);
    return false;
  }
  if (code != SQLITE_DONE) return SqlFailed(code, rewritten, utf8, error);
  if (isQuery) {
    message = fmt::format("{} row(s)", grid.HighestRow());
  } else if (!noted_.empty()) {
    message = noted_;
  } else {
    const bool changesRows = std::any_of(std::begin(kChangingWords), std::end(kChangingWords),
                                         [&](std::string_view word) { return IsSqlWord(tokens[0], word); });
    message = changesRows ? fmt::format("{} row(s) changed", Connection().Changes()) : "done";
  }
  return true;
}

// Runs the statement to its end; its rows, if it gives any, fill the grid. False when they are too many.
bool SqliteStore::FillGrid(sqlite3_stmt* statement, ResultGrid& grid, int& code) {
  constexpr std::uint64_t kCellCost = 8;
  const FlagRaised guarded(isGuarded_);
  const StepsWatched watched(Connection().Handle(), interrupted_);
  const int columns = sqlite3_column_count(statement);
  if (columns > 0) grid.Start(columns);
  std::uint64_t size = 0;
  std::string cell;
  while ((code = sqlite3_step(statement)) == SQLITE_ROW) {
    for (int column = 0; column < columns; ++column) {
      const StoredValue value = StoredColumn(statement, column);
      size += value.bytes.size() + kCellCost;
      if (size > kLargestResult) return false;
      if (value.isBlob || IsAscii(value.bytes)) {
        grid.AppendCell(value.bytes);
      } else {
        cell.clear();
        AppendFromStoredUtf8(cell, value.bytes);
        grid.AppendCell(cell);
      }
    }
  }
  return true;
}

// Always false, with the reason in `error`, unless the store itself is at fault. Call it right after what
// failed.
bool SqliteStore::SqlFailed(int code, const RewrittenSql& rewritten, std::string_view utf8,
                            std::string& error) const {
  if (!refusal_.empty()) {
    error = refusal_;
    return false;
  }
  if (IsStoreTrouble(code)) Connection().Fail(code);
  error = ForeignText(sqlite3_errmsg(Connection().Handle()));
  const int offset = sqlite3_error_offset(Connection().Handle());
  if (offset < 0) return false;
  const std::string_view before = utf8.substr(0, static_cast<std::size_t>(offset));
  const auto characters =
      std::count_if(before.begin(), before.end(), [](char byte) { return (byte & 0xC0) != 0x80; });
  error += fmt::format(" (at character {})",
                       rewritten.PositionInSentence(static_cast<std::size_t>(characters)) + 1);
  return false;
}

}  // namespace nvadmin::engine
