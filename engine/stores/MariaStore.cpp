#include "engine/stores/MariaStore.h"

#include <fmt/format.h>

#include <algorithm>
#include <bit>
#include <cassert>
#include <utility>

#include "engine/Marks.h"
#include "engine/stores/BuiltInDictionary.h"
#include "engine/stores/FitItem.h"
#include "engine/stores/StoredText.h"
#include "engine/stores/TableNames.h"

namespace nvadmin::engine {

namespace {

constexpr std::size_t kLargestBatch = 256;     // items of one statement, a power of
constexpr std::size_t kBatchGrowth = 4;        // this
constexpr std::size_t kFirstChunk = 64;        // rows of a scan; each further one is four times larger
constexpr std::size_t kLargestChunk = 4096;    // and no more rows than these,
constexpr std::size_t kChunkBytes = 4u << 20;  // nor, by what the last rows were like, more bytes
constexpr std::size_t kMostGathered = 1000;    // items
constexpr std::size_t kGatheredBytes = 1u << 20;
constexpr std::size_t kParameterOverhead = 10;  // of each parameter of a write, at most

std::string ColumnName(const TableDescription& table, std::size_t column) {
  return table.layout == Layout::kItem ? "ITEM" : fmt::format("A{}", column);
}

// Why an item was refused.
std::string RefusalOf(const MariaFailure& failure) {
  if (failure.Code() != maria_error::kNull) return failure.Reason();
  return failure.Reason() + " (another item may have the value that an index of the table allows once)";
}

// An item is NULL then, as the server joins it.
std::string TooLargeToRead(std::string_view table, std::string_view id) {
  return fmt::format("{}: the item is larger than the server hands out; raise its max_allowed_packet",
                     NameItem(table, id));
}

}  // namespace

struct MariaStore::OpenedTable {
  enum class State { kStale, kCurrent, kUnusable };

  std::string key;
  State state = State::kStale;
  MariaCatalogue::Found found;
  std::string readItem;  // the expression of the whole item
  std::string write;
  std::string erase;

  const TableDescription& Description() const { return found.description; }
  bool IsUsable() const { return state == State::kCurrent; }
  bool IsBuiltIn() const { return IsUsable() && Description().layout == Layout::kBuiltIn; }
  bool IsItem() const { return Description().layout == Layout::kItem; }
  std::size_t RealColumns() const { return static_cast<std::size_t>(found.realColumns); }
  // Of a write: A0, the real columns, and the rest.
  std::size_t Width() const { return 1 + RealColumns() + (found.hasRest ? 1 : 0); }
  std::string Value(std::size_t column) const {
    if (column > RealColumns()) return QuoteSqlName(kRestColumn);
    const std::string name = ColumnName(Description(), column);
    return found.mayBeNull[column - 1] ? fmt::format("COALESCE({}, '')", name) : name;
  }
  void MakeStatements();
};

void MariaStore::OpenedTable::MakeStatements() {
  std::string columns = "A0";
  std::string parameters = "?";
  // A row that is in the way by another index than the key's is another item's: that is an error.
  std::string changes = "A0=IF(A0=VALUES(A0),A0,NULL)";
  readItem.clear();
  for (std::size_t column = 1; column < Width(); ++column) {
    const bool isRest = column > RealColumns();
    const std::string name = isRest ? QuoteSqlName(kRestColumn) : ColumnName(Description(), column);
    readItem += ',' + Value(column);
    columns += ',' + name;
    parameters += ",?";
    changes += fmt::format(",{0}=VALUES({0})", name);
  }
  // Joined by the server, since each column of an answer costs the client something.
  readItem = IsItem() ? readItem.substr(1) : fmt::format("CONCAT_WS(x'FE'{})", readItem);
  // An update in place: it leaves columns alone that are no attributes.
  write = fmt::format("INSERT INTO {} ({}) VALUES ({}) ON DUPLICATE KEY UPDATE {}", found.sqlName, columns,
                      parameters, changes);
  erase = fmt::format("DELETE FROM {} WHERE A0 = ?", found.sqlName);
}

// ---- Opening

MariaStore::MariaStore(MariaAddress address, std::string password, std::string_view account)
    : account_(account),
      connection_(std::move(address), std::move(password), fmt::format("account {}", account)) {
  catalogue_.Claim();
}

MariaStore::~MariaStore() = default;

// ---- Tables and their descriptions

void MariaStore::NoteVersion(std::int64_t version) {
  if (version == knownVersion_) return;
  knownVersion_ = version;
  ForgetTables();
}

void MariaStore::ForgetTables() {
  for (const std::unique_ptr<OpenedTable>& opened : tables_) opened->state = OpenedTable::State::kStale;
}

MariaStore::OpenedTable& MariaStore::Use(TableHandle table) {
  assert(table >= 0 && static_cast<std::size_t>(table) < tables_.size());
  OpenedTable& opened = *tables_[static_cast<std::size_t>(table)];
  if (opened.state == OpenedTable::State::kStale) Refresh(opened);
  return opened;
}

// A table that is gone has no items. Of one that is there, but no longer as a file is, none can be told.
MariaStore::OpenedTable& MariaStore::UseToRead(TableHandle table) {
  OpenedTable& opened = Use(table);
  if (opened.found.isTable && !opened.IsUsable()) throw StoreFailure(opened.found.fault);
  return opened;
}

std::string MariaStore::NoSuchTable(std::string_view name) {
  return fmt::format("{}{} in account {}", kNoSuchTable, name, account_);
}

void MariaStore::Refresh(OpenedTable& opened) {
  SendGathered();
  MariaCatalogue::Found found;
  const bool isThere = Guarded([&] { return catalogue_.Find(opened.key, found); });
  if (!isThere) {
    const std::string& name = opened.Description().name;
    found.description = {name.empty() ? opened.key : name, Layout::kColumns, {}};
    found.fault = NoSuchTable(found.description.name);
  }
  opened.found = std::move(found);
  const bool isUsable = opened.found.fault.empty();
  opened.state = isUsable ? OpenedTable::State::kCurrent : OpenedTable::State::kUnusable;
  if (!isUsable) opened.found.description.limits.clear();
  if (isUsable && !opened.IsBuiltIn()) opened.MakeStatements();
}

// A table that was never there leaves no handle. One that can't be used is looked at anew.
bool MariaStore::OpenKey(const std::string& key, TableHandle& table, std::string& error) {
  const auto known = handles_.find(key);
  auto fresh = known == handles_.end() ? std::make_unique<OpenedTable>() : nullptr;
  OpenedTable& opened = fresh != nullptr ? *fresh : *tables_[static_cast<std::size_t>(known->second)];
  if (fresh != nullptr) fresh->key = key;
  if (!opened.IsUsable()) Refresh(opened);
  if (!opened.IsUsable()) {
    error = opened.found.fault;
    return false;
  }
  if (fresh != nullptr) {
    table = static_cast<TableHandle>(tables_.size());
    handles_.emplace(key, table);
    tables_.push_back(std::move(fresh));
  } else {
    table = known->second;
  }
  return true;
}

bool MariaStore::OpenTable(std::string_view name, TableHandle& table, std::string& error) {
  // While the writes are open no table is made anew: that takes a turn to write.
  if (!writesAreOpen_) Guarded([&] { NoteVersion(catalogue_.Version()); });
  const std::string mapped = MapTableName(name);
  const std::string asTyped = FoldTableName(name);
  if (OpenKey(mapped, table, error)) return true;
  std::string second;  // the mapped name is the one to speak of
  return asTyped != mapped && OpenKey(asTyped, table, second);
}

const TableDescription& MariaStore::Describe(TableHandle table) {
  if (!writesAreOpen_) Guarded([&] { NoteVersion(catalogue_.Version()); });
  return Use(table).Description();
}

std::vector<std::string> MariaStore::TableNames(bool withDictionaries) {
  std::vector<std::string> names = Guarded([&] { return catalogue_.Names(); });
  if (!withDictionaries)
    std::erase_if(names, [](const std::string& name) { return IsDictionaryName(FoldTableName(name)); });
  std::sort(names.begin(), names.end());
  return names;
}

// ---- Reads

template <typename Action>
bool MariaStore::ReadAsDescribed(const Action& action) {
  try {
    return action();
  } catch (const MariaFailure& failure) {
    // While the writes are open, only a change by hand can have come in between; a snapshot that is older
    // than the table stays so.
    const bool isOutdated = failure.Code() == maria_error::kNoSuchTable ||
                            failure.Code() == maria_error::kUnknownColumn ||
                            failure.Code() == maria_error::kNoSuchIndex ||
                            (failure.Code() == maria_error::kTableChanged && !writesAreOpen_);
    if (!isOutdated) throw;
    ForgetTables();
    NoteVersion(catalogue_.Version());  // which fails if it is our own table that is gone
    return false;
  }
}

// The rows of so many items at most: version, A0 (NULL: none of them is there), and `values`.
bool MariaStore::ReadRows(OpenedTable& opened, const std::string& values,
                          std::span<const std::string_view> ids, MariaRows& rows) {
  // The same statement serves fewer items: the last is asked for several times.
  std::size_t count = 1;
  while (count < ids.size()) count *= kBatchGrowth;
  std::string marks = "?";
  for (std::size_t at = 1; at < count; ++at) marks += ",?";
  std::vector<std::string_view> parameters(ids.begin(), ids.end());
  parameters.resize(count, ids.back());
  // An ID that no item can have isn't sent.
  const auto limit = static_cast<std::size_t>(opened.Description().limits[0]);
  for (std::string_view& id : parameters) {
    if (limit > 0 && id.size() > limit) id = {};
  }
  // Without its primary key a table may have several rows of an item.
  const std::string sql = fmt::format(
      "SELECT s.version, t.A0{}{} FROM nvadmin_state s LEFT JOIN {} t FORCE INDEX (PRIMARY) ON t.A0 IN ({}) "
      "WHERE s.id = 1",
      values.empty() ? "" : ",", values, opened.found.sqlName, marks);
  SendGathered();
  return Guarded([&] {
    return ReadAsDescribed([&] {
      rows = connection_.Query(sql, parameters, Again());
      const std::int64_t known = knownVersion_;
      NoteVersion(catalogue_.VersionIn(rows));
      return known == knownVersion_;
    });
  });
}

// `id` may lie in `value`, so that is left alone until the row is found.
bool MariaStore::FindRow(TableHandle table, std::string_view id, const std::string& (*values)(OpenedTable&),
                         std::string& value) {
  for (;;) {
    OpenedTable& opened = UseToRead(table);
    MariaRows rows;
    if (opened.IsUsable() && !ReadRows(opened, values(opened), {&id, 1}, rows)) continue;
    const bool isThere = rows.Count() > 0 && !rows.IsNull(0, 1) && rows.Text(0, 1) == id;
    value.clear();
    if (!isThere) return false;
    if (rows.Columns() == 2) return true;
    if (rows.IsNull(0, 2)) {
      throw StoreFailure(TooLargeToRead(opened.Description().name, id));
    }
    value = rows.Text(0, 2);
    return true;
  }
}

bool MariaStore::Read(TableHandle table, std::string_view id, std::string& item) {
  const OpenedTable& opened = UseToRead(table);
  if (opened.IsBuiltIn()) return ReadBuiltIn(id, item);
  if (!FindRow(
          table, id, [](OpenedTable& of) -> const std::string& { return of.readItem; }, item))
    return false;
  if (!Use(table).IsItem()) item.resize(item.find_last_not_of(kAttributeMark) + 1);
  return true;
}

// One statement serves all attributes: it costs a round trip, whatever it reads.
bool MariaStore::ReadAttribute(TableHandle table, std::string_view id, std::int32_t attribute,
                               std::string& value) {
  const OpenedTable& opened = UseToRead(table);
  if (opened.IsBuiltIn()) return ReadBuiltInAttribute(id, attribute, value);
  if (!FindRow(
          table, id, [](OpenedTable& of) -> const std::string& { return of.readItem; }, value))
    return false;
  const std::string item = std::exchange(value, {});
  const AttributeCut cut{attribute, 0};
  StoredValue found{{}, /*isBlob=*/true};
  if (attribute >= 1) CutStored({item, /*isBlob=*/true}, {&cut, 1}, {&found, 1});
  value = found.bytes;
  return true;
}

void MariaStore::ReadBatch(TableHandle table, std::span<const std::string_view> ids,
                           std::vector<BatchItem>& items) {
  items.resize(ids.size());
  for (std::size_t start = 0; start < ids.size();) {
    const std::span<const std::string_view> part =
        ids.subspan(start, std::min(kLargestBatch, ids.size() - start));
    OpenedTable& opened = UseToRead(table);
    MariaRows rows;
    if (opened.IsUsable() && !opened.IsBuiltIn() && !ReadRows(opened, opened.readItem, part, rows)) {
      start = 0;
      continue;
    }
    std::unordered_map<std::string_view, std::size_t> rowOf;
    for (std::size_t row = 0; row < rows.Count(); ++row) {
      if (!rows.IsNull(row, 1)) rowOf.emplace(rows.Text(row, 1), row);
    }
    for (std::size_t at = 0; at < part.size(); ++at) {
      BatchItem& item = items[start + at];
      const auto row = rowOf.find(part[at]);
      item.found = row != rowOf.end() && !rows.IsNull(row->second, 2);
      item.item.clear();
      if (opened.IsBuiltIn()) {
        item.found = ReadBuiltIn(part[at], item.item);
      } else if (row != rowOf.end() && !item.found) {
        item.found = Read(table, part[at], item.item);  // too large to be handed out: this tells it
      } else if (item.found) {
        item.item = rows.Text(row->second, 2);
        if (!opened.IsItem()) item.item.resize(item.item.find_last_not_of(kAttributeMark) + 1);
      }
    }
    start += part.size();
  }
}

void MariaStore::LeaveOutMissing(TableHandle table, std::vector<std::string_view>& ids) {
  std::vector<std::string_view> there;
  for (std::size_t start = 0; start < ids.size();) {
    const std::span<const std::string_view> part =
        std::span(ids).subspan(start, std::min(kLargestBatch, ids.size() - start));
    OpenedTable& opened = UseToRead(table);
    MariaRows rows;
    if (opened.IsUsable() && !opened.IsBuiltIn() && !ReadRows(opened, "", part, rows)) {
      start = 0;
      there.clear();
      continue;
    }
    std::unordered_map<std::string_view, std::size_t> rowOf;
    for (std::size_t row = 0; row < rows.Count(); ++row) {
      if (!rows.IsNull(row, 1)) rowOf.emplace(rows.Text(row, 1), row);
    }
    std::string nothing;
    for (const std::string_view id : part) {
      if (opened.IsBuiltIn() ? ReadBuiltIn(id, nothing) : rowOf.contains(id)) there.push_back(id);
    }
    start += part.size();
  }
  ids = std::move(there);
}

// ---- Scans

struct MariaStore::ScanPlan {
  std::string select;                 // up to the condition on A0
  std::string clauses;                // behind it
  std::vector<std::string> texts;     // parameters of the clauses
  std::vector<std::int32_t> columns;  // of the answer, for each value; -1: cut from the last, or always empty
  std::vector<AttributeCut> cuts;     // ascending, of the answer's last column
  bool trimsMarks = false;            // the value is a joined item
  std::size_t values = 0;
  std::string table;  // its name
};

// Of the conditions those that are a text to look for, in a column; the rest is for the caller.
MariaStore::ScanPlan MariaStore::MakePlan(const OpenedTable& opened, const Projection& projection) const {
  ScanPlan plan;
  plan.table = opened.Description().name;
  constexpr std::int32_t kFirstColumn = 2;  // behind the version and A0
  std::string columns;
  std::int32_t count = kFirstColumn;
  plan.values = projection.wholeItem ? 1 : projection.attributes.size();
  if (projection.wholeItem) {
    columns = ',' + opened.readItem;
    plan.columns.push_back(count++);
    plan.trimsMarks = !opened.IsItem();
  } else {
    const std::int32_t cutFrom = opened.IsItem() ? 0 : opened.found.realColumns;
    for (std::size_t at = 0; at < projection.attributes.size(); ++at) {
      const std::int32_t attribute = projection.attributes[at];
      const bool isCut = attribute > cutFrom && (opened.IsItem() || opened.found.hasRest);
      const bool isThere = attribute >= 1 && !isCut && attribute <= opened.found.realColumns;
      if (isCut) plan.cuts.push_back({attribute - cutFrom, at});
      plan.columns.push_back(isThere ? count++ : -1);
      if (isThere) columns += ',' + opened.Value(static_cast<std::size_t>(attribute));
    }
    if (!plan.cuts.empty()) columns += ',' + opened.Value(opened.Width() - 1);
    std::sort(plan.cuts.begin(), plan.cuts.end(), [](const AttributeCut& left, const AttributeCut& right) {
      return left.attribute < right.attribute;
    });
  }
  const auto expression = [&](const ScanAlternative& wanted) -> std::string {
    if (wanted.text.empty()) return {};
    if (wanted.attribute == 0) return "LOCATE(?, A0)";
    if (opened.IsItem()) return "LOCATE(?, ITEM)";
    if (wanted.attribute < 1 || wanted.attribute > opened.found.realColumns) return {};
    return fmt::format("LOCATE(?, A{})", wanted.attribute);
  };
  for (const ScanCondition& condition : projection.conditions) {
    const bool isTested = !condition.empty() && std::none_of(condition.begin(), condition.end(),
                                                             [&](const ScanAlternative& wanted) {
                                                               return expression(wanted).empty();
                                                             });
    if (!isTested) continue;
    plan.clauses += " AND (";
    for (const ScanAlternative& wanted : condition) {
      plan.clauses += (&wanted == condition.data() ? "" : " OR ") + expression(wanted);
      plan.texts.push_back(wanted.text);
    }
    plan.clauses += ')';
  }
  plan.select = fmt::format("SELECT (SELECT version FROM nvadmin_state WHERE id = 1), A0{} FROM {} WHERE A0 ",
                            columns, opened.found.sqlName);
  return plan;
}

// The state of the database that a scan sees, unless the writes are open: then it is theirs.
class MariaStore::Snapshot {
 public:
  explicit Snapshot(MariaStore& store) : store_(store), isOurs_(store.scans_ == 0 && !store.writesAreOpen_) {
    if (isOurs_)
      store.connection_.Execute("START TRANSACTION WITH CONSISTENT SNAPSHOT, READ ONLY", IfLost::kAgain);
    generation_ = store.connection_.Generation();
    ++store_.scans_;
  }
  ~Snapshot() {
    --store_.scans_;
    if (!isOurs_ || store_.writesAreOpen_ || !Stands()) return;
    try {
      store_.connection_.Execute("COMMIT", IfLost::kFail);
    } catch (const StoreFailure&) {
      // It had nothing to keep.
    }
  }
  Snapshot(const Snapshot&) = delete;
  Snapshot& operator=(const Snapshot&) = delete;

  bool Stands() const {
    return store_.connection_.IsOpen() && generation_ == store_.connection_.Generation();
  }

 private:
  MariaStore& store_;
  bool isOurs_;
  std::uint64_t generation_ = 0;
};

// The next rows behind a key; null: the first ones.
bool MariaStore::ReadChunk(const ScanPlan& plan, const std::string* behind, std::size_t rows,
                           MariaRows& chunk) {
  std::vector<std::string_view> parameters = {behind == nullptr ? std::string_view("")
                                                                : std::string_view(*behind)};
  parameters.insert(parameters.end(), plan.texts.begin(), plan.texts.end());
  const std::string sql = fmt::format("{}{} ?{} ORDER BY A0 LIMIT {}", plan.select,
                                      behind == nullptr ? ">=" : ">", plan.clauses, rows);
  SendGathered();
  return Guarded([&] {
    // A search may look at many rows before it finds so many.
    std::optional<MariaConnection::Interruptible> interruptible;
    if (!plan.texts.empty()) interruptible.emplace(connection_);
    const auto read = [&] {
      chunk = connection_.Query(sql, parameters, IfLost::kFail);
      if (behind != nullptr || writesAreOpen_) return true;
      const std::int64_t known = knownVersion_;
      NoteVersion(chunk.Count() > 0 ? catalogue_.VersionIn(chunk) : catalogue_.Version());
      return known == knownVersion_;
    };
    // Behind the first rows it is too late to begin anew.
    return behind != nullptr ? read() : ReadAsDescribed(read);
  });
}

// False when the table wasn't as described: nothing was visited then.
bool MariaStore::RunScan(const ScanPlan& plan, const ScanVisitor& visitor) {
  const Snapshot snapshot(*this);
  std::vector<StoredValue> stored(plan.values);
  std::vector<std::string_view> values(plan.values);
  std::string last;
  MariaRows chunk;
  for (std::size_t rows = kFirstChunk, first = true;; first = false) {
    if (!snapshot.Stands())
      throw StoreFailure(
          fmt::format("account {}: the connection was lost in the middle of a scan", account_));
    if (!ReadChunk(plan, first ? nullptr : &last, rows, chunk)) return false;
    for (std::size_t row = 0; row < chunk.Count(); ++row) {
      std::fill(stored.begin(), stored.end(), StoredValue{{}, /*isBlob=*/true});
      for (std::size_t at = 0; at < plan.columns.size(); ++at) {
        if (plan.columns[at] >= 0)
          stored[at].bytes = chunk.Text(row, static_cast<std::size_t>(plan.columns[at]));
      }
      if (!plan.cuts.empty())
        CutStored({chunk.Text(row, chunk.Columns() - 1), /*isBlob=*/true}, plan.cuts, stored);
      if (plan.trimsMarks && chunk.IsNull(row, static_cast<std::size_t>(plan.columns[0])))
        throw StoreFailure(TooLargeToRead(plan.table, chunk.Text(row, 1)));
      if (plan.trimsMarks)
        stored[0].bytes = stored[0].bytes.substr(0, stored[0].bytes.find_last_not_of(kAttributeMark) + 1);
      for (std::size_t at = 0; at < values.size(); ++at) values[at] = stored[at].bytes;
      if (!visitor(chunk.Text(row, 1), values)) return true;
    }
    if (chunk.Count() < rows) return true;
    last = chunk.Text(chunk.Count() - 1, 1);
    const std::size_t fitting = kChunkBytes / (chunk.Bytes() / chunk.Count() + 1) + 1;
    rows = std::min(rows * 4, std::min(std::bit_floor(fitting), kLargestChunk));
  }
}

void MariaStore::Scan(TableHandle table, const Projection& projection, const ScanVisitor& visitor) {
  for (;;) {
    SendGathered();
    OpenedTable& opened = Use(table);
    if (!opened.IsUsable()) throw StoreFailure(opened.found.fault);
    if (opened.IsBuiltIn()) return ScanBuiltIn(projection, visitor);
    if (RunScan(MakePlan(opened, projection), visitor)) return;
  }
}

// ---- Writes

void MariaStore::BeginWrites() {
  if (writesAreOpen_) return;
  connection_.Execute("START TRANSACTION", scans_ > 0 ? IfLost::kFail : IfLost::kAgain);
  try {
    // Whoever has the row writes; the others wait for it here.
    const MariaRows state = connection_.Query(
        "SELECT version, @@global.read_only FROM nvadmin_state WHERE id = 1 FOR UPDATE", {}, IfLost::kFail);
    const std::int64_t version = catalogue_.VersionIn(state);
    if (state.Integer(0, 1) != 0) {
      throw StoreFailure(
          fmt::format("account {} at {}: {}", account_, connection_.Server(), kReadOnlyServer));
    }
    NoteVersion(version);
    // The row lock is of this node alone. Of two changes of the row that don't know each other, made on two
    // nodes, the cluster refuses the later one.
    if (connection_.IsClustered())
      connection_.Execute("UPDATE nvadmin_state SET turn = turn + 1 WHERE id = 1", IfLost::kFail);
  } catch (const MariaFailure& failure) {
    Rollback();
    if (failure.Code() != maria_error::kLockWait) throw;
    throw StoreFailure(fmt::format(
        "account {} is being written to by another session, and has been for 10 s; try again", account_));
  } catch (...) {
    Rollback();
    throw;
  }
  writesAreOpen_ = true;
}

void MariaStore::Commit() {
  if (!writesAreOpen_) return;
  SendGathered();
  writesAreOpen_ = false;
  try {
    connection_.Execute("COMMIT", IfLost::kFail);
  } catch (const MariaFailure& failure) {
    // Elsewise the server, or the rest of its cluster, may have taken the word and not come to answer.
    const bool isKnown = failure.Code() == maria_error::kDeadlock || failure.Code() == maria_error::kReadOnly;
    const std::string_view outcome =
        isKnown
            ? kLostWrites
            : "whether the writes since the last commit are there is not known: look before you write again";
    connection_.Close();
    throw StoreFailure(fmt::format("{}; {}", failure.what(), outcome));
  }
}

void MariaStore::Rollback() {
  writesAreOpen_ = false;
  gathered_ = {};
  if (!connection_.IsOpen()) return;
  try {
    connection_.Execute("ROLLBACK", IfLost::kFail);
  } catch (const StoreFailure&) {
    connection_.Close();  // which rolls back as well
  }
}

bool MariaStore::IsWritable(const OpenedTable& opened, std::string& error) const {
  if (opened.IsBuiltIn()) error = BuiltInRefusal(opened.Description().name);
  if (!opened.IsUsable()) error = opened.found.fault;
  return opened.IsUsable() && !opened.IsBuiltIn();
}

// The parameters of one row: A0, the columns, and what is left of the item behind them.
void MariaStore::Gather(OpenedTable& opened, std::string_view id) {
  if (gathered_.table != &opened) SendGathered();
  gathered_.table = &opened;
  const auto add = [this](std::string_view text) {
    gathered_.bytes += text;
    gathered_.ends.push_back(gathered_.bytes.size());
  };
  add(id);
  const std::size_t real = opened.RealColumns();
  for (std::size_t column = 0; column < real; ++column) add(column < columns_.size() ? columns_[column] : "");
  if (opened.found.hasRest) {
    const bool isMore = columns_.size() > real;
    const char* end = isMore ? columns_.back().data() + columns_.back().size() : nullptr;
    add(isMore
            ? std::string_view(columns_[real].data(), static_cast<std::size_t>(end - columns_[real].data()))
            : "");
  }
  ++gathered_.rows;
}

std::vector<std::string_view> MariaStore::Gathered::Parameters() const {
  std::vector<std::string_view> parameters;
  parameters.reserve(ends.size());
  std::size_t start = 0;
  for (const std::size_t end : ends) {
    parameters.push_back(std::string_view(bytes).substr(start, end - start));
    start = end;
  }
  return parameters;
}

void MariaStore::SendGathered() {
  if (gathered_.rows == 0) return;
  const Gathered sent = std::exchange(gathered_, {});
  std::string reason;
  try {
    connection_.ChangeMany(sent.table->write, sent.table->Width(), sent.Parameters());
    return;
  } catch (const MariaFailure& failure) {
    const std::string& name = sent.table->Description().name;
    const bool isOfTable = failure.IsRefusal() || failure.Code() == maria_error::kLockWait;
    reason = isOfTable ? fmt::format("table {}: {}", name, RefusalOf(failure)) : failure.what();
  } catch (const StoreFailure& failure) {
    reason = failure.what();
  }
  Rollback();
  ForgetTables();
  throw StoreFailure(fmt::format("{}; {}", reason, kLostWrites));
}

// Sends the one row that is gathered, for a table that may refuse it.
bool MariaStore::SendOne(const OpenedTable& opened, std::string_view id, std::string& error) {
  const Gathered sent = std::exchange(gathered_, {});
  try {
    Guarded([&] { connection_.Change(opened.write, sent.Parameters(), IfLost::kFail); });
    return true;
  } catch (const MariaFailure& failure) {
    if (!failure.IsRefusal()) {
      Rollback();
      throw StoreFailure(fmt::format("{}; {}", failure.what(), kLostWrites));
    }
    error = fmt::format("{}: {}", NameItem(opened.Description().name, id), RefusalOf(failure));
    return false;
  }
}

bool MariaStore::Write(TableHandle table, std::string_view id, std::string_view item, std::string& error) {
  assert(writesAreOpen_);
  OpenedTable& opened = Use(table);
  if (!IsWritable(opened, error) || !FitItem(opened.Description(), id, item, columns_, error)) return false;
  if (item.size() > connection_.LargestText()) {
    error = fmt::format("{}: {}", NameItem(opened.Description().name, id),
                        connection_.TooLarge("the item", item.size()));
    return false;
  }
  const std::size_t ofParameters = (gathered_.ends.size() + opened.Width()) * kParameterOverhead;
  const bool isFull = gathered_.bytes.size() + id.size() + item.size() + ofParameters >
                      std::min(kGatheredBytes, connection_.LargestText());
  if (opened.found.mayRefuse || isFull) SendGathered();
  Gather(opened, id);
  if (opened.found.mayRefuse) return SendOne(opened, id, error);
  if (gathered_.rows >= kMostGathered) SendGathered();
  return true;
}

bool MariaStore::Erase(TableHandle table, std::string_view id, std::string& error) {
  assert(writesAreOpen_);
  OpenedTable& opened = Use(table);
  if (!IsWritable(opened, error)) return false;
  SendGathered();
  const std::string_view parameters[] = {id};
  try {
    const std::uint64_t erased =
        Guarded([&] { return connection_.Change(opened.erase, parameters, IfLost::kFail); });
    if (erased > 0) return true;
    error = fmt::format("{} doesn't exist", NameItem(opened.Description().name, id));
  } catch (const MariaFailure& failure) {
    if (!failure.IsRefusal()) {
      Rollback();
      throw StoreFailure(fmt::format("{}; {}", failure.what(), kLostWrites));
    }
    error = fmt::format("{}: {}", NameItem(opened.Description().name, id), failure.Reason());
  }
  return false;
}

// ---- Files

template <typename Change>
bool MariaStore::ChangeTables(const Change& change) {
  BeginWrites();
  writesAreOpen_ = false;
  try {
    if (change()) return true;
  } catch (...) {
    Rollback();
    throw;
  }
  Rollback();
  return false;
}

// The table of a name in either spelling.
bool MariaStore::FindExisting(std::string_view name, MariaCatalogue::Found& found, std::string& error) {
  const std::string mapped = MapTableName(name);
  bool isThere = catalogue_.Find(mapped, found);
  if (!isThere) {
    found = {};
    isThere = catalogue_.Find(FoldTableName(name), found);
  }
  if (!isThere) {
    error = NoSuchTable(mapped);
  } else if (found.description.layout == Layout::kBuiltIn) {
    error = BuiltInRefusal(mapped);
  } else if (!found.isTable) {
    error = found.fault;
  } else {
    return true;
  }
  return false;
}

bool MariaStore::MakeTable(const NewTable& table, std::string& error) {
  return IsFileName(table.name, error) && ChangeTables([&] { return catalogue_.Make(table, error); });
}

bool MariaStore::DropIfThere(std::string_view candidate, bool& isThere, std::string& error) {
  MariaCatalogue::Found found;
  isThere = catalogue_.Find(FoldTableName(candidate), found) && found.isTable;
  if (!isThere) return false;
  Commit();
  return ChangeTables([&] { return catalogue_.Drop(found, error); });
}

bool MariaStore::CreateTable(std::string_view name, std::int32_t columns, std::string& error) {
  Commit();
  NewTable table;
  table.name = MapTableName(name);
  table.layout = columns > 0 ? Layout::kColumns : Layout::kItem;
  table.columns.assign(static_cast<std::size_t>(std::max(columns, 1)) + 1, {.notNull = true});
  std::string dictionary;
  if (IsDictionaryOfDictionary(table.name, dictionary)) {
    error = BuiltInRefusal(table.name);
    return false;
  }
  return MakeTable(table, error);
}

bool MariaStore::DropTable(std::string_view name, std::string& error) {
  Commit();
  MariaCatalogue::Found found;
  return FindExisting(name, found, error) && ChangeTables([&] { return catalogue_.Drop(found, error); });
}

bool MariaStore::ClearTable(std::string_view name, std::string& error) {
  Commit();
  MariaCatalogue::Found found;
  return FindExisting(name, found, error) && ChangeTables([&] { return catalogue_.Clear(found, error); });
}

}  // namespace nvadmin::engine
