#include "engine/stores/TableNames.h"

#include <gtest/gtest.h>

namespace nvadmin::engine {
namespace {

TEST(TableNames, MapsAFileNameToItsTable) {
  struct Case {
    const char* fault;
    const char* name;
    const char* table;
  };
  const Case cases[] = {
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
  for (const Case& test : cases) EXPECT_EQ(MapTableName(test.name), test.table) << test.fault;
}

TEST(TableNames, TellsDictionariesOfDictionaries) {
  std::string dictionary = "kept";
  EXPECT_FALSE(IsDictionaryOfDictionary("x_dict", dictionary));
  EXPECT_FALSE(IsDictionaryOfDictionary("x", dictionary));
  EXPECT_EQ(dictionary, "kept");
  EXPECT_TRUE(IsDictionaryOfDictionary("x_dict_dict", dictionary));
  EXPECT_EQ(dictionary, "x_dict");
}

TEST(TableNames, ReadsNativeNames) {
  struct Case {
    const char* fault;
    const char* name;
    const char* shown;
    const char* key;
  };
  const Case cases[] = {
      {"a file keeps its signs and letters", "My.File-1", "My.File-1", "my.file-1"},
      {"dictionary", "dict  CUST ", "DICT CUST", "dict cust"},
      {"a mapped dictionary", "Cust_dict", "DICT Cust", "dict cust"},
      {"dictionary of a dictionary, both ways", "DICT Cust_DICT", "DICT DICT Cust", "dict dict cust"},
      {"dictionary of a mapped dictionary", "x_dict_dict", "DICT DICT x", "dict dict x"},
      {"a file called dict is no dictionary", "DICT", "DICT", "dict"},
      {"nor is one whose name only begins so", "DICTIONARY", "DICTIONARY", "dictionary"},
      {"a dictionary of nothing", "_dict", "DICT ", "dict "},
      {"accented letters have no other case here", "\xC9T\xC9", "\xC9T\xC9", "\xC9t\xC9"},
  };
  for (const Case& test : cases) {
    const NativeName read = ReadNativeName(test.name);
    EXPECT_EQ(read.Shown(), test.shown) << test.fault;
    EXPECT_EQ(read.Key(), test.key) << test.fault;
  }
}

TEST(TableNames, QuotesAnyName) {
  EXPECT_EQ(QuoteSqlName("order"), "\"order\"");
  EXPECT_EQ(QuoteSqlName("a\"; DROP TABLE b; --"), "\"a\"\"; DROP TABLE b; --\"");
}

}  // namespace
}  // namespace nvadmin::engine
