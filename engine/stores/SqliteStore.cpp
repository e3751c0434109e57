#include "engine/stores/SqliteStore.h"

#include <fmt/format.h>

#include <algorithm>
#include <cassert>
#include <charconv>
#include <chrono>
#include <utility>

#include "engine/CodePage.h"
#include "engine/Marks.h"
#include "engine/stores/BuiltInDictionary.h"
#include "engine/stores/FitItem.h"
#include "engine/stores/StoredText.h"
#include "engine/stores/TableNames.h"

namespace nvadmin::engine {

namespace {

constexpr std::chrono::seconds kPatience{10};
constexpr std::int64_t kApplicationId = 0x4E764164;  // "NvAd", in the file's head
constexpr std::int64_t kFormat = 1;
constexpr std::int32_t kMostColumns = 1999;        // SQLite's limit of 2000, without A0
constexpr std::size_t kLongestItem = 300'000'000;  // in UTF-8 still below SQLite's limit of a row
constexpr std::size_t kItemSlot = 0;
constexpr std::string_view kItemColumn = "item";
constexpr std::string_view kLostWrites = "the writes since the last commit are lost";

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

// The number of a column "a12", 0 for another name.
std::int32_t AttributeOfColumn(std::string_view folded) {
  if (folded.size() < 2 || folded[0] != 'a' || folded[1] == '0') return 0;
  std::int32_t number = 0;
  const auto [end, fault] = std::from_chars(folded.data() + 1, folded.data() + folded.size(), number);
  return fault == std::errc() && end == folded.data() + folded.size() ? number : 0;
}

std::string ColumnName(const TableDescription& table, std::size_t column) {
  return column > 0 && table.layout == Layout::kItem ? "ITEM" : fmt::format("A{}", column);
}

// What a table's declaration says of the columns of a file.
struct Declaration {
  std::vector<std::int64_t> limits;  // of A0, A1 ... An; -1 where there is no such column
  std::int64_t itemLimit = -1;
  std::int32_t keyColumns = 0;
  bool hasKey = false;   // A0 is one of them
  std::string computed;  // a column of the file that can't be written

  void Take(const std::string& folded, std::int64_t limit, bool isInKey, bool isComputed) {
    const bool isKey = folded == "a0";
    const std::int32_t attribute = AttributeOfColumn(folded);
    keyColumns += isInKey ? 1 : 0;
    hasKey = hasKey || (isKey && isInKey);
    if (folded == kItemColumn) {
      itemLimit = limit;
    } else if (isKey || (attribute > 0 && attribute <= kMostColumns)) {
      const auto column = static_cast<std::size_t>(attribute);
      limits.resize(std::max(limits.size(), column + 1), -1);
      limits[column] = limit;
    } else {
      return;
    }
    if (isComputed) computed = folded;
  }

  // Why the table is no file; empty when it is one.
  std::string FindLack() const {
    const auto gap = std::find(limits.begin(), limits.end(), -1);
    if (!hasKey || keyColumns != 1) return "its primary key must be A0 alone";
    if (gap != limits.end()) return fmt::format("it lacks column A{}", gap - limits.begin());
    if (itemLimit >= 0 && limits.size() > 1) return "it has both ITEM and A1";
    if (itemLimit < 0 && limits.size() < 2) return "it has neither ITEM nor A1";
    return computed.empty() ? "" : fmt::format("its column {} is computed", computed);
  }
};

std::string BuiltInRefusal(std::string_view name) {
  return fmt::format("{} is built in and can't be changed", name);
}

// The name as SQL text in UTF-8.
std::string SqlName(std::string_view name) { return "main." + QuoteSqlName(ToUtf8(name)); }

}  // namespace

// ---- What is kept of tables and scans

struct SqliteStore::ScanPlan {
  Projection projection;
  Statement statement;                // A0 first, then the columns
  bool isCut = false;                 // attributes are cut from ITEM
  bool isJoined = false;              // the item is joined from A1 and up
  std::vector<std::int32_t> columns;  // of the statement, for each value; -1: always empty
  std::vector<AttributeCut> cuts;     // ascending
};

struct SqliteStore::OpenedTable {
  enum class State { kStale, kCurrent, kUnusable };

  std::string folded;
  State state = State::kStale;
  std::string fault;  // why it is unusable
  TableDescription description;
  // Reads of one row: the whole item, then column n in slot n, and in the last slot just whether there is
  // such an item.
  std::vector<Statement> rows;
  std::vector<ScanPlan> plans;
  Statement write;
  int boundColumns = 0;  // of `write` that may hold something: A0 and this many
  Statement erase;

  std::size_t ExistenceSlot() const { return rows.size() - 1; }
  std::int32_t ColumnCount() const { return static_cast<std::int32_t>(description.limits.size()) - 1; }
  bool IsUsable() const { return state == State::kCurrent; }
  bool IsBuiltIn() const { return IsUsable() && description.layout == Layout::kBuiltIn; }
  void Forget() {
    state = State::kStale;
    rows.clear();
    plans.clear();
    write = Statement();
    erase = Statement();
    boundColumns = 0;
  }
};

// Holds one state of the database for several reads, unless a transaction holds it already.
class SqliteStore::ReadTransaction {
 public:
  explicit ReadTransaction(SqliteStore& store) : store_(store), isOurs_(!store.database_.InTransaction()) {
    if (isOurs_) store_.beginRead_.Run();
  }
  ~ReadTransaction() {
    if (!isOurs_) return;
    sqlite3_step(store_.endRead_.Handle());
    store_.endRead_.Reset();
    store_.database_.Rollback();
  }
  ReadTransaction(const ReadTransaction&) = delete;
  ReadTransaction& operator=(const ReadTransaction&) = delete;

 private:
  SqliteStore& store_;
  bool isOurs_;
};

// ---- Opening the file

SqliteStore::SqliteStore(const std::filesystem::path& file, std::string_view account,
                         std::string_view datastore)
    : account_(account),
      hasTop_(std::find(std::begin(kTopDialects), std::end(kTopDialects), datastore) !=
              std::end(kTopDialects)),
      database_(file, OpenMode::kMake, kPatience) {
  ClaimFile(file);
  database_.Execute(
      "PRAGMA synchronous=FULL; PRAGMA secure_delete=FAST; PRAGMA case_sensitive_like=ON;"
      "PRAGMA cache_size=-16384; PRAGMA journal_size_limit=67108864");
  sqlite3_limit(database_.Handle(), SQLITE_LIMIT_ATTACHED, 0);
  sqlite3_create_collation(database_.Handle(), "CODEPAGE", SQLITE_UTF8, nullptr, CompareInCodePage);
  sqlite3_set_authorizer(database_.Handle(), Authorize, this);

  schemaVersion_ = Statement(database_, "PRAGMA schema_version");
  beginRead_ = Statement(database_, "BEGIN");
  endRead_ = Statement(database_, "COMMIT");
  findTable_ = Statement(
      database_,
      "SELECT name, type FROM sqlite_schema WHERE name = ?1 COLLATE NOCASE AND type IN ('table', 'view')");
  listColumns_ = Statement(database_, "SELECT name, type, pk, hidden FROM pragma_table_xinfo(?1)");
  listTables_ = Statement(
      database_, "SELECT name FROM sqlite_schema WHERE type = 'table' AND substr(name, 1, 7) <> 'sqlite_'");
  SchemaChanged();
}

SqliteStore::~SqliteStore() = default;

// Marks a new file as an account's, and refuses one that is something else before anything in it changes.
void SqliteStore::ClaimFile(const std::filesystem::path& file) {
  Statement head(database_,
                 "SELECT (SELECT application_id FROM pragma_application_id), (SELECT user_version FROM "
                 "pragma_user_version), (SELECT count(*) FROM sqlite_schema)");
  const auto isOurs = [&] {
    head.Step();
    const ResetAtEnd reset(head);
    const std::int64_t application = head.Integer(0);
    const std::int64_t format = head.Integer(1);
    if (application != kApplicationId && (application != 0 || format != 0 || head.Integer(2) != 0)) {
      throw StoreFailure(
          fmt::format("{} is a database, but not of an account; move it away, and account {} starts anew",
                      ForeignText(file.string()), account_));
    }
    if (format > kFormat) {
      throw StoreFailure(
          fmt::format("{} is of format {}, made by a newer version of this program; use that one",
                      ForeignText(file.string()), format));
    }
    return application == kApplicationId;
  };
  const bool wasOurs = isOurs();
  Statement journal(database_, "PRAGMA journal_mode=WAL");
  journal.Step();
  const std::string mode(journal.Text(0));
  journal.Reset();
  if (mode != "wal") {
    throw StoreFailure(fmt::format("{} can't keep a write-ahead log here; put the home on a local disk",
                                   ForeignText(file.string())));
  }
  if (wasOurs) return;
  WriteTransaction transaction(database_);
  if (!isOurs()) {
    database_.Execute(
        fmt::format("PRAGMA application_id={}; PRAGMA user_version={}", kApplicationId, kFormat).c_str());
  }
  transaction.Commit();
}

// ---- Tables and their descriptions

// True when the schema isn't the one that descriptions and statements belong to; they are then forgotten.
bool SqliteStore::SchemaChanged() {
  schemaVersion_.Step();
  const std::int64_t version = schemaVersion_.Integer(0);
  schemaVersion_.Reset();
  if (version == knownSchema_) return false;
  knownSchema_ = version;
  ForgetTables();
  return true;
}

void SqliteStore::ForgetTables() {
  ++generation_;
  for (const std::unique_ptr<OpenedTable>& opened : tables_) opened->Forget();
}

SqliteStore::OpenedTable& SqliteStore::Use(TableHandle table) {
  assert(table >= 0 && static_cast<std::size_t>(table) < tables_.size());
  OpenedTable& opened = *tables_[static_cast<std::size_t>(table)];
  if (opened.state == OpenedTable::State::kStale) Refresh(opened);
  return opened;
}

bool SqliteStore::FindTable(std::string_view folded, std::string& spelling, std::string& type) {
  const std::string utf8 = ToUtf8(folded);
  const ResetAtEnd reset(findTable_);
  findTable_.BindText(1, utf8);
  if (!findTable_.Step()) return false;
  spelling = findTable_.Text(0);
  type = findTable_.Text(1);
  return true;
}

// Reads the declaration of a table anew. Reading sqlite_schema first makes SQLite look at the file's schema,
// not at the one that this connection has seen before.
void SqliteStore::Refresh(OpenedTable& opened) {
  const ReadTransaction transaction(*this);
  std::string spelling;
  std::string type;
  std::string dictionary;
  const bool exists = FindTable(opened.folded, spelling, type);
  SchemaChanged();
  opened.description = TableDescription{};
  opened.description.name = opened.folded;
  if (exists && type == "table") {
    DescribeColumns(opened, spelling);
  } else if (exists) {
    opened.fault = fmt::format("{} is a {}, not a table", opened.folded, type);
  } else if (IsDictionaryOfDictionary(opened.folded, dictionary) && FindTable(dictionary, spelling, type)) {
    opened.description.layout = Layout::kBuiltIn;
    opened.state = OpenedTable::State::kCurrent;
  } else {
    opened.fault = fmt::format("there is no table {} in account {}", opened.folded, account_);
  }
  if (opened.state == OpenedTable::State::kStale) opened.state = OpenedTable::State::kUnusable;
}

void SqliteStore::DescribeColumns(OpenedTable& opened, std::string_view spelling) {
  TableDescription& table = opened.description;
  table.name.clear();
  AppendFromStoredUtf8(table.name, spelling);
  Declaration declaration;
  const ResetAtEnd reset(listColumns_);
  listColumns_.BindText(1, spelling);
  while (listColumns_.Step()) {
    declaration.Take(FoldTableName(listColumns_.Text(0)), LimitOfType(listColumns_.Text(1)),
                     listColumns_.Integer(2) != 0, listColumns_.Integer(3) != 0);
  }
  const std::string lack = declaration.FindLack();
  if (!lack.empty()) {
    opened.fault = fmt::format(
        "table {} can't be used as a file: {}; a file has the columns A0 (primary key) and A1, A2 ..., or A0 "
        "and ITEM",
        table.name, lack);
    return;
  }
  const bool isItem = declaration.itemLimit >= 0;
  table.layout = isItem ? Layout::kItem : Layout::kColumns;
  table.limits = std::move(declaration.limits);
  if (isItem) table.limits.push_back(declaration.itemLimit);
  opened.rows.resize(table.limits.size() + 1);
  opened.fault.clear();
  opened.state = OpenedTable::State::kCurrent;
}

// A table that was never there leaves no handle.
bool SqliteStore::OpenCandidate(const std::string& folded, TableHandle& table, std::string& error) {
  const auto known = handles_.find(folded);
  if (known != handles_.end()) {
    const OpenedTable& opened = Use(known->second);
    if (!opened.IsUsable()) {
      error = opened.fault;
      return false;
    }
    table = known->second;
    return true;
  }
  auto opened = std::make_unique<OpenedTable>();
  opened->folded = folded;
  Refresh(*opened);
  if (!opened->IsUsable()) {
    error = opened->fault;
    return false;
  }
  table = static_cast<TableHandle>(tables_.size());
  tables_.push_back(std::move(opened));
  handles_.emplace(folded, table);
  return true;
}

bool SqliteStore::OpenTable(std::string_view name, TableHandle& table, std::string& error) {
  SchemaChanged();
  const std::string mapped = MapTableName(name);
  const std::string asTyped = FoldTableName(name);
  if (OpenCandidate(mapped, table, error)) return true;
  std::string typedError;  // the table that the mapped name stands for is the one to speak of
  return asTyped != mapped && OpenCandidate(asTyped, table, typedError);
}

const TableDescription& SqliteStore::Describe(TableHandle table) {
  if (!database_.InTransaction()) SchemaChanged();
  return Use(table).description;
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

// ---- Reads

// The first step of a read.
SqliteStore::Row SqliteStore::StepToRow(Statement& statement) {
  const int code = sqlite3_step(statement.Handle());
  if (code != SQLITE_ROW && code != SQLITE_DONE) {
    StoreFailure failure(SqliteFailureText(database_.Handle(), code));
    statement.Reset();
    if (!IsStoreTrouble(code) && SchemaChanged()) return Row::kOutdated;
    throw failure;
  }
  const bool wasPreparedAnew =
      sqlite3_stmt_status(statement.Handle(), SQLITE_STMTSTATUS_REPREPARE, /*reset=*/1) > 0;
  if (wasPreparedAnew && SchemaChanged()) return Row::kOutdated;
  if (code == SQLITE_ROW) return Row::kFound;
  statement.Reset();
  return Row::kNone;
}

// False when the schema changed since the table was described; everything is then forgotten.
bool SqliteStore::PrepareRead(Statement& statement, const std::string& sql) {
  try {
    statement = Statement(database_, sql);
    return true;
  } catch (const StoreFailure&) {
    if (!SchemaChanged()) throw;
    return false;
  }
}

// Steps the statement of a slot to the row of an item; the caller resets it then.
SqliteStore::Row SqliteStore::FindRow(OpenedTable& opened, std::size_t slot, std::string_view id) {
  Statement& statement = opened.rows[slot];
  if (!statement) {
    const TableDescription& description = opened.description;
    std::string columns =
        slot == opened.ExistenceSlot() ? "1" : ColumnName(description, std::max<std::size_t>(slot, 1));
    for (std::size_t column = 2; slot == kItemSlot && column < description.limits.size(); ++column) {
      columns += ',' + ColumnName(description, column);
    }
    const std::string sql =
        fmt::format("SELECT {} FROM {} WHERE A0 = ?1", columns, SqlName(description.name));
    if (!PrepareRead(statement, sql)) return Row::kOutdated;
  }
  statement.BindText(1, AsUtf8(id, keyText_));
  return StepToRow(statement);
}

// `id` may lie in `item`, so that is left alone until the row is found.
bool SqliteStore::Read(TableHandle table, std::string_view id, std::string& item) {
  for (;;) {
    OpenedTable& opened = Use(table);
    if (opened.IsBuiltIn()) return ReadBuiltIn(id, item);
    const Row row = opened.IsUsable() ? FindRow(opened, kItemSlot, id) : Row::kNone;
    if (row == Row::kOutdated) continue;
    item.clear();
    if (row == Row::kNone) return false;
    Statement& statement = opened.rows[kItemSlot];
    const ResetAtEnd reset(statement);
    if (opened.description.layout == Layout::kItem) {
      AppendStored(item, StoredColumn(statement.Handle(), 0));
    } else {
      JoinStored(item, statement.Handle(), 0);
    }
    return true;
  }
}

bool SqliteStore::ReadAttribute(TableHandle table, std::string_view id, std::int32_t attribute,
                                std::string& value) {
  for (;;) {
    OpenedTable& opened = Use(table);
    if (opened.IsBuiltIn()) return ReadBuiltInAttribute(id, attribute, value);
    const bool isItem = opened.description.layout == Layout::kItem;
    const bool isThere = attribute >= 1 && (isItem || attribute <= opened.ColumnCount());
    const auto column = static_cast<std::size_t>(isItem ? 1 : attribute);
    const std::size_t slot = isThere ? column : opened.ExistenceSlot();
    const Row row = opened.IsUsable() ? FindRow(opened, slot, id) : Row::kNone;
    if (row == Row::kOutdated) continue;
    value.clear();
    if (row == Row::kNone) return false;
    Statement& statement = opened.rows[slot];
    const ResetAtEnd reset(statement);
    StoredValue stored;
    if (isThere) stored = StoredColumn(statement.Handle(), 0);
    if (isThere && isItem) {
      const AttributeCut cut{attribute, 0};
      const StoredValue whole = std::exchange(stored, {});
      CutStored(whole, {&cut, 1}, {&stored, 1});
    }
    AppendStored(value, stored);
    return true;
  }
}

void SqliteStore::ReadBatch(TableHandle table, std::span<const std::string_view> ids,
                            std::vector<BatchItem>& items) {
  const ReadTransaction transaction(*this);
  items.resize(ids.size());
  for (std::size_t at = 0; at < ids.size(); ++at) items[at].found = Read(table, ids[at], items[at].item);
}

// ---- Scans

// Makes the values of the row at which a scan's statement stands. They are valid until the next row.
class SqliteStore::ScanRow {
 public:
  explicit ScanRow(const ScanPlan& plan) : plan_(plan), row_(plan.statement.Handle()) {
    stored_.resize(plan.projection.wholeItem ? 1 : plan.projection.attributes.size());
    values_.resize(stored_.size());
  }

  StoredValue Key() const { return StoredColumn(row_, 0); }
  std::string_view Id() const { return id_; }
  std::span<const std::string_view> Values() const { return values_; }

  void Load() {
    memory_.clear();
    TakeStored();
    const StoredValue key = Key();
    std::size_t size = key.bytes.size();
    for (const StoredValue& value : stored_) size += value.bytes.size();
    if (memory_.capacity() < size) memory_.reserve(size);  // so that what lies in it stays in place
    id_ = InCodePage(key);
    for (std::size_t at = 0; at < stored_.size(); ++at) values_[at] = InCodePage(stored_[at]);
  }

 private:
  void TakeStored() {
    if (plan_.isJoined) {
      JoinStored(joined_, row_, 1);
      stored_[0] = {joined_, /*isBlob=*/true};
      return;
    }
    if (plan_.isCut) {
      std::fill(stored_.begin(), stored_.end(), StoredValue{});
      CutStored(StoredColumn(row_, 1), plan_.cuts, stored_);
      return;
    }
    for (std::size_t at = 0; at < plan_.columns.size(); ++at) {
      if (plan_.columns[at] >= 0) stored_[at] = StoredColumn(row_, plan_.columns[at]);
    }
  }

  std::string_view InCodePage(const StoredValue& value) {
    if (value.isBlob || IsAscii(value.bytes)) return value.bytes;
    const std::size_t start = memory_.size();
    AppendFromStoredUtf8(memory_, value.bytes);
    return std::string_view(memory_).substr(start);
  }

  const ScanPlan& plan_;
  sqlite3_stmt* row_;
  std::vector<StoredValue> stored_;
  std::vector<std::string_view> values_;
  std::string_view id_;
  std::string memory_;
  std::string joined_;
};

SqliteStore::ScanPlan SqliteStore::TakePlan(OpenedTable& opened, const Projection& projection) {
  const auto kept = std::find_if(opened.plans.begin(), opened.plans.end(), [&](const ScanPlan& plan) {
    return plan.projection.wholeItem == projection.wholeItem &&
           plan.projection.attributes == projection.attributes;
  });
  if (kept != opened.plans.end()) {
    ScanPlan plan = std::move(*kept);
    opened.plans.erase(kept);
    return plan;
  }
  const TableDescription& description = opened.description;
  ScanPlan plan;
  plan.projection = projection;
  std::string columns = "A0";
  std::int32_t count = 0;
  const auto addColumn = [&](std::int32_t column) {
    columns += ',' + ColumnName(description, static_cast<std::size_t>(column));
    return ++count;
  };
  if (description.layout == Layout::kItem) {
    plan.isCut = !projection.wholeItem && !projection.attributes.empty();
    if (plan.isCut || projection.wholeItem) plan.columns.push_back(addColumn(1));
    for (std::size_t at = 0; at < projection.attributes.size(); ++at) {
      if (projection.attributes[at] >= 1) plan.cuts.push_back({projection.attributes[at], at});
    }
    std::sort(plan.cuts.begin(), plan.cuts.end(), [](const AttributeCut& left, const AttributeCut& right) {
      return left.attribute < right.attribute;
    });
  } else if (projection.wholeItem) {
    plan.isJoined = true;
    for (std::int32_t column = 1; column <= opened.ColumnCount(); ++column) addColumn(column);
  } else {
    for (const std::int32_t attribute : projection.attributes) {
      const bool isThere = attribute >= 1 && attribute <= opened.ColumnCount();
      plan.columns.push_back(isThere ? addColumn(attribute) : -1);
    }
  }
  PrepareRead(plan.statement,
              fmt::format("SELECT {} FROM {} ORDER BY A0", columns, SqlName(description.name)));
  return plan;
}

// False when the schema changed before the first row: nothing was visited then.
//
// SQLite gives the keys in the order of their UTF-8. That is the order of the code page's bytes but for the
// bytes 128 to 159, whose characters lie all over Unicode. So keys that agree up to their first character
// beyond ASCII, which stand behind one another in both orders, are held back and put in order among
// themselves.
bool SqliteStore::RunScan(ScanPlan& plan, const ScanVisitor& visitor) {
  struct HeldRow {
    std::string id;
    std::vector<std::string> values;
  };
  const ResetAtEnd reset(plan.statement);
  const Row first = StepToRow(plan.statement);
  if (first == Row::kOutdated) return false;
  ScanRow row(plan);
  bool isRow = first == Row::kFound;
  std::uint64_t changes = changes_;
  // An item that the visitor wrote may come once more: SQLite finds its place again by the key and what
  // follows it.
  const auto advance = [&] {
    const bool isChanged = changes_ != changes;
    const std::string last(isChanged ? row.Key().bytes : std::string_view());
    do {
      isRow = plan.statement.Step();
    } while (isRow && isChanged && row.Key().bytes == last);
    changes = changes_;
  };
  while (isRow) {
    const std::string_view stored = row.Key().bytes;
    const std::size_t ascii = AsciiPrefix(stored);
    if (ascii == stored.size()) {
      row.Load();
      if (!visitor(row.Id(), row.Values())) return true;
      advance();
      continue;
    }
    const std::string prefix(stored.substr(0, ascii));
    std::vector<HeldRow> held;
    const auto belongs = [&](std::string_view key) {
      return key.size() > prefix.size() && key.starts_with(prefix) &&
             static_cast<unsigned char>(key[ascii]) >= 0x80;
    };
    do {
      row.Load();
      held.push_back({std::string(row.Id()), {row.Values().begin(), row.Values().end()}});
      advance();
    } while (isRow && belongs(row.Key().bytes));
    std::sort(held.begin(), held.end(),
              [](const HeldRow& left, const HeldRow& right) { return left.id < right.id; });
    for (const HeldRow& kept : held) {
      const std::vector<std::string_view> values(kept.values.begin(), kept.values.end());
      if (!visitor(kept.id, values)) return true;
    }
  }
  return true;
}

void SqliteStore::Scan(TableHandle table, const Projection& projection, const ScanVisitor& visitor) {
  constexpr std::size_t kMostPlans = 16;
  for (;;) {
    OpenedTable& opened = Use(table);
    if (!opened.IsUsable()) throw StoreFailure(opened.fault);
    if (opened.IsBuiltIn()) return ScanBuiltIn(projection, visitor);
    // The plan is taken out of the table, since the visitor may scan the same table or make it stale.
    ScanPlan plan = TakePlan(opened, projection);
    if (!plan.statement) continue;
    const std::uint64_t generation = generation_;
    if (!RunScan(plan, visitor)) continue;
    if (generation == generation_ && opened.plans.size() < kMostPlans)
      opened.plans.push_back(std::move(plan));
    return;
  }
}

// ---- Writes

// After a failed read or write of the file SQLite may have rolled back by itself: this tells of it, once.
void SqliteStore::CheckOpenWrites() {
  if (!writesAreOpen_ || database_.InTransaction()) return;
  writesAreOpen_ = false;
  throw StoreFailure(fmt::format("account {} met a failure of its file; {}", account_, kLostWrites));
}

void SqliteStore::BeginWrites() {
  CheckOpenWrites();
  if (writesAreOpen_) return;
  database_.Begin();
  writesAreOpen_ = true;
  SchemaChanged();
}

void SqliteStore::Commit() {
  CheckOpenWrites();
  if (!writesAreOpen_) return;
  writesAreOpen_ = false;
  try {
    database_.Commit();
  } catch (const StoreFailure& failure) {
    throw StoreFailure(fmt::format("{}; {}", failure.what(), kLostWrites));
  }
}

void SqliteStore::Rollback() {
  writesAreOpen_ = false;
  database_.Rollback();
}

std::string SqliteStore::WriteSql(const TableDescription& table) {
  std::string columns = "A0";
  std::string parameters = "?1";
  std::string changes;
  for (std::size_t column = 1; column < table.limits.size(); ++column) {
    const std::string name = ColumnName(table, column);
    columns += ',' + name;
    parameters += fmt::format(",?{}", column + 1);
    changes += fmt::format("{}{}=excluded.{}", changes.empty() ? "" : ",", name, name);
  }
  // An update in place: it leaves columns alone that are no attributes.
  return fmt::format("INSERT INTO {} ({}) VALUES ({}) ON CONFLICT (A0) DO UPDATE SET {}", SqlName(table.name),
                     columns, parameters, changes);
}

// A trigger of the user's may hold what can't be prepared; that is a no like one at the step.
bool SqliteStore::PrepareChange(Statement& statement, const std::string& sql, const OpenedTable& opened,
                                std::string_view id, std::string& error) {
  refusal_.clear();
  try {
    statement = Statement(database_, sql);
    return true;
  } catch (const StoreFailure&) {
    const int code = sqlite3_errcode(database_.Handle());
    if (refusal_.empty() && IsStoreTrouble(code)) throw;
    const std::string reason = refusal_.empty() ? ForeignText(sqlite3_errmsg(database_.Handle())) : refusal_;
    error = fmt::format("{}: {}", NameItem(opened.description.name, id), reason);
    return false;
  }
}

bool SqliteStore::Write(TableHandle table, std::string_view id, std::string_view item, std::string& error) {
  assert(writesAreOpen_);
  CheckOpenWrites();
  OpenedTable& opened = Use(table);
  if (!IsWritable(opened, error) || !FitItem(opened.description, id, item, columns_, error)) return false;
  if (item.size() > kLongestItem) {
    error = fmt::format("{}: the item has {} characters, {} is the most",
                        NameItem(opened.description.name, id), item.size(), kLongestItem);
    return false;
  }
  if (!opened.write) {
    if (!PrepareChange(opened.write, WriteSql(opened.description), opened, id, error)) return false;
    for (int column = 1; column <= opened.ColumnCount(); ++column) opened.write.BindText(column + 1, "");
    opened.boundColumns = 0;
  }
  if (!IsAscii(item)) ConvertColumns();
  opened.write.BindText(1, AsUtf8(id, keyText_));
  int parameter = 1;
  for (const std::string_view column : columns_) opened.write.BindText(++parameter, column);
  const int filled = parameter - 1;
  while (parameter <= opened.boundColumns) opened.write.BindText(++parameter, "");  // left from the last item
  opened.boundColumns = filled;
  return StepChange(opened.write, opened, id, error);
}

// The texts of the columns to be written, in UTF-8.
void SqliteStore::ConvertColumns() {
  columnText_.clear();
  columnEnds_.clear();
  for (const std::string_view column : columns_) {
    AppendUtf8(columnText_, column);
    columnEnds_.push_back(columnText_.size());
  }
  std::size_t start = 0;
  for (std::size_t column = 0; column < columns_.size(); ++column) {
    columns_[column] = std::string_view(columnText_).substr(start, columnEnds_[column] - start);
    start = columnEnds_[column];
  }
}

bool SqliteStore::Erase(TableHandle table, std::string_view id, std::string& error) {
  assert(writesAreOpen_);
  CheckOpenWrites();
  OpenedTable& opened = Use(table);
  if (!IsWritable(opened, error)) return false;
  const std::string sql =
      opened.erase ? "" : fmt::format("DELETE FROM {} WHERE A0 = ?1", SqlName(opened.description.name));
  if (!opened.erase && !PrepareChange(opened.erase, sql, opened, id, error)) return false;
  opened.erase.BindText(1, AsUtf8(id, keyText_));
  if (!StepChange(opened.erase, opened, id, error)) return false;
  if (database_.Changes() > 0) return true;
  error = fmt::format("{} doesn't exist", NameItem(opened.description.name, id));
  return false;
}

bool SqliteStore::IsWritable(const OpenedTable& opened, std::string& error) const {
  if (opened.IsBuiltIn()) error = BuiltInRefusal(opened.description.name);
  if (!opened.IsUsable()) error = opened.fault;
  return opened.IsUsable() && !opened.IsBuiltIn();
}

// Runs a change of one item. A constraint or trigger of the user's may refuse it, which is a no that leaves
// the other writes; what is wrong with the store takes them along.
bool SqliteStore::StepChange(Statement& statement, const OpenedTable& opened, std::string_view id,
                             std::string& error) {
  const int code = sqlite3_step(statement.Handle());
  ++changes_;
  if (code == SQLITE_DONE) {
    statement.Reset();
    return true;
  }
  std::string text;
  if (IsStoreTrouble(code)) {
    text = SqliteFailureText(database_.Handle(), code);
  } else {
    text = NameItem(opened.description.name, id) + ": " + ForeignText(sqlite3_errmsg(database_.Handle()));
  }
  statement.Reset();
  const bool isLost = !database_.InTransaction() || (IsStoreTrouble(code) && code != SQLITE_INTERRUPT);
  if (isLost) {
    Rollback();
    throw StoreFailure(fmt::format("{}; {}", text, kLostWrites));
  }
  if (IsStoreTrouble(code)) throw StoreFailure(text);
  error = std::move(text);
  return false;
}

void SqliteStore::Interrupt() noexcept { sqlite3_interrupt(database_.Handle()); }

// ---- Files

// Runs a statement of ours outside any transaction: it is on disk afterwards.
bool SqliteStore::RunOwnStatement(const std::string& sql, std::string& error) {
  refusal_.clear();
  const int code = sqlite3_exec(database_.Handle(), sql.c_str(), nullptr, nullptr, nullptr);
  if (code != SQLITE_OK && IsStoreTrouble(code) && refusal_.empty()) {
    ForgetTables();  // SQLite may have met a new schema before it failed
    database_.Fail(code);
  }
  if (code != SQLITE_OK)
    error = refusal_.empty() ? ForeignText(sqlite3_errmsg(database_.Handle())) : refusal_;
  SchemaChanged();
  return code == SQLITE_OK;
}

// The table of a name in either spelling, as the store spells it in UTF-8.
bool SqliteStore::FindExisting(std::string_view name, std::string& spelling, std::string& error) {
  const std::string mapped = MapTableName(name);
  std::string type;
  const bool isThere = FindTable(mapped, spelling, type) || FindTable(FoldTableName(name), spelling, type);
  if (isThere && type == "table") return true;
  std::string dictionary;
  if (isThere) {
    error = fmt::format("{} is a {}, not a table", mapped, type);
  } else if (IsDictionaryOfDictionary(mapped, dictionary)) {
    error = BuiltInRefusal(mapped);
  } else {
    error = fmt::format("there is no table {} in account {}", mapped, account_);
  }
  return false;
}

// The declaration is our own throughout: of what a sentence says only the name, the limits and NOT NULL go
// into it.
bool SqliteStore::MakeTable(const NewTable& table, std::string& error) {
  std::string spelling;
  std::string type;
  if (table.name.empty() || table.name.find('\0') != std::string::npos) {
    error = table.name.empty() ? "a table needs a name" : "a table's name can't hold a character 0";
    return false;
  }
  if (FindTable(FoldTableName(table.name), spelling, type)) {
    error = fmt::format("{} is there already, as a {}", table.name, type);
    return false;
  }
  const std::size_t attributes = table.columns.size() - 1;
  if (attributes > static_cast<std::size_t>(kMostColumns)) {
    error = fmt::format("table {} would have columns for {} attributes; {} is the most", table.name,
                        attributes, kMostColumns);
    return false;
  }
  std::string sql = fmt::format("CREATE TABLE {} (", SqlName(table.name));
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
