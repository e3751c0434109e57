// Names of files and of their tables. A file comes under the name that a user types (MY.FILE-1, DICT
// CUSTOMERS) or under the one that its table has on a relational store (my_file_1, customers_dict); both lead
// to the same table. Names are code page bytes. Knows no store.
#pragma once

#include <string>
#include <string_view>

namespace nvadmin::engine {

// Names that are alike in this form are one table: A to Z become small, accented letters stay.
std::string FoldTableName(std::string_view name);

// The table of a file: folded, "_" for "." and "-", "x_dict" for "dict x", "table_nv" and "key_nv" for the
// two names that SQL has taken. A name that is mapped already comes back as it is.
std::string MapTableName(std::string_view name);

// "x_dict": the file itself is something else.
bool IsDictionaryName(std::string_view mappedName);
// "x_dict_dict": `dictionary` becomes "x_dict". False, with `dictionary` unchanged, for any other name.
bool IsDictionaryOfDictionary(std::string_view mappedName, std::string& dictionary);

// A file's name on a store that keeps names as they come: whose it is, and whether it is that file itself,
// its dictionary (DICT x, x_dict) or the dictionary of that (DICT DICT x, DICT x_dict, x_dict_dict).
struct NativeName {
  std::string owner;     // in its letter case; it may be empty
  int dictionaryOf = 0;  // 0 the file itself, 1 its dictionary, 2 and up the dictionary of one

  std::string Shown() const;  // "MY.FILE-1", "DICT MY.FILE-1", "DICT DICT MY.FILE-1"
  std::string Key() const { return FoldTableName(Shown()); }
};
NativeName ReadNativeName(std::string_view name);

// In double quotes, as SQL takes a name with any character in it.
std::string QuoteSqlName(std::string_view name);

}  // namespace nvadmin::engine
