// The load of a transfer file as a browser sees it, on a scripted engine. The form's drawing stands in
// form.txt.
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
    for (const std::string name : {"bp", "typed", "nosuch"})
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

TEST_F(Loads, SkipsWhatIsMissing) {
  std::string file = "<FILE_DATA>NOSUCH\r\n1\xFEx\r\n2\xFEx\r\n<FILE_DATA>CUSTOMERS\r\n";
  for (int item = 1; item <= 40; ++item) file += std::to_string(item) + "\xFEx\r\n";
  folder.Put("TransferBulk/f", file);
  ExpectGolden("bulk/golden/skip.txt", InForm({"fx3|3", "bx1|", "", "", "", "", "", "", ""}));
  EXPECT_EQ(engine.File("customers").size(), 40U);
}

}  // namespace
}  // namespace nvadmin::test
