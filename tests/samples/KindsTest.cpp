// The demo's two accounts hold the same files, in tables and in native files: whatever is asked, both answer
// the same. The cells that the engine computes for a page of the native account are those that the add-in
// computes for itself.
#include <gtest/gtest.h>

#include <chrono>
#include <sstream>

#include "mv/DynamicArray.h"
#include "reports/Columns.h"
#include "reports/ReportSentence.h"
#include "samples/Demo.h"
#include "samples/SampleFiles.h"
#include "session/BP.h"
#include "session/SessionState.h"
#include "tests/engine/Workshop.h"

namespace nvadmin::samples {
namespace {

using engine::EngineSession;
using engine::Home;
using engine::ScriptedPort;

// The demo in a home that all tests here share: they only read it.
Home& DemoHome() {
  static const engine::TestFolder folder;
  static Home home = [] {
    Home::Make(folder.path / "demo");
    Home made(folder.path / "demo");
    std::ostringstream progress;
    MakeDemoAccounts(made, progress);
    return Home(folder.path / "demo");
  }();
  return home;
}

// A session in one of the accounts, with the add-in on it.
class Visit {
 public:
  explicit Visit(std::string_view account) : engine(DemoHome(), port, account, "anna") {
    Session() = {};
    bp.CallBack(&engine);
  }
  ~Visit() {
    bp.CallBackClose();
    Session() = {};
  }
  // What the sentence shows to a user who goes on at the end of every page.
  std::string Screen(std::string_view sentence) {
    port.output.clear();
    engine.BeginTypedSentence(sentence);
    bp.CmdSentence(sentence);
    bp.Query();
    engine.EndTypedSentence();
    return port.output;
  }
  // The keys that the sentence selects, or its error.
  std::string Keys(std::string_view sentence) {
    if (engine.ExecuteSentence(sentence) == "ERROR") return engine.GetErrorDetail();
    std::string keys;
    for (std::int32_t row = 1; row <= engine.GetResultBound(2); ++row)
      keys += engine.GetResultCell(0, row) + '\n';
    return keys;
  }

  ScriptedPort port;
  EngineSession engine;
  BP bp;
};

std::vector<std::string> ProposedSentences() {
  std::vector<std::string> sentences;
  for (const SampleFile& file : SampleFiles()) {
    for (int n = 1; n <= mv::Count(file.tries, "\xFD"); ++n)
      sentences.emplace_back(mv::Field(file.tries, "\xFD", n));
  }
  return sentences;
}

// Reports beyond those that the demo proposes: default columns, dictionaries, columns of every sort, phrases,
// selections by computed columns.
const char* const kReports[] = {
    "LIST CURRENCIES",
    "SORT DICT ORDERS",
    "LIST DICT COUNTRIES 'NAME' '@ID' TYPE LOC CONV CORR",
    "LIST orders '10001' '10002' A1 A4 a5 A0 NOWHERE",
    "SORT COUNTRIES WITH NAME = \"[land]\" NAME.CAPS INITIAL DIVISION.TYPE ID-SUPP",
    "SORT ORDERS WITH EXTENDED > \"500\" AND WITH STATUS = \"Paid\" BY-DSND ORDER.DATE ORDER.DATE "
    "WEEKDAY "
    "MONTH EXTENDED TOTAL AMOUNT",
    "LIST CUSTOMERS WITH COUNTRY.NAME = \"[an]\" PHONE CONTACT SINCE TOTAL CREDIT.LIMIT",
    "SORT PRODUCTS BREAK-ON CATEGORY TOTAL STOCK TOTAL STOCK.VALUE",
    "LIST SUBDIVISIONS 'GB-ENG' 'NZ-AUK' NAME COUNTRY.NAME PARENT.NAME",
    "LIST LANGUAGES WITH NAME = \"\xC1]\" OR NAME = \"[\xE9]\" NAME INVERTED.NAME",
    "LIST ORDERS WITH NO REMARK AND WITH EVERY QTY > 5 PRODUCT QTY REMARK ENTERED",
    "LIST NOWHERE",
};

TEST(Kinds, ShowTheSameReportsOfTablesAndOfNativeFiles) {
  std::vector<std::string> sentences = ProposedSentences();
  sentences.insert(sentences.end(), std::begin(kReports), std::end(kReports));
  std::vector<std::string> screens;
  {
    Visit tables(kDemoAccount);
    for (const std::string& sentence : sentences) screens.push_back(tables.Screen(sentence));
  }
  Visit native(kNativeDemoAccount);
  for (std::size_t at = 0; at < sentences.size(); ++at) {
    std::string screen = native.Screen(sentences[at]);
    if (sentences[at] == "LIST NOWHERE") {
      EXPECT_NE(screen.find("NOWHERE"), std::string::npos)
          << "a refusal names the file as each kind spells it";
      continue;
    }
    EXPECT_EQ(screen, screens[at]) << sentences[at];
    EXPECT_EQ(native.engine.TypedSentenceError(), "") << sentences[at];
    EXPECT_EQ(screen.find("END of Query, 0 Items"), std::string::npos) << sentences[at];
    EXPECT_NE(screen.find("END of Query"), std::string::npos) << sentences[at] << "\n" << screen;
  }
}

TEST(Kinds, SelectTheSameItems) {
  const char* const selections[] = {
      "SELECT LANGUAGES",
      "SSELECT DICT CUSTOMERS",
      "SSELECT ORDERS WITH ORDER.DATE >= \"01/01/2024\" AND WITH STATUS = \"Open\"",
      "SSELECT ORDERS BY CUSTOMER.NAME BY-DSND AMOUNT",
      "SELECT SUBDIVISIONS WITH NAME = \"[\xE9]\"",
      "SELECT LANGUAGES WITH NAME >= \"\xC0\"",
      "SSELECT PRODUCTS WITH STOCK.VALUE > \"100\" BY STOCK",
      "QSELECT COUNTRIES 'DE' 'IE' 7",
      "SELECT COUNTRIES 'DE' 'XX' WITH DIVISIONS > 3",
      "SELECT CUSTOMERS WITH NAMME = \"x\"",
  };
  std::vector<std::string> wanted;
  {
    Visit tables(kDemoAccount);
    for (const char* selection : selections) wanted.push_back(tables.Keys(selection));
  }
  Visit native(kNativeDemoAccount);
  for (std::size_t at = 0; at < wanted.size(); ++at) {
    EXPECT_EQ(native.Keys(selections[at]), wanted[at]) << selections[at];
    EXPECT_NE(wanted[at], "") << selections[at] << " finds nothing: it compares nothing";
  }
}

// The cells of a grid row as the add-in computes them.
std::vector<std::string> CellsOfTheAddIn(EngineSession& engine, const ReportSentence& report,
                                         const std::vector<ReportColumn>& columns, const std::string& id) {
  std::string item;
  engine.ReadItem(item, report.dataFile, id);
  std::vector<std::string> cells;
  for (const ReportColumn& column : columns) {
    std::string cell = column.hasData ? StoredCell(column, item, id, report.dataFile) : "";
    ConvertCell(column, cell);
    cells.push_back(cell);
  }
  return cells;
}

TEST(Kinds, ComputeTheCellsOfAPageAsTheAddInDoes) {
  Visit native(kNativeDemoAccount);
  native.port.showsPages = true;
  EngineSession& engine = native.engine;
  std::size_t filled = 0;
  std::vector<std::string> sentences = ProposedSentences();
  sentences.insert(sentences.end(), std::begin(kReports), std::end(kReports) - 1);
  for (const std::string& sentence : sentences) {
    SCOPED_TRACE(sentence);
    ReportSentence report;
    ASSERT_EQ(AnalyseReportSentence(sentence, report), "");
    const std::vector<ReportColumn> columns = PrepareColumns(report).columns;
    ASSERT_EQ(engine.GetResultBound(1), static_cast<std::int32_t>(columns.size()))
        << engine.TypedSentenceError();
    for (std::size_t at = 0; at < columns.size(); ++at) {
      const std::string described = engine.GetResultCell(static_cast<std::int32_t>(at) + 1, 0);
      EXPECT_EQ(mv::Field(described, "\xFA", 1), columns[at].heading);
      EXPECT_EQ(mv::Field(described, "\xFA", 2).substr(1), std::to_string(columns[at].width));
      EXPECT_EQ(mv::Field(described, "\xFA", 3), columns[at].conversion);
    }
    const std::int32_t rows = std::min(engine.GetResultBound(2), 200);
    EXPECT_GT(rows, 0);
    for (std::int32_t row = 1; row <= rows; ++row) {
      const std::string id = engine.GetResultCell(0, row);
      const std::vector<std::string> wanted = CellsOfTheAddIn(engine, report, columns, id);
      for (std::size_t at = 0; at < columns.size(); ++at) {
        const std::string cell = engine.GetResultCell(static_cast<std::int32_t>(at) + 1, row);
        ASSERT_EQ(cell, wanted[at]) << id << ", " << columns[at].heading;
        filled += cell.empty() ? 0 : 1;
      }
    }
  }
  EXPECT_GT(filled, 1000U);
}

}  // namespace
}  // namespace nvadmin::samples
