#include "reports/HtmlReport.h"

#include <initializer_list>
#include <string>
#include <vector>

#include "reports/Columns.h"
#include "reports/ReportRun.h"
#include "reports/ReportSentence.h"
#include "reports/Totals.h"
#include "session/Marks.h"
#include "session/SessionState.h"
#include "session/StringBuilder.h"
#include "session/Text.h"
#include "session/Values.h"
#include "session/basNvFunctions.h"
#include "session/basNvLibrary.h"

namespace nvadmin {

namespace {

constexpr std::string_view kTableStart =
    "<table border=1 bordercolor=\"#f0f0f0\" cellspacing=0 cellpadding=1 "
    "style=\"background-Color:white;font-family:arial;font-size:12px\">\r\n";
constexpr std::string_view kHeadingRowStart =
    "<tr style=\"background-color:navy;color:white;font-weight:bold\">\r\n";
constexpr std::string_view kItemIdHeading = "<td width=15%>ItemID</td>\r\n";
constexpr std::string_view kRowEnd = "</tr>\r\n";
constexpr std::string_view kOddItemStart = "<tr style=\"background-color:#ffffa0\">";
constexpr std::string_view kEvenItemStart = "<tr>";
constexpr std::string_view kSubTotalStart = "<tr style=font-weight:bold><td>SubTotal(s)</td>";
constexpr std::string_view kTotalRowStart = "\r\n<tr style=font-weight:bold>";
constexpr std::string_view kTotalRowEnd = "</tr>";
constexpr std::string_view kTableEnd = "</table>";

struct HtmlRun : ReportRun {
  StringBuilder table;
};

void Add(HtmlRun& report, std::initializer_list<std::string_view> pieces) {
  for (std::string_view piece : pieces) report.table.Append(piece);
}

void AddHeading(HtmlRun& report) {
  Add(report, {kTableStart, kHeadingRowStart});
  if (report.firstColumn > 0) Add(report, {kItemIdHeading});
  for (const ReportColumn& column : report.columns) {
    // The width is a count of characters elsewhere; here it is used as a percentage.
    Add(report, {"<td valign=top style=\"width:", std::to_string(column.declaredWidth), "%\">",
                 EExtract(column.heading, 1, 1, 0), "</td>"});
  }
  Add(report, {kRowEnd});
}

void AddCell(HtmlRun& report, std::size_t position, std::string_view text) {
  const bool isColumn = position >= report.firstColumn;
  const bool right = isColumn && report.columns[position - report.firstColumn].justification == "R";
  Add(report, {right ? "<td align=right>" : "<td>", text.empty() ? "&nbsp;" : text, "</td>"});
}

void AddSubTotalRow(HtmlRun& report) {
  Add(report, {kSubTotalStart});
  for (std::size_t position = 1; position < report.PositionCount(); ++position) {
    AddCell(report, position, report.ShowTotal(TotalRow::kSub, position, ""));
  }
  Add(report, {kRowEnd});
}

ShowSubTotal SubTotalsOf(HtmlRun& report) {
  return [&report] {
    AddSubTotalRow(report);
    return true;
  };
}

// A line a value; the item's one row end comes behind the last.
void AddItemRows(HtmlRun& report, std::int32_t valueCount) {
  std::vector<PartWalk> values;
  values.reserve(report.row.size());
  for (const std::string& cell : report.row) values.push_back(WalkValues(cell));
  for (std::int32_t line = 1; line <= valueCount; ++line) {
    Add(report, {report.itemCount % 2 == 1 ? kOddItemStart : kEvenItemStart});
    for (std::size_t position = 0; position < values.size(); ++position) {
      AddCell(report, position, values[position].Next());
    }
  }
  Add(report, {kRowEnd});
}

// Whether the report is as long as it may be; then `message` says so.
bool HasReachedLimit(const HtmlRun& report, std::int32_t limit, std::string& message) {
  if (limit < 1 || report.itemCount < limit) return false;
  message = Concat(
      {"Report cut short as it is over its reasonable display limit of ", std::to_string(limit), " items."});
  return true;
}

void AddEnd(HtmlRun& report) {
  if (report.totals.SubTotalWritten()) AddSubTotalRow(report);
  if (report.anyTotal) {
    Add(report, {"<tr style=font-weight:bold><td colspan=", std::to_string(report.PositionCount()),
                 ">Total(s)</td></tr>", kTotalRowStart});
    for (std::size_t position = 0; position < report.PositionCount(); ++position) {
      AddCell(report, position, report.ShowTotal(TotalRow::kGrand, position, ""));
    }
    Add(report, {kTotalRowEnd});
  }
  Add(report, {kTableEnd});
}

void AddItems(HtmlRun& report, std::int32_t limit, std::string& message) {
  const ShowSubTotal showSubTotal = SubTotalsOf(report);
  std::string itemId;
  std::string dataItem;
  std::int32_t position = 0;
  while (RReadNext(itemId, position)) {
    ++report.itemCount;
    if (!RREAD(dataItem, report.sentence.dataFile, itemId)) {
      message = MissingItemText(itemId, report.sentence);
      return;
    }
    std::int32_t valueCount = 1;
    TakeItem(report, dataItem, itemId, valueCount, showSubTotal);
    AddItemRows(report, valueCount);
    if (HasReachedLimit(report, limit, message)) return;
  }
}

void AddGridRows(HtmlRun& report, std::int32_t rowCount, std::int32_t limit, std::string& message) {
  const ShowSubTotal showSubTotal = SubTotalsOf(report);
  const auto columnCount = static_cast<std::int32_t>(report.columns.size());
  for (std::int32_t row = 1; row <= rowCount; ++row) {
    report.itemCount = row;
    const std::string itemId = ListItem(0, row);
    std::vector<std::string> cells;
    for (std::int32_t column = 1; column <= columnCount; ++column) cells.push_back(ListItem(column, row));
    std::int32_t valueCount = 1;
    TakeFinalCells(report, std::move(cells), itemId, valueCount, showSubTotal);
    AddItemRows(report, valueCount);
    if (HasReachedLimit(report, limit, message)) return;
  }
}

}  // namespace

std::string HtmlReport(std::string_view sentence, std::string& body, std::string& message,
                       std::string_view mode, std::int32_t limit) {
  if (ToUpper(Session().DatastoreKind).starts_with("MV")) {
    return HtmlRowsetReport(sentence, body, message, mode, limit);
  }
  HtmlRun report;
  message = AnalyseReportSentence(sentence, report.sentence);
  body = report.sentence.askedName;
  if (!message.empty()) return report.sentence.reply;

  report.SetColumns(PrepareColumns(report.sentence), report.sentence.showsItemId);
  AddHeading(report);
  AddItems(report, limit, message);
  AddEnd(report);
  body = report.table.toString();
  return report.sentence.reply;
}

std::string HtmlRowsetReport(std::string_view sentence, std::string& body, std::string& message,
                             std::string_view /*mode*/, std::int32_t limit) {
  message.clear();
  HtmlRun report;
  std::string reply = EExecute(sentence);
  if (reply == "ERROR") return reply;
  const std::int32_t columnCount = LeadingWholeNumber(EExtract(reply, 1, 0, 0));
  const std::int32_t rowCount = LeadingWholeNumber(EExtract(reply, 2, 0, 0));
  std::vector<std::string> descriptions;
  for (std::int32_t column = 1; column <= columnCount; ++column) descriptions.push_back(ListItem(column, 0));

  report.SetColumns(PrepareDescribedColumns(descriptions, ModifierListOf(reply)), /*showsItemId=*/true);
  AddHeading(report);
  AddGridRows(report, rowCount, limit, message);
  AddEnd(report);
  body = report.table.toString();
  return reply;
}

}  // namespace nvadmin
