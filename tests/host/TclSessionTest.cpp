// Whole sessions over files, against a home of their own: what is printed around a sentence, and what comes
// of it.
#include "host/TclSession.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <string>
#include <thread>
#include <vector>

#include "host/StreamPort.h"
#include "session/SessionState.h"
#include "tests/support/TemporaryFolder.h"

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

  // A session in the account SHOP on a thread of its own; the answer is all that it printed.
  std::string RunSession(std::string_view input, TclSettings settings) {
    settings.account = "SHOP";
    settings.user = "tester";
    const int in = open(folder_.Put("in", input).c_str(), O_RDONLY);
    const int out = open((folder_ / "out").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    StreamPort port(in, out);
    TclSession session(*home_, port, std::move(settings));
    std::thread([&] {
      exitCode_ = session.Run();
      addInKnows_ = Session().CurrentAccount + " " + Session().DatastoreKind;
    }).join();
    close(in);
    close(out);
    return folder_.Text("out");
  }
  std::string Run(std::vector<std::string> sentences, std::string_view input = "") {
    TclSettings settings;
    settings.sentences = std::move(sentences);
    return RunSession(input, std::move(settings));
  }
  TemporaryFolder folder_;
  std::optional<engine::Home> home_;
  ExitCode exitCode_ = ExitCode::kFine;
  std::string addInKnows_;  // account and datastore word at the session's end
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
    std::string got = RunSession(row.input, std::move(settings));
    got.erase(0, got.find('\n') + 1);
    if (row.want != nullptr) {
      EXPECT_EQ(got, row.want) << row.name;
    }
    EXPECT_EQ(got.find("::"), std::string::npos) << row.name;
    EXPECT_EQ(got.find(": :"), std::string::npos) << row.name;
    EXPECT_EQ(exitCode_, ExitCode::kFine) << row.name << ": a person saw the failures";
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
    const std::string got = Run(row.sentences, row.input);
    EXPECT_NE(got.find(row.want), std::string::npos) << row.name << ":\n" << got;
    EXPECT_EQ(exitCode_, row.exitCode) << row.name;
    EXPECT_TRUE(got.empty() || got.ends_with('\n')) << row.name;
  }
  const std::string select = Run({"SELECT NOWHERE"});
  EXPECT_EQ(select.find("NOWHERE"), select.rfind("NOWHERE")) << select;
}

TEST_F(Tcl, LogtoTakesTheAddInAlong) {
  const std::string got = Run({"LOGTO BOOKS", "LIST MY.BOOKS", "LOGTO NOWHERE", "ACCOUNT"});
  EXPECT_NE(got.find("\nB "), std::string::npos) << got;
  EXPECT_TRUE(got.ends_with("\nBOOKS\n")) << got;
  EXPECT_EQ(addInKnows_, "BOOKS JET");
  Run({"LOGTO BOOKS", "LOGTO SHOP", "LIST STOCK"});
  EXPECT_EQ(exitCode_, ExitCode::kFine);
  EXPECT_EQ(addInKnows_, "SHOP MYSQL");
}

TEST_F(Tcl, TheTraceIsOfThisSessionOnly) {
  std::vector<std::string> traced;
  TclSettings settings;
  settings.sentences = {"LIST NOWHERE"};
  settings.trace = [&traced](std::string_view line) { traced.emplace_back(line); };
  RunSession("", std::move(settings));
  ASSERT_FALSE(traced.empty());
  EXPECT_NE(traced.front().find("nowhere"), std::string::npos) << traced.front();
  traced.clear();
  Run({"LIST NOWHERE"});
  EXPECT_TRUE(traced.empty());
}

}  // namespace
}  // namespace nvadmin::host
