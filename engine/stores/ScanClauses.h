// What the statement of a scan says behind its table: WHERE, ORDER BY and LIMIT, and what is bound to them.
// Alike scans have the same text, so that a prepared statement serves them all.
//
// WHERE keeps every item that meets the conditions, and most often few others. A range is tested by a
// function of ours, on the text that the engine sees of a column and by the engine's order of values; so it
// keeps exactly the items wanted, whatever a column was declared as. Where there is a text to look for, and
// nothing counts the rows, SQLite's search for it serves instead, which costs less. That text is cut to the
// longest run of it that is plain ASCII (and no "?", which stands for characters that have no byte): the same
// in UTF-8, in a blob of bytes and in the text of a number, and a byte of it is never part of another
// character. Where nothing is left to look for, the condition is dropped.
//
// ORDER BY has one key an item, made by a function of ours: the forms of engine/Order.h of the first values
// of the sort keys, and behind them the item ID. These are the bytes that the engine's own sort compares, so
// the order is the same. They are one text to SQLite, since it compares one faster than several terms.
//
// The functions know their operands by pointers, which no SQL of a user can make: it gets NULL from them.
#pragma once

#include <cstdint>
#include <deque>
#include <span>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "engine/Order.h"
#include "engine/stores/Sqlite.h"
#include "engine/stores/Store.h"

namespace nvadmin::engine {

// Makes the functions known to a connection. The clauses of others can't be prepared.
void RegisterScanFunctions(Database& database);

class ScanClauses {
 public:
  // `keepsBytes`: the table's texts are blobs. `order` null: as Store::Scan says; else the table must have
  // columns. Conditions and order must stay as they are as long as the clauses are used.
  ScanClauses(const TableDescription& table, std::span<const ScanCondition> conditions,
              const ScanOrder* order, bool keepsBytes);
  ScanClauses(const ScanClauses&) = delete;
  ScanClauses& operator=(const ScanClauses&) = delete;

  // Begins with a blank. Column 1 of the statement must be A0.
  const std::string& Sql() const { return sql_; }
  // Binds the operands to a statement with these clauses, which has no other parameters. They must outlive
  // its run.
  void Bind(Statement& statement) const;

  // So many keys fit into a call of the function.
  static constexpr std::size_t kMostSortKeys = 100;

  struct WantedRange {
    const ScanRange* range;
    Operand least;
    Operand most;

    bool Holds(std::string_view value) const;
  };

 private:
  using BoundOperand = std::variant<std::string_view, const WantedRange*, const ScanOrder*, std::int64_t>;

  void AddWhere(const TableDescription& table, std::span<const ScanCondition> conditions, bool exactly);
  void AddOrder(const TableDescription& table, const ScanOrder& order);
  std::string Expression(const TableDescription& table, const ScanAlternative& alternative, bool exactly);

  bool keepsBytes_;
  std::string sql_;
  std::vector<BoundOperand> operands_;
  std::deque<WantedRange> ranges_;
};

}  // namespace nvadmin::engine
