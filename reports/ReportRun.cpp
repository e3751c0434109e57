#include "reports/ReportRun.h"

#include <algorithm>
#include <utility>

#include "session/Marks.h"
#include "session/Text.h"
#include "session/basNvFunctions.h"

namespace nvadmin {

namespace {

// The stored cell's part in totals and breaks, before any conversion.
bool CountCell(ReportRun& run, std::size_t index, std::string_view cell, const ShowSubTotal& showSubTotal) {
  if (!run.anyTotal || !run.totals.Take(run.columns[index], index, cell, run.itemCount)) return true;
  return showSubTotal();
}

void CountLines(std::string_view cell, std::int32_t& valueCount) {
  if (cell.find(ValueMark) != std::string_view::npos)
    valueCount = std::max(valueCount, DDCount(cell, ValueMark));
}

}  // namespace

void ReportRun::SetColumns(ReportColumns prepared, bool showsItemId) {
  columns = std::move(prepared.columns);
  anyTotal = prepared.anyTotal;
  firstColumn = showsItemId ? 1 : 0;
  totals = Totals(columns.size());
  row.resize(PositionCount());
}

std::string ReportRun::ShowTotal(TotalRow totalRow, std::size_t position, std::string_view otherwise) {
  if (position < firstColumn) return std::string(otherwise);
  const std::size_t index = position - firstColumn;
  return columns[index].isTotalled ? totals.Show(totalRow, columns[index], index) : std::string(otherwise);
}

bool TakeItem(ReportRun& run, std::string_view dataItem, const std::string& itemId, std::int32_t& valueCount,
              const ShowSubTotal& showSubTotal) {
  valueCount = 1;
  if (run.firstColumn > 0) run.row[0] = itemId;
  for (std::size_t index = 0; index < run.columns.size(); ++index) {
    const ReportColumn& column = run.columns[index];
    std::string& cell = run.row[run.firstColumn + index];
    cell.clear();
    if (!column.hasData) continue;
    cell = StoredCell(column, dataItem, itemId, run.sentence.dataFile);
    if (!CountCell(run, index, cell, showSubTotal)) return false;
    ConvertCell(column, cell);
    CountLines(cell, valueCount);
  }
  return true;
}

bool TakeFinalCells(ReportRun& run, std::vector<std::string> cells, const std::string& itemId,
                    std::int32_t& valueCount, const ShowSubTotal& showSubTotal) {
  valueCount = 1;
  if (run.firstColumn > 0) run.row[0] = itemId;
  for (std::size_t index = 0; index < run.columns.size(); ++index) {
    if (!CountCell(run, index, cells[index], showSubTotal)) return false;
    CountLines(cells[index], valueCount);
    run.row[run.firstColumn + index] = std::move(cells[index]);
  }
  return true;
}

std::string MissingItemText(std::string_view itemId, const ReportSentence& sentence) {
  return Concat({"ERROR [914] Item '", itemId, "' not found in table/file '", sentence.fileName, "'"});
}

}  // namespace nvadmin
