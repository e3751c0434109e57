// The columns of a report: dictionary items, read once before the first heading, and the cells that they make
// of an item. Interprets no conversion code itself; that is the helper's. Reads the dictionary only in
// PrepareColumns.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "reports/ReportSentence.h"

namespace nvadmin {

// One column. Made from a ColumnItem, a dynamic array in the layout of a dictionary item: 1 type, 2 attribute
// number ("0" is the item ID), 3 heading, 4 TotalMark, 5 BreakMark, 7 conversion, 8 correlative, 9
// justification, 10 width.
struct ReportColumn {
  explicit ReportColumn(std::string_view item);

  bool hasData = false;  // types A, D and S; any other leaves the cells empty
  bool showsItemId = false;
  std::int32_t attribute = 0;
  std::string heading;  // all of attribute 3
  bool isTotalled = false;
  bool isBreak = false;
  std::string conversion;          // trimmed
  std::string correlative;         // trimmed
  std::string justification;       // attribute 9 as it is
  std::int32_t declaredWidth = 0;  // 10 where the dictionary has 0
  std::int32_t width = 0;          // in characters: 10 where that is below 1; at most 1,000,000
};

struct ReportColumns {
  std::vector<ReportColumn> columns;
  bool anyTotal = false;
};

// Turns the report's column words into columns. A word without a dictionary item becomes a column headed
// "ERROR(word)" with empty cells; without any words the dictionary's items 1, 2, 3 ... are taken, up to 1000
// or the fourth that is missing.
ReportColumns PrepareColumns(const ReportSentence& report);

// The columns of a result whose cells the engine has computed, from their descriptions: heading,
// ColumnPartMark, justification letter with the width behind it, ColumnPartMark, conversion, and from an
// engine that tells it, ColumnPartMark and the word by which the sentence named the column. The phrases of
// the modifiers name a column by that word, or by its heading where there is none.
ReportColumns PrepareDescribedColumns(const std::vector<std::string>& descriptions,
                                      std::string_view modifierList);

// The cell as it is stored: the item ID or an attribute, with the column's correlative applied. Requires
// column.hasData.
std::string StoredCell(const ReportColumn& column, std::string_view dataItem, std::string_view itemId,
                       std::string_view dataFile);
// What becomes of a value that can't be converted: it stays, or the helper's answer "####" takes its place.
enum class Inconvertible { kStaysStored, kShowsAnswer };
// Applies an output conversion to each value of the cell.
void ConvertValues(std::string& cell, std::string_view conversion, Inconvertible inconvertible);
// Applies the column's output conversion; a value that can't be converted stays as it is stored.
void ConvertCell(const ReportColumn& column, std::string& cell);

}  // namespace nvadmin
