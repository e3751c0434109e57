// The field builders: markup to the blank.
#include "forms/basNvWebM.h"

#include "session/Text.h"
#include "tests/support/ScriptedSession.h"

namespace nvadmin::test {
namespace {

using Builders = ScriptedSession;
using Routine = decltype(&FieldInput);

TEST_F(Builders, Table) {
  struct Row {
    std::string_view name;
    Routine build;
    FieldArgument column, row, width, height, text, id, styleClass, extra;
    std::string_view want;
  };
  const std::string huge(309, '9');
  const std::string far =
      Concat({"<div class=\"label1\"  style=\"top:-179769313486232", std::string(294, '0'),
              "px; left:735419918807311", std::string(293, '0'), "px; height:22px; width:9px\">x</div>"});
  const Row rows[] = {
      {"button of the menu: half a row", FieldInput, 70, 1.5, 7, 0, "Exit", "bx2", "<button>", "",
       "<input type=button id=bx2  style=\"top:33px; left:630px; width:63px\" class=\"button1\" "
       "value=\"Exit\" "
       "onClick=\"JSCRIPT:EProcess(this);\"></input>"},
      {"neither width nor text", FieldInput, 0, 0, 0, 0, "", "fx1", "", "disabled",
       "<input type=text id=fx1  style=\"top:0px; left:0px; width:108px\" class=\"field1\" "
       "onChange=\"JSCRIPT:EProcess(this);\" disabled></input>"},
      {"button class of its own overrules the height", FieldInput, 1, 1, 0, 5, "Go on", "", "BUTTON2", "",
       "<input type=button  style=\"top:22px; left:9px; width:45px\" class=\"BUTTON2\" value=\"Go on\" "
       "onClick=\"JSCRIPT:EProcess(this);\"></input>"},
      {"checkbox has no value", FieldInput, 1, 1, 2, 0, 1, "fx2", "<CheckBox>", "",
       "<input type=checkbox id=fx2  style=\"top:22px; left:9px; width:18px\" class=\"field1\" checked=1 "
       "onClick=\"JSCRIPT:EProcess(this);\"></input>"},
      {"any other class is the type", FieldInput, "2.5x", "no", "10", "1", "", "", "password", "",
       "<input type=password  style=\"top:0px; left:22.5px; width:90px\" class=\"password\" "
       "onChange=\"JSCRIPT:EProcess(this);\"></input>"},
      {"decimals of 15 digits, without an exponent", FieldInput, 1e-7, "-0", 1234567890123456789.0, 1, "", "",
       "", "",
       "<input type=text  style=\"top:0px; left:0.0000009px; width:11111111011111100000px\" class=\"field1\" "
       "onChange=\"JSCRIPT:EProcess(this);\"></input>"},
      {"numbers beyond the range", FieldLabel, huge, "-" + huge, 1, 1, "x", "", "", "", far},
      {"text area", FieldInput, 1, 2, 30, 4, "a\"b", "fx3", "", "",
       "<textarea id=fx3 cols=\"30\" rows=\"4\" wrap=\"physical\"  style=\"top:44px; left:9px\" "
       "class=\"field1\" "
       "value=\"a\"b\" onChange=\"JSCRIPT:EProcess(this);\"></textarea>"},
      {"title", FieldLabel, 30, 0, 19, 0, "Admin Menu", "", "title1", "",
       "<div class=\"title1\"  style=\"top:0px; left:270px; height:19.8px; width:171px\">Admin Menu</div>"},
      {"label with id and extra", FieldLabel, 1, 1, 0, 2, "Ab", "lx1", "", "hidden",
       "<div id=\"lx1\" class=\"label1\"  hidden  style=\"top:22px; left:9px; height:44px; "
       "width:18px\">Ab</div>"},
      {"open label", FieldLabel, 0, 0, 1, 1, "<custom>", "", "", "",
       "<div class=\"label1\"  style=\"top:0px; left:0px; height:22px; width:9px\">"},
      {"link", FieldLink, 6, 4, 0, 9, "Import", "mx1", "title1", "title=x",
       "<input id=mx1  style=\"top:88px; left:54px; width:54px\" class=\"customlink\" value=\"Import\" "
       "onClick=\"JSCRIPT:EProcess(this);\" onMouseover=\"JSCRIPT:HighLink(this);\" "
       "onMouseout=\"JSCRIPT:NormalLink(this);\" title=x></input>"},
  };
  for (const Row& row : rows) {
    std::string out = "before ";
    row.build(row.column, row.row, row.width, row.height, row.text, row.id, row.styleClass, row.extra, out);
    EXPECT_EQ(out, "before " + std::string(row.want)) << row.name;
  }
}

}  // namespace
}  // namespace nvadmin::test
