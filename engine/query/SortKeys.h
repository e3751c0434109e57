// The sort of a query: one byte string an item, of which plain byte order is the order wanted.
// All keys lie in one buffer with their item IDs at the end; what is sorted is an index of 24 bytes an item.
//
// A sort field counts with the first value of its column. Items that are equal in all sort fields follow one
// another by their item IDs (as numbers where the file's IDs are numeric) or, where the verb doesn't sort by
// ID, as they were found.
//
// Later additions: sorting by every value of a column would call Add once a value, with that value.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "engine/ResultGrid.h"
#include "engine/query/Columns.h"
#include "engine/query/Query.h"

namespace nvadmin::engine {

class SortKeys {
 public:
  // Enters the columns of the query's sort fields into `columns`. False: a word is no column; `error` names
  // it and its position.
  bool Compile(const Query& query, Columns& columns, Dictionary& dictionary, std::string& error);

  // False when items stay in the order in which they are found.
  bool IsNeeded() const { return last_ != LastKey::kAsFound || !fields_.empty(); }

  void Add(Row& row);
  // Sorts what was added and appends the item IDs to a grid of one column.
  void Write(ResultGrid& grid);

 private:
  enum class LastKey { kAsFound, kIdAsText, kIdAsNumber };
  struct Field {
    std::size_t column;
    bool numeric;
    bool descending;
  };
  struct Entry {
    std::uint64_t prefix;  // the key's first eight bytes, the first one highest
    std::uint64_t start;   // in keys_
    std::uint32_t length;
    std::uint32_t idLength;  // the item ID is the end of the key
  };

  std::vector<Field> fields_;
  LastKey last_ = LastKey::kAsFound;
  std::string keys_;
  std::vector<Entry> entries_;
};

}  // namespace nvadmin::engine
