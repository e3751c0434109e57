// A plain browser on the real engine: the demo accounts' menu, forms and pages, as text both ways.
#include <gtest/gtest.h>

#include <deque>
#include <filesystem>
#include <sstream>
#include <thread>

#include "host/SessionPort.h"
#include "host/TclSession.h"
#include "samples/Demo.h"
#include "tests/support/TemporaryFolder.h"

namespace nvadmin::host {
namespace {

// Gives planned lines, typed at the prompt or sent as replies alike, and keeps what it was sent. Lost when
// they are used up.
class BrowserPort final : public SessionPort {
 public:
  engine::InputResult ReadLine(std::string& line, std::int32_t /*length*/, bool /*echoLineEnd*/) override {
    line.clear();
    if (lines.empty()) return engine::InputResult::kLost;
    line = lines.front();
    lines.pop_front();
    received += "[" + line + "]\n";
    return engine::InputResult::kLine;
  }
  engine::InputResult ReadSentence(std::string& sentence) override { return ReadLine(sentence, -1, true); }
  void Write(std::string_view text, bool lineEnd) override {
    received.append(text).append(lineEnd ? "\n" : "");
  }
  void Flush() override {}
  bool ShowsPages() const override { return true; }
  std::string CursorString(std::int32_t /*column*/, std::int32_t /*row*/) override { return {}; }
  void EndOpenLine() override {
    if (!OpenLine().empty()) Write("", /*lineEnd=*/true);
  }
  std::string_view OpenLine() const override {
    return std::string_view(received).substr(received.rfind('\n') + 1);
  }
  bool IsLost() const override { return false; }

  std::deque<std::string> lines;
  std::string received;
};

class Browser : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    folder = new TemporaryFolder;
    engine::Home::Make(folder->Path());
    engine::Home home(folder->Path());
    std::ostringstream progress;
    samples::MakeDemoAccounts(home, progress);
  }
  static void TearDownTestSuite() { delete folder; }

  // What the browser receives for these lines. A session has a thread of its own.
  static std::string Browse(std::string_view account, std::deque<std::string> lines) {
    BrowserPort port;
    port.lines = std::move(lines);
    std::thread thread([&] {
      engine::Home home(folder->Path());
      TclSettings settings;
      settings.account = account;
      settings.user = "anna";
      settings.prompts = true;
      TclSession(home, port, std::move(settings)).Run();
    });
    thread.join();
    return port.received;
  }
  static void ExpectHolds(const std::string& text, std::initializer_list<std::string_view> parts) {
    std::size_t at = 0;
    for (std::string_view part : parts) {
      const std::size_t found = text.find(part, at);
      EXPECT_NE(found, std::string::npos) << part << "\nis not behind the part before it in\n"
                                          << text.substr(at, 3000);
      if (found != std::string::npos) at = found + part.size();
    }
  }

  static TemporaryFolder* folder;
};

TemporaryFolder* Browser::folder = nullptr;

TEST_F(Browser, ImportsAndExports) {
  for (const std::string account : {"DEMO", "DEMO.MV"}) {
    folder->Put("TransferItem/XX", "Nowhere\r\n\r\n\r\nXXX\r\n");
    const std::string received = Browse(account, {"MENU",
                                                  "",
                                                  "mx1|",
                                                  "fx1|XX",
                                                  "fx3|COUNTRIES",
                                                  "fx4|XX",
                                                  "bx1|",
                                                  "bx2|",  // import XX
                                                  "mx2|",
                                                  "fx3|COUNTRIES",
                                                  "fx4|FR",
                                                  "fx5|france",
                                                  "bx1|",
                                                  "bx2|",  // export FR
                                                  "mx3|",
                                                  "fx3|LANGUAGES",
                                                  "bx1|",
                                                  "Y",
                                                  "fx3|CURRENCIES",
                                                  "fx5|some",
                                                  "fx4|SELECT CURRENCIES 'EUR'",
                                                  "bx1|",
                                                  "bx2|",
                                                  "bx2|",
                                                  "CT COUNTRIES XX",
                                                  "DELETE-ITEM COUNTRIES XX",
                                                  "OFF"});
    ExpectHolds(received,
                {"<TX>OK</TX>\n[]\n<TX>IREPLACE|doc1=", "Admin Menu", "Item/Record 'XX' imported.",
                 "Item/Record 'FR' exported.", "Do you still wish to proceed?", "[Y]",
                 " Items/Records exported.", "0 Errors detected.", "MSGBOX|1 Items/Records exported.",
                 "<TERMINAL>\n:[CT COUNTRIES XX]", "001 Nowhere", "004 XXX"});
    EXPECT_EQ(folder->Text("TransferItem/france").substr(0, 8), "France\r\n") << account;
    EXPECT_TRUE(folder->Text("TransferItem/some/EUR").starts_with("Euro\r\n")) << account;
    std::size_t files = 0;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(*folder / "TransferItem"))
      files += entry.is_regular_file() ? 1 : 0;
    EXPECT_GT(files, 200U) << account;
    std::filesystem::remove_all(*folder / "TransferItem");
    std::filesystem::create_directory(*folder / "TransferItem");
  }
}

TEST_F(Browser, ShowsReportsAndQueries) {
  const std::string tables[] = {
      Browse("DEMO", {"SORT ORDERS WITH CUSTOMER = \"C001\" BY ORDER.DATE ORDER.DATE TOTAL QTY TOTAL "
                      "EXTENDED BREAK-ON STATUS",
                      "fx1|", "OFF"}),
      Browse("DEMO.MV", {"SORT ORDERS WITH CUSTOMER = \"C001\" BY ORDER.DATE ORDER.DATE TOTAL QTY "
                         "TOTAL EXTENDED BREAK-ON STATUS",
                         "fx1|", "OFF"})};
  EXPECT_EQ(tables[0].substr(tables[0].find("<table")), tables[1].substr(tables[1].find("<table")))
      << "the same report of tables and of native files";
  ExpectHolds(tables[0], {"SubTotal(s)", "Total(s)", "</table></TX>\n[fx1|]\n<TERMINAL>\n:[OFF]"});
  ExpectHolds(Browse("DEMO", {"SELECT A0, A1 FROM countries WHERE A0 < 'AF';", "", "OFF"}),
              {"Rows found = 2</h3>", "<td>AD</td><td>Andorra</td>", "<TERMINAL>"});
  ExpectHolds(Browse("DEMO.MV", {"SELECT A0 FROM countries;", "", "OFF"}), {"<h3>ERROR: ", "<TERMINAL>\n:"});
}

TEST_F(Browser, FailuresLeaveTheMenuAndTellWhy) {
  folder->Put("TransferItem/F", "x");
  const std::deque<std::string> exports[] = {
      {"MENU", "", "mx2|", "fx3|COUNTRIES", "fx4|FR", "fx5|../out", "bx1|", "WHO", "OFF"},
      {"MENU", "", "mx2|", "fx3|COUNTRIES", "fx4|FR", "fx5|" + std::string(300, 'n'), "bx1|", "WHO", "OFF"},
      {"MENU", "", "mx1|", "fx3|COUNTRIES", "fx1|gone", "bx1|", "WHO", "OFF"},
      {"MENU", "", "mx1|" + std::string(1'000'000, 'x'), "fx3|COUNTRIES", "fx1|a/b", "bx1|", "WHO", "OFF"},
  };
  for (const std::deque<std::string>& lines : exports) {
    const std::string name = lines[lines.size() - 4].substr(4);
    ExpectHolds(Browse("DEMO", lines), {"\n<TERMINAL>\n", name, "\n:[WHO]\n", "DEMO anna"});
  }
  EXPECT_FALSE(std::filesystem::exists(*folder / "out"));
}

}  // namespace
}  // namespace nvadmin::host
