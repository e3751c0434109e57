#include "engine/stores/ItemTables.h"

#include <fmt/format.h>

#include <algorithm>
#include <cassert>
#include <chrono>
#include <utility>

#include "engine/CodePage.h"
#include "engine/Marks.h"
#include "engine/stores/BuiltInDictionary.h"
#include "engine/stores/FitItem.h"
#include "engine/stores/ScanClauses.h"
#include "engine/stores/StoredText.h"

namespace nvadmin::engine {

namespace {

constexpr std::chrono::seconds kPatience{10};
constexpr std::int64_t kFormat = 1;
constexpr std::size_t kItemSlot = 0;
constexpr std::string_view kLostWrites = "the writes since the last commit are lost";

std::string ColumnName(const TableDescription& table, std::size_t column) {
  return column > 0 && table.layout == Layout::kItem ? "ITEM" : fmt::format("A{}", column);
}

}  // namespace

// ---- What is kept of tables and scans

struct ItemTables::ScanPlan {
  std::vector<std::int32_t> attributes;
  bool wholeItem = false;
  std::string clauses;
  Statement statement;                // A0 first, then the columns
  bool isCut = false;                 // attributes are cut from ITEM
  bool isJoined = false;              // the item is joined from A1 and up
  std::vector<std::int32_t> columns;  // of the statement, for each value; -1: always empty
  std::vector<AttributeCut> cuts;     // ascending
};

struct ItemTables::OpenedTable {
  enum class State { kStale, kCurrent, kUnusable };

  std::string key;
  State state = State::kStale;
  std::string fault;             // why it is unusable
  TableDescription description;  // of a table that is gone just the name that it had
  std::string sqlName;
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

ItemTables::ReadTransaction::ReadTransaction(ItemTables& store)
    : store_(store), isOurs_(!store.database_.InTransaction()) {
  if (isOurs_) store_.beginRead_.Run();
}

ItemTables::ReadTransaction::~ReadTransaction() {
  if (!isOurs_) return;
  sqlite3_step(store_.endRead_.Handle());
  store_.endRead_.Reset();
  store_.database_.Rollback();
}

// ---- Opening the file

ItemTables::ItemTables(const std::filesystem::path& file, std::string_view account, const Kind& kind)
    : account_(account), kind_(kind), database_(file, OpenMode::kMake, kPatience) {
  ClaimFile(file);
  database_.Execute(
      "PRAGMA synchronous=FULL; PRAGMA secure_delete=FAST; PRAGMA cache_size=-16384;"
      "PRAGMA journal_size_limit=67108864");
  sqlite3_limit(database_.Handle(), SQLITE_LIMIT_ATTACHED, 0);
  schemaVersion_ = Statement(database_, "PRAGMA schema_version");
  beginRead_ = Statement(database_, "BEGIN");
  endRead_ = Statement(database_, "COMMIT");
  RegisterScanFunctions(database_);
  SchemaChanged();
}

ItemTables::~ItemTables() = default;

// Marks a new file as one of this kind, and refuses one that is something else before anything in it changes.
void ItemTables::ClaimFile(const std::filesystem::path& file) {
  Statement head(database_,
                 "SELECT (SELECT application_id FROM pragma_application_id), (SELECT user_version FROM "
                 "pragma_user_version), (SELECT count(*) FROM sqlite_schema)");
  const auto isOurs = [&] {
    head.Step();
    const ResetAtEnd reset(head);
    const std::int64_t application = head.Integer(0);
    const std::int64_t format = head.Integer(1);
    if (application != kind_.applicationId && (application != 0 || format != 0 || head.Integer(2) != 0)) {
      throw StoreFailure(
          fmt::format("{} is a database, but not of {}; move it away, and account {} starts anew",
                      ForeignText(file.string()), kind_.noun, account_));
    }
    if (format > kFormat) {
      throw StoreFailure(
          fmt::format("{} is of format {}, made by a newer version of this program; use that one",
                      ForeignText(file.string()), format));
    }
    return application == kind_.applicationId;
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
    database_.Execute(kind_.makeCatalogue);
    database_.Execute(
        fmt::format("PRAGMA application_id={}; PRAGMA user_version={}", kind_.applicationId, kFormat)
            .c_str());
  }
  transaction.Commit();
}

// ---- Tables and their descriptions

bool ItemTables::SchemaChanged() {
  schemaVersion_.Step();
  const std::int64_t version = schemaVersion_.Integer(0);
  schemaVersion_.Reset();
  if (version == knownSchema_) return false;
  knownSchema_ = version;
  ForgetTables();
  return true;
}

void ItemTables::ForgetTables() {
  ++generation_;
  for (const std::unique_ptr<OpenedTable>& opened : tables_) opened->Forget();
}

ItemTables::OpenedTable& ItemTables::Use(TableHandle table) {
  assert(table >= 0 && static_cast<std::size_t>(table) < tables_.size());
  OpenedTable& opened = *tables_[static_cast<std::size_t>(table)];
  if (opened.state == OpenedTable::State::kStale) Refresh(opened);
  return opened;
}

std::string ItemTables::NoSuchTable(std::string_view name) {
  return fmt::format("{}{} in account {}", kNoSuchTable, name, account_);
}

void ItemTables::Refresh(OpenedTable& opened) {
  const ReadTransaction transaction(*this);
  FoundTable found;
  const bool isThere = FindTable(opened.key, found);
  SchemaChanged();
  if (!isThere) {
    found.description.name = std::move(opened.description.name);
    found.fault = NoSuchTable(found.description.name);
  }
  opened.description = std::move(found.description);
  opened.sqlName = std::move(found.sqlName);
  opened.fault = std::move(found.fault);
  opened.rows.resize(opened.description.limits.size() + 1);
  opened.state = opened.fault.empty() ? OpenedTable::State::kCurrent : OpenedTable::State::kUnusable;
}

// A table that was never there leaves no handle.
bool ItemTables::OpenKey(const TableKey& key, TableHandle& table, std::string& error) {
  const auto known = handles_.find(key.key);
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
  opened->key = key.key;
  opened->description.name = key.shown;
  Refresh(*opened);
  if (!opened->IsUsable()) {
    error = opened->fault;
    return false;
  }
  table = static_cast<TableHandle>(tables_.size());
  handles_.emplace(opened->key, table);
  tables_.push_back(std::move(opened));
  return true;
}

bool ItemTables::OpenTable(std::string_view name, TableHandle& table, std::string& error) {
  SchemaChanged();
  std::string firstError;  // the best of the keys is the one to speak of
  for (const TableKey& key : KeysOf(name)) {
    std::string keyError;
    if (OpenKey(key, table, keyError)) return true;
    if (firstError.empty()) firstError = std::move(keyError);
  }
  error = std::move(firstError);
  return false;
}

const TableDescription& ItemTables::Describe(TableHandle table) {
  if (!database_.InTransaction()) SchemaChanged();
  return Use(table).description;
}

// ---- Reads

// The first step of a read.
ItemTables::Row ItemTables::StepToRow(Statement& statement) {
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
bool ItemTables::PrepareRead(Statement& statement, const std::string& sql) {
  try {
    statement = Statement(database_, sql);
    return true;
  } catch (const StoreFailure&) {
    if (!SchemaChanged()) throw;
    return false;
  }
}

// Steps the statement of a slot to the row of an item; the caller resets it then.
ItemTables::Row ItemTables::FindRow(OpenedTable& opened, std::size_t slot, std::string_view id) {
  Statement& statement = opened.rows[slot];
  if (!statement) {
    const TableDescription& description = opened.description;
    std::string columns =
        slot == opened.ExistenceSlot() ? "1" : ColumnName(description, std::max<std::size_t>(slot, 1));
    for (std::size_t column = 2; slot == kItemSlot && column < description.limits.size(); ++column) {
      columns += ',' + ColumnName(description, column);
    }
    const std::string sql = fmt::format("SELECT {} FROM {} WHERE A0 = ?1", columns, opened.sqlName);
    if (!PrepareRead(statement, sql)) return Row::kOutdated;
  }
  BindKey(statement, id);
  return StepToRow(statement);
}

// `id` may lie in `item`, so that is left alone until the row is found.
bool ItemTables::Read(TableHandle table, std::string_view id, std::string& item) {
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

bool ItemTables::ReadAttribute(TableHandle table, std::string_view id, std::int32_t attribute,
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

void ItemTables::ReadBatch(TableHandle table, std::span<const std::string_view> ids,
                           std::vector<BatchItem>& items) {
  const ReadTransaction transaction(*this);
  items.resize(ids.size());
  for (std::size_t at = 0; at < ids.size(); ++at) items[at].found = Read(table, ids[at], items[at].item);
}

void ItemTables::LeaveOutMissing(TableHandle table, std::vector<std::string_view>& ids) {
  const ReadTransaction transaction(*this);
  std::string nothing;
  std::erase_if(ids,
                [&](std::string_view id) { return !ReadAttribute(table, id, /*attribute=*/0, nothing); });
}

// ---- Scans

// Makes the values of the row at which a scan's statement stands. They are valid until the next row.
class ItemTables::ScanRow {
 public:
  explicit ScanRow(const ScanPlan& plan) : plan_(plan), row_(plan.statement.Handle()) {
    stored_.resize(plan.wholeItem ? 1 : plan.attributes.size());
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

ItemTables::ScanPlan ItemTables::TakePlan(OpenedTable& opened, const Projection& projection,
                                          const ScanClauses& clauses) {
  const auto kept = std::find_if(opened.plans.begin(), opened.plans.end(), [&](const ScanPlan& plan) {
    return plan.attributes == projection.attributes && plan.wholeItem == projection.wholeItem &&
           plan.clauses == clauses.Sql();
  });
  if (kept != opened.plans.end()) {
    ScanPlan plan = std::move(*kept);
    opened.plans.erase(kept);
    return plan;
  }
  const TableDescription& description = opened.description;
  ScanPlan plan;
  plan.attributes = projection.attributes;
  plan.wholeItem = projection.wholeItem;
  plan.clauses = clauses.Sql();
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
  PrepareRead(plan.statement, fmt::format("SELECT {} FROM {}{}", columns, opened.sqlName, plan.clauses));
  return plan;
}

// False when the schema changed before the first row: nothing was visited then.
//
// Keys that are bytes come in their order. Of texts SQLite gives the order of their UTF-8, which is the order
// of the code page's bytes but for the bytes 128 to 159, whose characters lie all over Unicode. So keys that
// agree up to their first character beyond ASCII, which stand behind one another in both orders, are held
// back and put in order among themselves.
bool ItemTables::RunScan(ScanPlan& plan, bool isSorted, const ScanVisitor& visitor) {
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
    const auto [stored, isBlob] = row.Key();
    const std::size_t ascii = isBlob || isSorted ? stored.size() : AsciiPrefix(stored);
    if (ascii == stored.size()) {
      row.Load();
      if (!visitor(row.Id(), row.Values())) return true;
      advance();
      continue;
    }
    const std::string prefix(stored.substr(0, ascii));
    std::vector<HeldRow> held;
    const auto belongs = [&](const StoredValue& key) {
      return !key.isBlob && key.bytes.size() > ascii && key.bytes.starts_with(prefix) &&
             static_cast<unsigned char>(key.bytes[ascii]) >= 0x80;
    };
    do {
      row.Load();
      held.push_back({std::string(row.Id()), {row.Values().begin(), row.Values().end()}});
      advance();
    } while (isRow && belongs(row.Key()));
    std::stable_sort(held.begin(), held.end(),
                     [](const HeldRow& left, const HeldRow& right) { return left.id < right.id; });
    for (const HeldRow& kept : held) {
      const std::vector<std::string_view> values(kept.values.begin(), kept.values.end());
      if (!visitor(kept.id, values)) return true;
    }
  }
  return true;
}

void ItemTables::Scan(TableHandle table, const Projection& projection, const ScanVisitor& visitor) {
  ScanTable(table, projection, /*order=*/nullptr, visitor);
}

// Sorted here, the keys of the items take no memory of ours: beyond its cache SQLite sorts in a temporary
// file, and of a SAMPLE it keeps just the rows wanted. By item ID the items come in order as they are, or in
// the opposite one, and the engine needs nothing else of them.
bool ItemTables::ScanInOrder(TableHandle table, const Projection& projection, const ScanOrder& order,
                             const ScanVisitor& visitor) {
  const bool isById = order.keys.empty() || order.keys.front().attribute == 0;
  return !isById && order.keys.size() <= ScanClauses::kMostSortKeys &&
         ScanTable(table, projection, &order, visitor);
}

// False when the order is one for columns, and the table has none.
bool ItemTables::ScanTable(TableHandle table, const Projection& projection, const ScanOrder* order,
                           const ScanVisitor& visitor) {
  constexpr std::size_t kMostPlans = 16;
  for (;;) {
    OpenedTable& opened = Use(table);
    if (!opened.IsUsable()) throw StoreFailure(opened.fault);
    if (order != nullptr && opened.description.layout != Layout::kColumns) return false;
    if (opened.IsBuiltIn()) {
      ScanBuiltIn(projection, visitor);
      return true;
    }
    const ScanClauses clauses(opened.description, projection.conditions, order, kind_.keepsBytes);
    // The plan is taken out of the table, since the visitor may scan the same table or make it stale.
    ScanPlan plan = TakePlan(opened, projection, clauses);
    if (!plan.statement) continue;
    clauses.Bind(plan.statement);
    const std::uint64_t generation = generation_;
    if (!RunScan(plan, /*isSorted=*/order != nullptr, visitor)) continue;
    if (generation != generation_) return true;
    if (opened.plans.size() == kMostPlans) opened.plans.erase(opened.plans.begin());
    opened.plans.push_back(std::move(plan));
    return true;
  }
}

// ---- Writes

// After a failed read or write of the file SQLite may have rolled back by itself: this tells of it, once.
void ItemTables::CheckOpenWrites() {
  if (!writesAreOpen_ || database_.InTransaction()) return;
  writesAreOpen_ = false;
  throw StoreFailure(fmt::format("account {} met a failure of its file; {}", account_, kLostWrites));
}

void ItemTables::BeginWrites() {
  CheckOpenWrites();
  if (writesAreOpen_) return;
  database_.Begin();
  writesAreOpen_ = true;
  SchemaChanged();
}

void ItemTables::Commit() {
  CheckOpenWrites();
  if (!writesAreOpen_) return;
  writesAreOpen_ = false;
  try {
    database_.Commit();
  } catch (const StoreFailure& failure) {
    throw StoreFailure(fmt::format("{}; {}", failure.what(), kLostWrites));
  }
}

void ItemTables::Rollback() {
  writesAreOpen_ = false;
  database_.Rollback();
}

std::string ItemTables::WriteSql(const OpenedTable& opened) {
  const TableDescription& table = opened.description;
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
  return fmt::format("INSERT INTO {} ({}) VALUES ({}) ON CONFLICT (A0) DO UPDATE SET {}", opened.sqlName,
                     columns, parameters, changes);
}

// A trigger of the user's may hold what can't be prepared; that is a no like one at the step.
bool ItemTables::PrepareChange(Statement& statement, const std::string& sql, const OpenedTable& opened,
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

bool ItemTables::Write(TableHandle table, std::string_view id, std::string_view item, std::string& error) {
  assert(writesAreOpen_);
  CheckOpenWrites();
  OpenedTable& opened = Use(table);
  if (!IsWritable(opened, error) || !FitItem(opened.description, id, item, columns_, error)) return false;
  if (item.size() > kind_.longestItem) {
    error = fmt::format("{}: the item has {} characters, {} is the most",
                        NameItem(opened.description.name, id), item.size(), kind_.longestItem);
    return false;
  }
  if (!opened.write) {
    if (!PrepareChange(opened.write, WriteSql(opened), opened, id, error)) return false;
    for (int column = 1; column <= opened.ColumnCount(); ++column) BindColumn(opened.write, column + 1, "");
    opened.boundColumns = 0;
  }
  if (!kind_.keepsBytes && !IsAscii(item)) ConvertColumns();
  BindKey(opened.write, id);
  int parameter = 1;
  for (const std::string_view column : columns_) BindColumn(opened.write, ++parameter, column);
  const int filled = parameter - 1;
  while (parameter <= opened.boundColumns)
    BindColumn(opened.write, ++parameter, "");  // left from the last item
  opened.boundColumns = filled;
  return StepChange(opened.write, opened, id, error);
}

void ItemTables::BindKey(Statement& statement, std::string_view id) {
  BindColumn(statement, 1, kind_.keepsBytes ? id : AsUtf8(id, keyText_));
}

void ItemTables::BindColumn(Statement& statement, int parameter, std::string_view stored) const {
  if (kind_.keepsBytes) {
    statement.BindBlob(parameter, stored);
  } else {
    statement.BindText(parameter, stored);
  }
}

// The texts of the columns to be written, in UTF-8.
void ItemTables::ConvertColumns() {
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

bool ItemTables::Erase(TableHandle table, std::string_view id, std::string& error) {
  assert(writesAreOpen_);
  CheckOpenWrites();
  OpenedTable& opened = Use(table);
  if (!IsWritable(opened, error)) return false;
  const std::string sql = opened.erase ? "" : fmt::format("DELETE FROM {} WHERE A0 = ?1", opened.sqlName);
  if (!opened.erase && !PrepareChange(opened.erase, sql, opened, id, error)) return false;
  BindKey(opened.erase, id);
  if (!StepChange(opened.erase, opened, id, error)) return false;
  if (database_.Changes() > 0) return true;
  error = fmt::format("{} doesn't exist", NameItem(opened.description.name, id));
  return false;
}

bool ItemTables::IsWritable(const OpenedTable& opened, std::string& error) const {
  if (opened.IsBuiltIn()) error = BuiltInRefusal(opened.description.name);
  if (!opened.IsUsable()) error = opened.fault;
  return opened.IsUsable() && !opened.IsBuiltIn();
}

// Runs a change of one item. A constraint or trigger of the user's may refuse it, which is a no that leaves
// the other writes; what is wrong with the store takes them along.
bool ItemTables::StepChange(Statement& statement, const OpenedTable& opened, std::string_view id,
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

void ItemTables::Interrupt() noexcept {
  interrupted_ = true;
  sqlite3_interrupt(database_.Handle());
}

// ---- SQL

bool ItemTables::RunSql(std::string_view statement, ResultGrid& grid, bool& isQuery, std::string& message,
                        std::string& error) {
  bool isDone = false;
  interrupted_ = false;
  try {
    isDone = RunSentence(statement, grid, isQuery, message, error);
  } catch (const StoreFailure&) {
    ForgetTables();  // SQLite may have met a new schema before it failed
    throw;
  }
  SchemaChanged();
  return isDone;
}

}  // namespace nvadmin::engine
