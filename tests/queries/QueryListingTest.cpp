// The query verbs at a terminal: the listing with its line counter, and the select verbs.
#include <gtest/gtest.h>

#include <algorithm>

#include "tests/support/ScriptedSession.h"

namespace nvadmin::test {
namespace {

class QueryListings : public ScriptedSession {
 protected:
  // Lists `rows` rows whose highest column is `highestColumn`.
  std::string List(int highestColumn, int rows) {
    Grid grid;
    for (int row = 1; row <= rows; ++row) {
      GridRow& cells = grid.emplace_back(GridRow{"ID" + std::to_string(row)});
      for (int column = 1; column <= highestColumn; ++column) {
        cells.push_back("r" + std::to_string(row) + "c" + std::to_string(column));
      }
    }
    engine.Answer(kSentence, Dyn("x^y"), grid);
    return Run(kSentence);
  }

  static constexpr std::string_view kSentence = "select * from t";
  static constexpr std::string_view kBlockPrompt = "Press any key to continue or ('q' to quit):";
  static constexpr std::string_view kCutPrompt = "Press any key to continue or 'q' to quit this output: ";
  static constexpr std::string_view kEndPrompt = "******  end of query, press (CR) to return to TCL  ******:";
};

TEST_F(QueryListings, AScreenOfBlocks) {
  engine.Type({""});
  std::string want =
      "[CLEAR]select * from t{CRLF}\n$\n    ID1$\n001 r1c1$\n002 r1c2$\n$\n"
      "    ID2$\n001 r2c1$\n002 r2c2$\n$\n";
  for (int line = 10; line < 22; ++line) want += "$\n";
  EXPECT_EQ(List(2, 2), want + "{CRLF}\n" + std::string(kEndPrompt) + "[IN ]\n");
}

// What each screen holds: its lines above the prompt's own, and how it ends: B before a block, C in a cut
// block, E at the end. The first screen has two lines above the blocks; a block has an ID line, its columns,
// a blank line.
TEST_F(QueryListings, LineCounterTable) {
  struct Row {
    std::string_view name;
    int highestColumn, rows;
    std::string_view want;
  };
  const Row rows[] = {
      {"nothing found", 3, 0, "22E "},
      {"four blocks fill the screen", 3, 4, "22E "},
      {"the fifth starts at 22 and moves", 3, 5, "23B 22E "},
      {"a block that starts at 17 stays", 1, 6, "22E "},
      {"a block that would start at 20 moves", 1, 7, "23B 22E "},
      {"a ninth ID would start at 18", 0, 9, "23B 22E "},
      {"cut behind its last column", 5, 3, "22C 22E "},
      {"cut in the middle", 24, 1, "22C 22E "},
      {"cut twice in the middle", 41, 1, "22C 22C 22E "},
      {"ends at line 22 exactly", 19, 2, "22C 22E "},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    engine.Type({"", "", "", ""});
    std::string screen = List(row.highestColumn, row.rows);
    while (engine.CallCount("ReadInput") < 4) {
      std::string unused;
      IInput(unused);
    }
    std::string got;
    for (std::size_t end = screen.find("[IN ]"); end != std::string::npos; end = screen.find("[IN ]")) {
      const std::string page = screen.substr(0, end);
      got += std::to_string(std::count(page.begin(), page.end(), '\n') - (got.empty() ? 1 : 2));
      got += page.ends_with(kBlockPrompt) ? "B " : page.ends_with(kCutPrompt) ? "C " : "E ";
      EXPECT_EQ(page.ends_with(kEndPrompt), got.ends_with("E "));
      screen.erase(0, end + 5);
    }
    EXPECT_EQ(got, row.want);
  }
}

TEST_F(QueryListings, ColumnNumbersHaveThreeDigitsAndBlocksGoOn) {
  for (int page = 0; page < 60; ++page) engine.Type({""});
  const std::string screen = List(1002, 1);
  const std::string cut = "\n019 r1c19$\n{CRLF}\n" + std::string(kCutPrompt);
  for (const std::string& line : {std::string("\n010 r1c10$\n"), std::string("\n999 r1c999$\n000 r1c1000$\n"),
                                  cut + "[IN ]\n[CLEAR]    (ID1 ... continued ... )$\n020 r1c20$\n"}) {
    EXPECT_NE(screen.find(line), std::string::npos) << line;
  }
}

TEST_F(QueryListings, AnswersAtEachPrompt) {
  const std::pair<std::string_view, bool> rows[] = {{"q", true}, {" Q  ", true}, {"", false}, {"qq", false}};
  for (const auto& [answer, quits] : rows) {
    for (int highestColumn : {3, 24}) {
      SCOPED_TRACE(testing::Message() << "'" << answer << "' with " << highestColumn << " columns");
      engine.Type({answer});
      if (!quits) engine.Type({"q"});
      const std::string screen = List(highestColumn, highestColumn == 3 ? 5 : 1);
      EXPECT_TRUE(screen.ends_with(quits ? "[IN " + std::string(answer) + "]\n[CLEAR]"
                                         : std::string(kEndPrompt) + "[IN q]\n"))
          << screen;
    }
  }
}

TEST_F(QueryListings, AFailedSentenceShowsItsErrorAndAsksNothing) {
  engine.RefuseSentence("SELECT X;", "no table X");
  EXPECT_EQ(Run("SELECT X;"), "[CLEAR]SELECT X;{CRLF}\n$\n{CRLF}\nno table X{CRLF}\n$\n");
}

TEST_F(QueryListings, ALostPortStopsAtTheNextPageButNotBehindTheClosingPrompt) {
  EXPECT_THROW(List(24, 1), EngineFailure);
  LogOn("JET");
  EXPECT_NO_THROW(List(1, 1));
  EXPECT_EQ(Session().Engine, nullptr);
}

// An answer "ERROR" is planned as a refused sentence with a reason.
TEST_F(QueryListings, SelectVerbTable) {
  struct Row {
    std::string_view name, reply, saved, want;
    int sentences;
  };
  const Row rows[] = {
      {"saved", "1^2", "OK", "OK - select list saved with 3 item IDs$\n", 2},
      {"error in small letters is no failure", "error", "OK", "OK - select list saved with 3 item IDs$\n", 2},
      {"saving fails", "1^2", "ERROR", "ERROR in SAVE-LIST: store is full$\n", 2},
      {"saving answers another word", "1^2", "ok", "ERROR in SAVE-LIST: $\n", 2},
      {"a failed select saves nothing", "ERROR", "OK", "ERROR: store is full$\n", 1},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    const auto plan = [this](std::string_view sentence, std::string_view reply, std::optional<Grid> grid) {
      if (reply == "ERROR") return engine.RefuseSentence(sentence, "store is full");
      engine.Answer(sentence, Dyn(reply), std::move(grid));
    };
    plan("SSELECT F", row.reply, NumberedKeys(3));
    plan("SAVE-LIST", row.saved, std::nullopt);
    EXPECT_EQ(Run("SSELECT F"), row.want);
    EXPECT_EQ(engine.CallCount("ExecuteSentence"), row.sentences);
  }
}

}  // namespace
}  // namespace nvadmin::test
