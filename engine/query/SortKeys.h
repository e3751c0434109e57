// The order of a query's result: one byte string a result, of which plain byte order is the order wanted.
// All keys lie in one buffer, each with its result at the end; what is sorted is an index of 24 bytes an
// item, and that only when the items didn't come in order.
//
// The result of an item is its ID, or under SAVING the values of a column. BY counts with the first value of
// its column. BY-EXP makes a result of each value, of several exploded columns of the values at the same
// place, empty where a column has fewer. Results that are equal in all sort fields follow one another by
// their item IDs (as numbers where the file's IDs are numeric) or, where the verb doesn't sort by ID, as they
// were found.
//
// Where every sort field is a stored attribute and none explodes, a store may sort instead: it is told the
// same keys as data, and where it takes them, the results come in their order and nothing is added here.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "engine/query/Columns.h"
#include "engine/query/Query.h"

namespace nvadmin::engine {

// Takes a result; true: it wants more.
using ResultVisitor = std::function<bool(std::string_view result)>;

class SortKeys {
 public:
  // Enters the columns of the query's sort fields and of SAVING into `columns`. False: a word is no column;
  // `error` names it and its position.
  bool Compile(const Query& query, Columns& columns, Dictionary& dictionary, std::string& error);

  // The order for a store that sorts, of which SAMPLE counts the results (but under SAVING); null when only
  // the engine can sort, or nothing is to be sorted.
  const ScanOrder* OrderForStore() const { return order_ ? &*order_ : nullptr; }
  // What the columns need that were in use before the sort fields, and SAVING.
  const Projection& NeededBeside() const { return neededBeside_; }

  // False when the results stay in the order in which they are found.
  bool IsNeeded() const { return last_ != ScanOrder::Last::kAsScanned || !fields_.empty(); }

  // The result of an item where no sort is needed.
  std::string_view ResultOf(Row& row) const { return saved_ ? row.Value(*saved_) : row.Id(); }

  void Add(Row& row);
  // Sorts what was added and visits it; `most` above 0: not more than so many results.
  void Write(std::size_t most, const ResultVisitor& visit);

 private:
  struct Field {
    std::size_t column;
    bool numeric;
    bool descending;
    bool explodes;
  };
  struct Entry {
    std::uint64_t prefix;  // the key's first eight bytes, the first one highest
    std::uint64_t start;   // in keys_
    std::uint32_t length;
    std::uint32_t resultLength;  // the result is the end of the key
  };

  std::optional<ScanOrder> MakeOrder(const Query& query, const Columns& columns) const;
  bool TakeValues();
  void AddKey(Row& row);
  std::string_view KeyOf(const Entry& entry) const {
    return std::string_view(keys_).substr(entry.start, entry.length);
  }
  bool IsBelow(const Entry& left, const Entry& right) const {
    return left.prefix != right.prefix ? left.prefix < right.prefix : KeyOf(left) < KeyOf(right);
  }

  std::vector<Field> fields_;
  bool explodes_ = false;
  std::optional<std::size_t> saved_;       // column
  std::optional<std::size_t> savedField_;  // the field that explodes that column
  ScanOrder::Last last_ = ScanOrder::Last::kAsScanned;
  std::optional<ScanOrder> order_;
  Projection neededBeside_;

  // Of the item that is being added.
  std::vector<std::string_view> values_;                  // one a field
  std::vector<std::optional<std::string_view>> waiting_;  // further values of exploded fields

  std::string keys_;
  std::vector<Entry> entries_;
  bool isInOrder_ = true;
};

}  // namespace nvadmin::engine
