// The forms of the Admin Menu as a browser sees them: every frame and every answer, on a scripted engine and
// a real folder. The drawing of each form stands in golden/drawn.txt; in the other transcripts it is "...".
#include <filesystem>

#include "session/Text.h"
#include "tests/support/Golden.h"
#include "tests/support/ScriptedSession.h"
#include "tests/support/TemporaryFolder.h"

namespace nvadmin::test {
namespace {

namespace fs = std::filesystem;

class Forms : public ScriptedSession {
 protected:
  Forms() {
    fs::create_directory(folder / "TransferItem");
    engine.Answer("SYSTEM PATH", folder.Path().string() + "/");
    engine.Answer("SYSTEM ACCOUNT", "DEMO");
    engine.Answer("ACCOUNT", "DEMO");
    engine.Answer("USER 0", "anna");
    engine.Answer("LOGTO SALES", "OK");
    engine.RefuseSentence("LOGTO NOSUCH", "there is no account NOSUCH");
    engine.File("orders") = {{"1", Dyn("Ada^5]6")}, {"2", "Bob"}};
    engine.RefuseFile("nosuch", "there is no file nosuch");
  }

  // What the browser sees while its user gives these replies in the form that `link` opens, and then leaves
  // form and menu.
  std::string InForm(std::string_view link, std::initializer_list<std::string_view> replies) {
    engine.Forget();
    engine.Type({"", link});
    engine.Type(replies);
    engine.Type({"bx2|", "bx2"});
    bp.UMenu();
    return WithoutMarkup(engine.Screen());
  }

  static std::string WithoutMarkup(std::string screen) {
    constexpr std::string_view kPage = "doc1=";
    for (std::size_t at = 0; (at = screen.find(kPage, at)) != std::string::npos;) {
      at += kPage.size();
      screen.replace(at, std::min(screen.find('^', at), screen.find("</TX>", at)) - at, "...");
    }
    return screen;
  }

  TemporaryFolder folder;
};

TEST_F(Forms, AreDrawnAndLeft) {
  folder.Put("TransferItem/A", "x");
  engine.Type({"", "mx1|x", "bx2|", "mx2", "bx2|", "MX3", "mx3", "bx2", "bx2|", "bx2|"});
  bp.UMenu();
  std::string screen = engine.Screen();
  // The menu comes back as it was drawn first.
  const std::size_t start = screen.find("<div");
  const std::string menu = screen.substr(start, screen.find("</TX>", start) - start);
  for (std::size_t at = start + 1; (at = screen.find(menu, at)) != std::string::npos;) {
    screen.replace(at, menu.size(), "(the menu)");
  }
  ExpectGolden("forms/golden/drawn.txt", screen);
}

TEST_F(Forms, Import) {
  folder.Put("TransferItem/.hidden", "x");
  fs::create_directory(folder / "TransferItem/sub");
  engine.Type({"", "mx1", "", "bx2"});
  bp.UMenu();
  EXPECT_NE(
      engine.Screen().find("There are no available Item-as-Files to import.  Put something in the folder "
                           "'TransferItem', then try again!</TX>$\n[IN ]\n<TX>^IREPLACE"),
      std::string::npos);
  folder.Put("TransferItem/A", "Ada\r\n5<&vm>6\r\n");
  ExpectGolden("forms/golden/import.txt",
               InForm("mx1", {"bx1|", "fx3|nosuch", "fx2|NOSUCH", "fx2|SALES", "fx3|Orders", "bx1|", "FX4",
                              "fx4|9|9", "fx1|A", "bx1|", "fx4|10", "fx1|A", "bx1|"}));
  EXPECT_EQ(engine.File("orders")["9|9"], Dyn("Ada^5]6^"));
  EXPECT_EQ(engine.File("orders")["10"], Dyn("Ada^5]6^")) << "the table stays open after an import";
  EXPECT_EQ(Session().CurrentAccount, "SALES");

  engine.NextCalls("WriteItem", {{.answer = kFalse, .detail = "NAME holds 10 characters"}});
  const std::string refused = InForm("mx1", {"fx3|orders", "fx1|A", "bx1|"});
  EXPECT_NE(refused.find("write into.  'JET' databases have"), std::string::npos) << refused;
  EXPECT_NE(refused.find("file/table 'orders'.   System Message(if any):  NAME holds 10 characters</TX>"),
            std::string::npos)
      << refused;
}

TEST_F(Forms, ExportOne) {
  ExpectGolden("forms/golden/export.txt",
               InForm("mx2", {"bx1|", "fx3|ORDERS", "bx1|", "fx4|1", "bx1|", "fx4|2", "fx4|1", "N", "fx4|1",
                              "Y", "fx5|kept", "fx4|1", "y", "bx1|"}));
  EXPECT_EQ(folder.Text("TransferItem/1"),
            "Ada\r\n5\xFD"
            "6\r\n");
  EXPECT_EQ(folder.Text("TransferItem/kept"),
            "Ada\r\n5\xFD"
            "6\r\n");
  for (int call = 0; call < 10; ++call) engine.NextCalls("WriteOutput", {{.detail = "of an earlier call"}});
  EXPECT_NE(InForm("mx2", {"fx3|orders", "bx1|"}).find("message(if any): ''"), std::string::npos);
  engine.Type({"", "mx2", "fx3|orders", "fx4|1", "fx5|../out", "bx1|"});
  EXPECT_NE(FailureOf([this] { bp.UMenu(); }).find("'../out'"), std::string::npos);
  EXPECT_FALSE(fs::exists(folder / "out"));
}

TEST_F(Forms, ExportMany) {
  engine.Answer("SELECT orders", Dyn("2^2"), Keys({"1", "2", "gone"}));
  engine.Answer("SELECT large", Dyn("2^2"), NumberedKeys(201));
  engine.Answer("SELECT few", Dyn("2^2"), NumberedKeys(200));
  engine.RefuseSentence("SELECT x WITH", "WITH what?");
  ExpectGolden("forms/golden/many.txt",
               InForm("mx3", {"bx1|", "fx3|nosuch", "fx3|Orders", "fx4| * ", "bx1|", "fx3|orders",
                              "fx4|SELECT x WITH", "bx1|", "fx3|orders", "fx4|SELECT large", "bx1|",
                              "ax2|<no>", "fx3|orders", "fx5|few", "fx4|SELECT few", "bx1|"}));
  EXPECT_EQ(folder.Text("TransferItem/DEMO.orders/2"), "Bob\r\n");
  EXPECT_EQ(folder.Text("TransferItem/DEMO.orders/gone").substr(0, 5), "no it");
  EXPECT_FALSE(fs::exists(folder / "TransferItem/few/201"));
  EXPECT_TRUE(fs::exists(folder / "TransferItem/few/200"));

  engine.File("table_nv") = {{"1", "one"}};
  engine.Answer("SELECT table_nv", Dyn("2^2"), Keys({"1", "gone", "1"}));
  engine.NextCalls("GetResultCell", {{}, {}, {.detail = "of the item before"}});
  const std::string cached = InForm("mx3", {"fx3|TABLE", "bx1|"});
  EXPECT_NE(cached.find("\n1 Errors detected."), std::string::npos) << cached;
  EXPECT_EQ(folder.Text("TransferItem/DEMO.table_nv/1"), "one\r\n")
      << "from the item cache, behind a failure";
}

TEST_F(Forms, ValuesPassAsTheyAre) {
  folder.Put("TransferItem/A", "x");
  std::string bytes;
  for (int byte = 0; byte < 256; ++byte) bytes += static_cast<char>(byte);
  for (const std::string& id : {std::string("</TX><TX>^VALUE|fx1=\"'\\.."), std::string("|a||"), bytes,
                                std::string(100'000, '^'), std::string(1'000'000, '|')}) {
    const std::string start = Shown(id.substr(0, 300));
    std::string screen = InForm("mx1", {"fx3|orders", "fx4|" + id, "fx1|A", "bx1|"});
    screen += InForm("mx2", {"fx3|orders", "fx5|out", "fx4|" + id, "Y", "fx5|out", "bx1|"});
    for (const std::string_view told :
         {"<TX>VALID|fx4=", "MSGBOX|Item/Record '", "MSGBOX|Change TransferItem file name to '"})
      EXPECT_TRUE(screen.find(Concat({told, Shown(id), told.ends_with('=') ? "</TX>" : "'"})) !=
                  std::string::npos)
          << told << start;
    EXPECT_TRUE(engine.File("orders")[id] == "x") << start;
    EXPECT_EQ(folder.Text("TransferItem/out"), "x\r\n") << start;
    fs::remove(folder / "TransferItem/out");
  }
}

TEST_F(Forms, UnknownRepliesCostAnEmptyFrame) {
  folder.Put("TransferItem/A", "x");
  const std::string large(1'000'000, 'x');
  const auto emptyFrames = [](const std::string& screen) {
    int count = 0;
    for (std::size_t at = 0; (at = screen.find("]\n<TX></TX>$", at)) != std::string::npos; ++at) ++count;
    return count;
  };
  for (const std::string_view link : {"mx1", "mx2", "mx3"}) {
    const std::string screen = InForm(link, {"", "|", "||||", "zz|x", "BX1|", "bx1", " fx3|orders",
                                             "fx33|orders", "mx1|", large, large + "|"});
    EXPECT_EQ(emptyFrames(screen), 11) << link;
  }
  engine.Forget();
  engine.Type({"", "", "|", "zz|x", "MX1|", " mx1", "mx5", large, "bx2"});
  bp.UMenu();
  EXPECT_EQ(emptyFrames(engine.Screen()), 7);
}

}  // namespace
}  // namespace nvadmin::test
