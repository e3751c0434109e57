// The HTML table of a report, on both kinds of store, and the page around it.
#include "reports/HtmlReport.h"

#include "session/Text.h"
#include "tests/reports/ReportSession.h"
#include "tests/support/Golden.h"

namespace nvadmin::test {
namespace {

constexpr std::string_view kRowEnd = "</tr>{CRLF}\n";

class HtmlReports : public ReportSession {
 protected:
  // The rows of the table below its heading, as in "LIST orders".
  std::string Rows(std::string_view columns, std::string_view modifiers, std::string_view options, Grid keys,
                   std::int32_t limit = 0) {
    engine.Answer(
        "LIST orders",
        Dyn("1^1^" + std::string(columns) + "^^" + std::string(options) + "^" + std::string(modifiers)),
        std::move(keys));
    HtmlReport("LIST orders", body, message, "HTML", limit);
    return BelowHeading();
  }
  std::string BelowHeading() const {
    const std::string shown = Shown(body);
    const std::size_t heading = shown.find(kRowEnd);
    return heading == std::string::npos ? shown : shown.substr(heading + kRowEnd.size());
  }

  std::string body = "as the caller gave it";
  std::string message;
};

TEST_F(HtmlReports, PageAndTable) {
  engine.OutputMode("HTML");
  engine.File("orders") = {{"1", Dyn("Ada^5]6^20000^1250")}, {"2", Dyn("^7^^n/a")}};
  engine.File("orders_dict")["NAME"] = Dyn("A^1^Name]of^^^^^^r^6");
  engine.File("orders_dict")["QTY"] = Dyn("A^2^Qty^^^^^^R^0");
  engine.Type({"fx1|CLOSE"});
  ExpectGolden("reports/golden/html.txt",
               Report("NAME]QTY]AMT]NOSUCH", "x]TOTAL]QTY]BREAK-ON]NAME\\", "", Keys({"1", "2", "9"})));
}

TEST_F(HtmlReports, EndingsTable) {
  engine.File("orders") = {{"1", "Ada"}, {"2", Dyn(" ")}};
  const std::string one = "<tr style=\"background-color:#ffffa0\"><td>1</td><td>Ada</td></tr>{CRLF}\n";
  const std::string two = "<tr><td>2</td><td> </td></tr>{CRLF}\n";
  const std::string cut = "Report cut short as it is over its reasonable display limit of ";
  struct Row {
    std::string_view name, options;
    Grid keys;
    std::int32_t limit;
    std::string rows, message;
  };
  const Row table[] = {
      {"empty list", "", {}, 500, "", ""},
      {"no limit; blanks are a text", "", Keys({"1", "2"}), 0, one + two, ""},
      {"the limit is reached with the last item", "", Keys({"1", "2"}), 2, one + two, cut + "2 items."},
      {"beyond the limit", "", Keys({"1", "2"}), 1, one, cut + "1 items."},
      {"missing item", "", Keys({"1", "9", "2"}), 500, one,
       "ERROR [914] Item '9' not found in table/file 'orders'"},
      {"without the ID", "ID-SUPP", Keys({"1"}), 500,
       "<tr style=\"background-color:#ffffa0\"><td>Ada</td></tr>{CRLF}\n", ""},
  };
  for (const Row& row : table) {
    EXPECT_EQ(Rows("NAME", "", row.options, row.keys, row.limit), row.rows + "</table>") << row.name;
    EXPECT_EQ(message, row.message) << row.name;
  }
  engine.RefuseFile("nosuch", "there is none");
  engine.Answer("LIST No.Such", "ERROR");
  engine.RefuseFile("no_such", "there is none");
  HtmlReport("LIST No.Such", body, message, "HTML", 500);
  EXPECT_EQ(body, "No.Such");
  EXPECT_EQ(message, "Can not open file/table 'no_such', System message(if any) = 'there is none'");
}

TEST_F(HtmlReports, SubTotalsComeAtTheFirstBreakAndAtTheEnd) {
  engine.File("orders") = {{"1", Dyn("a^1")}, {"2", Dyn("b^2")}, {"3", Dyn("c^4")}};
  const auto item = [](std::string_view start, std::string_view cells) {
    return Concat({start, cells, "</tr>{CRLF}\n"});
  };
  EXPECT_EQ(Rows("NAME]QTY", "x]TOTAL]QTY]BREAK-ON]NAME\\", "ID-SUPP", Keys({"1", "2", "3"})),
            item("<tr style=\"background-color:#ffffa0\">", "<td>a</td><td align=right>1</td>") +
                item("<tr style=font-weight:bold><td>SubTotal(s)</td>", "<td align=right>1</td>") +
                item("<tr>", "<td>b</td><td align=right>2</td>") +
                item("<tr style=\"background-color:#ffffa0\">", "<td>c</td><td align=right>4</td>") +
                item("<tr style=font-weight:bold><td>SubTotal(s)</td>", "<td align=right>6</td>") +
                "<tr style=font-weight:bold><td colspan=2>Total(s)</td></tr>{CRLF}\n<tr "
                "style=font-weight:bold><td>&nbsp;</td><td align=right>7</td></tr></table>");
}

TEST_F(HtmlReports, NativeStoreGivesTheCells) {
  LogOn("mv");
  const GridRow described = {"", Dyn("Name"), "Qty\xFAR5\xFAMD2\xFAQ", "Sum\xFAR8"};
  engine.Answer("LIST x", Dyn("3^2^^^ID-SUPP^y]TOTAL]q]TOTAL]Sum]BREAK-ON]Name\\"),
                Grid{{"1", "Ada", Dyn("5.00]6.00"), "1.5"}, {"2", "", "x", ""}}, described);
  HtmlReport("LIST x", body, message, "HTML", 0);
  ExpectGolden("reports/golden/native.txt", Shown(body));
  EXPECT_EQ(engine.CallCount("OpenFile") + engine.CallCount("ReadItem"), 0);

  body = "as it was";
  engine.RefuseSentence("LIST y", "no");
  EXPECT_EQ(HtmlReport("LIST y", body, message, "HTML", 0), "ERROR");
  EXPECT_EQ(body + message, "as it was");
}

// How often the part stands in the text.
int Count(std::string_view text, std::string_view part) {
  int count = 0;
  for (std::size_t at = 0; (at = text.find(part, at)) != std::string_view::npos; ++at) ++count;
  return count;
}

// Every item has the quantity 1, and the name changes with item 499.
TEST_F(HtmlReports, PageLimitTable) {
  constexpr std::string_view kCut =
      "Report cut short as it is over its reasonable display limit of 500 items.";
  constexpr std::string_view kMissing = "ERROR [914] Item 'gone' not found in table/file 'orders'";
  struct Row {
    std::string_view datastore;
    int keys, missing, shown;
    std::string_view message;
  };
  const Row table[] = {
      {"JET", 499, 0, 499, ""},         {"JET", 500, 0, 500, kCut},       {"JET", 501, 0, 500, kCut},
      {"JET", 500, 499, 498, kMissing}, {"JET", 501, 500, 499, kMissing}, {"JET", 501, 501, 500, kCut},
      {"MVX", 499, 0, 499, ""},         {"MVX", 500, 0, 500, kCut},       {"MVX", 501, 0, 500, kCut},
  };
  for (const Row& row : table) {
    LogOn(row.datastore);
    engine.OutputMode("HTML");
    Grid grid;
    for (int key = 1; key <= row.keys; ++key) {
      const std::string id = key == row.missing ? "gone" : std::to_string(key);
      const std::string name = key < 499 ? "a" : "b";
      if (key != row.missing) engine.File("orders")[id] = Dyn(name + "^1");
      grid.push_back({id, name, "1"});
    }
    engine.Answer("LIST orders",
                  Dyn("2^" + std::to_string(row.keys) + "^NAME]QTY^^^x]TOTAL]QTY]BREAK-ON]NAME\\"), grid,
                  {"", "NAME\xFAL6", "QTY\xFAR5"});
    engine.Type({"fx1|CLOSE"});
    const std::string page = Run("LIST orders");
    SCOPED_TRACE(Concat({row.datastore, " ", std::to_string(row.keys), " ", std::to_string(row.missing)}));
    EXPECT_EQ(Count(page, "<td>a</td>") + Count(page, "<td>b</td>"), row.shown);
    const auto holds = [&](std::initializer_list<std::string_view> pieces) {
      EXPECT_EQ(Count(page, Concat(pieces)), 1) << Concat(pieces);
    };
    EXPECT_EQ(Count(page, "<h3>"), row.message.empty() ? 0 : 1);
    if (!row.message.empty()) holds({"<h3>ERROR: ", row.message, "</h3></div>"});
    const int behindBreak = row.shown - 498;
    EXPECT_EQ(Count(page, "SubTotal(s)"), behindBreak > 0 ? 2 : 0);
    if (behindBreak > 0) {
      holds(
          {"SubTotal(s)</td><td>&nbsp;</td><td align=right>498</td></tr>{CRLF}\n<tr "
           "style=\"background-color:#ffffa0\"><td>499</td>"});
      holds({"<td align=right>", std::to_string(behindBreak),
             "</td></tr>{CRLF}\n<tr style=font-weight:bold><td colspan=3>"});
    }
    holds({"<td align=right>", std::to_string(row.shown), "</td></tr></table></TX>$"});
  }
}

TEST_F(HtmlReports, CellsAndIdsPassAsTheyAre) {
  std::string bytes;
  for (int byte = 0; byte < 256; ++byte) {
    if (byte < 0xFC || byte > 0xFE) bytes += static_cast<char>(byte);
  }
  for (const std::string_view datastore : {"JET", "MVX"}) {
    LogOn(datastore);
    engine.OutputMode("HTML");
    const auto page = [&](const std::string& id, const std::string& name) {
      engine.File("orders")[id] = name;
      engine.Answer("LIST orders", Dyn("1^1^NAME"), Grid{{id, name}}, {"", "NAME\xFAL6"});
      engine.Type({""});
      return Run("LIST orders");
    };
    for (const std::string& text :
         {std::string("</td></table></TX><script>^MSGBOX|\"'&lt;"), bytes, std::string(100'000, '<')}) {
      const std::string cell = "<td>" + Shown(text) + "</td>";
      EXPECT_TRUE(page(text, text).find(cell + cell + "</tr>") != std::string::npos)
          << datastore << cell.substr(0, 99);
    }
    std::string values;
    for (int value = 0; value < 100'000; ++value) values.append("v").append(1, '\xFD');
    EXPECT_EQ(Count(page("1", values), "<td>&nbsp;</td><td>v</td>"), 99'999) << "all but the first line";
  }
}

}  // namespace
}  // namespace nvadmin::test
