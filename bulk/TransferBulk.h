// The format of TransferBulk files: whole files of a source system, item by item, and statistics by which the
// loader sizes a table for each. Line by line: decoding, the kinds of line, and the names.
//
// Sections of item lines between an opening and a closing line; then the line "<FILE_STATISTICS>", one record
// a file, and the line "</FILE_STATISTICS>". Sections aren't nested: an opening line ends the section before.
#pragma once

#include <string>
#include <string_view>

#include "bulk/BinaryFileProvider.h"

namespace nvadmin {

inline constexpr std::string_view kStatisticsStart = "<FILE_STATISTICS>";
inline constexpr std::string_view kStatisticsEnd = "</FILE_STATISTICS>";

// What a line holds as text. A NUL goes with the 11 bytes behind it (block marks of the source system); then
// a backquote and the byte behind it become one byte: `C and `R a CR, `L and `N an LF, `0 a NUL, any other
// byte itself; a backquote at the end becomes nothing. Lent by `line`, or by `buffer`, which it may use.
std::string_view DecodeBulkLine(std::string_view line, std::string& buffer);
// The bytes by which a line differs from its text.
inline constexpr std::string_view kCodedBytes("\0`", 2);
// The same of `line`, which `file` lent last. A reader that notes kCodedBytes saves the search for them.
std::string_view DecodeBulkLine(const BinaryFileProvider& file, std::string_view line, std::string& buffer);

enum class BulkLineKind {
  kOpensDictionary,  // "<FILE_DICT>" and the file's name
  kOpensData,        // "<FILE_DATA>" and the file's name
  kCloses,           // "</FILE_DICT", "</FILE_DATA" and whatever follows
  kEndsSections,     // "<FILE_STATI" and whatever follows
  kItem,             // all else; an item where a section is open
};
// Of a decoded line; its first 11 bytes decide, letter case included.
BulkLineKind KindOfBulkLine(std::string_view line);
// The source file's name in an opening line.
std::string_view NameInOpeningLine(std::string_view line);

// The table name of a source file's name, before "_dict" is added to it: in small letters, of a name with a
// comma what stands behind the first, "_" for each ".", and "table_nv" and "key_nv" for two words that a
// database keeps for itself. Empty for a name that leaves nothing ("CUST,"): there is no target.
std::string TargetNameOf(std::string_view sourceName);
// The same for a file's dictionary. The file "md" is its own, and without a target there is none.
std::string DictionaryTargetName(std::string targetName);
inline constexpr std::string_view kMasterDictionary = "md";

}  // namespace nvadmin
