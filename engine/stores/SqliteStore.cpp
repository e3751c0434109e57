#include "engine/stores/SqliteStore.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <utility>

#include "engine/CodePage.h"
#include "engine/stores/Declaration.h"
#include "engine/stores/StoredText.h"
#include "engine/stores/TableNames.h"

namespace nvadmin::engine {

namespace {

constexpr std::int64_t kApplicationId = 0x4E764164;  // "NvAd", in the file's head
constexpr std::int32_t kMostColumns = 1999;          // SQLite's limit of 2000, without A0
constexpr std::size_t kLongestItem = 300'000'000;    // in UTF-8 still below SQLite's limit of a row

// The datastore words whose dialect has SELECT TOP n.
constexpr std::string_view kTopDialects[] = {"JET", "MSSQL"};

// The n of "VARCHAR(n)" and its like; 0, which is no limit, for every other type.
std::int64_t LimitOfType(std::string_view type) {
  const std::size_t parenthesis = type.find('(');
  if (parenthesis == std::string_view::npos || FoldTableName(type).find("char") == std::string::npos)
    return 0;
  std::int64_t limit = 0;
  std::string_view digits = type.substr(parenthesis + 1);
  digits.remove_prefix(std::min(digits.find_first_not_of(' '), digits.size()));
  const auto [end, fault] = std::from_chars(digits.data(), digits.data() + digits.size(), limit);
  return fault == std::errc() ? std::max<std::int64_t>(limit, 0) : 0;
}

}  // namespace

SqliteStore::SqliteStore(const std::filesystem::path& file, std::string_view account,
                         std::string_view datastore)
    : ItemTables(file, account,
                 {.noun = "an account", .applicationId = kApplicationId, .longestItem = kLongestItem}),
      hasTop_(std::find(std::begin(kTopDialects), std::end(kTopDialects), datastore) !=
              std::end(kTopDialects)) {
  Connection().Execute("PRAGMA case_sensitive_like=ON");
  sqlite3_create_collation(Connection().Handle(), "CODEPAGE", SQLITE_UTF8, nullptr, CompareInCodePage);
  sqlite3_set_authorizer(Connection().Handle(), Authorize, this);
  findTable_ = Statement(
      Connection(),
      "SELECT name, type FROM sqlite_schema WHERE name = ?1 COLLATE NOCASE AND type IN ('table', 'view')");
  listColumns_ = Statement(Connection(), "SELECT name, type, pk, hidden FROM pragma_table_xinfo(?1)");
  listTables_ =
      Statement(Connection(),
                "SELECT name FROM sqlite_schema WHERE type = 'table' AND substr(name, 1, 7) <> 'sqlite_'");
}

// ---- Tables and their descriptions

std::vector<ItemTables::TableKey> SqliteStore::KeysOf(std::string_view name) {
  const std::string mapped = MapTableName(name);
  const std::string asTyped = FoldTableName(name);
  std::vector<TableKey> keys = {{mapped, mapped}};
  if (asTyped != mapped) keys.push_back({asTyped, asTyped});
  return keys;
}

bool SqliteStore::FindSpelling(std::string_view folded, std::string& spelling, std::string& type) {
  const std::string utf8 = ToUtf8(folded);
  const ResetAtEnd reset(findTable_);
  findTable_.BindText(1, utf8);
  if (!findTable_.Step()) return false;
  spelling = findTable_.Text(0);
  type = findTable_.Text(1);
  return true;
}

bool SqliteStore::FindTable(const std::string& key, FoundTable& found) {
  std::string spelling;
  std::string type;
  std::string dictionary;
  found.description.name = key;
  if (!FindSpelling(key, spelling, type)) {
    found.description.layout = Layout::kBuiltIn;
    return IsDictionaryOfDictionary(key, dictionary) && FindSpelling(dictionary, spelling, type);
  }
  if (type == "table") {
    DescribeColumns(spelling, found);
  } else {
    found.fault = fmt::format("{} is a {}, not a table", key, type);
  }
  return true;
}

void SqliteStore::DescribeColumns(std::string_view spelling, FoundTable& found) {
  TableDescription& table = found.description;
  table.name.clear();
  AppendFromStoredUtf8(table.name, spelling);
  Declaration declaration(kMostColumns);
  const ResetAtEnd reset(listColumns_);
  listColumns_.BindText(1, spelling);
  while (listColumns_.Step()) {
    declaration.Take(FoldTableName(listColumns_.Text(0)), LimitOfType(listColumns_.Text(1)),
                     listColumns_.Integer(2) != 0, listColumns_.Integer(3) != 0);
  }
  const std::string lack = declaration.FindLack();
  if (!lack.empty()) {
    found.fault = UnusableAsFile(table.name, lack);
    return;
  }
  declaration.Describe(table);
  found.sqlName = "main." + QuoteSqlName(spelling);
}

std::vector<std::string> SqliteStore::TableNames(bool withDictionaries) {
  std::vector<std::string> names;
  while (listTables_.Step()) {
    std::string name;
    AppendFromStoredUtf8(name, listTables_.Text(0));
    if (withDictionaries || !IsDictionaryName(FoldTableName(name))) names.push_back(std::move(name));
  }
  SchemaChanged();
  std::sort(names.begin(), names.end());
  return names;
}

// ---- Files

// Runs a statement of ours outside any transaction: it is on disk afterwards.
bool SqliteStore::RunOwnStatement(const std::string& sql, std::string& error) {
  refusal_.clear();
  const int code = sqlite3_exec(Connection().Handle(), sql.c_str(), nullptr, nullptr, nullptr);
  if (code != SQLITE_OK && IsStoreTrouble(code) && refusal_.empty()) {
    ForgetTables();  // SQLite may have met a new schema before it failed
    Connection().Fail(code);
  }
  if (code != SQLITE_OK)
    error = refusal_.empty() ? ForeignText(sqlite3_errmsg(Connection().Handle())) : refusal_;
  SchemaChanged();
  return code == SQLITE_OK;
}

// The table of a name in either spelling, as the store spells it in UTF-8.
bool SqliteStore::FindExisting(std::string_view name, std::string& spelling, std::string& error) {
  const std::string mapped = MapTableName(name);
  std::string type;
  const bool isThere =
      FindSpelling(mapped, spelling, type) || FindSpelling(FoldTableName(name), spelling, type);
  if (isThere && type == "table") return true;
  std::string dictionary;
  if (isThere) {
    error = fmt::format("{} is a {}, not a table", mapped, type);
  } else if (IsDictionaryOfDictionary(mapped, dictionary)) {
    error = BuiltInRefusal(mapped);
  } else {
    error = NoSuchTable(mapped);
  }
  return false;
}

// The declaration is our own throughout: of what a sentence says only the name, the limits and NOT NULL go
// into it.
bool SqliteStore::MakeTable(const NewTable& table, std::string& error) {
  std::string spelling;
  std::string type;
  if (!IsFileName(table.name, error)) return false;
  if (FindSpelling(FoldTableName(table.name), spelling, type)) {
    error = fmt::format("{} is there already, as a {}", table.name, type);
    return false;
  }
  const std::size_t attributes = table.columns.size() - 1;
  if (attributes > static_cast<std::size_t>(kMostColumns)) {
    error = fmt::format("table {} would have columns for {} attributes; {} is the most", table.name,
                        attributes, kMostColumns);
    return false;
  }
  std::string sql = fmt::format("CREATE TABLE {} (", "main." + QuoteSqlName(ToUtf8(table.name)));
  for (std::size_t column = 0; column < table.columns.size(); ++column) {
    const NewColumn& made = table.columns[column];
    const std::string columnType = made.limit > 0 ? fmt::format("VARCHAR({})", made.limit) : "TEXT";
    const char* clause = column == 0    ? " NOT NULL PRIMARY KEY"
                         : made.notNull ? " NOT NULL DEFAULT ''"
                                        : " DEFAULT ''";
    const bool isItem = column > 0 && table.layout == Layout::kItem;
    const std::string name = isItem ? "ITEM" : fmt::format("A{}", column);
    sql += fmt::format("{}{} {}{}", column == 0 ? "" : ", ", name, columnType, clause);
  }
  sql += table.layout == Layout::kColumns ? ") WITHOUT ROWID" : ")";
  return RunOwnStatement(sql, error);
}

bool SqliteStore::CreateTable(std::string_view name, std::int32_t columns, std::string& error) {
  Commit();
  NewTable table;
  table.name = MapTableName(name);
  table.layout = columns > 0 ? Layout::kColumns : Layout::kItem;
  table.columns.resize(static_cast<std::size_t>(std::max(columns, 1)) + 1);
  std::string dictionary;
  if (IsDictionaryOfDictionary(table.name, dictionary)) {
    error = BuiltInRefusal(table.name);
    return false;
  }
  return MakeTable(table, error);
}

bool SqliteStore::DropTable(std::string_view name, std::string& error) {
  Commit();
  std::string spelling;
  return FindExisting(name, spelling, error) &&
         RunOwnStatement("DROP TABLE main." + QuoteSqlName(spelling), error);
}

bool SqliteStore::ClearTable(std::string_view name, std::string& error) {
  Commit();
  std::string spelling;
  return FindExisting(name, spelling, error) &&
         RunOwnStatement("DELETE FROM main." + QuoteSqlName(spelling), error);
}

}  // namespace nvadmin::engine
