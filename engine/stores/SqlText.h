// SQL as text: what happens to a sentence before the database sees it.
// Sentences are cut into tokens, so that nothing inside a string, a quoted name or a comment is ever taken
// for a word. What is refused here is refused for the sake of a good message; the guard that holds is the
// database's own. Statements and names are code page bytes. Knows no database.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "engine/stores/Store.h"

namespace nvadmin::engine {

enum class SqlTokenKind {
  kWord,        // keyword or bare name; every byte from 128 up is a letter
  kQuotedName,  // "x", `x` or [x]
  kString,      // 'x'
  kNumber,
  kSymbol,    // one character
  kUnclosed,  // a string, quoted name or comment that never ends; always the last token
};

struct SqlToken {
  SqlTokenKind kind = SqlTokenKind::kSymbol;
  std::string_view text;  // as it stands, quotes included
  std::size_t start = 0;  // where it stands in the statement

  std::size_t End() const { return start + text.size(); }
};

// Blanks and comments are no tokens. The tokens point into `statement`.
std::vector<SqlToken> CutSqlTokens(std::string_view statement);

// A name without its quotes.
std::string UnquotedName(const SqlToken& token);

// True for a token that is this word, given in capitals, in any letter case.
bool IsSqlWord(const SqlToken& token, std::string_view word);

// Why something is refused.
inline constexpr std::string_view kReachesOutside = "it reaches outside the account";
inline constexpr std::string_view kOwnTransactions = "the engine opens and ends transactions itself";

// "PRAGMA is not allowed in a sentence: it reaches outside the account".
std::string SqlRefusal(std::string_view what, std::string_view why);
// Empty when a sentence that begins so is allowed.
std::string RefuseSqlStatement(const std::vector<SqlToken>& tokens);
// Functions and tables that reach outside the account; empty when this one doesn't.
std::string RefuseSqlFunction(std::string_view name);
std::string RefuseSqlTable(std::string_view name);

// A statement as the database gets it, and the way back from its positions to those of the sentence.
struct RewrittenSql {
  struct Insertion {
    std::size_t position;  // in the sentence
    std::string text;
  };

  std::string text;
  std::vector<Insertion> insertions;  // in order of position

  // Both positions count from 0; one within an insertion is the place where it stands.
  std::size_t PositionInSentence(std::size_t positionInText) const;
};

// Makes `SELECT TOP n` a LIMIT: it stays with its own SELECT in a UNION and in a subquery, and a LIMIT beside
// it holds too. DISTINCT and ALL may stand before or behind it. False, with the reason in `error`: TOP n
// PERCENT, WITH TIES, a huge n.
bool RewriteTop(std::string_view statement, RewrittenSql& rewritten, std::string& error);

// MEMO as the type of a column becomes TEXT, so that digits stored in it stay the text that they are. Changes
// no length.
void RewriteMemo(std::string& statement);

struct NewColumn {
  std::int64_t limit = 0;  // in characters, 0 is none
  bool notNull = false;
};

struct NewTable {
  std::string name;
  Layout layout = Layout::kColumns;
  std::vector<NewColumn> columns;  // A0, A1 ... An, or A0 and ITEM
};

// Reads the CREATE TABLE sentence of a file, in the dialect of any datastore word. Its name is bare, may
// hold any character, and may be missing: it is all that stands between "CREATE TABLE " and " (A0 VARCHAR(".
// A user's name that is quoted as a whole loses its quotes, unless the key's constraint repeats it, quotes and
// all. False for any other statement, also one that just begins so; and for a user's IF NOT EXISTS.
bool ReadCreateTable(std::string_view statement, SentenceBy by, NewTable& table);

// The name in "DROP TABLE name", all that stands behind the two words; false for any other statement, and for
// a user's IF EXISTS.
bool ReadDropTable(std::string_view statement, SentenceBy by, std::string& name);

}  // namespace nvadmin::engine
