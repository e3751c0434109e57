// Terminal input and output: arguments of IInput, the lost port, the trace line.
#include <gtest/gtest.h>

#include <stdexcept>

#include "session/Text.h"
#include "session/basNvLibrary.h"
#include "tests/support/ScriptedSession.h"

namespace nvadmin::test {
namespace {

using Terminal = ScriptedSession;
using std::string_literals::operator""s;

TEST_F(Terminal, InputArgumentsTable) {
  const struct {
    std::string_view name;
    std::vector<InputArgument> arguments;
    std::string_view want;  // empty: fails
  } kRows[] = {
      {"neither", {}, "-1, true"},
      {"both as texts", {"12"s, "True"s}, "12, true"},
      {"both, length from a truth value", {true, 0}, "-1, false"},
      {"32 bits", {70000}, "70000, true"},
      {"single precision", {8.0F}, "8, true"},
      {"zero in double precision", {0.0}, "-1, false"},
      {"boolean", {false}, "-1, false"},
      {"false in any case between blanks", {" False "s}, "-1, false"},
      {"colon between blanks", {" : "s}, "-1, false"},
      {"numeric text", {" 40 "s}, "40, true"},
      {"zero as text is a length", {"0"s}, "0, true"},
      {"text without a reading", {"yes"s}, ""},
      {"empty text", {""s}, ""},
      {"first of both is no number", {"x"s, true}, ""},
      {"second of both is no truth value", {1, "x"s}, ""},
  };
  for (const auto& row : kRows) {
    SCOPED_TRACE(row.name);
    engine.Forget();
    std::string line;
    const auto read = [&] {
      if (row.arguments.empty()) return IInput(line);
      if (row.arguments.size() == 1) return IInput(line, row.arguments[0]);
      IInput(line, row.arguments[0], row.arguments[1]);
    };
    if (row.want.empty()) {
      EXPECT_THROW(read(), std::exception);
      EXPECT_EQ(engine.Calls(), "");
      continue;
    }
    engine.Type({"typed"});
    read();
    EXPECT_EQ(line, "typed");
    EXPECT_EQ(engine.Calls(), "ReadInput(" + std::string(row.want) + ", -1.000000) 'typed'\n");
  }
}

TEST_F(Terminal, OnlyTheExactWordLosesThePort) {
  for (std::string_view typed :
       {"<&port_disconnect>", " <&PORT_DISCONNECT>", "<&PORT_DISCONNECT>.", "<&PORT_DISCONNECT>"}) {
    engine.Type({typed});
    std::string line = "before";
    IInput(line);
    EXPECT_EQ(line, typed);
    EXPECT_EQ(Session().Engine == nullptr, typed == "<&PORT_DISCONNECT>") << typed;
  }
  EXPECT_THROW(PPrint("x", true), EngineFailure);
}

TEST_F(Terminal, TraceLineHasSecondsABlankAndTheMessageAndIsSilentWhenOff) {
  std::vector<std::string> lines;
  LogLine({"before"});
  TraceTo([&lines](std::string_view line) { lines.emplace_back(line); });
  LogLine({"a ", "b"});
  Session().DebugLog = false;
  LogLine({"after"});
  ASSERT_EQ(lines.size(), 1U);
  const std::string seconds = lines[0].substr(0, lines[0].find(' '));
  EXPECT_EQ(lines[0].substr(seconds.size()), " a b");
  EXPECT_TRUE(IsNumber(seconds) && LeadingWholeNumber(seconds) < 86400) << lines[0];
}

}  // namespace
}  // namespace nvadmin::test
