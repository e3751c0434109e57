// The pages of module basTCLX: what a browser shows of a report or an SQL query.
#include <cstdint>
#include <string>
#include <string_view>

#include "forms/FormExchange.h"
#include "queries/basTCLX.h"
#include "reports/HtmlReport.h"
#include "session/Marks.h"
#include "session/SessionState.h"
#include "session/StringBuilder.h"
#include "session/Text.h"
#include "session/basNvLibrary.h"

namespace nvadmin {

namespace {

constexpr std::int32_t kMostItems = 500;
constexpr std::int32_t kMostRows = 500;

constexpr std::string_view kCloseButton =
    "<input type=button id=fx1 value=CLOSE onClick=JSCRIPT:EProcess(this);  style=font-Weight:bold>";
constexpr std::string_view kPrintButton =
    "<input type=button value=Print onClick=JSCRIPT:window.print();  style=font-Weight:bold>";
constexpr std::string_view kDumpButton =
    "<input type=button id=fx1 value=\"File dump\" onClick=\"JSCRIPT:ExecuteA('fx1|<file>');\"  "
    "style=font-Weight:bold>";

std::string Buttons(std::string_view gap) {
  return Concat({kCloseButton, gap, kPrintButton, gap, kDumpButton});
}

std::string Replaced(std::string_view text, std::string_view part, std::string_view by) {
  std::string result;
  while (true) {
    const std::size_t at = text.find(part);
    result += text.substr(0, at);
    if (at == std::string_view::npos) return result;
    result += by;
    text.remove_prefix(at + part.size());
  }
}

// Only a JET store gets the limit written into the query; a query with a TOP of its own keeps that.
std::string LimitedQuery(const std::string& sentence) {
  if (Session().DatastoreKind != "JET" || FindInAnyCase(sentence, " TOP ") != std::string::npos)
    return sentence;
  constexpr std::string_view kSelect = "SELECT ";
  std::string query = sentence;
  const std::size_t at = FindInAnyCase(query, kSelect);
  if (at != std::string::npos) {
    query.replace(at, kSelect.size(), Concat({"SELECT TOP ", std::to_string(kMostRows), " "}));
  }
  return query;
}

void AddQueryHeading(StringBuilder& page, std::string_view sentence, std::int32_t rows) {
  if (rows < kMostRows) {
    page.Append(Concat({CrLf, "<h3>\"", sentence, "\"<br>Rows found = ", std::to_string(rows), "</h3>"}));
  } else {
    page.Append(
        Concat({CrLf, "<h3>Your query: \"", sentence,
                "\" is very general and so NorvoEngine has added a LIMIT of ", std::to_string(kMostRows),
                " rows.  You need to use a WHERE clause to get a more focussed result.</h3>"}));
  }
}

void AddQueryCell(StringBuilder& page, std::string_view cell) {
  page.Append("<td>");
  if (cell.empty()) {
    page.Append("&nbsp;");
  } else if (cell.find(ValueMark) == std::string_view::npos) {
    page.Append(cell);
  } else {
    page.Append(Replaced(cell, ValueMark, "<BR>"));
  }
  page.Append("</td>");
}

void AddQueryTable(StringBuilder& page, std::int32_t rows) {
  const std::int32_t highestColumn = ListCount(1);
  page.Append("<table border=1 bordercolor=#f0f0f0 valign=top><tr style=background-Color:lightgrey>");
  for (std::int32_t column = 0; column <= highestColumn; ++column) {
    page.Append(Concat({"<th>A", std::to_string(column), "</th>"}));
  }
  page.Append("</tr>");
  for (std::int32_t row = 1; row <= rows; ++row) {
    page.Append(row % 2 == 0 ? "<tr style=background-Color:#ffff80>" : "<tr style=background-Color:#ffffff>");
    for (std::int32_t column = 0; column <= highestColumn; ++column)
      AddQueryCell(page, ListItem(column, row));
    page.Append("</tr>");
  }
  page.Append("</table>");
}

void PrintReportPage() {
  const std::string sentence = Session().CmdSentenceText;
  std::string body;
  std::string message;
  HtmlReport(sentence, body, message, "HTML", kMostItems);

  StringBuilder page;
  page.Append(kTxStart);
  page.Append(kReplacePage);
  page.Append("<div style=\"background-Color:white;font-family:courier new;font-size:12pt\">");
  page.Append(Buttons(" &nbsp;"));
  page.Append("<br>");
  page.Append(Replaced(sentence, " ", "&nbsp;"));
  if (!message.empty()) page.Append(Concat({"<h3>ERROR: ", message, "</h3>"}));
  page.Append("</div>");
  page.Append(body);
  page.Append(kTxEnd);
  PPrint(page.View(), /*lineEnd=*/true);
}

void PrintQueryPage() {
  const std::string sentence = Session().CmdSentenceText;
  const std::string query = LimitedQuery(sentence);
  StringBuilder page;
  page.Append(kTxStart);
  page.Append(kReplacePage);
  if (EExecute(query) == "ERROR") {
    page.Append(Buttons("&nbsp;"));
    page.Append(
        Concat({CrLf, "<h3>Query as processed = \"", query, "\"</h3><h3>ERROR: ", ErrorDetail(), "</h3>"}));
  } else {
    page.Append(Buttons(" &nbsp;"));
    const std::int32_t rows = ListCount(2);
    AddQueryHeading(page, sentence, rows);
    AddQueryTable(page, rows);
  }
  page.Append(kTxEnd);
  PPrint(page.View(), /*lineEnd=*/true);
}

}  // namespace

// Each page is gone before the wait for its user.

void ReportPage() {
  PrintReportPage();
  AwaitPageReply();
}

void QueryPage() {
  PrintQueryPage();
  AwaitPageReply();
}

}  // namespace nvadmin
