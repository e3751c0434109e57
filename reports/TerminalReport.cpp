#include "reports/TerminalReport.h"

#include <algorithm>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "reports/Columns.h"
#include "reports/ReportRun.h"
#include "reports/ReportSentence.h"
#include "reports/Totals.h"
#include "session/Marks.h"
#include "session/SessionState.h"
#include "session/Text.h"
#include "session/Values.h"
#include "session/basNvFunctions.h"
#include "session/basNvLibrary.h"

namespace nvadmin {

namespace {

constexpr std::int32_t kPageLines = 22;
constexpr std::int32_t kHeaderLines = 4;
constexpr std::int32_t kItemIdWidth = 11;

// How the report's run went on or ended.
enum class Run { kGoesOn, kListExhausted, kQuit, kItemMissing };

// One place of a line, from the left: the item ID or a column.
struct DisplayPosition {
  std::int32_t width = 0;
  std::string mask;         // of a cell: justification, "#", width
  std::string headingMask;  // one wider, as a cell with its blank is
  std::string heading;
};

struct Report : ReportRun {
  std::vector<DisplayPosition> positions;
  std::int32_t pageNumber = 1;
  std::int32_t lineCount = 0;
  bool lineIsOpen = false;  // text stands on the line that was printed last
};

std::string Mask(std::string_view justification, std::int32_t width) {
  return Concat({justification, "#", std::to_string(width)});
}

void AddPosition(Report& report, std::string_view justification, std::int32_t width,
                 std::string_view heading) {
  report.positions.push_back(
      {width, Mask(justification, width), Mask(justification, width + 1), std::string(heading)});
}

void BuildHeading(Report& report) {
  if (report.sentence.showsItemId) AddPosition(report, "L", kItemIdWidth, "ItemID");
  for (const ReportColumn& column : report.columns) {
    const bool right = ToUpper(Trim(column.justification)) == "R";
    AddPosition(report, right ? "R" : "L", column.width, column.heading);
  }
}

void EndLine(Report& report) {
  PPrint("", /*lineEnd=*/true);
  report.lineIsOpen = false;
}

// Lines go out position by position: a column may be a million characters wide, and there may be thousands.
void PrintHeading(const Report& report) {
  for (const DisplayPosition& position : report.positions) {
    PPrint(FFmt(position.heading, position.headingMask), /*lineEnd=*/false);
  }
  PPrint("", /*lineEnd=*/true);
  for (const DisplayPosition& position : report.positions) {
    PPrint(std::string(static_cast<std::size_t>(position.width), '=') + " ", /*lineEnd=*/false);
  }
  PPrint("", /*lineEnd=*/true);
}

void PrintPageHeader(Report& report) {
  const std::string page = FFmt(Concat({"Page ", std::to_string(report.pageNumber)}), "L#12");
  PPrint(Concat({CursorAt(-1, -1), CursorAt(0, 0), page, Session().CmdSentenceText}), /*lineEnd=*/true);
  PPrint("", /*lineEnd=*/true);
  PrintHeading(report);
  report.lineIsOpen = false;
  report.lineCount = kHeaderLines;
}

// Once the page is full: asks, and starts the next page.
Run StepPage(Report& report) {
  if (report.lineCount < kPageLines) return Run::kGoesOn;
  PPrint("", /*lineEnd=*/true);
  PPrint("(CR) to continue or q+(CR) to Quit: ", /*lineEnd=*/false);
  std::string answer;
  IInput(answer);
  if (ToLower(Trim(answer)) == "q") return Run::kQuit;
  ++report.pageNumber;
  PrintPageHeader(report);
  return Run::kGoesOn;
}

// A line of sums. It goes on from where the line before stopped. Requires a column that is totalled.
Run PrintTotalLine(Report& report, std::string_view label, TotalRow totalRow) {
  PPrint(FFmt(label, Mask("L", report.positions[0].width)), /*lineEnd=*/false);
  for (std::size_t position = 1; position < report.positions.size(); ++position) {
    PPrint(FFmt(report.ShowTotal(totalRow, position, " "), report.positions[position].mask) + " ",
           /*lineEnd=*/false);
  }
  EndLine(report);
  report.lineCount += 2;
  return StepPage(report);
}

Run PrintValueLine(Report& report, std::vector<PartWalk>& values) {
  EndLine(report);
  ++report.lineCount;
  if (StepPage(report) == Run::kQuit) return Run::kQuit;
  for (std::size_t position = 0; position < report.positions.size(); ++position) {
    PPrint(FFmt(Concat({values[position].Next(), " "}), report.positions[position].mask) + " ",
           /*lineEnd=*/false);
  }
  report.lineIsOpen = true;
  return Run::kGoesOn;
}

Run PrintItem(Report& report, std::string_view dataItem, const std::string& itemId) {
  std::int32_t valueCount = 1;
  const auto showSubTotal = [&report] {
    return PrintTotalLine(report, "SubTotal(s)", TotalRow::kSub) != Run::kQuit;
  };
  if (!TakeItem(report, dataItem, itemId, valueCount, showSubTotal)) return Run::kQuit;
  std::vector<PartWalk> values;
  values.reserve(report.row.size());
  for (const std::string& cell : report.row) values.push_back(WalkValues(cell));
  for (std::int32_t line = 1; line <= valueCount; ++line) {
    if (PrintValueLine(report, values) == Run::kQuit) return Run::kQuit;
  }
  return Run::kGoesOn;
}

// Walks the select list. `itemId` is the last key that was read.
Run PrintItems(Report& report, std::string& itemId) {
  std::string dataItem;
  std::int32_t position = 0;
  while (RReadNext(itemId, position)) {
    ++report.itemCount;
    if (!RREAD(dataItem, report.sentence.dataFile, itemId)) return Run::kItemMissing;
    if (PrintItem(report, dataItem, itemId) == Run::kQuit) return Run::kQuit;
  }
  return Run::kListExhausted;
}

Run PrintLastTotals(Report& report) {
  if (!report.anyTotal) return Run::kGoesOn;
  if (report.lineIsOpen) EndLine(report);
  if (report.totals.SubTotalWritten() &&
      PrintTotalLine(report, "SubTotal(s)", TotalRow::kSub) == Run::kQuit) {
    return Run::kQuit;
  }
  return PrintTotalLine(report, "Total(s)", TotalRow::kGrand);
}

void PrintQuit() { PPrint(Concat({CursorAt(-1, -1), ":"}), /*lineEnd=*/false); }

void PrintEnd(Report& report) {
  if (PrintLastTotals(report) == Run::kQuit) return PrintQuit();
  PPrint("", /*lineEnd=*/true);
  PPrint("", /*lineEnd=*/true);
  PPrint(Concat({"**********  END of Query, ", std::to_string(report.itemCount),
                 " Items Displayed.  Press (CR) to continue ********** : "}),
         /*lineEnd=*/false);
  std::string answer;
  IInput(answer);
  PrintQuit();
}

}  // namespace

void TerminalReport() {
  Report report;
  const std::string sentence = Session().CmdSentenceText;
  const std::string message = AnalyseReportSentence(sentence, report.sentence);
  if (!message.empty()) {
    PPrint(message, /*lineEnd=*/true);
    PPrint(": ", /*lineEnd=*/false);
    return;
  }
  report.SetColumns(PrepareColumns(report.sentence), report.sentence.showsItemId);
  BuildHeading(report);

  PrintPageHeader(report);
  std::string itemId;
  switch (PrintItems(report, itemId)) {
    case Run::kGoesOn:
    case Run::kListExhausted:
      return PrintEnd(report);
    case Run::kQuit:
      return PrintQuit();
    case Run::kItemMissing:
      PPrint(MissingItemText(itemId, report.sentence), /*lineEnd=*/true);
  }
}

}  // namespace nvadmin
