// Lines in, text out, and the ends of both.
#include "host/StreamPort.h"

#include <gtest/gtest.h>

#include <csignal>
#include <string>
#include <vector>

#include "tests/host/FilePort.h"

namespace nvadmin::host {
namespace {

using engine::InputResult;

TEST(StreamPort, CutsInputIntoLines) {
  const std::string longLine(300000, 'x');
  const struct {
    const char* name;
    std::string input;
    std::vector<std::string> want;
  } rows[] = {
      {"CR LF", "WHO\r\n\r\nOFF\r\n", {"WHO", "", "OFF"}},
      {"a CR within stays", "a\rb\n", {"a\rb"}},
      {"no end of the last line", "a\nb", {"a", "b"}},
      {"longer than what is read at once", longLine + "\nb\n", {longLine, "b"}},
      {"UTF-8 becomes the code page", "caf\xC3\xA9 \xE2\x82\xAC\n", {"caf\xE9 \x80"}},
  };
  for (const auto& row : rows) {
    FilePort port(row.input);
    std::vector<std::string> lines;
    std::string line;
    while (port->ReadLine(line, -1, true) == InputResult::kLine) lines.push_back(line);
    EXPECT_EQ(lines, row.want) << row.name;
    EXPECT_EQ(line, "") << row.name;
    EXPECT_EQ(port->ReadSentence(line), InputResult::kEnd) << row.name;
    EXPECT_EQ(port->RefusedLines(), 0) << row.name;
  }
}

TEST(StreamPort, CutsALineToTheLengthAskedFor) {
  FilePort port("abcdef\n\xC3\xA9\xC3\xA8x\nxy\n");
  std::string line;
  for (const auto& [length, want] : {std::pair(3, "abc"), {2, "\xE9\xE8"}, {0, ""}}) {
    port->ReadLine(line, length, true);
    EXPECT_EQ(line, want);
  }
}

TEST(StreamPort, RefusesALineByNameAndAsksAgain) {
  FilePort port("\xC5\x82 x\nbroken \xFF\nq\n");
  port->Write("Go on: ", false);
  std::string line;
  EXPECT_EQ(port->ReadLine(line, -1, true), InputResult::kLine);
  EXPECT_EQ(line, "q");
  EXPECT_EQ(port->RefusedLines(), 2);
  const std::string output = port.Output();
  EXPECT_NE(output.find("Go on: \nU+0142"), std::string::npos) << output;
  EXPECT_NE(output.find("\nGo on: \nthe broken UTF-8 at byte 8"), std::string::npos) << output;
}

TEST(StreamPort, AnAnswerEndsTheLineOfItsQuestion) {
  FilePort port("yes\n");
  std::string line;
  port->Write("Sure? ", false);
  port->ReadLine(line, -1, true);
  EXPECT_EQ(port->OpenLine(), "");
  port->Write("And now? ", false);
  port->ReadLine(line, -1, true);
  port->Write("silent: ", false);
  port->ReadLine(line, -1, /*echoLineEnd=*/false);
  port->Flush();
  EXPECT_EQ(port.Output(), "Sure? \nAnd now? \nsilent: ");
}

TEST(StreamPort, AllTextArrivesInOrder) {
  FilePort port("");
  std::string want;
  for (int number = 0; number < 40000; ++number) {
    const std::string text = std::to_string(number);
    port->Write(text, number % 3 == 0);
    want += text + (number % 3 == 0 ? "\n" : "");
  }
  port->Flush();
  EXPECT_EQ(port.Output(), want);
}

TEST(StreamPort, AReaderThatWentLosesThePortQuietly) {
  std::signal(SIGPIPE, SIG_IGN);
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  close(ends[0]);
  StreamPort port(kNoInput, ends[1]);
  port.Write("x", true);
  EXPECT_THROW(port.Flush(), PortLost);
  EXPECT_TRUE(port.IsLost());
  EXPECT_THROW(port.Write("y", true), PortLost) << "a report would go on for ever";
  std::string line;
  EXPECT_EQ(port.ReadLine(line, -1, true), InputResult::kLost);
  close(ends[1]);
}

}  // namespace
}  // namespace nvadmin::host
