#include "engine/stores/ScanClauses.h"

#include <fmt/format.h>

#include <algorithm>
#include <exception>

#include "engine/Marks.h"
#include "engine/stores/StoredText.h"

namespace nvadmin::engine {

namespace {

// Longer texts hardly exclude more.
constexpr std::size_t kLongestRun = 100;

// What the pointers given to the functions are; SQLite compares these names.
constexpr const char* kRangePointer = "nvadmin range";
constexpr const char* kOrderPointer = "nvadmin order";

// In an item's key, in the order in which SQLite sorts what it stores.
constexpr char kNullId = 0;
constexpr char kNumericId = 1;
constexpr char kTextId = 2;
constexpr char kBlobId = 3;

bool IsPlain(char letter) {
  const auto byte = static_cast<unsigned char>(letter);
  return byte > 0 && byte < 0x80 && letter != '?';
}

std::string_view LongestPlainRun(std::string_view text) {
  std::string_view longest;
  while (!text.empty()) {
    const auto end = std::find_if_not(text.begin(), text.end(), IsPlain);
    const auto length = static_cast<std::size_t>(end - text.begin());
    if (length > longest.size()) longest = text.substr(0, length);
    text.remove_prefix(std::min(length + 1, text.size()));
  }
  return longest.substr(0, kLongestRun);
}

Operand ReadEnd(const std::optional<ScanRange::End>& end) {
  return end ? ReadOperand(end->value) : Operand{};
}

// nv_within(range, column): whether one of the column's values lies in the range.
void RunWithin(sqlite3_context* context, int /*count*/, sqlite3_value** arguments) {
  const auto* range =
      static_cast<const ScanClauses::WantedRange*>(sqlite3_value_pointer(arguments[0], kRangePointer));
  if (range == nullptr) return sqlite3_result_null(context);
  const StoredValue stored = StoredArgument(arguments[1]);
  if (IsAscii(stored.bytes)) return sqlite3_result_int(context, range->Holds(stored.bytes) ? 1 : 0);
  std::string memory;
  std::string_view rest = InCodePage(stored, memory);
  for (;;) {
    const std::size_t length = ValueLength(rest);
    const bool isIn = range->Holds(rest.substr(0, length));
    if (isIn || length == rest.size()) return sqlite3_result_int(context, isIn ? 1 : 0);
    rest.remove_prefix(length + 1);
  }
}

void AppendFirstValue(const StoredValue& stored, const ScanSortKey& wanted, std::string& key) {
  std::string memory;
  std::string_view value = stored.bytes;
  if (!IsAscii(value)) {  // then there may be marks
    value = InCodePage(stored, memory);
    value = value.substr(0, ValueLength(value));
  }
  AppendOrderKey(value, wanted.numeric, wanted.descending, key);
}

// The place of an item ID in the order of Scan: texts by their ASCII beginning, those with more behind it
// after the plain ones and by their bytes. Numbers are left to the term behind the key.
void AppendScanPlace(sqlite3_value* argument, std::string& key) {
  const int type = sqlite3_value_type(argument);
  const StoredValue id = StoredArgument(argument);
  switch (type) {
    case SQLITE_NULL:
      key += kNullId;
      return;
    case SQLITE_BLOB:
      (key += kBlobId).append(id.bytes);
      return;
    case SQLITE_TEXT:
      break;
    default:
      key += kNumericId;
      return;
  }
  const std::size_t ascii = AsciiPrefix(id.bytes);
  (key += kTextId).append(id.bytes.substr(0, ascii));
  std::string memory;
  if (ascii < id.bytes.size()) (key += '\xFF').append(InCodePage(id, memory));
}

void AppendId(sqlite3_value* argument, ScanOrder::Last last, std::string& key) {
  if (last == ScanOrder::Last::kAsScanned) return AppendScanPlace(argument, key);
  std::string memory;
  const std::string_view id = InCodePage(StoredArgument(argument), memory);
  if (last == ScanOrder::Last::kNumericId) AppendOrderKey(id, /*numeric=*/true, /*descending=*/false, key);
  key += id;
}

// nv_sort_key(order, A0, column ...), a column for each of the order's keys.
void RunSortKey(sqlite3_context* context, int count, sqlite3_value** arguments) {
  constexpr std::size_t kLongestKept = 65'536;
  const void* pointer = count < 2 ? nullptr : sqlite3_value_pointer(arguments[0], kOrderPointer);
  const auto* order = static_cast<const ScanOrder*>(pointer);
  if (order == nullptr) return sqlite3_result_null(context);
  thread_local std::string key;  // kept for its memory
  key.clear();
  for (int at = 2; at < count; ++at) {
    AppendFirstValue(StoredArgument(arguments[at]), order->keys[static_cast<std::size_t>(at - 2)], key);
  }
  AppendId(arguments[1], order->last, key);
  sqlite3_result_text64(context, key.data(), key.size(), SQLITE_TRANSIENT, SQLITE_UTF8);
  if (key.size() > kLongestKept) std::string().swap(key);
}

// No exception may pass through SQLite; the only ones that come are for memory.
template <auto function>
void RunGuarded(sqlite3_context* context, int count, sqlite3_value** arguments) noexcept {
  try {
    function(context, count, arguments);
  } catch (const std::exception&) {
    sqlite3_result_error_nomem(context);
  }
}

}  // namespace

void RegisterScanFunctions(Database& database) {
  struct Function {
    const char* name;
    int arguments;  // -1: any number
    void (*run)(sqlite3_context*, int, sqlite3_value**);
  };
  constexpr Function kFunctions[] = {{"nv_within", 2, RunGuarded<RunWithin>},
                                     {"nv_sort_key", -1, RunGuarded<RunSortKey>}};
  for (const Function& row : kFunctions) {
    const int code = sqlite3_create_function_v2(database.Handle(), row.name, row.arguments,
                                                SQLITE_UTF8 | SQLITE_DETERMINISTIC | SQLITE_DIRECTONLY,
                                                nullptr, row.run, nullptr, nullptr, nullptr);
    if (code != SQLITE_OK) database.Fail(code);
  }
}

bool ScanClauses::WantedRange::Holds(std::string_view value) const {
  const Operand operand = range->numeric ? ReadOperand(value) : Operand{};
  const auto compare = [&](const Operand& end) {
    return range->numeric ? CompareOperands(operand, end) : value.compare(end.text);
  };
  if (range->least) {
    const int order = compare(least);
    if (order < 0 || (order == 0 && !range->least->belongs)) return false;
  }
  if (!range->most) return true;
  const int order = compare(most);
  return order < 0 || (order == 0 && range->most->belongs);
}

ScanClauses::ScanClauses(const TableDescription& table, std::span<const ScanCondition> conditions,
                         const ScanOrder* order, bool keepsBytes)
    : keepsBytes_(keepsBytes) {
  AddWhere(table, conditions, /*exactly=*/order != nullptr);
  if (order == nullptr) {
    sql_ += " ORDER BY A0 COLLATE BINARY";  // a key declared by hand may have an order of its own
  } else {
    AddOrder(table, *order);
  }
}

void ScanClauses::AddWhere(const TableDescription& table, std::span<const ScanCondition> conditions,
                           bool exactly) {
  const char* lead = " WHERE (";
  for (const ScanCondition& condition : conditions) {
    if (condition.empty()) continue;
    sql_ += lead;
    const char* joint = "";
    for (const ScanAlternative& alternative : condition) {
      sql_ += joint + Expression(table, alternative, exactly);
      joint = " OR ";
    }
    sql_ += ')';
    lead = " AND (";
  }
}

std::string ScanClauses::Expression(const TableDescription& table, const ScanAlternative& alternative,
                                    bool exactly) {
  const bool isItem = table.layout == Layout::kItem && alternative.attribute > 0;
  const std::size_t column = isItem ? 1 : static_cast<std::size_t>(std::max(alternative.attribute, 0));
  const std::string name = isItem ? "ITEM" : fmt::format("A{}", column);
  // To look for a text costs less than the function and finds about the same; digits are in many numbers.
  const bool isNumeric = alternative.range && alternative.range->numeric;
  const bool findsText = !alternative.text.empty() && !isNumeric && !exactly;
  if (alternative.range && !isItem && !findsText) {
    const ScanRange& range = *alternative.range;
    const WantedRange wanted{&range, ReadEnd(range.least), ReadEnd(range.most)};
    if (column >= table.limits.size()) return wanted.Holds({}) ? "1" : "0";
    operands_.emplace_back(&ranges_.emplace_back(wanted));
    return fmt::format("nv_within(?, {})", name);
  }
  if (column >= table.limits.size()) return "0";
  if (alternative.text.empty()) {
    // A column declared by hand may compare in an order of its own.
    return alternative.range ? "1" : name + " <> '' COLLATE BINARY";
  }
  const std::string_view run = LongestPlainRun(alternative.text);
  if (run.empty()) return "1";
  operands_.emplace_back(run);
  return fmt::format("instr({}, ?)", name);
}

void ScanClauses::AddOrder(const TableDescription& table, const ScanOrder& order) {
  sql_ += " ORDER BY nv_sort_key(?, A0";
  operands_.emplace_back(&order);
  for (const ScanSortKey& key : order.keys) {
    const bool isThere = key.attribute >= 0 && static_cast<std::size_t>(key.attribute) < table.limits.size();
    sql_ += ", " + (isThere ? fmt::format("A{}", key.attribute) : "NULL");
  }
  sql_ += "), 1 COLLATE BINARY";
  if (order.most == 0) return;
  sql_ += " LIMIT ?";
  operands_.emplace_back(static_cast<std::int64_t>(order.most));
}

void ScanClauses::Bind(Statement& statement) const {
  struct Binder {
    Statement& statement;
    int parameter;
    bool keepsBytes;

    void operator()(std::string_view text) const {
      keepsBytes ? statement.BindBlob(parameter, text) : statement.BindText(parameter, text);
    }
    void operator()(std::int64_t number) const { statement.BindInteger(parameter, number); }
    void operator()(const WantedRange* range) const { BindPointer(range, kRangePointer); }
    void operator()(const ScanOrder* order) const { BindPointer(order, kOrderPointer); }

    void BindPointer(const void* object, const char* type) const {
      // SQLite hands the pointer back to our functions alone, which change nothing.
      sqlite3_bind_pointer(statement.Handle(), parameter, const_cast<void*>(object), type, nullptr);
    }
  };
  int parameter = 0;
  for (const BoundOperand& operand : operands_)
    std::visit(Binder{statement, ++parameter, keepsBytes_}, operand);
}

}  // namespace nvadmin::engine
