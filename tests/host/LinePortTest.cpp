// The port of a line connection, over a real socket: bytes, line ends, limits, and the ways in which it ends.
#include "host/LinePort.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <string>
#include <thread>
#include <vector>

namespace nvadmin::host {
namespace {

using engine::InputResult;
using Lines = std::vector<std::string>;

// A port and the far end of its connection.
class Line {
 public:
  explicit Line(const LineLimits& limits = {}) {
    int ends[2];
    EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, ends), 0);
    port_ = std::make_unique<LinePort>(std::make_unique<Connection>(ends[0]), limits);
    far_ = ends[1];
  }
  ~Line() { HangUp(); }

  void Send(std::string_view bytes) {
    EXPECT_EQ(write(far_, bytes.data(), bytes.size()), ssize_t(bytes.size()));
  }
  void HangUp() {
    if (far_ >= 0) close(far_);
    far_ = -1;
  }
  // Everything that came until the port's side is closed.
  std::string Received() {
    port_.reset();
    std::string all;
    char bytes[4096];
    for (ssize_t count = 0; (count = read(far_, bytes, sizeof bytes)) > 0;)
      all.append(bytes, std::size_t(count));
    return all;
  }
  LinePort* operator->() { return port_.get(); }

 private:
  std::unique_ptr<LinePort> port_;
  int far_ = -1;
};

Lines ReadAll(Line& line) {
  Lines lines;
  std::string text;
  while (line->ReadLine(text, -1, true) == InputResult::kLine) lines.push_back(text);
  return lines;
}

TEST(LinePort, SameLinesHoweverTheBytesCome) {
  std::string bytes = "WHO\r\n\nlast\n";
  std::string every;
  for (int byte = 0; byte < 256; ++byte) {
    if (byte != '\n') every += static_cast<char>(byte);
  }
  bytes += every + "\n\r\r\n" + std::string(40'000, 'x') + "\r\n";
  const Lines want = {"WHO", "", "last", every, "\r", std::string(40'000, 'x')};
  const std::size_t parts[] = {bytes.size(), 1, 7, 1000};
  for (const std::size_t part : parts) {
    Line line;
    std::thread client([&] {
      for (std::size_t at = 0; at < bytes.size(); at += part)
        line.Send(std::string_view(bytes).substr(at, part));
      line.HangUp();
    });
    EXPECT_EQ(ReadAll(line), want) << part;
    EXPECT_EQ(line->EndReason(), "the client hung up");
    client.join();
  }
}

TEST(LinePort, TextGoesOutAsItIsAndLinesEndInCrLf) {
  Line line;
  std::string every;
  for (int byte = 0; byte < 256; ++byte) every += static_cast<char>(byte);
  line->Write(":", false);
  EXPECT_EQ(line->OpenLine(), ":");
  line->EndOpenLine();
  line->EndOpenLine();
  line->Write(every, true);
  line->Write("a\r\n: ", false);
  EXPECT_EQ(line->OpenLine(), ": ");
  line->Flush();
  EXPECT_EQ(line.Received(), ":\r\n" + every + "\r\na\r\n: ");
}

TEST(LinePort, LimitsTable) {
  LineLimits limits;
  limits.lineBytes = 10;
  limits.requestBytes = 25;
  const std::string ten(10, 'x');
  const struct {
    const char* name;
    std::string bytes;
    Lines lines;
    std::string_view reason;
  } rows[] = {
      {"a line of the limit", ten + "\r\n" + ten + "\n", {ten, ten}, "the client hung up"},
      {"one byte more", ten + "x\n", {}, "a line is longer than 10 bytes"},
      {"no end in sight", ten + ten, {}, "a line is longer than 10 bytes"},
  };
  for (const auto& row : rows) {
    Line line(limits);
    line.Send(row.bytes);
    line.HangUp();
    EXPECT_EQ(ReadAll(line), row.lines) << row.name;
    EXPECT_EQ(line->EndReason(), row.reason) << row.name;
  }
  Line line(limits);
  line.Send(ten + "\n" + ten + "\n" + ten + "\n" + ten + "\n");
  std::string text;
  for (const std::string_view answer : {"<TXA>OK</TXA>", "<TXA><NEXT></TXA>", "<TXA><NEXT></TXA>"}) {
    EXPECT_EQ(line->ReadLine(text, -1, true), InputResult::kLine);
    line->Write(answer, true);
  }
  EXPECT_EQ(line->ReadLine(text, -1, true), InputResult::kLost)
      << "the acknowledgements begin no new request";

  Line reader(limits);
  reader.Send("1</TXB>\n2</txB>\n3</TXB>\n4</TXB>\n5</TXB>\n");
  for (int request = 1; request <= 5; ++request) {
    EXPECT_EQ(reader->ReadLine(text, -1, true), InputResult::kLine) << "an item may hold just <NEXT>";
    reader->Write("<TXA><NEXT></TXA>", true);
  }
}

TEST(LinePort, EndsTable) {
  LineLimits limits;
  limits.idle = std::chrono::seconds(0);
  limits.stall = std::chrono::seconds(0);
  std::string text;
  {
    Line line(limits);
    EXPECT_EQ(line->ReadLine(text, -1, true), InputResult::kLost);
    EXPECT_EQ(line.Received(), "no line came in time\r\n");
  }
  {
    Line line(limits);
    EXPECT_THROW(for (;;) line->Write(std::string(1'000'000, 'x'), true), PortLost);
    EXPECT_EQ(line->EndReason(), "the client took nothing of what was sent to it");
    EXPECT_TRUE(line->IsLost());
    EXPECT_THROW(line->Write("x", true), PortLost);
  }
  for (const bool byServer : {true, false}) {
    Line line;
    line->Write("question ", false);
    std::thread other([&] { byServer ? line->EndSoon() : line->HangUp(); });
    EXPECT_EQ(line->ReadLine(text, -1, true), InputResult::kLost);
    other.join();
    EXPECT_EQ(line->EndReason(), byServer ? "the server ends" : "the client hung up");
  }
  for (const bool byServer : {true, false}) {
    Line line;
    line.Send("first\nsecond\n");
    EXPECT_EQ(line->ReadLine(text, -1, true), InputResult::kLine);
    byServer ? line->EndSoon() : line->HangUp();
    EXPECT_EQ(line->ReadLine(text, -1, true), InputResult::kLost) << "nobody waits for the second's answer";
    EXPECT_EQ(line.Received(), byServer ? "the server ends\r\n" : "");
  }
  {
    Line line;
    line.Send("\x16\x03\x01");
    EXPECT_EQ(line->ReadLogInLine(text, 1024, std::chrono::steady_clock::now() + std::chrono::seconds(60)),
              InputResult::kLost);
    EXPECT_EQ(line.Received(), "this port speaks plain text, without TLS\r\n");
  }
}

}  // namespace
}  // namespace nvadmin::host
