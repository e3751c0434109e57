// The port of a web session with a page that is a list: lines in, messages out, losses, back pressure, ends;
// and the table of who is logged in.
#include "host/WebPort.h"

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <thread>
#include <vector>

#include "host/WebLogIns.h"

namespace nvadmin::host {
namespace {

using engine::InputResult;
using Messages = std::vector<std::string>;

class ListPage final : public WebChannel {
 public:
  void OutputWaits() noexcept override { told = true; }
  void Moved() noexcept override { moved = true; }

  Messages Take(WebPort& port) {
    Messages taken;
    bool isLast = false;
    while (const WebMessage message = port.NextOutput(*this, isLast)) taken.push_back(*message);
    return taken;
  }

  std::atomic<bool> told = false;
  bool moved = false;
};

// The word of a port's cursor strings.
std::string CursorWord(WebPort& port) { return port.CursorString(0, 0).substr(1, 16); }

TEST(WebPort, LinesAndMessages) {
  WebPort port("token", "DEMO", {});
  const auto page = std::make_shared<ListPage>();
  port.Attach(page, 0);
  port.Write("a\x1b[2J\xfe\x80", true);
  port.Write(":", false);
  EXPECT_EQ(port.OpenLine(), ":");
  EXPECT_EQ(port.TakeLine(2, "early"), WebPort::Taken::kMissing);
  EXPECT_EQ(port.TakeLine(1, "caf\xc3\xa9"), WebPort::Taken::kAccepted);
  EXPECT_EQ(port.TakeLine(1, "again"), WebPort::Taken::kKnown);
  EXPECT_EQ(port.TakeLine(2, "\xc5\x82"), WebPort::Taken::kAccepted);
  EXPECT_EQ(port.TakeLine(3, "abcdef"), WebPort::Taken::kAccepted);
  std::string line;
  EXPECT_EQ(port.ReadSentence(line), InputResult::kLine);
  EXPECT_EQ(line, "caf\xe9");
  EXPECT_EQ(port.OpenLine(), "");
  port.WriteMessage("<TX>", false);
  port.WriteMessage("VALUE|fx1=\x1b\xfe\xff\x81", true);
  port.WriteMessage("elsewhere" + port.CursorString(3, 7) + "what", false);
  EXPECT_EQ(port.OpenLine(), "what");
  EXPECT_EQ(port.ReadLine(line, 3, true), InputResult::kLine);
  EXPECT_EQ(line, "abc") << "the line before is refused by name";
  port.WriteMessage("1 / 9<AUTORX>", true);
  EXPECT_EQ(port.ReadLine(line, -1, true), InputResult::kLine) << "nobody is waited for";
  EXPECT_EQ(line, "");
  port.ShowAccount("OTHER");
  const std::string word = CursorWord(port);
  EXPECT_EQ(
      page->Take(port),
      (Messages{"Stoken " + word + " 16777216 0 1 DEMO", "Ea\u241b[2J^\u20ac\r\n:", "K1", "A<TX>",
                "AVALUE|fx1=\x1b\u00fe\u00ff\u0081\r\n", "Aelsewhere\x1b" + word + ":3;7;what", "K2",
                "EU+0142 '\u0142' at character 1 is not in the code page Windows-1252: give the line without "
                "it\r\nwhat",
                "K3", "A1 / 9<AUTORX>\r\n", "TOTHER"}));
  const auto second = std::make_shared<ListPage>();
  port.Attach(second, 8);
  EXPECT_TRUE(page->moved);
  EXPECT_EQ(page->Take(port), Messages{});
  EXPECT_EQ(second->Take(port), (Messages{"Stoken " + word + " 16777216 3 9 OTHER", "A1 / 9<AUTORX>\r\n"}));
}

TEST(WebPort, LongTextGoesInParts) {
  WebPort port("token", "DEMO", {});
  const auto page = std::make_shared<ListPage>();
  port.Attach(page, 0);
  std::string text;
  for (int number = 0; number < 20'000; ++number) text += std::to_string(number) + "\r\n";
  port.Write(text, false);
  port.Flush();
  Messages messages = page->Take(port);
  std::string shown;
  for (std::size_t index = 1; index < messages.size(); ++index) {
    EXPECT_LT(messages[index].size(), 40'000u);
    shown += messages[index].substr(1);
  }
  EXPECT_EQ(shown, text);
}

TEST(WebPort, SlowReaderHoldsTheSessionUp) {
  WebPort port("token", "DEMO", {});
  const auto page = std::make_shared<ListPage>();
  port.Attach(page, 0);
  std::atomic<int> written = 0;
  std::thread session([&] {
    const std::string megabyte(1'000'000, 'x');
    for (; written < 40; ++written) port.WriteMessage(megabyte, true);
  });
  while (written < 8) std::this_thread::yield();
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  EXPECT_LE(written, 9);
  EXPECT_GE(page->Take(port).size(), 9u);
  port.Detach(*page);  // nobody is waited for
  session.join();
  EXPECT_EQ(written, 40);
}

TEST(WebPort, EndsTable) {
  WebLimits quick;
  quick.idle = std::chrono::seconds(0);
  quick.resume = std::chrono::seconds(5);
  const struct {
    const char* name;
    WebLimits limits;
    std::function<void(WebPort&)> end;
    InputResult want;
    std::string_view reason;
  } rows[] = {
      {"no line", quick, [](WebPort&) {}, InputResult::kLost, "no line came in time"},
      {"lost", {}, [](WebPort& port) { port.Lose("gone"); }, InputResult::kLost, "gone"},
      {"the first reason counts",
       {},
       [](WebPort& port) {
         port.Lose("gone");
         port.Close("off");
       },
       InputResult::kLost,
       "gone"},
      {"the server ends, also before lines that wait",
       {},
       [](WebPort& port) {
         port.EndSoon();
         port.TakeLine(1, "x");
       },
       InputResult::kLost,
       "the server ends"},
  };
  for (const auto& row : rows) {
    WebPort port("token", "DEMO", row.limits);
    const auto page = std::make_shared<ListPage>();
    port.Attach(page, 0);
    std::thread other([&] { row.end(port); });
    std::string line;
    EXPECT_EQ(port.ReadLine(line, -1, true), row.want) << row.name;
    other.join();
    EXPECT_EQ(line, "");
    EXPECT_EQ(port.EndReason(), row.reason) << row.name;
    const Messages messages = page->Take(port);
    if (row.want != InputResult::kLost) continue;
    EXPECT_THROW(port.Write("x", true), PortLost);
    EXPECT_EQ(messages.back(), "X" + std::string(row.reason)) << row.name;
    EXPECT_EQ(page->Take(port), Messages{}) << row.name;
  }
  WebPort port("token", "DEMO", quick);
  const auto start = WebPort::Clock::now();
  EXPECT_FALSE(port.IsAbandoned(start + std::chrono::seconds(4)));
  EXPECT_TRUE(port.IsAbandoned(start + std::chrono::seconds(6)));
  port.Attach(std::make_shared<ListPage>(), 0);
  EXPECT_FALSE(port.IsAbandoned(start + std::chrono::hours(1)));
}

// A session that meets an interrupt while it waits, or between two waits.
TEST(WebPort, InterruptTable) {
  const struct {
    const char* name;
    std::string_view shown;  // by the add-in, behind the prompt
    bool waits;              // when the interrupt comes
    bool isSentence;
    bool stops;
    std::string_view want;  // the line that is read; "typed" comes behind the interrupt
    Messages output;
  } rows[] = {
      {"at the prompt it comes again", "", true, true, false, "typed", {"E\r\n:", "K1"}},
      {"between two sentences", "", false, true, true, "typed", {"K1"}},
      {"a question at the terminal", "more?", true, false, true, "", {}},
      {"a question that comes behind it", "more?", false, false, true, "", {}},
      {"a form", "<TX>IREPLACE|doc1=form</TX>", true, false, false, "typed", {"K1"}},
      {"a form that is about to wait", "<TX>IREPLACE|doc1=form</TX>", false, false, false, "typed", {"K1"}},
      {"work with an open frame", "<TX>IREPLACE|doc1=form", false, false, true, "typed", {"K1"}},
      {"a question in an open frame", "<TX>MSGBOX|sure?\\vbYesNo", true, false, false, "typed", {"K1"}},
      {"a terminal behind a form", "<TX><TERMINAL>", true, false, true, "", {}},
  };
  for (const auto& row : rows) {
    WebPort port("token", "DEMO", {});
    const auto page = std::make_shared<ListPage>();
    port.Write(":", false);
    if (!row.shown.empty()) port.WriteMessage(row.shown, true);
    port.Flush();
    port.Attach(page, 0);
    page->Take(port);
    bool stopped = false;
    const auto interrupt = [&] { port.Interrupt([&] { stopped = true; }); };
    if (!row.waits) interrupt();
    std::thread other([&] {
      std::this_thread::sleep_for(std::chrono::milliseconds(row.waits ? 50 : 0));
      if (row.waits) interrupt();
      std::this_thread::sleep_for(std::chrono::milliseconds(50));
      port.TakeLine(1, "typed");
    });
    std::string line;
    row.isSentence ? port.ReadSentence(line) : port.ReadLine(line, -1, true);
    const Messages output = page->Take(port);
    other.join();
    EXPECT_EQ(line, row.want) << row.name;
    EXPECT_EQ(stopped, row.stops) << row.name;
    EXPECT_EQ(output, row.output) << row.name;
  }
}

// What came at the prompt counts for nothing that comes later.
TEST(WebPort, InterruptAtThePromptIsGone) {
  WebPort port("token", "DEMO", {});
  std::thread page([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    port.Interrupt([] {});
    port.TakeLine(1, "LIST");
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    port.TakeLine(2, "answer");
  });
  std::string line;
  EXPECT_EQ(port.ReadSentence(line), InputResult::kLine);
  port.WriteMessage("more?", true);
  EXPECT_EQ(port.ReadLine(line, -1, true), InputResult::kLine);
  EXPECT_EQ(line, "answer");
  page.join();
}

TEST(WebLogIns, LifeAndNumber) {
  using std::chrono::hours;
  const WebLogIns::TimePoint start{};
  WebLogIns logIns(WebLogIns::kLife, /*most=*/2);
  const std::string anna = logIns.Add({0, "anna", "A", ""}, start);
  const std::string ben = logIns.Add({0, "ben", "B", ""}, start + hours(1));
  EXPECT_EQ(anna.size(), 43u);
  EXPECT_EQ(logIns.Find(anna, start + hours(11))->user, "anna");
  EXPECT_FALSE(logIns.Find(ben, start + hours(14))) << "thirteen hours unused";
  EXPECT_EQ(logIns.Find(anna, start + hours(14))->user, "anna") << "used meanwhile";
  for (const std::string& wrong : {std::string(), anna.substr(1), anna + "x", std::string(43, 'x')})
    EXPECT_FALSE(logIns.Find(wrong, start + hours(14)));
  const std::string carl = logIns.Add({0, "carl", "C", ""}, start + hours(15));
  logIns.Add({0, "dora", "D", ""}, start + hours(16));
  EXPECT_FALSE(logIns.Find(anna, start + hours(16))) << "the one unused for longest makes room";
  EXPECT_EQ(logIns.Remove(carl), 3);
  EXPECT_EQ(logIns.Remove(carl), 0);
  EXPECT_EQ(logIns.Count(), 1u);
}

}  // namespace
}  // namespace nvadmin::host
