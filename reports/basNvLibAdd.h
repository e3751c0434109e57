// Correlatives: what turns a stored value into the value that a column shows. Arithmetic ones over plain
// stored columns are compiled once per report into a list of attribute numbers; all others are conversion
// codes of the helper.
#pragma once

#include <string>
#include <string_view>

namespace nvadmin {

// The first piece of a compiled list: "CUSTOMA;4;*;5" multiplies attribute 4 by attribute 5.
inline constexpr std::string_view kCompiledPrefix = "CUSTOMA;";

// Turns an arithmetic correlative in attribute 8 of `item` (A;N(QTY)*N(PRICE)) into a compiled list, reading
// the names from the dictionary `dictionary` (a FileVar). Only names of plain stored columns and the
// operators : + - / * ^ can take part; with anything else the item stays as it is, and the correlative is
// left to the helper.
void CompileCorrelative(std::string& item, std::string_view dictionary);

// The new cell. `value` may hold several values; each is worked on by itself and keeps its position.
// `correlative` is trimmed and not empty: a compiled list, a conversion code, or a chain of them parted by
// ValueMark, each applied to the result of the one before. `file` is the FileVar of the data item.
//
// An operand of a compiled list is the value, at the cell's value position, of the attribute of that number
// in the item; "0" is the item ID at every position. The list is worked from left to right without
// precedence, on leading numbers; division by zero gives 0, and a result that no number can hold gives
// "####".
std::string ApplyCorrelative(std::string_view value, std::string_view correlative, std::string_view dataItem,
                             std::string_view itemId, std::string_view file);

}  // namespace nvadmin
