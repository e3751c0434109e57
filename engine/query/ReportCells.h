// The cells of a report, computed by the engine: what a page shows of a native account, whose report reads
// neither items nor dictionary.
//
// The columns are those that a report would make of the sentence itself: a word's dictionary item stands
// under the word, or with "_" for "."; A5 without one is attribute 5; any other word is a column ERROR(word)
// whose cells are empty. A sentence without column words shows the dictionary's items 1, 2, 3 ... up to 1000
// or the fourth that is missing. A D or I item has its heading in 4, its width and justification in 5.
//
// A cell is final: its values after the column's correlative and, one by one, its output conversion; a value
// that can't be converted stays as it is stored. The page adds up the leading numbers of the cells under
// TOTAL and converts the sum: there masked decimals stand as plain numbers (no commas, currency or sign
// codes), described by the code that shows such a number as the column's own shows a stored one; values under
// any other code, such as dates and times, stand as they are stored. Row 0 describes each column in four
// pieces parted by character 250: the heading (the word where the item has none), the justification letter
// with the width right behind it, the output conversion, and the word by which the sentence named the column.
// A character 250 of these texts, an accented u, becomes a plain one.
#pragma once

#include <cstdint>

#include "engine/ResultGrid.h"
#include "engine/query/Columns.h"
#include "engine/query/Query.h"
#include "engine/stores/Store.h"

namespace nvadmin::engine {

// Fills `report` with the keys of `keys` in column 0, in their order, and the cells in columns 1 and up, one
// for each column of the report; it has no other. An item that is gone meanwhile has empty cells. Each item
// is read once, in batches; `report` then holds the text of all cells and 8 bytes more for each.
void FillReportCells(const Query& query, Store& store, TableHandle table, Dictionary& dictionary,
                     const ResultGrid& keys, ResultGrid& report);

}  // namespace nvadmin::engine
