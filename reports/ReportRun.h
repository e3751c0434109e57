// The walk of a report over its items, whatever form shows it: the cells of the item in hand, and its part in
// totals and breaks. Shows nothing itself.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "reports/Columns.h"
#include "reports/ReportSentence.h"
#include "reports/Totals.h"

namespace nvadmin {

struct ReportRun {
  // Takes the columns; `showsItemId`: display position 0 is the item ID.
  void SetColumns(ReportColumns prepared, bool showsItemId);

  std::size_t PositionCount() const { return firstColumn + columns.size(); }
  // What a total line shows at a display position: the sum of a totalled column, else `otherwise`.
  std::string ShowTotal(TotalRow totalRow, std::size_t position, std::string_view otherwise);

  ReportSentence sentence;
  std::vector<ReportColumn> columns;
  bool anyTotal = false;
  std::size_t firstColumn = 0;   // display position of the first column: 1 behind the item ID, else 0
  std::vector<std::string> row;  // the cells of the item in hand, by display position
  Totals totals{0};
  std::int64_t itemCount = 0;
};

// Shows the sub-total that is due before the lines of the item in hand. False ends the report.
using ShowSubTotal = std::function<bool()>;

// Computes the cells of the item. `valueCount` becomes the number of lines that it needs, at least 1. False
// when `showSubTotal` ended the report.
bool TakeItem(ReportRun& run, std::string_view dataItem, const std::string& itemId, std::int32_t& valueCount,
              const ShowSubTotal& showSubTotal);
// The same for cells that are final, in the order of the columns.
bool TakeFinalCells(ReportRun& run, std::vector<std::string> cells, const std::string& itemId,
                    std::int32_t& valueCount, const ShowSubTotal& showSubTotal);

// What a report says of a key without an item.
std::string MissingItemText(std::string_view itemId, const ReportSentence& sentence);

}  // namespace nvadmin
