#include "engine/stores/SentenceStore.h"

#include <fmt/format.h>

#include <algorithm>

#include "engine/CodePage.h"

namespace nvadmin::engine {

namespace {

// First words of statements that give rows whatever they say.
constexpr std::string_view kQueryWords[] = {"SELECT", "WITH", "VALUES", "EXPLAIN"};

}  // namespace

std::string BuiltInRefusal(std::string_view name) {
  return fmt::format("{} is built in and can't be changed", name);
}

bool SentenceStore::IsFileName(std::string_view name, std::string& error) {
  const bool holdsZero = name.find('\0') != std::string_view::npos;
  if (name.empty()) error = "a table needs a name";
  if (holdsZero) error = "a table's name can't hold a character 0";
  return !name.empty() && !holdsZero;
}

bool SentenceStore::HasSecondStatement(std::string_view behindFirst, std::string& error) {
  for (const SqlToken& token : CutSqlTokens(behindFirst)) {
    if (token.text == ";") continue;
    error =
        fmt::format("a sentence is one SQL statement; a second one begins with {}", ForeignText(token.text));
    return true;
  }
  return false;
}

bool SentenceStore::RunSentence(std::string_view statement, ResultGrid& grid, bool& isQuery,
                                std::string& message, std::string& error) {
  const std::vector<SqlToken> tokens = CutSqlTokens(statement);
  isQuery = !tokens.empty() && std::any_of(std::begin(kQueryWords), std::end(kQueryWords),
                                           [&](std::string_view word) { return IsSqlWord(tokens[0], word); });
  bool isDone = false;
  try {
    isDone = TakeSentence(statement, tokens, grid, isQuery, message, error);
  } catch (const StoreFailure&) {
    if (isQuery) grid.Clear();
    throw;
  }
  if (!isDone && isQuery) grid.Clear();
  return isDone;
}

bool SentenceStore::TakeSentence(std::string_view statement, const std::vector<SqlToken>& tokens,
                                 ResultGrid& grid, bool& isQuery, std::string& message, std::string& error) {
  if (tokens.empty()) {
    error = kNoStatement;
    return false;
  }
  if (statement.find('\0') != std::string_view::npos) {
    error = "an SQL statement can't hold a character 0";
    return false;
  }
  error = RefuseSqlStatement(tokens);
  if (!error.empty()) return false;

  NewTable table;
  if (ReadCreateTable(statement, SentencesBy(), table)) {
    Commit();
    message = fmt::format("table {} created", table.name);
    return MakeTable(table, error);
  }
  std::string name;
  if (ReadDropTable(statement, SentencesBy(), name)) {
    bool isOurs = false;
    const bool isDropped = DropBareName(name, isOurs, message, error);
    if (isOurs) return isDropped;
  }
  return RunOtherSql(statement, tokens, grid, isQuery, message, error);
}

// Drops the table whose name is all that stands behind DROP TABLE, be it a keyword or hold blanks and quotes;
// in a user's sentence it may stand between quotes, too, and ";" behind it. Otherwise a user's is ordinary
// SQL (`isOurs` false), unless a single word stands there.
bool SentenceStore::DropBareName(std::string_view name, bool& isOurs, std::string& message,
                                 std::string& error) {
  const bool isUsers = SentencesBy() == SentenceBy::kUser;
  std::string_view withoutEnd = name;
  while (isUsers && (withoutEnd.ends_with(';') || withoutEnd.ends_with(' '))) withoutEnd.remove_suffix(1);
  const std::vector<SqlToken> tokens = CutSqlTokens(withoutEnd);
  const std::string unquoted =
      isUsers && tokens.size() == 1 ? UnquotedName(tokens[0]) : std::string(withoutEnd);
  isOurs = true;
  for (const std::string_view candidate : {name, withoutEnd, std::string_view(unquoted)}) {
    bool isThere = false;
    message = fmt::format("table {} dropped", candidate);
    const bool isDropped = DropIfThere(candidate, isThere, error);
    if (isThere) return isDropped;
  }
  isOurs = !isUsers || (tokens.size() == 1 && tokens[0].kind == SqlTokenKind::kWord);
  if (isOurs) error = NoSuchTable(withoutEnd);
  return false;
}

}  // namespace nvadmin::engine
