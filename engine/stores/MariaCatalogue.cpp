#include "engine/stores/MariaCatalogue.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <utility>

#include "engine/stores/Declaration.h"
#include "engine/stores/TableNames.h"

namespace nvadmin::engine {

namespace {

constexpr std::int64_t kFormat = 1;
constexpr int kMostTries = 4;
constexpr std::int32_t kMostColumns = 1999;    // as on an embedded account
constexpr std::int64_t kLongestKey = 3072;     // in bytes, of an index of the server
constexpr std::size_t kLongestName = 64;       // in characters, of a table of the server
constexpr std::int64_t kRowBytes = 7900;       // of a row, with some left for the server
constexpr std::int64_t kBytesOfLongText = 43;  // that a filled LONGTEXT takes of it at least
constexpr std::string_view kCollation = "latin1_nopad_bin";
constexpr std::string_view kReserved = "nvadmin_";
constexpr std::string_view kComment = "nvadmin file ";
constexpr std::string_view kTableOptions =
    "ENGINE=InnoDB ROW_FORMAT=DYNAMIC CHARACTER SET latin1 COLLATE latin1_nopad_bin";

constexpr std::string_view kOwnTables[] = {
    "nvadmin_state (id TINYINT NOT NULL PRIMARY KEY, format INT NOT NULL, version BIGINT NOT NULL, "
    "turn BIGINT NOT NULL DEFAULT 0)",
    "nvadmin_files (number BIGINT NOT NULL AUTO_INCREMENT PRIMARY KEY, declaration LONGTEXT NOT NULL)",
    "nvadmin_programs (number BIGINT NOT NULL AUTO_INCREMENT PRIMARY KEY, beat BIGINT NOT NULL, "
    "steady BIGINT NOT NULL)",
    "nvadmin_locks (tbl VARCHAR(64) NOT NULL, digest BINARY(32) NOT NULL, id LONGTEXT, "
    "program BIGINT NOT NULL, session BIGINT NOT NULL, claim BIGINT NOT NULL, user TEXT NOT NULL, "
    "place TEXT NOT NULL, since BIGINT NOT NULL, PRIMARY KEY (tbl, digest), "
    "KEY holder (program, session, claim))",
};

constexpr std::string_view kTextTypes[] = {"varchar", "tinytext", "text", "mediumtext", "longtext"};

template <std::size_t count>
bool IsOneOf(const std::string_view (&words)[count], std::string_view word) {
  return std::find(std::begin(words), std::end(words), word) != std::end(words);
}

std::int64_t NumberOf(std::string_view text) {
  std::int64_t number = 0;
  std::from_chars(text.data(), text.data() + text.size(), number);
  return number;
}

// How many A-columns fit a row beside the key, whatever is in them. Of the rest one is for kRestColumn.
std::int32_t RealColumns(std::int32_t attributes, std::int64_t keyLimit) {
  const std::int64_t fitting = (kRowBytes - keyLimit) / kBytesOfLongText - 1;
  const auto most = static_cast<std::int32_t>(std::min<std::int64_t>(fitting, kMostRealColumns));
  return std::min(attributes, most);
}

std::int64_t KeyLimit(std::int64_t declared) {
  return declared > 0 ? std::min(declared, kLongestKey) : kLongestKey;
}

// The smaller of two limits, of which 0 is none.
std::int64_t TighterLimit(std::int64_t one, std::int64_t other) {
  if (one == 0 || other == 0) return std::max(one, other);
  return std::min(one, other);
}

// What a table was made as.
struct Declared {
  Layout layout = Layout::kItem;
  std::int32_t realColumns = 0;
  std::vector<std::int64_t> limits;  // of A0, A1 ...
};

// "C 2 25 35 0": layout, real columns, limits.
std::string WriteDeclaration(const NewTable& table, std::int32_t realColumns) {
  std::string text = fmt::format("{} {}", table.layout == Layout::kItem ? 'I' : 'C', realColumns);
  for (std::size_t column = 0; column < table.columns.size(); ++column) {
    const std::int64_t limit = std::max<std::int64_t>(table.columns[column].limit, 0);
    text += fmt::format(" {}", column == 0 ? KeyLimit(limit) : limit);
  }
  return text;
}

// False: it is no declaration.
bool ReadDeclaration(std::string_view text, Declared& declared) {
  if (!text.starts_with("C ") && !text.starts_with("I ")) return false;
  declared.layout = text[0] == 'I' ? Layout::kItem : Layout::kColumns;
  std::vector<std::int64_t> numbers;
  for (text.remove_prefix(1); !text.empty();) {
    text.remove_prefix(1);
    const std::size_t length = std::min(text.find(' '), text.size());
    numbers.push_back(NumberOf(text.substr(0, length)));
    if (numbers.back() < 0) return false;
    text.remove_prefix(length);
  }
  if (numbers.size() < 3 || numbers.size() > kMostColumns + 2) return false;
  if (numbers[0] < 1 || numbers[0] > std::ssize(numbers) - 2) return false;
  declared.realColumns = static_cast<std::int32_t>(numbers[0]);
  declared.limits.assign(numbers.begin() + 1, numbers.end());
  return true;
}

}  // namespace

bool IsReservedName(std::string_view folded) { return folded.starts_with(kReserved); }

// ---- The database

// True for an account's database that lacks nothing and is of this program's format.
bool MariaCatalogue::IsWhole() {
  try {
    const MariaRows state = connection_.Query(
        "SELECT format, EXISTS (SELECT 1 FROM nvadmin_files), EXISTS (SELECT 1 FROM nvadmin_programs), "
        "EXISTS (SELECT 1 FROM nvadmin_locks) FROM nvadmin_state WHERE id = 1",
        {}, IfLost::kAgain);
    return state.Count() == 1 && state.Integer(0, 0) <= kFormat;
  } catch (const MariaFailure& failure) {
    if (failure.Code() != maria_error::kNoSuchTable && failure.Code() != maria_error::kUnknownTable) throw;
    return false;
  }
}

// What the programs share is made anew, when it is lost; the account's state, and how its files are declared,
// can't be.
std::string MariaCatalogue::FindObstacle() {
  if (IsWhole()) return {};
  const std::string& database = connection_.Address().database;
  enum { kCollationName, kFiles, kState, kDeclarations };
  const MariaRows found = connection_.Query(
      "SELECT @@collation_database, SUM(LEFT(TABLE_NAME, 8) <> 'nvadmin_'), SUM(TABLE_NAME = "
      "'nvadmin_state'), SUM(TABLE_NAME = 'nvadmin_files') FROM information_schema.TABLES "
      "WHERE TABLE_SCHEMA = DATABASE()",
      {}, IfLost::kAgain);
  std::int64_t format = 0;
  if (found.Integer(0, kState) > 0) {
    const MariaRows state =
        connection_.Query("SELECT format FROM nvadmin_state WHERE id = 1", {}, IfLost::kAgain);
    if (state.Count() > 0) format = state.Integer(0, 0);
  }
  if (format > kFormat) {
    return fmt::format("database {} is of format {}, made by a newer version of this program; use that one",
                       database, format);
  }
  if (found.Integer(0, kFiles) == 0) {
    if (found.Text(0, kCollationName) == kCollation) return {};
    return fmt::format(
        "database {0} has the collation {1}, under which item IDs aren't exact; change it with ALTER "
        "DATABASE {2} CHARACTER SET latin1 COLLATE {3}",
        database, found.Text(0, kCollationName), QuoteIfNeeded(database), kCollation);
  }
  if (found.Integer(0, kState) == 0) {
    return fmt::format(
        "database {} holds tables, but isn't an account's; an account needs a database of its own, "
        "made with CREATE DATABASE ... CHARACTER SET latin1 COLLATE {}",
        database, kCollation);
  }
  if (found.Integer(0, kDeclarations) == 0) {
    return fmt::format(
        "database {} lacks the table nvadmin_files, which tells how its files were declared; restore it",
        database);
  }
  return format == 0 ? EmptyState() : "";
}

void MariaCatalogue::Claim() {
  if (IsWhole()) return;
  const std::string obstacle = FindObstacle();
  if (!obstacle.empty()) throw StoreFailure(obstacle);
  for (const std::string_view table : kOwnTables)
    connection_.Execute(fmt::format("CREATE TABLE IF NOT EXISTS {} {}", table, kTableOptions), IfLost::kFail);
  connection_.Execute(
      fmt::format("INSERT IGNORE INTO nvadmin_state (id, format, version) VALUES (1, {}, 1)", kFormat),
      IfLost::kFail);
}

std::string MariaCatalogue::EmptyState() const {
  return fmt::format(
      "database {}: somebody emptied the table nvadmin_state; restore it, or make the account's "
      "database usable again with INSERT INTO nvadmin_state (id, format, version) VALUES (1, {}, 1)",
      connection_.Address().database, kFormat);
}

std::int64_t MariaCatalogue::VersionIn(const MariaRows& rows) const {
  if (rows.Count() > 0 && !rows.IsNull(0, 0)) return rows.Integer(0, 0);
  throw StoreFailure(EmptyState());
}

std::int64_t MariaCatalogue::Version() {
  return VersionIn(connection_.Query("SELECT version FROM nvadmin_state WHERE id = 1", {}, IfLost::kAgain));
}

// Whoever writes just now is waited for, several times over.
void MariaCatalogue::RaiseVersion() {
  for (int tries = 1;; ++tries) {
    try {
      return connection_.Execute("UPDATE nvadmin_state SET version = version + 1 WHERE id = 1",
                                 IfLost::kFail);
    } catch (const MariaFailure& failure) {
      const bool isInTheWay =
          failure.Code() == maria_error::kLockWait || failure.Code() == maria_error::kDeadlock;
      if (isInTheWay && tries < kMostTries) continue;
      throw StoreFailure(fmt::format(
          "{}; the table is changed, but other sessions may know it as it was until they enter the account "
          "anew",
          failure.what()));
    }
  }
}

// ---- Tables

std::vector<std::string> MariaCatalogue::Names() {
  const MariaRows rows = connection_.Query(
      "SELECT TABLE_NAME FROM information_schema.TABLES WHERE TABLE_SCHEMA = DATABASE() AND TABLE_TYPE = "
      "'BASE TABLE'",
      {}, IfLost::kAgain);
  std::vector<std::string> names;
  for (std::size_t row = 0; row < rows.Count(); ++row) {
    if (!IsReservedName(FoldTableName(rows.Text(row, 0)))) names.emplace_back(rows.Text(row, 0));
  }
  return names;
}

// The server looks up the one name fast, but by itself tells letters apart, and not only of A to Z.
bool MariaCatalogue::FindSpelling(std::string_view folded, std::string& spelling, std::string& type,
                                  std::int64_t& number) {
  const std::string all =
      "SELECT TABLE_NAME, TABLE_TYPE, TABLE_COMMENT FROM information_schema.TABLES WHERE TABLE_SCHEMA = "
      "DATABASE()";
  if (IsReservedName(folded)) return false;
  for (const bool isByName : {true, false}) {
    const std::string_view name[] = {folded};
    const MariaRows rows = isByName ? connection_.Query(all + " AND TABLE_NAME = ?", name, IfLost::kAgain)
                                    : connection_.Query(all, {}, IfLost::kAgain);
    for (std::size_t row = 0; row < rows.Count(); ++row) {
      if (FoldTableName(rows.Text(row, 0)) != folded) continue;
      spelling = rows.Text(row, 0);
      type = rows.Text(row, 1) == "BASE TABLE" ? "table" : FoldTableName(rows.Text(row, 1));
      const std::string_view comment = rows.Text(row, 2);
      number = comment.starts_with(kComment) ? NumberOf(comment.substr(kComment.size())) : 0;
      return true;
    }
  }
  return false;
}

// What the table lacks; empty: nothing.
std::string MariaCatalogue::ReadColumns(std::string_view spelling, Found& found) {
  enum { kName, kType, kLength, kCollationName, kKey, kGenerated, kNullable };
  const std::string_view name[] = {spelling};
  const MariaRows rows = connection_.Query(
      "SELECT COLUMN_NAME, DATA_TYPE, CHARACTER_MAXIMUM_LENGTH, COLLATION_NAME, COLUMN_KEY, IS_GENERATED, "
      "IS_NULLABLE FROM information_schema.COLUMNS "
      "WHERE TABLE_SCHEMA = DATABASE() AND TABLE_NAME = ? ORDER BY ORDINAL_POSITION",
      name, IfLost::kAgain);
  Declaration declaration(kMostColumns);
  std::vector<std::pair<std::string, bool>> nullable;
  std::string wrongType;
  for (std::size_t row = 0; row < rows.Count(); ++row) {
    const std::string column = FoldTableName(rows.Text(row, kName));
    const bool isRest = column == FoldTableName(kRestColumn);
    const bool isOurs = isRest || column == "item" ||
                        (column.size() > 1 && column[0] == 'a' && NumberOf(column.substr(1)) >= 0 &&
                         column.find_first_not_of("0123456789", 1) == std::string::npos);
    const bool isText =
        IsOneOf(kTextTypes, rows.Text(row, kType)) && rows.Text(row, kCollationName) == kCollation;
    if (isOurs && !isText && wrongType.empty()) {
      wrongType = fmt::format(
          "its column {} is {}, but must be text of the collation {}", rows.Text(row, kName),
          rows.IsNull(row, kCollationName)
              ? std::string(rows.Text(row, kType))
              : fmt::format("{} of the collation {}", rows.Text(row, kType), rows.Text(row, kCollationName)),
          kCollation);
    }
    const std::int64_t length = rows.Integer(row, kLength);
    const bool isEndless = rows.Text(row, kType) == "longtext";
    found.hasRest = found.hasRest || isRest;
    found.hasOthers = found.hasOthers || !isOurs;
    declaration.Take(column, isEndless ? 0 : length, rows.Text(row, kKey) == "PRI",
                     rows.Text(row, kGenerated) != "NEVER");
    nullable.emplace_back(column, rows.Text(row, kNullable) == "YES");
  }
  const std::string lack = declaration.FindLack();
  if (!lack.empty() || !wrongType.empty()) return lack.empty() ? wrongType : lack;
  declaration.Describe(found.description);
  const bool isItem = found.description.layout == Layout::kItem;
  found.realColumns = static_cast<std::int32_t>(found.description.limits.size()) - 1;
  for (std::int32_t column = 1; column <= found.realColumns; ++column) {
    const std::string wanted = isItem ? "item" : fmt::format("a{}", column);
    found.mayBeNull.push_back(std::any_of(nullable.begin(), nullable.end(), [&](const auto& seen) {
      return seen.first == wanted && seen.second;
    }));
  }
  return {};
}

// What was declared when the table was made here, and whether somebody added a trigger or a constraint since.
// Returns what it lacks of that.
std::string MariaCatalogue::TakeDeclared(std::string_view spelling, Found& found) {
  const std::string number = std::to_string(found.number);
  const std::string_view parameters[] = {spelling, spelling, number};
  const MariaRows rows = connection_.Query(
      "SELECT declaration, EXISTS (SELECT 1 FROM information_schema.TRIGGERS WHERE EVENT_OBJECT_SCHEMA = "
      "DATABASE() AND EVENT_OBJECT_TABLE = ?) OR EXISTS (SELECT 1 FROM information_schema.TABLE_CONSTRAINTS "
      "WHERE TABLE_SCHEMA = DATABASE() AND TABLE_NAME = ? AND CONSTRAINT_TYPE <> 'PRIMARY KEY') FROM "
      "nvadmin_files WHERE number = ?",
      parameters, IfLost::kAgain);
  Declared declared;
  if (rows.Count() == 0 || !ReadDeclaration(rows.Text(0, 0), declared))
    return fmt::format("how it was made is no longer to be read in row {} of nvadmin_files", found.number);
  const bool needsRest = std::ssize(declared.limits) - 1 > declared.realColumns;
  if (found.description.layout != declared.layout) return "it isn't laid out as it was made";
  if (found.realColumns < declared.realColumns)
    return fmt::format("it lacks column A{}", found.realColumns + 1);
  if (needsRest && !found.hasRest) return fmt::format("it lacks column {}", kRestColumn);
  found.mayRefuse = found.hasOthers || found.realColumns > declared.realColumns || rows.Integer(0, 1) != 0;
  found.realColumns = declared.realColumns;
  found.hasRest = needsRest;
  for (std::int32_t column = 0; column <= found.realColumns; ++column)
    declared.limits[column] = TighterLimit(declared.limits[column], found.description.limits[column]);
  found.description.limits = std::move(declared.limits);
  found.mayBeNull.resize(found.realColumns);
  return {};
}

bool MariaCatalogue::Find(std::string_view folded, Found& found) {
  std::string spelling;
  std::string type;
  std::string dictionary;
  found.description.name = folded;
  if (!FindSpelling(folded, spelling, type, found.number)) {
    found.description.layout = Layout::kBuiltIn;
    return IsDictionaryOfDictionary(folded, dictionary) &&
           FindSpelling(dictionary, spelling, type, found.number);
  }
  found.sqlName = QuoteSqlName(spelling);
  if (type != "table") {
    found.fault = fmt::format("{} is a {}, not a table", folded, type);
    return true;
  }
  found.isTable = true;
  found.description.name = spelling;
  std::string lack = ReadColumns(spelling, found);
  const bool isChanged = found.number != 0;
  if (lack.empty() && found.number != 0) lack = TakeDeclared(spelling, found);
  if (found.number == 0) found.hasRest = false;
  if (lack.empty()) return true;
  found.fault = UnusableAsFile(spelling, lack);
  if (isChanged) {
    found.fault += fmt::format(
        "; somebody changed the table by hand: change it back, or remove it with DROP "
        "TABLE {}",
        found.sqlName);
  }
  return true;
}

// ---- Making and dropping

// Runs a statement of ours outside any transaction: it is on disk afterwards.
bool MariaCatalogue::RunOwn(const std::string& sql, std::string& error) {
  try {
    connection_.Execute(sql, IfLost::kFail);
    return true;
  } catch (const MariaFailure& failure) {
    if (failure.IsLost()) throw StoreFailure(fmt::format("{}; {}", failure.what(), kUnknownChange));
    if (!failure.IsRefusal()) throw;
    error = failure.Reason();
    return false;
  }
}

bool MariaCatalogue::Make(const NewTable& table, std::string& error) {
  if (table.name.size() > kLongestName) {
    error = fmt::format("table {} would have a name of {} characters; {} is the most on this store",
                        table.name, table.name.size(), kLongestName);
    return false;
  }
  constexpr std::string_view kBlanks = " \t\n\v\f\r";  // to the server
  if (kBlanks.find(table.name.back()) != std::string_view::npos) {
    error = fmt::format("the name of table '{}' ends in a blank, which this store doesn't take", table.name);
    return false;
  }
  if (IsReservedName(FoldTableName(table.name))) {
    error = fmt::format("table {} can't be made: names that begin with {} are this store's own", table.name,
                        kReserved);
    return false;
  }
  std::string spelling;
  std::string type;
  std::int64_t number = 0;
  if (FindSpelling(FoldTableName(table.name), spelling, type, number)) {
    error = fmt::format("{} is there already, as a {}", table.name, type);
    return false;
  }
  const auto attributes = static_cast<std::int32_t>(table.columns.size()) - 1;
  if (attributes > kMostColumns) {
    error = fmt::format("table {} would have columns for {} attributes; {} is the most", table.name,
                        attributes, kMostColumns);
    return false;
  }
  const std::int64_t keyLimit = KeyLimit(table.columns[0].limit);
  const bool isItem = table.layout == Layout::kItem;
  const std::int32_t real = isItem ? 1 : RealColumns(attributes, keyLimit);
  const std::string declaration = WriteDeclaration(table, real);
  const std::string_view parameters[] = {declaration};
  // The declaration first: one that is left behind without its table says nothing of another.
  const MariaRows made = connection_.Query(
      "INSERT INTO nvadmin_files (declaration) VALUES (?) RETURNING number", parameters, IfLost::kFail);
  std::string sql =
      fmt::format("CREATE TABLE {} (A0 VARCHAR({}) NOT NULL PRIMARY KEY", QuoteSqlName(table.name), keyLimit);
  for (std::int32_t column = 1; column <= real; ++column) {
    const bool notNull = table.columns[column].notNull;
    sql += fmt::format(", {} LONGTEXT{} DEFAULT ''", isItem ? "ITEM" : fmt::format("A{}", column),
                       notNull ? " NOT NULL" : "");
  }
  if (real < attributes) sql += fmt::format(", {} LONGTEXT NOT NULL DEFAULT ''", QuoteSqlName(kRestColumn));
  sql += fmt::format(") {} COMMENT '{}{}'", kTableOptions, kComment, made.Text(0, 0));
  if (!RunOwn(sql, error)) return false;
  RaiseVersion();
  return true;
}

bool MariaCatalogue::Drop(const Found& found, std::string& error) {
  if (!RunOwn("DROP TABLE " + found.sqlName, error)) return false;
  RaiseVersion();
  if (found.number == 0) return true;
  // A copy that somebody made of it by SQL is declared by the same row.
  connection_.Execute(
      fmt::format("DELETE FROM nvadmin_files WHERE number = {0} AND NOT EXISTS (SELECT 1 FROM "
                  "information_schema.TABLES WHERE TABLE_SCHEMA = DATABASE() AND TABLE_COMMENT = '{1}{0}')",
                  found.number, kComment),
      IfLost::kFail);
  return true;
}

bool MariaCatalogue::Clear(const Found& found, std::string& error) {
  return RunOwn("TRUNCATE TABLE " + found.sqlName, error);
}

}  // namespace nvadmin::engine
