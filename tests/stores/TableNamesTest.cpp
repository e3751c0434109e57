#include "engine/stores/TableNames.h"

#include <gtest/gtest.h>

namespace nvadmin::engine {
namespace {

TEST(TableNames, MapsAFileNameToItsTable) {
  const struct {
    const char *fault, *name, *table;
  } kCases[] = {
      {"capitals and both signs", "MY.FILE-1", "my_file_1"},
      {"a mapped name stays", "my_file_1", "my_file_1"},
      {"dictionary", "DICT CUSTOMERS", "customers_dict"},
      {"dictionary word in mixed letters, several blanks", "Dict   My.File ", "my_file_dict"},
      {"a mapped dictionary stays", "customers_dict", "customers_dict"},
      {"dictionary of a dictionary, typed", "DICT DICT CUSTOMERS", "customers_dict_dict"},
      {"dictionary of a mapped dictionary", "DICT customers_dict", "customers_dict_dict"},
      {"a reserved name", "TABLE", "table_nv"},
      {"the other reserved name", "Key", "key_nv"},
      {"only the whole name is reserved", "KEYS", "keys"},
      {"the dictionary of a reserved name isn't reserved", "DICT TABLE", "table_dict"},
      {"a file called dict is no dictionary", "DICT", "dict"},
      {"accented letters have no other case here", "\xC9T\xC9", "\xC9t\xC9"},
  };
  for (const auto& row : kCases) EXPECT_EQ(MapTableName(row.name), row.table) << row.fault;
}

}  // namespace
}  // namespace nvadmin::engine
