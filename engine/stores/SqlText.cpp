#include "engine/stores/SqlText.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <optional>
#include <utility>

#include "engine/stores/TableNames.h"

namespace nvadmin::engine {

namespace {

constexpr std::string_view kBlanks = " \t\r\n\f";
constexpr std::string_view kTableLocks = "the engine locks what it needs itself";

struct Refused {
  std::string_view word;
  std::string_view why;
};

// By the first word of the statement.
constexpr Refused kRefusedStatements[] = {
    {"ATTACH", kReachesOutside},
    {"DETACH", kReachesOutside},
    {"PRAGMA", kReachesOutside},
    {"SET", kReachesOutside},
    {"USE", kReachesOutside},
    {"LOAD", kReachesOutside},
    {"VACUUM", "it rewrites the whole account under the other sessions"},
    {"BEGIN", kOwnTransactions},
    {"START", kOwnTransactions},
    {"COMMIT", kOwnTransactions},
    {"END", kOwnTransactions},
    {"ROLLBACK", kOwnTransactions},
    {"SAVEPOINT", kOwnTransactions},
    {"RELEASE", kOwnTransactions},
    {"LOCK", kTableLocks},
    {"UNLOCK", kTableLocks},
};

constexpr std::string_view kRefusedFunctions[] = {"load_extension", "fts3_tokenizer", "writefile",
                                                  "readfile",       "load_file",      "edit"};
constexpr std::string_view kRefusedTables[] = {"sqlite_dbpage", "sqlite_stmt", "dbstat"};
constexpr std::string_view kPragmaTables = "pragma_";

// Words that part the SELECTs of a compound one.
constexpr std::string_view kCompoundWords[] = {"UNION", "INTERSECT", "EXCEPT"};
constexpr std::string_view kUnlimitedTypes[] = {"TEXT", "MEMO", "CLOB", "MEDIUMTEXT"};

constexpr std::size_t kMostDigits = 18;  // of a number that surely fits 64 bits

bool IsBlank(char letter) { return kBlanks.find(letter) != std::string_view::npos; }

bool IsDigit(char letter) { return letter >= '0' && letter <= '9'; }

bool IsWordLetter(char letter) {
  return (letter >= 'a' && letter <= 'z') || (letter >= 'A' && letter <= 'Z') || IsDigit(letter) ||
         letter == '_' || letter == '$' || static_cast<unsigned char>(letter) >= 128;
}

std::string_view TrimBlanks(std::string_view text) {
  const std::size_t start = text.find_first_not_of(kBlanks);
  if (start == std::string_view::npos) return {};
  return text.substr(start, text.find_last_not_of(kBlanks) - start + 1);
}

bool EqualsWord(std::string_view text, std::string_view capitals) {
  return text.size() == capitals.size() &&
         std::equal(text.begin(), text.end(), capitals.begin(), [](char letter, char capital) {
           return (letter >= 'a' && letter <= 'z' ? letter - 32 : letter) == capital;
         });
}

// Where a quoted piece that starts at `start` ends; npos when it never does. A doubled quote stands for
// itself.
std::size_t EndOfQuoted(std::string_view statement, std::size_t start) {
  const char quote = statement[start] == '[' ? ']' : statement[start];
  std::size_t at = start + 1;
  while ((at = statement.find(quote, at)) != std::string_view::npos) {
    ++at;
    if (quote == ']' || at == statement.size() || statement[at] != quote) return at;
    ++at;
  }
  return at;
}

// Where blanks and comments that start at `start` end; npos when a comment never does.
std::size_t SkipBlanksAndComments(std::string_view statement, std::size_t start) {
  std::size_t at = start;
  for (;;) {
    while (at < statement.size() && IsBlank(statement[at])) ++at;
    const std::string_view rest = statement.substr(at);
    if (rest.starts_with("--")) {
      at = std::min(statement.find('\n', at), statement.size());
    } else if (rest.starts_with("/*")) {
      at = statement.find("*/", at + 2);
      if (at == std::string_view::npos) return at;
      at += 2;
    } else {
      return at;
    }
  }
}

SqlTokenKind KindOfQuoted(char quote) {
  return quote == '\'' ? SqlTokenKind::kString : SqlTokenKind::kQuotedName;
}

bool IsSymbol(const SqlToken& token, char symbol) {
  return token.kind == SqlTokenKind::kSymbol && token.text[0] == symbol;
}

bool IsName(const SqlToken& token) {
  return token.kind == SqlTokenKind::kWord || token.kind == SqlTokenKind::kQuotedName;
}

}  // namespace

// ---- Tokens

std::vector<SqlToken> CutSqlTokens(std::string_view statement) {
  std::vector<SqlToken> tokens;
  std::size_t at = 0;
  for (;;) {
    const std::size_t start = SkipBlanksAndComments(statement, at);
    if (start == std::string_view::npos) {
      tokens.push_back({SqlTokenKind::kUnclosed, statement.substr(at), at});
      return tokens;
    }
    if (start == statement.size()) return tokens;
    const char first = statement[start];
    SqlTokenKind kind = SqlTokenKind::kSymbol;
    std::size_t end = start + 1;
    if (first == '\'' || first == '"' || first == '`' || first == '[') {
      kind = KindOfQuoted(first);
      end = EndOfQuoted(statement, start);
    } else if (IsWordLetter(first)) {
      kind = IsDigit(first) ? SqlTokenKind::kNumber : SqlTokenKind::kWord;
      const bool pointInside = kind == SqlTokenKind::kNumber;
      while (end < statement.size() &&
             (IsWordLetter(statement[end]) || (pointInside && statement[end] == '.')))
        ++end;
    }
    if (end == std::string_view::npos) {
      tokens.push_back({SqlTokenKind::kUnclosed, statement.substr(start), start});
      return tokens;
    }
    tokens.push_back({kind, statement.substr(start, end - start), start});
    at = end;
  }
}

std::string UnquotedName(const SqlToken& token) {
  if (token.kind != SqlTokenKind::kQuotedName) return std::string(token.text);
  std::string name(token.text.substr(1, token.text.size() - 2));
  const char quote = token.text.back();
  for (std::size_t at = 0; quote != ']' && (at = name.find(quote, at)) != std::string::npos; ++at)
    name.erase(at, 1);
  return name;
}

bool IsSqlWord(const SqlToken& token, std::string_view word) {
  return token.kind == SqlTokenKind::kWord && EqualsWord(token.text, word);
}

// ---- Refusals

std::string SqlRefusal(std::string_view what, std::string_view why) {
  return fmt::format("{} is not allowed in a sentence: {}", what, why);
}

std::string RefuseSqlStatement(const std::vector<SqlToken>& tokens) {
  if (tokens.empty()) return {};
  for (const Refused& refused : kRefusedStatements) {
    if (IsSqlWord(tokens[0], refused.word)) return SqlRefusal(refused.word, refused.why);
  }
  return {};
}

std::string RefuseSqlFunction(std::string_view name) {
  const std::string folded = FoldTableName(name);
  for (const std::string_view refused : kRefusedFunctions) {
    if (folded == refused) return SqlRefusal(folded, kReachesOutside);
  }
  return {};
}

std::string RefuseSqlTable(std::string_view name) {
  const std::string folded = FoldTableName(name);
  const bool isRefused =
      folded.starts_with(kPragmaTables) ||
      std::find(std::begin(kRefusedTables), std::end(kRefusedTables), folded) != std::end(kRefusedTables);
  return isRefused ? SqlRefusal(folded, kReachesOutside) : std::string();
}

// ---- SELECT TOP n

namespace {

constexpr std::size_t kNowhere = std::string_view::npos;
constexpr std::string_view kWrapBegin = "SELECT * FROM (";

// One SELECT of a query.
struct SelectArm {
  std::size_t start = 0;
  std::size_t end = 0;
  std::string top;  // n, empty without TOP
};

// What stands between two parentheses, or the statement itself: no query, or one of one or more arms.
struct QueryFrame {
  std::vector<SelectArm> arms;
  std::size_t separators = 0;      // UNION and its like
  std::size_t lastEnd = 0;         // of the last token
  std::size_t bodyEnd = kNowhere;  // where the last arm ends before ORDER BY or LIMIT
  bool hasLimit = false;
  bool armIsOpen = false;
};

class TopRewriter {
 public:
  TopRewriter(std::string_view statement, RewrittenSql& rewritten)
      : tokens_(CutSqlTokens(statement)), rewritten_(rewritten) {
    rewritten_.text = statement;
    rewritten_.insertions.clear();
  }

  bool Run(std::string& error);

 private:
  bool StartArm(std::size_t at, std::string& error);
  std::optional<std::size_t> FindTop(std::size_t at) const;
  void TakeWord(std::size_t at);
  void CloseArm();
  void CloseFrame();
  void Insert(std::size_t position, std::string text) {
    rewritten_.insertions.push_back({position, std::move(text)});
  }
  void ApplyInsertions();
  bool IsWordAt(std::size_t at, std::string_view word) const {
    return at < tokens_.size() && IsSqlWord(tokens_[at], word);
  }
  bool IsNumberAt(std::size_t at) const {
    return at < tokens_.size() && tokens_[at].kind == SqlTokenKind::kNumber;
  }

  std::vector<SqlToken> tokens_;
  RewrittenSql& rewritten_;
  std::vector<QueryFrame> frames_{1};
};

// The TOP behind a SELECT, or the DISTINCT or ALL between them.
std::optional<std::size_t> TopRewriter::FindTop(std::size_t at) const {
  if (IsWordAt(at, "DISTINCT") || IsWordAt(at, "ALL")) ++at;
  if (!IsWordAt(at, "TOP")) return std::nullopt;
  const bool inParentheses = at + 3 < tokens_.size() && IsSymbol(tokens_[at + 1], '(') &&
                             IsNumberAt(at + 2) && IsSymbol(tokens_[at + 3], ')');
  if (!IsNumberAt(at + 1) && !inParentheses) return std::nullopt;
  return at;
}

// Blanks out the TOP of an arm, so that positions stay, and keeps its number.
bool TopRewriter::StartArm(std::size_t at, std::string& error) {
  QueryFrame& frame = frames_.back();
  frame.arms.push_back({tokens_[at].start, 0, {}});
  frame.armIsOpen = true;
  const std::optional<std::size_t> top = FindTop(at + 1);
  if (!top) return true;

  const bool inParentheses = !IsNumberAt(*top + 1);
  const std::size_t number = *top + (inParentheses ? 2 : 1);
  const std::size_t last = *top + (inParentheses ? 3 : 1);
  const std::string_view digits = tokens_[number].text;
  const bool ties = IsWordAt(last + 1, "WITH") && IsWordAt(last + 2, "TIES");
  if (IsWordAt(last + 1, "PERCENT") || ties) {
    error = fmt::format("TOP {} {} is not allowed in a sentence: give a number of rows", digits,
                        ties ? "WITH TIES" : "PERCENT");
    return false;
  }
  if (digits.size() > kMostDigits || !std::all_of(digits.begin(), digits.end(), IsDigit)) {
    error = fmt::format("TOP {} is not a whole number of at most {} digits", digits, kMostDigits);
    return false;
  }
  frame.arms.back().top = digits;
  const std::size_t start = tokens_[*top].start;
  const std::size_t length = tokens_[last].End() - start;
  rewritten_.text.replace(start, length, length, ' ');
  return true;
}

void TopRewriter::CloseArm() {
  QueryFrame& frame = frames_.back();
  if (!frame.armIsOpen) return;
  frame.arms.back().end = frame.bodyEnd != kNowhere ? frame.bodyEnd : frame.lastEnd;
  frame.armIsOpen = false;
}

// Ends the query of the innermost frame and places what its TOPs mean.
void TopRewriter::CloseFrame() {
  CloseArm();
  QueryFrame& frame = frames_.back();
  for (const SelectArm& arm : frame.arms) {
    if (arm.top.empty()) continue;
    const bool wrapped = frame.separators > 0 || frame.hasLimit;
    if (wrapped) Insert(arm.start, std::string(kWrapBegin));
    if (frame.separators > 0) {
      Insert(arm.end, fmt::format(" LIMIT {})", arm.top));
    } else {
      Insert(frame.lastEnd, fmt::format("{} LIMIT {}", wrapped ? ")" : "", arm.top));
    }
  }
  frame = QueryFrame{};
}

// A word may end an arm, its body or the query.
void TopRewriter::TakeWord(std::size_t at) {
  QueryFrame& frame = frames_.back();
  const bool isCompound = std::any_of(std::begin(kCompoundWords), std::end(kCompoundWords),
                                      [&](std::string_view word) { return IsWordAt(at, word); });
  if (isCompound) {
    CloseArm();
    ++frame.separators;
  } else if (IsWordAt(at, "RETURNING") || (IsWordAt(at, "ON") && IsWordAt(at + 1, "CONFLICT"))) {
    CloseFrame();
  } else if (frame.armIsOpen && (IsWordAt(at, "ORDER") || IsWordAt(at, "LIMIT"))) {
    if (frame.bodyEnd == kNowhere) frame.bodyEnd = frame.lastEnd;
    frame.hasLimit = frame.hasLimit || IsWordAt(at, "LIMIT");
  }
}

void TopRewriter::ApplyInsertions() {
  std::vector<RewrittenSql::Insertion>& insertions = rewritten_.insertions;
  std::stable_sort(insertions.begin(), insertions.end(),
                   [](const auto& left, const auto& right) { return left.position < right.position; });
  for (auto insertion = insertions.rbegin(); insertion != insertions.rend(); ++insertion) {
    rewritten_.text.insert(insertion->position, insertion->text);
  }
}

bool TopRewriter::Run(std::string& error) {
  const bool isBroken = !tokens_.empty() && tokens_.back().kind == SqlTokenKind::kUnclosed;
  if (isBroken) return true;  // the database says what is wrong with it
  for (std::size_t at = 0; at < tokens_.size(); ++at) {
    const SqlToken& token = tokens_[at];
    if (IsSymbol(token, '(')) {
      frames_.emplace_back();
    } else if (IsSymbol(token, ')')) {
      CloseFrame();
      if (frames_.size() > 1) frames_.pop_back();
    } else if (IsSymbol(token, ';')) {
      CloseFrame();
    } else if (IsSqlWord(token, "SELECT")) {
      if (!StartArm(at, error)) return false;
    } else {
      TakeWord(at);
    }
    frames_.back().lastEnd = token.End();
  }
  while (!frames_.empty()) {
    CloseFrame();
    frames_.pop_back();
  }
  ApplyInsertions();
  return true;
}

}  // namespace

std::size_t RewrittenSql::PositionInSentence(std::size_t positionInText) const {
  std::size_t inserted = 0;
  for (const Insertion& insertion : insertions) {
    const std::size_t placed = insertion.position + inserted;
    if (positionInText < placed) break;
    if (positionInText < placed + insertion.text.size()) return insertion.position;
    inserted += insertion.text.size();
  }
  return positionInText - inserted;
}

bool RewriteTop(std::string_view statement, RewrittenSql& rewritten, std::string& error) {
  return TopRewriter(statement, rewritten).Run(error);
}

// ---- CREATE TABLE and DROP TABLE

void RewriteMemo(std::string& statement) {
  constexpr std::string_view kMemo = "MEMO";
  constexpr std::string_view kText = "TEXT";
  const std::vector<SqlToken> tokens = CutSqlTokens(statement);
  const bool isSelect = std::any_of(tokens.begin(), tokens.end(),
                                    [](const SqlToken& token) { return IsSqlWord(token, "SELECT"); });
  if (tokens.empty() || isSelect) return;
  const bool creates = IsSqlWord(tokens[0], "CREATE");
  const bool alters = IsSqlWord(tokens[0], "ALTER");
  for (std::size_t at = 2; at < tokens.size() && (creates || alters); ++at) {
    const SqlToken& before = tokens[at - 2];
    const bool startsColumn = creates ? IsSymbol(before, '(') || IsSymbol(before, ',')
                                      : IsSqlWord(before, "COLUMN") || (IsSqlWord(before, "ADD") &&
                                                                        !IsSqlWord(tokens[at - 1], "COLUMN"));
    if (!startsColumn || !IsName(tokens[at - 1]) || !IsSqlWord(tokens[at], kMemo)) continue;
    statement.replace(tokens[at].start, kMemo.size(), kText);  // of one length: the tokens stay right
  }
}

namespace {

// Walks over the tokens behind the key's column.
class TokenWalk {
 public:
  explicit TokenWalk(std::string_view text) : tokens_(CutSqlTokens(text)) {}

  bool AtEnd() const { return at_ == tokens_.size(); }
  bool TakeWord(std::string_view word) {
    if (AtEnd() || !IsSqlWord(tokens_[at_], word)) return false;
    ++at_;
    return true;
  }
  bool TakeSymbol(char symbol) {
    if (AtEnd() || !IsSymbol(tokens_[at_], symbol)) return false;
    ++at_;
    return true;
  }
  // "(n)": a size below 1 is no limit.
  bool TakeSize(std::int64_t& limit) {
    const std::size_t start = at_;
    if (TakeSizeInside(limit)) return true;
    at_ = start;
    return false;
  }
  bool TakePrimaryKey() { return TakeTwoWords("PRIMARY", "KEY"); }
  bool TakeNotNull() { return TakeTwoWords("NOT", "NULL"); }

 private:
  bool TakeTwoWords(std::string_view first, std::string_view second) {
    const bool areThere =
        at_ + 1 < tokens_.size() && IsSqlWord(tokens_[at_], first) && IsSqlWord(tokens_[at_ + 1], second);
    if (areThere) at_ += 2;
    return areThere;
  }
  bool TakeSizeInside(std::int64_t& limit) {
    if (!TakeSymbol('(')) return false;
    const bool negative = TakeSymbol('-');
    if (AtEnd() || tokens_[at_].kind != SqlTokenKind::kNumber) return false;
    const std::string_view digits = tokens_[at_++].text;
    const auto [end, fault] = std::from_chars(digits.data(), digits.data() + digits.size(), limit);
    if (fault != std::errc() || end != digits.data() + digits.size()) return false;
    if (negative) limit = 0;
    return TakeSymbol(')');
  }

  std::vector<SqlToken> tokens_;
  std::size_t at_ = 0;
};

bool TakeType(TokenWalk& walk, NewColumn& column) {
  const bool isVarchar = walk.TakeWord("VARCHAR");
  const bool isType = isVarchar ? walk.TakeSize(column.limit)
                                : std::any_of(std::begin(kUnlimitedTypes), std::end(kUnlimitedTypes),
                                              [&](std::string_view word) { return walk.TakeWord(word); });
  if (!isType) return false;
  column.notNull = walk.TakeNotNull();
  return true;
}

// What stands behind " (A0 VARCHAR": the size of the key, the columns and the primary key, up to the end.
// `isNameRepeated`: a constraint holds the table's name, in a way that no quoted name of SQL can be repeated.
bool ReadColumns(std::string_view text, NewTable& table, bool& isNameRepeated) {
  // The name of the constraint repeats the table's, whatever it holds, so it is cut out as text.
  const std::string constraint = fmt::format(" CONSTRAINT idx{} PRIMARY KEY", table.name);
  const std::size_t sizeEnd = text.find(')');
  isNameRepeated = sizeEnd != kNowhere &&
                   FoldTableName(text.substr(sizeEnd + 1, constraint.size())) == FoldTableName(constraint);
  std::string plain(text);
  if (isNameRepeated) plain.replace(sizeEnd + 1, constraint.size(), " PRIMARY KEY");

  TokenWalk walk(plain);
  table.columns.assign(1, {});
  if (!walk.TakeSize(table.columns[0].limit)) return false;
  bool hasKey = walk.TakePrimaryKey();
  bool ended = walk.TakeSymbol(')');
  while (!ended && walk.TakeSymbol(',')) {
    if (!hasKey && walk.TakePrimaryKey()) {
      hasKey = walk.TakeSymbol('(') && walk.TakeWord("A0") && walk.TakeSymbol(')');
      ended = walk.TakeSymbol(')');
      break;
    }
    NewColumn column;
    const bool isFirst = table.columns.size() == 1;
    if (isFirst && walk.TakeWord("ITEM")) {
      table.layout = Layout::kItem;
    } else if (table.layout == Layout::kItem || !walk.TakeWord(fmt::format("A{}", table.columns.size()))) {
      return false;
    }
    if (!TakeType(walk, column)) return false;
    table.columns.push_back(column);
    ended = walk.TakeSymbol(')');
  }
  while (ended && walk.TakeSymbol(';')) {
  }
  // A file has at least one attribute, though a sentence made from a broken count may name none.
  if (table.columns.size() == 1) table.columns.emplace_back();
  return hasKey && ended && walk.AtEnd();
}

}  // namespace

bool ReadCreateTable(std::string_view statement, SentenceBy by, NewTable& table) {
  const bool isUsers = by == SentenceBy::kUser;
  constexpr std::string_view kHead = "create table ";
  constexpr std::string_view kKeyColumn = " (a0 varchar";
  constexpr std::string_view kCondition = "if not exists ";
  if (isUsers) statement = TrimBlanks(statement);
  const std::string folded = FoldTableName(statement);
  if (!folded.starts_with(kHead)) return false;

  // A name may hold the text that ends it: the first reading that fits up to the statement's end is the only
  // one.
  std::size_t keyColumn = folded.find(kKeyColumn, kHead.size());
  for (; keyColumn != kNowhere; keyColumn = folded.find(kKeyColumn, keyColumn + 1)) {
    NewTable read;
    const std::string_view name = statement.substr(kHead.size(), keyColumn - kHead.size());
    read.name = isUsers ? TrimBlanks(name) : name;
    if (isUsers && FoldTableName(read.name).starts_with(kCondition)) return false;
    bool isNameRepeated = false;
    if (!ReadColumns(statement.substr(keyColumn + kKeyColumn.size()), read, isNameRepeated)) continue;
    const std::vector<SqlToken> tokens = CutSqlTokens(read.name);
    if (isUsers && tokens.size() == 1 && !isNameRepeated) read.name = UnquotedName(tokens[0]);
    table = std::move(read);
    return true;
  }
  return false;
}

bool ReadDropTable(std::string_view statement, SentenceBy by, std::string& name) {
  constexpr std::string_view kHead = "drop table ";
  constexpr std::string_view kCondition = "if exists ";
  const bool isUsers = by == SentenceBy::kUser;
  if (isUsers) statement = TrimBlanks(statement);
  if (!FoldTableName(statement).starts_with(kHead)) return false;
  std::string_view read = statement.substr(kHead.size());
  if (isUsers) read = TrimBlanks(read);
  if (isUsers && FoldTableName(read).starts_with(kCondition)) return false;
  name = read;
  return true;
}

}  // namespace nvadmin::engine
