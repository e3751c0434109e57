// SQL of the user on a MariaDB store. Nothing like an embedded database's authorizer stands behind it, only
// the rights of the account's user: so what may run is told by its first words, and what a word of it can
// reach is looked at. The server gets the sentence without its comments, which it reads otherwise than we do.
#include <fmt/format.h>

#include <algorithm>

#include "engine/stores/MariaStore.h"
#include "engine/stores/TableNames.h"

namespace nvadmin::engine {

namespace {

constexpr std::uint64_t kLargestResult = std::uint64_t{1} << 30;
constexpr std::string_view kRunsNoStatements =
    "a sentence is SELECT, INSERT, UPDATE, DELETE, REPLACE, or makes, alters or drops a "
    "table, index or view";
constexpr std::string_view kIsOurs = "it is this store's own";
constexpr std::string_view kReturning = "a change tells how many rows it changed; read them behind it";

enum class Effect { kRows, kChange, kTables };
struct Allowed {
  std::string_view word;
  Effect effect;
};
constexpr Allowed kAllowed[] = {
    {"SELECT", Effect::kRows},   {"WITH", Effect::kRows},      {"VALUES", Effect::kRows},
    {"EXPLAIN", Effect::kRows},  {"INSERT", Effect::kChange},  {"UPDATE", Effect::kChange},
    {"DELETE", Effect::kChange}, {"REPLACE", Effect::kChange}, {"CREATE", Effect::kTables},
    {"ALTER", Effect::kTables},  {"DROP", Effect::kTables},
};
// What CREATE, ALTER and DROP are for.
constexpr std::string_view kObjects[] = {"TABLE", "INDEX", "VIEW"};
constexpr std::string_view kBeforeObject[] = {"OR", "REPLACE", "UNIQUE"};
constexpr std::string_view kBeforeName[] = {"IF", "NOT", "EXISTS"};
constexpr std::string_view kRefusedOptions[] = {"ENGINE", "CONNECTION", "DIRECTORY", "TEMPORARY",
                                                "TABLESPACE"};
constexpr std::string_view kRefusedTargets[] = {"OUTFILE", "DUMPFILE"};
constexpr std::string_view kRefusedCalls[] = {
    "sleep",        "benchmark",         "get_lock",        "release_lock",    "is_used_lock",
    "is_free_lock", "release_all_locks", "master_pos_wait", "master_gtid_wait"};

template <std::size_t count>
bool IsOneOf(const std::string_view (&words)[count], const SqlToken& token) {
  return std::any_of(std::begin(words), std::end(words),
                     [&](std::string_view word) { return IsSqlWord(token, word); });
}

bool IsSymbol(const SqlToken& token, std::string_view symbol) {
  return token.kind == SqlTokenKind::kSymbol && token.text == symbol;
}

// To the server a word may begin with a digit.
bool MayBeName(const SqlToken& token) {
  return token.kind == SqlTokenKind::kWord || token.kind == SqlTokenKind::kQuotedName ||
         token.kind == SqlTokenKind::kNumber;
}

bool IsPlainNumber(std::string_view text) {
  constexpr std::string_view kDigits = "0123456789";
  const std::string folded = FoldTableName(text);
  if (folded.starts_with("0x") || folded.starts_with("0b"))
    return folded.find_first_not_of("0123456789abcdef", 2) == std::string::npos;
  std::size_t end = std::min(text.find_first_not_of(kDigits), text.size());
  if (text.substr(end).starts_with('.'))
    end = std::min(text.find_first_not_of(kDigits, end + 1), text.size());
  if (end < text.size() && folded[end] == 'e') end = text.find_first_not_of(kDigits, end + 1);
  return end >= text.size();
}

// Why the server may cut a token in another way than we did; empty: it doesn't.
std::string RefuseAmbiguous(const SqlToken& token) {
  constexpr char kNoBreakBlank = '\xA0';
  const bool isBare = token.kind == SqlTokenKind::kWord || token.kind == SqlTokenKind::kNumber;
  const bool isSymbol = token.kind == SqlTokenKind::kSymbol;
  if (isBare && token.text.find(kNoBreakBlank) != std::string_view::npos)
    return SqlRefusal("a no-break blank outside quotes", "type a blank");
  if (isSymbol && (static_cast<unsigned char>(token.text[0]) < ' ' || token.text[0] == '\x7F'))
    return SqlRefusal("a control character outside quotes", "type a blank");
  if (isSymbol && token.text == "#") return SqlRefusal("a comment behind #", "write it behind --");
  if (token.kind == SqlTokenKind::kNumber && !IsPlainNumber(token.text))
    return SqlRefusal(token.text, "a number ends in a digit; a name that begins with one stands in quotes");
  return {};
}

// Blanks for what is no token. Nothing else moves.
std::string WithoutComments(std::string_view statement, const std::vector<SqlToken>& tokens) {
  std::string text(statement.size(), ' ');
  for (const SqlToken& token : tokens) text.replace(token.start, token.text.size(), token.text);
  return text;
}

// Index of the word TABLE, INDEX or VIEW behind CREATE, ALTER or DROP; 0: something else.
std::size_t FindObject(const std::vector<SqlToken>& tokens) {
  std::size_t at = 1;
  while (at < tokens.size() && IsOneOf(kBeforeObject, tokens[at])) ++at;
  return at < tokens.size() && IsOneOf(kObjects, tokens[at]) ? at : 0;
}

// "table x created".
std::string NoteOf(const std::vector<SqlToken>& tokens) {
  constexpr std::pair<std::string_view, std::string_view> kDone[] = {{"CREATE", "created"},
                                                                     {"DROP", "dropped"}};
  const std::size_t object = FindObject(tokens);
  std::size_t name = object + 1;
  while (name < tokens.size() && IsOneOf(kBeforeName, tokens[name])) ++name;
  for (const auto& [word, done] : kDone) {
    if (IsSqlWord(tokens[0], word) && name < tokens.size())
      return fmt::format("{} {} {}", FoldTableName(tokens[object].text), tokens[name].text, done);
  }
  return "done";
}

}  // namespace

// Why a statement isn't run; empty: it is.
std::string MariaStore::RefuseReach(const std::vector<SqlToken>& tokens) {
  const auto allowed = std::find_if(std::begin(kAllowed), std::end(kAllowed),
                                    [&](const Allowed& known) { return IsSqlWord(tokens[0], known.word); });
  if (allowed == std::end(kAllowed)) return SqlRefusal(tokens[0].text, kRunsNoStatements);
  const bool isOfTables = allowed->effect == Effect::kTables;
  if (isOfTables && FindObject(tokens) == 0)
    return SqlRefusal(fmt::format("{} {}", tokens[0].text, tokens.size() > 1 ? tokens[1].text : ""),
                      kRunsNoStatements);
  for (std::size_t at = 0; at < tokens.size(); ++at) {
    const SqlToken& token = tokens[at];
    if (token.kind == SqlTokenKind::kUnclosed)
      return fmt::format("the statement's {} never ends", token.text.substr(0, 40));
    std::string refusal = RefuseAmbiguous(token);
    if (!refusal.empty()) return refusal;
    if (IsSymbol(token, "@")) return SqlRefusal("a variable (@)", kReachesOutside);
    const bool isOption = (isOfTables && IsOneOf(kRefusedOptions, token)) || IsOneOf(kRefusedTargets, token);
    if (isOption) return SqlRefusal(token.text, kReachesOutside);
    if (allowed->effect == Effect::kChange && IsSqlWord(token, "RETURNING"))
      return SqlRefusal(token.text, kReturning);
    if (!MayBeName(token)) continue;
    const std::string name = FoldTableName(UnquotedName(token));
    if (IsReservedName(name)) return SqlRefusal(name, kIsOurs);
    if (at + 1 == tokens.size() || !IsSymbol(tokens[at + 1], "(")) continue;
    refusal = RefuseSqlFunction(name);
    if (!refusal.empty()) return refusal;
    if (std::find(std::begin(kRefusedCalls), std::end(kRefusedCalls), name) != std::end(kRefusedCalls))
      return SqlRefusal(name, "it holds up the server");
  }
  return RefuseDatabases(tokens);
}

// A name before a point may be an alias or a table, too, unless a database beside ours is called so.
std::string MariaStore::RefuseDatabases(const std::vector<SqlToken>& tokens) {
  std::vector<std::string> names;
  for (std::size_t at = 0; at + 1 < tokens.size(); ++at) {
    if (MayBeName(tokens[at]) && IsSymbol(tokens[at + 1], "."))
      names.push_back(FoldTableName(UnquotedName(tokens[at])));
  }
  if (names.empty()) return {};
  const MariaRows databases = Guarded([&] {
    return connection_.Query(
        "SELECT SCHEMA_NAME FROM information_schema.SCHEMATA WHERE SCHEMA_NAME <> DATABASE() UNION ALL "
        "VALUES ('mysql'), ('performance_schema'), ('sys')",
        {}, Again());
  });
  for (std::size_t row = 0; row < databases.Count(); ++row) {
    const std::string database = FoldTableName(databases.Text(row, 0));
    if (std::find(names.begin(), names.end(), database) != names.end())
      return SqlRefusal(fmt::format("database {}", database), kReachesOutside);
  }
  return {};
}

bool MariaStore::RunSql(std::string_view statement, ResultGrid& grid, bool& isQuery, std::string& message,
                        std::string& error) {
  return RunSentence(statement, grid, isQuery, message, error);
}

// Returns the number of rows changed.
std::uint64_t MariaStore::FillGrid(std::string_view sql, ResultGrid& grid) {
  constexpr std::uint64_t kCellCost = 8;
  const MariaConnection::Interruptible interruptible(connection_);
  std::uint64_t size = 0;
  const auto addRow = [&](const std::vector<std::string_view>& cells) {
    for (const std::string_view cell : cells) {
      size += cell.size() + kCellCost;
      grid.AppendCell(cell);
    }
    return size <= kLargestResult;
  };
  const std::uint64_t changed = connection_.Run(
      sql, [&](std::size_t columns) { grid.Start(static_cast<std::int32_t>(columns)); }, addRow);
  if (size > kLargestResult) {
    throw MariaFailure(
        fmt::format("the result is larger than {} MiB; narrow it with WHERE or LIMIT", kLargestResult >> 20),
        maria_error::kResultTooLarge);
  }
  return changed;
}

bool MariaStore::RunOtherSql(std::string_view statement, const std::vector<SqlToken>& tokens,
                             ResultGrid& grid, bool& isQuery, std::string& message, std::string& error) {
  SendGathered();
  error = RefuseReach(tokens);
  if (!error.empty()) return false;
  const auto end =
      std::find_if(tokens.begin(), tokens.end(), [](const SqlToken& token) { return IsSymbol(token, ";"); });
  if (end != tokens.end() && HasSecondStatement(statement.substr(end->End()), error)) return false;
  const std::string sql =
      WithoutComments(statement, tokens).substr(0, end == tokens.end() ? statement.size() : end->start);

  const Effect effect = std::find_if(std::begin(kAllowed), std::end(kAllowed), [&](const Allowed& known) {
                          return IsSqlWord(tokens[0], known.word);
                        })->effect;
  isQuery = effect == Effect::kRows;
  if (!isQuery) Commit();  // what was written before stays, whatever becomes of this
  try {
    if (!isQuery) BeginWrites();
    if (effect == Effect::kTables) writesAreOpen_ = false;  // the server commits by itself
    if (isQuery && !writesAreOpen_) connection_.Execute("DO 0", IfLost::kAgain);  // so that it stands
    const std::uint64_t changed = Guarded([&] { return FillGrid(sql, grid); });
    if (effect == Effect::kTables) catalogue_.RaiseVersion();
    if (effect == Effect::kChange) Commit();
    message = isQuery                     ? fmt::format("{} row(s)", grid.HighestRow())
              : effect == Effect::kChange ? fmt::format("{} row(s) changed", changed)
                                          : NoteOf(tokens);
    return true;
  } catch (const MariaFailure& failure) {
    if (!isQuery) Rollback();
    if (effect == Effect::kTables && failure.IsLost())
      throw StoreFailure(fmt::format("{}; {}", failure.what(), kUnknownChange));
    if (failure.Code() == maria_error::kInterrupted) throw StoreFailure("interrupted");
    if (!failure.IsRefusal()) throw;
    error = failure.Reason();
    if (failure.Code() == maria_error::kUnknownColumn) {
      error += fmt::format(
          " (SQL reaches the columns A0 to A{} at most; LIST and SELECT of the query language reach all)",
          kMostRealColumns);
    }
    return false;
  }
}

}  // namespace nvadmin::engine
