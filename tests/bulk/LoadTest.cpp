// The load of a transfer file as a browser sees it, on a scripted engine. The form's drawing stands in
// form-JET.txt and form-MYSQL.txt.
#include "session/Text.h"
#include "tests/support/Golden.h"
#include "tests/support/ScriptedSession.h"
#include "tests/support/TemporaryFolder.h"

namespace nvadmin::test {
namespace {

constexpr std::string_view kSmallFile =
    "outside\xFEof any section\r\n"
    "<FILE_DICT>CUSTOMERS\r\nNAME\xFE"
    "A\xFE"
    "1\r\n</FILE_DICT>\r\n"
    "<FILE_DATA>CUSTOMERS\r\n1001\xFESmith\xFE"
    "12 Main St\xFDSpringfield\r\n1002\r\n\r\n\xFEno ID\r\n</FILE_DATA>\r\n"
    "<FILE_DATA>BP\r\nHELLO\xFE`C`L\r\n"
    "<FILE_STATISTICS>\r\n"
    "CUSTOMERS\xFE"
    "1\xFE"
    "0\xFE"
    "3\xFE\xFE\xFE"
    "10\r\n"
    "CUSTOMERS\xFE"
    "0\xFE"
    "0\xFE"
    "2\xFD"
    "2\xFD"
    "2\xFE"
    "10\xFD"
    "20\xFE\xFE"
    "4\r\n"
    "BP\xFE"
    "0\xFE"
    "0\xFE"
    "4\xFE\xFE\xFE"
    "5\r\n"
    "</FILE_STATISTICS>\r\nnever read";

// Behind the constraint's name, in the sentence of a table without columns.
constexpr std::string_view kItemColumn = " PRIMARY KEY, ITEM MEMO)";

class Loads : public ScriptedSession {
 protected:
  Loads() {
    std::filesystem::create_directory(folder / "TransferBulk");
    engine.Answer("SYSTEM PATH", folder.Path().string() + "/");
    engine.Answer("ACCOUNT", "DEMO");
    engine.Answer("USER 0", "anna");
    engine.Answer("LISTF", "customers");
    engine.File("customers_dict");
    engine.File("customers");
    for (const std::string name : {"bp", "typed", "nosuch", "md", "zero"})
      engine.RefuseFile(name, "there is no file " + name);
  }

  // What the browser sees between the form's drawing and the menu that comes back.
  std::string InForm(std::initializer_list<std::string_view> replies) {
    engine.Type({"", "mx4"});
    engine.Type(replies);
    engine.Type({"bx2"});
    bp.UMenu();
    const std::string screen = engine.Screen();
    engine.Forget();
    const std::size_t start = screen.find("</TX>", screen.find("[IN mx4]"));
    return screen.substr(start, screen.find("^IREPLACE", start) - start);
  }

  TemporaryFolder folder;
};

TEST_F(Loads, FormAndEmptyFolder) {
  engine.Type({"", "mx4", "bx2"});
  bp.UMenu();
  EXPECT_NE(engine.Screen().find("file in the folder 'TransferBulk', then try again.</TX><TX>^IREPLACE"),
            std::string::npos);
  engine.Forget();
  folder.Put("TransferBulk/A \"B\"", "x");
  for (const std::string_view kind : {"JET", "MYSQL"}) {
    LogOn(kind);
    engine.Type({"", "mx4", "fx1|A", "fx3|9", "bx2|", "bx2"});
    bp.UMenu();
    const std::string screen = engine.Screen();
    const std::size_t start = screen.find("[IN mx4]");
    ExpectGolden(Concat({"bulk/golden/form-", kind, ".txt"}),
                 screen.substr(start, screen.find("^IREPLACE", start) - start));
  }
}

TEST_F(Loads, Automatic) {
  folder.Put("TransferBulk/small", kSmallFile);
  engine.RefuseSentence("CREATE TABLE bp (A0 VARCHAR(25) CONSTRAINT idxbp PRIMARY KEY, ITEM MEMO)",
                        "disk is full");
  ExpectGolden("bulk/golden/automatic.txt", InForm({"bx1|", "", "", "", "", "", "", "", ""}));
  EXPECT_EQ(engine.File("customers_dict")["NAME"], Dyn("A^1"));
  EXPECT_EQ(engine.File("customers"), (Items{{"1001", Dyn("Smith^12 Main St]Springfield")}, {"1002", ""}}));
}

TEST_F(Loads, InteractiveAndCreatedAnew) {
  folder.Put("TransferBulk/small", kSmallFile);
  engine.RefuseSentence("DROP TABLE customers_dict", "it is in use");
  engine.Answer("DROP TABLE customers", "OK");
  engine.Answer(
      "CREATE TABLE customers_dict (A0 VARCHAR(25) CONSTRAINT idxcustomers_dict PRIMARY KEY, ITEM MEMO)",
      "OK");
  engine.Answer("CREATE TABLE customers (A0 VARCHAR(25) CONSTRAINT idxcustomers PRIMARY KEY, ITEM MEMO)",
                "OK");
  engine.Answer(
      "CREATE TABLE typed (A0 VARCHAR(25) CONSTRAINT idxtyped PRIMARY KEY, A1 VARCHAR(15), A2 VARCHAR(15), "
      "A3 VARCHAR(15), A4 VARCHAR(15))",
      "OK");
  ExpectGolden("bulk/golden/interactive.txt",
               InForm({"fx3|2", "fx4|3", "bx1|", "", "", "", "", "", "", " n ", "",
                       "",      "typed", "",     "", "", "", "", "", "", "exit"}));
}

// Line 20 opens a section; the statistics start at the line of 599 bytes, and not at the one of 600 before
// it, at which the load ends all the same. The file md has no columns, whatever its record says, nor has one
// without counts; nobody is asked about them.
TEST_F(Loads, InteractiveWithSameNames) {
  const auto start = [](std::size_t length) {
    std::string line = "<FILE_STATISTICS>";
    for (std::size_t mark = 0; line.size() < length; ++mark) line += mark % 12 == 0 ? '\0' : '-';
    return line + "\r\n";
  };
  std::string file;
  for (int line = 1; line < 20; ++line) file += "-\r\n";
  file += "<FILE_DATA>CUSTOMERS\r\n1\xFEx\r\n" + start(600) + Dyn("EARLY^9^9^2") + "\r\n" + start(599);
  for (const std::string_view record :
       {"MD^7^9^3", "ZERO^9^9^0]0]0", "BP^9^9^2", "</FILE_STATISTICS>", "LATE^9^9^2"}) {
    file += Dyn(record) + "\r\n";
  }
  folder.Put("TransferBulk/f", file);
  for (const std::string name : {"md", "zero"})
    engine.Answer(Concat({"CREATE TABLE ", name, " (A0 VARCHAR(25) CONSTRAINT idx", name, kItemColumn}),
                  "OK");
  engine.Answer(
      "CREATE TABLE bp (A0 VARCHAR(25) CONSTRAINT idxbp PRIMARY KEY, A1 VARCHAR(15), A2 VARCHAR(15))", "OK");
  ExpectGolden("bulk/golden/same-names.txt",
               InForm({"fx4|2", "bx1|", "", "", "", "", "", "", "", "", "", "", "", ""}));
  EXPECT_EQ(engine.File("customers").size(), 1U);
}

// The table of a name that is typed goes, if it is there, before it is made anew.
TEST_F(Loads, AutomaticButForNames) {
  folder.Put("TransferBulk/f", "<FILE_STATISTICS>\r\n" + Dyn("NOSUCH^9^9^2") + "\r\n" + Dyn("BP^9^9^4") +
                                   "\r\n</FILE_STATISTICS>");
  engine.RefuseSentence("DROP TABLE customers", "it is in use");
  engine.Answer(
      "CREATE TABLE customers (A0 VARCHAR(25) CONSTRAINT idxcustomers PRIMARY KEY, A1 VARCHAR(15), A2 "
      "VARCHAR(15))",
      "OK");
  engine.Answer(Concat({"CREATE TABLE bp (A0 VARCHAR(25) CONSTRAINT idxbp", kItemColumn}), "OK");
  ExpectGolden("bulk/golden/but-names.txt",
               InForm({"fx3|2", "fx4|4", "bx1|", "", "customers", "", "", "", "", "", ""}));
}

TEST_F(Loads, EndOfStatisticsBeforeTheirStart) {
  folder.Put("TransferBulk/f", "</FILE_STATISTICS>\r\n<FILE_STATISTICS>\r\n" + Dyn("BP^9^9^2"));
  EXPECT_NE(InForm({"bx1|", "", "", ""}).find("[AT 15,9]2 / 1  "), std::string::npos);
  EXPECT_EQ(engine.CallCount("OpenFile"), 0) << "no table was made";
}

TEST_F(Loads, SkipsWhatIsMissing) {
  std::string file = "<FILE_DATA>NOSUCH\r\n1\xFEx\r\n2\xFEx\r\n<FILE_DATA>CUSTOMERS\r\n";
  for (int item = 1; item <= 40; ++item) file += std::to_string(item) + "\xFEx\r\n";
  folder.Put("TransferBulk/f", file);
  ExpectGolden("bulk/golden/skip.txt", InForm({"fx3|3", "bx1|", "", "", "", "", "", "", ""}));
  EXPECT_EQ(engine.File("customers").size(), 40U);
}

}  // namespace
}  // namespace nvadmin::test
