// What the declaration of a table says of the columns of a file, on every relational store: a file has the
// columns A0 (primary key) and A1, A2 ..., or A0 and ITEM; it may have others beside them.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "engine/stores/Store.h"

namespace nvadmin::engine {

class Declaration {
 public:
  // Columns beyond A`most` are none of the file's.
  explicit Declaration(std::int32_t most) : most_(most) {}

  // A column, its name in small letters; `limit` as in TableDescription.
  void Take(std::string_view folded, std::int64_t limit, bool isInKey, bool isComputed);
  // Why the table is no file; empty when it is one.
  std::string FindLack() const;
  // Sets layout and limits. Requires that nothing lacks.
  void Describe(TableDescription& table);

 private:
  std::int32_t most_;
  std::vector<std::int64_t> limits_;  // of A0, A1 ... An; -1 where there is no such column
  std::int64_t itemLimit_ = -1;
  std::int32_t keyColumns_ = 0;
  bool hasKey_ = false;   // A0 is one of them
  std::string computed_;  // a column of the file that can't be written
};

// "table x can't be used as a file: LACK; a file has ...".
std::string UnusableAsFile(std::string_view table, std::string_view lack);

}  // namespace nvadmin::engine
