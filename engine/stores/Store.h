// A store: where the files of one account lie. Each session has a store object of its own (one connection),
// used on the session's thread alone, Interrupt apart. The engine above knows items (dynamic arrays) under
// item IDs; the store knows how they lie in tables. All text is bytes of the code page.
//
// Failures of the store itself (damaged file, lost connection, full disk) throw StoreFailure and leave the
// session alive. An expected no is false and a text in `error` that names table, item, column, limit and
// length as far as they apply.
//
// Writes gather in one transaction that is open until Commit: BeginWrites opens it and waits for other
// writers, so what is checked after it (locks) holds until Commit. Reads see the session's own writes at
// once.
//
// Other sessions may drop and make tables at any time. A table that is gone has no items: reads answer that
// there is none, writes are refused with a text, and a scan, which can't tell a dropped table from an empty
// one, is a StoreFailure. A table made anew is used as it is now, under the old handle too.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "engine/ResultGrid.h"
#include "session/EngineCallBack.h"

namespace nvadmin::engine {

struct StoreFailure : EngineFailure {
  using EngineFailure::EngineFailure;
};

enum class Layout {
  kColumns,  // Type-C: A0, A1 ... An, an attribute each
  kItem,     // Type-N: A0 and ITEM, the item as one text; also every file of a native store
  kBuiltIn,  // made by the engine, read only (the dictionary of a dictionary)
};

struct TableDescription {
  std::string name;  // as the store spells it
  Layout layout = Layout::kColumns;
  // Longest text in characters of A0, A1 ... An, or of A0 and ITEM; 0 is no limit. Empty for a built-in or
  // dropped table.
  std::vector<std::int64_t> limits;
};

// Index of an opened table; valid for the life of the store object, also after the table was dropped (its use
// is then a false answer with a text) or made anew.
using TableHandle = std::int32_t;

// From one end to the other under the order of engine/Order.h; a missing end is open.
struct ScanRange {
  struct End {
    std::string value;
    bool belongs = true;
  };
  bool numeric = false;  // the order of numeric columns
  std::optional<End> least = {};
  std::optional<End> most = {};
};

// One way to meet a condition. What is told of it all holds of an attribute (0 is the item ID) that does, so
// a store may look at whichever it can test.
struct ScanAlternative {
  std::int32_t attribute = 0;
  std::string text = {};  // somewhere in the attribute; empty, and no range: the attribute isn't empty
  std::optional<ScanRange> range = {};  // one of its values, up to a value or subvalue mark, lies in it
};
// What an item must have for its scanner to want it: one of several things.
using ScanCondition = std::vector<ScanAlternative>;

// What a scan hands out of each item: the attributes named (1 and up, in this order), or the whole item.
struct Projection {
  std::vector<std::int32_t> attributes;
  bool wholeItem = false;  // then the values are just one, the item
  // A store may leave out items that don't meet all of them, where that costs it less than handing them out.
  // It must hand out those that do, so it may ignore a condition, or widen it.
  std::vector<ScanCondition> conditions = {};
};

// The first value of an attribute (0 is the item ID), in the order of engine/Order.h.
struct ScanSortKey {
  std::int32_t attribute = 0;
  bool numeric = false;
  bool descending = false;
};

// An order for what a scan hands out: the first key decides, later ones settle what earlier ones leave equal.
struct ScanOrder {
  // What settles the rest: the order of Scan, or the whole item IDs; by their bytes, or as numbers and then
  // by their bytes.
  enum class Last { kAsScanned, kId, kNumericId };

  std::vector<ScanSortKey> keys;
  Last last = Last::kAsScanned;
  // No more items than these are wanted; 0: all. It counts items that meet the conditions by their ranges, so
  // it is told only when each alternative has one, and a store that takes it tests these and widens none.
  std::size_t most = 0;
};

// Called once an item; `values` as the projection says, valid during the call; missing attributes are empty.
// False ends the scan. It may read, scan, write and erase; a table can't be dropped while it is scanned by
// the same session.
using ScanVisitor = std::function<bool(std::string_view id, std::span<const std::string_view> values)>;

// One item of a batch read.
struct BatchItem {
  bool found = false;
  std::string item;
};

// Who wrote a sentence. In a program's, which are made of files' names, a name is bare whatever it looks
// like, with the blanks at its ends; in a user's one that is quoted as a whole means what is between the
// quotes.
enum class SentenceBy { kUser, kProgram };

inline constexpr std::string_view kNoSuchTable = "there is no table ";

class Store {
 public:
  virtual ~Store() = default;

  // Finds the table of a file. `name` comes in either spelling: as the add-in maps it (my_file_1,
  // customers_dict) or as a user types it (MY.FILE-1, DICT CUSTOMERS); the dictionary of a dictionary
  // (x_dict_dict) is built in wherever there is an x_dict. False, with `table` unchanged: there is no such
  // table, and `error` begins with kNoSuchTable, or it hasn't the columns of a file.
  virtual bool OpenTable(std::string_view name, TableHandle& table, std::string& error) = 0;
  // As the table is now. Reference valid until the next call of the store.
  virtual const TableDescription& Describe(TableHandle table) = 0;
  // All files, in byte order of their names; dictionaries (x_dict) among them only when asked for.
  virtual std::vector<std::string> TableNames(bool withDictionaries) = 0;

  // False when there is no such item; `item` is then empty. Trailing empty attributes of a Type-C item
  // vanish.
  virtual bool Read(TableHandle table, std::string_view id, std::string& item) = 0;
  // Attribute 1 and up; other numbers give an empty value. False when there is no such item.
  virtual bool ReadAttribute(TableHandle table, std::string_view id, std::int32_t attribute,
                             std::string& value) = 0;
  // Reads the items of `ids`, in their order, into as many entries of `items`: one round trip where there is
  // a server.
  virtual void ReadBatch(TableHandle table, std::span<const std::string_view> ids,
                         std::vector<BatchItem>& items) = 0;
  // Takes the item IDs that have no item out of `ids`: as ReadBatch, without reading the items.
  virtual void LeaveOutMissing(TableHandle table, std::vector<std::string_view>& ids) = 0;
  // Every item once, in byte order of the keys (a key declared as a number by hand: in order of the numbers),
  // as they were when the scan began; of what the visitor itself writes nothing, or the new state, may be
  // seen. A visitor that writes has the caller open the write transaction before the scan: during one it
  // can't be opened once another session has written.
  virtual void Scan(TableHandle table, const Projection& projection, const ScanVisitor& visitor) = 0;
  // As Scan, in another order. False, and nothing visited: the store leaves sorting to its caller, since it
  // can't give this order.
  virtual bool ScanInOrder(TableHandle /*table*/, const Projection& /*projection*/,
                           const ScanOrder& /*order*/, const ScanVisitor& /*visitor*/) {
    return false;
  }

  // Opens the write transaction unless it is open, and waits for other writers (StoreFailure after 10 s).
  virtual void BeginWrites() = 0;
  virtual bool HasOpenWrites() const = 0;
  // On disk when it returns. A failure rolls back and says that the writes since the last commit are not
  // there.
  virtual void Commit() = 0;
  virtual void Rollback() = 0;
  // Both require an open write transaction. False: the item doesn't fit (an empty ID, too long for a column
  // or key, more attributes than columns), a constraint of the table refuses it, or the table is read only or
  // gone. What was written before stays. A StoreFailure takes all open writes along and says so, unless it is
  // "interrupted" alone.
  virtual bool Write(TableHandle table, std::string_view id, std::string_view item, std::string& error) = 0;
  virtual bool Erase(TableHandle table, std::string_view id,
                     std::string& error) = 0;  // also false: no such item

  // Files. They commit what is open first, and are on disk when they return.
  // columns above 0 makes a Type-C table with that many columns of unlimited text; 0 a Type-N table. A native
  // store makes the same file of either.
  virtual bool CreateTable(std::string_view name, std::int32_t columns, std::string& error) = 0;
  virtual bool DropTable(std::string_view name, std::string& error) = 0;
  virtual bool ClearTable(std::string_view name, std::string& error) = 0;

  // One SQL statement, in the dialect of the account's datastore word. A query fills `grid` completely and
  // sets `message` to "n row(s)"; another statement leaves `grid` alone, sets `message` ("n row(s) changed",
  // "table x created" ...), and is on disk when it returns; what was open is committed before it. `isQuery`
  // tells which it was; after false or a failure, which the statement's first word makes it, and the grid of
  // a failed query is empty. Refused by name: what leaves the account, touches transactions, or is more than
  // one statement; a result of over 1 GiB. CREATE TABLE and DROP TABLE of a file take its name bare, whatever
  // characters it holds; they are all that a native store takes.
  virtual bool RunSql(std::string_view statement, ResultGrid& grid, bool& isQuery, std::string& message,
                      std::string& error) = 0;
  // Whose CREATE TABLE and DROP TABLE of files are to follow.
  void ExpectSentencesBy(SentenceBy author) { sentencesBy_ = author; }

  // Stops the statement that runs now, if any, with a StoreFailure "interrupted". Any thread, also a signal
  // handler.
  virtual void Interrupt() noexcept = 0;

 protected:
  SentenceBy SentencesBy() const { return sentencesBy_; }

 private:
  SentenceBy sentencesBy_ = SentenceBy::kUser;
};

}  // namespace nvadmin::engine
