// Whole sessions over files, against a home of their own: what is printed around a sentence, and what comes
// of it.
#include "host/TclSession.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/host/FilePort.h"

namespace nvadmin::host {
namespace {

class Tcl : public testing::Test {
 protected:
  void SetUp() override {
    engine::Home::Make(folder_ / "home");
    home_.emplace(folder_ / "home");
    std::string error;
    ASSERT_TRUE(home_->AddAccount({"SHOP", "MYSQL", ""}, error)) << error;
    ASSERT_TRUE(home_->AddAccount({"BOOKS", "JET", ""}, error)) << error;
    Run({"CREATE-FILE STOCK", "PUT STOCK A 1 Tea", "LOGTO BOOKS", "CREATE-FILE MY.BOOKS",
         "PUT my_books B 1 x"});
  }
  SessionRun Run(std::vector<std::string> sentences, std::string_view input = "") {
    return RunSession(*home_, "SHOP", Given(std::move(sentences)), input);
  }

  TemporaryFolder folder_;
  std::optional<engine::Home> home_;
};

// What a person sees behind the greeting line. The stream doesn't echo what is typed, only its line end.
TEST_F(Tcl, PromptsWhereNoneStands) {
  const struct {
    const char* name;
    const char* input;
    const char* want;
  } rows[] = {
      {"a prompt for each line, empty ones too", "\n  \nACCOUNT\n", ":\n:\n:\nSHOP\n:\n"},
      {"OFF in any letter case, with blanks", " off \nACCOUNT\n", ":\n"},
      {"a report leaves its own prompt", "LIST STOCK\n\nACCOUNT\n",
       ":\n"
       "Page 1      LIST STOCK\n\nItemID      \n=========== \n\nA           \n\n"
       "**********  END of Query, 1 Items Displayed.  Press (CR) to continue ********** : \n:\nSHOP\n:\n"},
      {"a report on no file leaves a prompt and a blank", "LIST NO\n\nACCOUNT\n", nullptr},
  };
  for (const auto& row : rows) {
    TclSettings settings;
    settings.prompts = true;
    const SessionRun run = RunSession(*home_, "SHOP", settings, row.input);
    const std::string got = run.output.substr(run.output.find('\n') + 1);
    EXPECT_TRUE(row.want == nullptr || got == row.want) << row.name << ":\n" << got;
    EXPECT_EQ(got.find("::"), std::string::npos) << row.name;
    EXPECT_EQ(got.find(": :"), std::string::npos) << row.name;
    EXPECT_EQ(run.exitCode, ExitCode::kFine) << row.name << ": a person saw the failures";
  }
}

TEST_F(Tcl, GivenSentencesAnswerAndCount) {
  using enum ExitCode;
  const struct {
    const char* name;
    std::vector<std::string> sentences;
    const char* input;
    std::string want;  // a part of what is printed
    ExitCode exitCode = kFine;
  } rows[] = {
      {"no prompts", {"ACCOUNT", "", "  ACCOUNT  "}, "", "SHOP\nSHOP\n"},
      {"tabs part words, but not in quotes",
       {"LIST\tSTOCK\t'A'", "CT STOCK '\t'"},
       "",
       "1 Items Displayed",
       kFailed},
      {"answers come from the input", {"LIST STOCK", "ACCOUNT"}, "q\n", "********** : \n:\nSHOP\n"},
      {"the end of the input answers too", {"LIST STOCK", "LIST STOCK"}, "", ": \n:\n"},
      {"nothing runs behind OFF", {"OFF", "NONSENSE"}, "", ""},
      {"an unknown verb", {"NONSENSE", "ACCOUNT"}, "", "HELP lists the verbs\nSHOP\n", kFailed},
      {"a select shows its failure", {"SELECT NOWHERE"}, "", "ERROR: unknown file", kFailed},
      {"a report leaves its failure to the prompt",
       {"LIST STOCK WITH"},
       "",
       "\n:\n'WITH' at position 12",
       kFailed},
      {"characters that the page lacks", {"PUT STOCK A 1 \xC5\x82", "CT STOCK A"}, "", "Tea", kRefusals},
      {"characters that it has", {"PUT STOCK A 1 \xC3\xA9", "CT STOCK A"}, "", "\xC3\xA9"},
  };
  for (const auto& row : rows) {
    const auto [got, exitCode, addInKnows] = Run(row.sentences, row.input);
    EXPECT_NE(got.find(row.want), std::string::npos) << row.name << ":\n" << got;
    EXPECT_EQ(exitCode, row.exitCode) << row.name;
    EXPECT_TRUE(got.empty() || got.ends_with('\n')) << row.name;
  }
  const std::string select = Run({"SELECT NOWHERE"}).output;
  EXPECT_EQ(select.find("NOWHERE"), select.rfind("NOWHERE")) << select;
}

TEST_F(Tcl, LogtoTakesTheAddInAlong) {
  SessionRun run = Run({"LOGTO BOOKS", "LIST MY.BOOKS", "LOGTO NOWHERE", "ACCOUNT"});
  EXPECT_NE(run.output.find("\nB "), std::string::npos) << run.output;
  EXPECT_TRUE(run.output.ends_with("\nBOOKS\n")) << run.output;
  EXPECT_EQ(run.addInKnows, "BOOKS JET");
  run = Run({"LOGTO BOOKS", "LOGTO SHOP", "LIST STOCK"});
  EXPECT_EQ(run.exitCode, ExitCode::kFine);
  EXPECT_EQ(run.addInKnows, "SHOP MYSQL");
}

TEST_F(Tcl, TheTraceIsOfThisSessionOnly) {
  std::string traced;
  TclSettings settings = Given({"LIST NOWHERE"});
  settings.trace = [&traced](std::string_view line) { traced += line; };
  RunSession(*home_, "SHOP", settings);
  EXPECT_NE(traced.find("nowhere"), std::string::npos) << traced;
  traced.clear();
  Run({"LIST NOWHERE"});
  EXPECT_EQ(traced, "");
}

}  // namespace
}  // namespace nvadmin::host
