// Lines in, text out, and the ends of both.
#include "host/StreamPort.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/TemporaryFolder.h"

namespace nvadmin::host {
namespace {

using engine::InputResult;

// A port from a file to a file.
class FilePort {
 public:
  explicit FilePort(std::string_view input)
      : input_(open(folder_.Put("in", input).c_str(), O_RDONLY)),
        output_(open((folder_ / "out").c_str(), O_WRONLY | O_CREAT, 0600)),
        port_(input_, output_) {}
  ~FilePort() {
    close(input_);
    close(output_);
  }

  StreamPort& operator*() { return port_; }
  StreamPort* operator->() { return &port_; }
  std::string Output() const { return folder_.Text("out"); }

 private:
  TemporaryFolder folder_;
  int input_;
  int output_;
  StreamPort port_;
};

TEST(StreamPort, CutsInputIntoLines) {
  const std::string longLine(300000, 'x');
  const struct {
    const char* name;
    std::string input;
    std::vector<std::string> want;
  } rows[] = {
      {"CR LF", "WHO\r\n\r\nOFF\r\n", {"WHO", "", "OFF"}},
      {"a CR within stays", "a\rb\n", {"a\rb"}},
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

TEST(StreamPort, PutsLinesTogetherThatArriveInPieces) {
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  StreamPort port(ends[0], STDERR_FILENO);
  std::jthread writer([&] {
    for (const char letter : std::string("caf\xC3\xA9\r\nb")) {
      ASSERT_EQ(write(ends[1], &letter, 1), 1);
      usleep(2000);
    }
    close(ends[1]);
  });
  std::string line;
  for (const char* want : {"caf\xE9", "b"}) {
    EXPECT_EQ(port.ReadLine(line, -1, true), InputResult::kLine);
    EXPECT_EQ(line, want);
  }
  EXPECT_EQ(port.ReadLine(line, -1, true), InputResult::kEnd);
  close(ends[0]);
}

TEST(StreamPort, CutsALineToTheLengthAskedFor) {
  FilePort port("abcdef\n\xC3\xA9\xC3\xA8x\nxy\n");
  const std::pair<int, const char*> rows[] = {{3, "abc"}, {2, "\xE9\xE8"}, {0, ""}};
  for (const auto& [length, want] : rows) {
    std::string line;
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
