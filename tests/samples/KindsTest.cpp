// The demo's two accounts hold the same files, in tables and in native files: whatever is asked, both answer
// the same. The cells that the engine computes for a page of the native account are those that the add-in
// computes for itself.
#include <gtest/gtest.h>

#include <map>
#include <sstream>

#include "mv/Conversions.h"
#include "mv/DynamicArray.h"
#include "reports/Columns.h"
#include "reports/ReportSentence.h"
#include "samples/Demo.h"
#include "samples/Dictionaries.h"
#include "samples/SampleFiles.h"
#include "session/BP.h"
#include "session/SessionState.h"
#include "tests/engine/Workshop.h"
#include "tests/support/TemporaryFolder.h"

namespace nvadmin::samples {
namespace {

using engine::EngineSession;
using engine::Home;
using engine::ScriptedPort;

// The demo in a home that all tests here share: they only read it.
Home& DemoHome() {
  static const TemporaryFolder folder;
  static Home home = [] {
    Home::Make(folder / "home");
    Home made(folder / "home");
    std::ostringstream progress;
    MakeDemoAccounts(made, progress);
    return Home(folder / "home");
  }();
  return home;
}

// A session in one of the accounts, with the add-in on it.
class Visit {
 public:
  explicit Visit(std::string_view account)
      : engine(DemoHome(), port, {std::string(account), "anna", "desk 1"}) {
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

  ScriptedPort port;
  EngineSession engine;
  BP bp;
};

// Reports beyond those that the demo proposes: default columns, dictionaries, columns of every sort, phrases,
// selections by computed columns.
const char* const kReports[] = {
    "LIST CURRENCIES",
    "SORT DICT ORDERS",
    "LIST DICT COUNTRIES 'NAME' '@ID' TYPE LOC CONV CORR",
    "LIST orders '10001' '10002' A1 A4 a5 A0 NOWHERE",
    "SORT COUNTRIES WITH NAME = \"[land]\" NAME.CAPS INITIAL DIVISION.TYPE ID-SUPP",
    "SORT ORDERS WITH EXTENDED > \"500\" AND WITH STATUS = \"Paid\" BY-DSND ORDER.DATE ORDER.DATE WEEKDAY "
    "MONTH EXTENDED TOTAL AMOUNT",
    "SORT ORDERS WITH ORDER.DATE >= \"01/01/2024\" AND WITH CITY.OF.ORDER = \"[o]\" BY CUSTOMER.NAME AMOUNT",
    "LIST CUSTOMERS WITH COUNTRY.NAME = \"[an]\" PHONE CONTACT SINCE TOTAL CREDIT.LIMIT",
    "SORT PRODUCTS BREAK-ON CATEGORY TOTAL STOCK TOTAL STOCK.VALUE",
    "SORT PRODUCTS WITH STOCK.VALUE > \"100\" BY STOCK STOCK",
    "LIST SUBDIVISIONS 'GB-ENG' 'NZ-AUK' NAME COUNTRY.NAME PARENT.NAME",
    "LIST SUBDIVISIONS WITH COUNTRY.OF.CODE = \"Ireland\" NAME",
    "LIST COUNTRIES 'DE' 'IE' 'XX' WITH DIVISIONS > 3 AND WITH DIVISION.LIST = \"[-]\" DIVISIONS",
    "LIST LANGUAGES WITH NAME = \"\xC1]\" OR NAME = \"[\xE9]\" NAME INVERTED.NAME",
    "LIST LANGUAGES WITH NAME >= \"\xC0\" NAME",
    "LIST ORDERS WITH NO REMARK AND WITH EVERY QTY > 5 PRODUCT QTY REMARK ENTERED",
};

std::vector<std::string> Reports() {
  std::vector<std::string> sentences(std::begin(kReports), std::end(kReports));
  for (const SampleFile& file : SampleFiles()) {
    for (int n = 1; n <= mv::Count(file.tries, "\xFD"); ++n) {
      sentences.emplace_back(mv::Field(file.tries, "\xFD", n));
      EXPECT_LE(sentences.back().size(), 66u) << "wider than TRY: " << sentences.back();
    }
  }
  return sentences;
}

TEST(Kinds, ShowTheSameReportsOfTablesAndOfNativeFiles) {
  std::map<std::string, std::string> screens;
  for (const std::string_view account : {kDemoAccount, kNativeDemoAccount}) {
    Visit visit(account);
    for (const std::string& sentence : Reports()) {
      const std::string screen = visit.Screen(sentence);
      EXPECT_EQ(screens.try_emplace(sentence, screen).first->second, screen) << sentence;
      EXPECT_EQ(visit.engine.TypedSentenceError(), "") << sentence;
      EXPECT_EQ(screen.find("END of Query, 0 Items"), std::string::npos) << sentence;
      EXPECT_NE(screen.find("END of Query"), std::string::npos) << sentence << "\n" << screen;
    }
  }
}

TEST(Kinds, ComputeTheCellsOfAPageAsTheAddInDoes) {
  Visit native(kNativeDemoAccount);
  native.port.showsPages = true;
  EngineSession& engine = native.engine;
  for (const std::string& sentence : Reports()) {
    SCOPED_TRACE(sentence);
    ReportSentence report;
    ASSERT_EQ(AnalyseReportSentence(sentence, report), "");
    const std::vector<ReportColumn> columns = PrepareColumns(report).columns;
    ASSERT_EQ(engine.GetResultBound(1), static_cast<std::int32_t>(columns.size()));
    for (std::size_t at = 0; at < columns.size(); ++at) {
      const auto number = static_cast<std::int32_t>(at + 1);
      const ReportColumn& column = columns[at];
      EXPECT_EQ(column.heading.starts_with("ERROR"), column.heading == "ERROR(NOWHERE)");
      const std::string described = engine.GetResultCell(number, 0);
      EXPECT_EQ(mv::Field(described, "\xFA", 1), column.heading);
      EXPECT_EQ(mv::Field(described, "\xFA", 2).substr(1), std::to_string(column.width));
      // Under TOTAL the cells are plain numbers, of which the code that is told makes what is shown.
      ReportColumn totalled = column;
      totalled.conversion = mv::Field(described, "\xFA", 3);
      EXPECT_TRUE(column.isTotalled || totalled.conversion == column.conversion);
      for (std::int32_t row = 1; row <= engine.GetResultBound(2); ++row) {
        const std::string id = engine.GetResultCell(0, row);
        std::string item;
        engine.ReadItem(item, report.dataFile, id);
        std::string want = column.hasData ? StoredCell(column, item, id, report.dataFile) : "";
        ConvertCell(column, want);
        std::string cell = engine.GetResultCell(number, row);
        if (column.isTotalled) ConvertCell(totalled, cell);
        ASSERT_EQ(cell, want) << id << ", " << column.heading;
      }
    }
  }
}

// Every column over every item of its file; those of types D and I as if they were of type S.
TEST(Kinds, HaveRoomForEveryValueAndCanConvertIt) {
  Visit native(kNativeDemoAccount);
  for (const SampleFile& file : SampleFiles()) {
    for (Word word : WordsOf(file.name)) {
      const std::string sentence = std::string("LIST ").append(file.name).append(" ").append(word.word);
      SCOPED_TRACE(sentence);
      ReportSentence report;
      ASSERT_EQ(AnalyseReportSentence(sentence, report), "");
      ReportColumn column = PrepareColumns(report).columns.at(0);
      const bool isPlain = word.type == 'A' || word.type == 'S';
      word.type = 'S';
      if (word.attribute.empty()) word.attribute = "0";
      if (!isPlain) column = ReportColumn(MakeDictionaryItem(word).body);
      std::size_t longest = 0;
      for (std::int32_t row = 1; row <= native.engine.GetResultBound(2); ++row) {
        const std::string id = native.engine.GetResultCell(0, row);
        std::string item;
        native.engine.ReadItem(item, report.dataFile, id);
        const std::string cell = StoredCell(column, item, id, report.dataFile);
        for (int n = 1; n <= mv::Count(cell, "\xFD"); ++n) {
          std::string value(mv::Extract(cell, 1, n));
          if (!column.conversion.empty()) value = mv::Oconv(value, column.conversion);
          EXPECT_NE(value, mv::kInconvertible) << id;
          longest = std::max(longest, value.size());
        }
      }
      EXPECT_GT(longest, 0U) << "never shows anything";
      EXPECT_TRUE(word.justification == 'L' || longest < static_cast<std::size_t>(word.width))
          << "loses the left end of its longest value";
    }
  }
}

TEST(Kinds, OrderLinesExtendToTheStoredAmount) {
  Visit native(kNativeDemoAccount);
  native.port.showsPages = true;
  native.engine.ExecuteSentence("LIST ORDERS EXTENDED AMOUNT");
  EXPECT_EQ(native.engine.GetResultBound(2), 2000);
  const auto sum = [&native](std::int32_t column, std::int32_t row) {
    std::string cell = native.engine.GetResultCell(column, row);
    std::erase(cell, '.');
    long long total = 0;
    for (int n = 1; n <= mv::Count(cell, "\xFD"); ++n)
      total += std::stoll(std::string(mv::Extract(cell, 1, n)));
    return total;
  };
  for (std::int32_t row = 1; row <= native.engine.GetResultBound(2); ++row)
    EXPECT_EQ(sum(1, row), sum(2, row));
}

}  // namespace
}  // namespace nvadmin::samples
