// The terminal report as a user sees it: heading, value lines, paging, endings. "$" ends a printed line.
#include <gtest/gtest.h>

#include "tests/reports/ReportSession.h"

namespace nvadmin::test {
namespace {

using TerminalReports = ReportSession;

constexpr std::string_view kPagePrompt = "(CR) to continue or q+(CR) to Quit: ";

TEST_F(TerminalReports, ValuesStandBelowEachOtherAndTheIdOnTheFirstLineOnly) {
  engine.File("orders") = {{"1", Dyn("Ada^5^20000^1250")}, {"ORDER-NUMBER-2", Dyn("Bob]Bo]B^12]-7^^n/a]-7")}};
  engine.Type({""});
  EXPECT_EQ(Report("NAME]QTY]DUE]AMT", "", "", Keys({"1", "ORDER-NUMBER-2"})),
            "[CLEAR][HOME]Page 1      LIST orders$\n"
            "$\n"
            "ItemID      Name      Qty       Due    Amount$\n"
            "=========== ====== ===== ========= ========= $\n"
            "$\n"
            "1           Ada       5  10/03/22     12.50  $\n"
            "ORDER-NUMBE Bob      12                 n/a  $\n"
            "            Bo       -7               -0.07  $\n"
            "            B                                " +
                Closing(2));
}

TEST_F(TerminalReports, EndingsAndRefusalsTable) {
  const std::string header = "[CLEAR][HOME]Page 1      LIST orders$\n$\n";
  const std::string heading = header + "ItemID      Name   $\n=========== ====== $\n";
  engine.File("orders") = {{"1", "Ada"}, {"2", "Bob"}};
  struct Row {
    std::string_view name, words, options;
    Grid keys;
    std::string want;
  };
  const Row rows[] = {
      {"empty list", "NAME", "", {}, heading + Closing(0)},
      {"missing item", "NAME", "", Keys({"1", "9", "2"}),
       heading + "$\n1           Ada    ERROR [914] Item '9' not found in table/file 'orders'$\n"},
      {"without the ID, inside a longer word", "NAME", "x no-id-suppress", Keys({"1", "2"}),
       header + "Name   $\n====== $\n$\nAda    $\nBob    " + Closing(2)},
      {"no column at all", "", "", Keys({"1"}),
       header + "ItemID      $\n=========== $\n$\n1           " + Closing(1)},
      {"neither column nor ID", "", "ID-SUPP", Keys({"1"}), header + "$\n$\n$\n" + Closing(1)},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    const bool asks = row.want.find("[IN") != std::string::npos;
    if (asks) engine.Type({""});
    EXPECT_EQ(Report(row.words, "", row.options, row.keys), row.want);
    EXPECT_EQ(engine.CallCount("ReadInput"), asks ? 1 : 0);
  }
  engine.RefuseSentence("LIST orders NONSENSE", "what is NONSENSE?");
  engine.File("orders_dict")["1"] = Dyn("A^1^First^^^^^^L^5");
  engine.Type({""});
  EXPECT_EQ(Run("LIST orders NONSENSE"),
            "[CLEAR][HOME]Page 1      LIST orders NONSENSE$\n$\nItemID      First $\n=========== ===== $\n" +
                Closing(0))
      << "a refused sentence is an empty report of default columns";
}

// Which files a sentence opens, in which spelling, and what the messages call them. The sentence itself goes
// to the engine, and into the header, as it was typed.
TEST_F(TerminalReports, FileNameTable) {
  struct Row {
    std::string_view datastore, sentence, dataFile, dictionary;
  };
  const Row rows[] = {
      {"JET", "sort   My-File  WITH X", "my_file", "my_file_dict"},
      {"JET", "LIST DICT Cust", "cust_dict", "cust_dict_dict"},
      {"MV", "LIST dIcT  Cust  dict Cust", "Cust_dict", "DICT Cust_dict"},
      {"MV", "LIST Cust DICT Cust", "Cust", "DICT Cust"},
      {"MV", "LIST DICTIONARY F", "DICTIONARY", "DICT DICTIONARY"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.sentence);
    LogOn(row.datastore);
    engine.Answer(row.sentence, Dyn("1^1^X"), Grid{});
    engine.File(row.dataFile);
    engine.RefuseFile(row.dictionary, "none");
    engine.Type({""});
    EXPECT_EQ(Run(row.sentence), "[CLEAR][HOME]Page 1      " + std::string(row.sentence) +
                                     "$\n$\nItemID      ERROR(X)   $\n=========== ========== $\n" +
                                     Closing(0))
        << "a dictionary that can't be opened makes error columns";
    EXPECT_NE(engine.Calls().find("OpenFile(" + std::string(row.dictionary) + ") 0\n"), std::string::npos);
  }
  LogOn("JET");
  engine.RefuseFile("no_file", "[201] no such table");
  engine.Answer("LIST No.File", Dyn("1^1^X"), NumberedKeys(1));
  EXPECT_EQ(Run("LIST No.File"),
            "Can not open file/table 'no_file', System message(if any) = '[201] no such table'$\n: ");
}

TEST_F(TerminalReports, SeventeenLinesOnTheFirstPageAndEighteenOnTheNext) {
  for (int id = 1; id <= 36; ++id) engine.File("orders")[std::to_string(id)] = "Ada";
  engine.Type({"", "quit", ""});
  std::string pages;
  for (const std::string& line : Lines(Report("NAME", "", "", NumberedKeys(36)))) {
    if (line.starts_with("[CLEAR][HOME]Page")) pages += '/';
    if (line.ends_with("Ada    $")) pages += '.';
  }
  EXPECT_EQ(pages, "/................./................../.");
}

TEST_F(TerminalReports, AnItemsValuesMayBeSplitOverPages) {
  for (int id = 1; id <= 17; ++id) engine.File("orders")[std::to_string(id)] = "Ada";
  engine.File("orders")["17"] = Dyn("a]b]c");
  engine.Type({"", ""});
  const std::string screen = Report("NAME", "", "", NumberedKeys(17));
  EXPECT_EQ(
      screen.substr(screen.find("\n17 ") + 1),
      "17          a      $\n$\n" + std::string(kPagePrompt) +
          "[IN ]\n[CLEAR][HOME]Page 2      LIST orders$\n$\nItemID      Name   $\n=========== ====== $\n"
          "            b      $\n            c      " +
          Closing(17));
}

TEST_F(TerminalReports, AnswersAtThePagePrompt) {
  for (int id = 1; id <= 18; ++id) engine.File("orders")[std::to_string(id)] = "Ada";
  const std::pair<std::string_view, bool> rows[] = {{"q", true},     {"  Q ", true}, {"", false},
                                                    {"quit", false}, {"\tq", false}, {"n", false}};
  for (const auto& [answer, quits] : rows) {
    SCOPED_TRACE(answer);
    engine.Type({answer});
    if (!quits) engine.Type({"q"});
    const std::string screen = Report("NAME", "", "", NumberedKeys(18));
    EXPECT_EQ(engine.CallCount("ReadItem"), 1 + 18);
    EXPECT_EQ(screen.find("END of Query") == std::string::npos, quits);
    EXPECT_EQ(screen.find("Page 2") == std::string::npos, quits);
    EXPECT_EQ(screen.substr(screen.rfind("]\n") + 2), "[CLEAR]:")
        << "q at the closing prompt is no other answer";
  }
}

TEST_F(TerminalReports, ALostPortEndsTheReportAtEitherPrompt) {
  for (int id = 1; id <= 18; ++id) engine.File("orders")[std::to_string(id)] = "Ada";
  for (int count : {18, 2}) {
    LogOn("JET");
    EXPECT_THROW(Report("NAME", "", "", NumberedKeys(count)), EngineFailure);
    EXPECT_EQ(Session().Engine, nullptr);
    const std::string_view typed = "[IN <&PORT_DISCONNECT>]\n";
    EXPECT_EQ(engine.Screen().substr(engine.Screen().size() - typed.size()), typed)
        << "nothing is printed after it";
  }
}

}  // namespace
}  // namespace nvadmin::test
