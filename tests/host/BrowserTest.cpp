// A plain browser on the real engine: the demo accounts' menu, forms and pages, as text both ways.
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <filesystem>
#include <functional>
#include <map>
#include <sstream>
#include <thread>

#include "host/TclSession.h"
#include "samples/Demo.h"
#include "tests/host/BrowserPort.h"
#include "tests/support/TemporaryFolder.h"

namespace nvadmin::host {
namespace {

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
  static std::string Browse(std::string_view account, std::deque<std::string> lines,
                            std::string_view interruptedLine = "none") {
    BrowserPort port;
    port.lines = std::move(lines);
    port.interruptedLine = interruptedLine;
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

// An interrupt that comes before the sentence has begun isn't lost, and stops no other.
TEST_F(Browser, InterruptedBeforeItBegins) {
  for (const std::string sentence : {"SELECT A0 FROM countries", "COUNT COUNTRIES", "CT COUNTRIES DE"}) {
    const std::string received = Browse("DEMO", {sentence, "WHO"}, sentence);
    ExpectHolds(received, {sentence + "]\n", "interrupted\n", "[WHO]\n", "DEMO"});
    EXPECT_EQ(received.find("interrupted"), received.rfind("interrupted")) << received;
  }
}

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

// Whatever a transfer folder holds or lacks, the session tells what is wrong and goes on at the prompt.
TEST_F(Browser, FailuresLeaveTheMenuAndTellWhy) {
  const std::filesystem::path transfer = *folder / "TransferItem";
  const auto emptied = [&] {
    std::filesystem::remove_all(transfer);
    std::filesystem::create_directory(transfer);
    folder->Put("TransferItem/F", "x");
  };
  const auto missing = [&] { std::filesystem::remove_all(transfer); };
  const auto dangling = [&] {
    missing();
    std::filesystem::create_symlink("nowhere", transfer);
  };
  const auto pipe = [&] { ASSERT_EQ(mkfifo((transfer / "P").c_str(), 0600), 0); };
  const auto taken = [&] { std::filesystem::create_directories(transfer / "T/by"); };
  const auto links = [&] {
    std::filesystem::create_symlink("..", transfer / "L");
    std::filesystem::create_symlink("../accounts.json", transfer / "S");
  };
  const std::deque<std::string> import = {"fx3|COUNTRIES", "fx4|XX"};
  const std::deque<std::string> one = {"fx3|COUNTRIES", "fx4|FR"};
  const std::deque<std::string> many = {"fx3|COUNTRIES", "fx4|SELECT COUNTRIES 'FR' 'GB'"};
  struct Row {
    std::function<void()> trouble;
    std::string link;
    std::deque<std::string> fields;
    std::string last, told;
  };
  const Row rows[] = {
      {emptied, "mx2|", one, "fx5|../out", "'../out'"},
      {emptied, "mx2|", one, "fx5|" + std::string(300, 'n'), std::string(300, 'n') + "'"},
      {emptied, "mx2|", one, "fx5|" + std::string(1'000'000, '<'), "<...' (1000"},
      {emptied, "mx1|", import, "fx1|gone", "gone': No such file"},
      {emptied, "mx1|" + std::string(1'000'000, 'x'), import, "fx1|a/b", "'a/b'"},
      {pipe, "mx1|", import, "fx1|P", "P': it is no plain file"},
      {taken, "mx1|", import, "fx1|T", "T': it is no plain file"},
      {links, "mx1|", import, "fx1|S", "\\S': "},
      {taken, "mx2|", one, "fx5|T", "T': Is a directory"},
      {emptied, "mx3|", many, "fx5|F", "F': Not a directory"},
      {links, "mx3|", many, "fx5|L", "\\L': "},
      {missing, "mx1|", {}, "", "TransferItem': No such file"},
      {missing, "mx2|", one, "fx5|x", "TransferItem': No such file"},
      {dangling, "mx3|", many, "fx5|x", "TransferItem': No such file"},
  };
  for (const Row& row : rows) {
    emptied();
    row.trouble();
    std::deque<std::string> lines = {"MENU", "", row.link};
    lines.insert(lines.end(), row.fields.begin(), row.fields.end());
    if (!row.last.empty()) lines.insert(lines.end(), {row.last, "bx1|"});
    lines.insert(lines.end(), {"WHO", "CT COUNTRIES XX", "OFF"});
    ExpectHolds(Browse("DEMO", lines),
                {"\n<TERMINAL>\n", row.told, "\n:[WHO]\n", "DEMO anna", "XX", ":[OFF]"});
  }
  emptied();
  EXPECT_FALSE(std::filesystem::exists(*folder / "out"));
}

// An item can't become a file: those before it stay whole, and nothing else is left behind.
TEST_F(Browser, ExportsThatBreakOffLeaveWholeFiles) {
  folder->Put("TransferItem/small", "s");
  folder->Put("TransferItem/large", std::string(300'000, 'x'));
  for (const std::string account : {"DEMO", "DEMO.MV"}) {
    ExpectHolds(Browse(account,
                       {"CREATE-FILE ODD", "MENU", "", "mx1|", "fx3|ODD", "fx4|1", "fx1|small", "bx1|",
                        "fx4|2", "fx1|large", "bx1|", "fx4|2/b", "fx1|small", "bx1|", "bx2|", "bx2|", "OFF"}),
                {"'1' imported", "'2' imported", "'2/b' imported"});
    const auto exportAll = [&] {
      return Browse(account,
                    {"MENU", "", "mx3|", "fx3|ODD", "fx4|SSELECT ODD", "fx5|odd", "bx1|", "WHO", "OFF"});
    };
    ExpectHolds(exportAll(), {"<TERMINAL>\n", "'2/b'", ":[WHO]\n", account});
    const std::string full = RunInChild([&] {
      signal(SIGXFSZ, SIG_IGN);
      const rlimit most{200'000, 200'000};
      setrlimit(RLIMIT_FSIZE, &most);
      return exportAll();
    });
    ExpectHolds(full, {"<TERMINAL>\n", "odd\\2': File too large", ":[WHO]\n", account});
    std::map<std::string, std::uintmax_t> left;
    for (const auto& entry : std::filesystem::directory_iterator(*folder / "TransferItem/odd"))
      left[entry.path().filename()] = entry.file_size();
    EXPECT_EQ(left, (std::map<std::string, std::uintmax_t>{{"1", 3}, {"2", 300'002}})) << account;
    std::filesystem::remove_all(*folder / "TransferItem/odd");
  }
}

}  // namespace
}  // namespace nvadmin::host
