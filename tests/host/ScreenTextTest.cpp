// What a terminal gets for every byte, and that nothing but the port's own cursor strings can act on it.
#include "host/ScreenText.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "engine/CodePage.h"

namespace nvadmin::host {
namespace {

std::string Shown(ScreenText& screen, std::string_view text, bool lineEnd = false) {
  std::string out;
  screen.Append(out, text, lineEnd);
  return out;
}

// Whether UTF-8 text holds a control character: C0, DEL or C1.
bool HoldsControl(std::string_view utf8) {
  for (std::size_t at = 0; at < utf8.size(); ++at) {
    const auto byte = static_cast<unsigned char>(utf8[at]);
    if (byte < 0x20 || byte == 0x7F) return true;
    if (byte == 0xC2 && at + 1 < utf8.size() && static_cast<unsigned char>(utf8[at + 1]) < 0xA0) return true;
  }
  return false;
}

TEST(ScreenText, ShowsEachByteAsOneCharacterThatActsOnNothing) {
  ScreenText screen(/*hasCursor=*/true);
  for (int number = 0; number < 256; ++number) {
    const char byte = static_cast<char>(number);
    const std::string shown = Shown(screen, std::string_view(&byte, 1));
    EXPECT_FALSE(HoldsControl(shown)) << number;
    int characters = 0;
    for (const char part : shown) characters += (static_cast<unsigned char>(part) & 0xC0) != 0x80;
    EXPECT_EQ(characters, 1) << number;
    const bool isText =
        (number >= 0x20 && number < 0x7F) || (number >= 0xA0 && number < 0xFC) || number == 0xFF;
    EXPECT_TRUE(!isText || shown == engine::ToUtf8(std::string_view(&byte, 1))) << number;
  }
}

TEST(ScreenText, ShowsTextAndKeepsTheOpenLine) {
  struct Row {
    const char* name;
    std::string_view text;
    bool lineEnd;
    const char *want, *openLine;
  };
  using namespace std::string_view_literals;
  const Row rows[] = {
      {"plain text stays open", "a quote: ", false, "a quote: ", "a quote: "},
      {"CR LF ends a line within text", "ab\r\ncd", false, "ab\ncd", "cd"},
      {"CR LF at the end and a line end are two", "ab\r\n", true, "ab\n\n", ""},
      {"a lone CR or LF is shown", "a\rb\nc\r", false, "a␍b␊c␍", "a␍b␊c␍"},
      {"CR CR LF", "\r\r\n", false, "␍\n", ""},
      {"marks", "1\xFE 2\xFD 3\xFC 4\xFB\xFA", false, "1^ 2] 3\\ 4ûú", "1^ 2] 3\\ 4ûú"},
      {"characters of the code page", "\x80 \x8A\xE9\xFF", false, "€ Šéÿ", "€ Šéÿ"},
      {"control bytes", "\0\t\x1F\x7F"sv, false, "␀␉␟␡", "␀␉␟␡"},
      {"bytes that the page leaves unassigned", "\x81\x8D\x8F\x90\x9D", false, "�����", "�����"},
      {"control sequences in text", "\x1B[2J\x1B]0;title\x07\x9B", false, "␛[2J␛]0;title␇›",
       "␛[2J␛]0;title␇›"},
  };
  for (const Row& row : rows) {
    ScreenText screen(/*hasCursor=*/true);
    EXPECT_EQ(Shown(screen, row.text, row.lineEnd), row.want) << row.name;
    EXPECT_EQ(screen.OpenLine(), row.openLine) << row.name;
  }
}

TEST(ScreenText, OpenLineGrowsPieceByPiece) {
  ScreenText screen(/*hasCursor=*/false);
  for (std::string_view piece : {"na", "me", ": "}) Shown(screen, piece);
  EXPECT_EQ(screen.OpenLine(), "name: ");
  screen.CloseLine();
  EXPECT_EQ(screen.OpenLine(), "");
}

TEST(ScreenText, TurnsItsOwnCursorStringsIntoControl) {
  ScreenText screen(/*hasCursor=*/true);
  const auto at = [&screen](int column, int row) { return screen.CursorString(column, row); };
  EXPECT_EQ(Shown(screen, at(-1, -1)), "\x1B[H\x1B[2J");
  EXPECT_EQ(Shown(screen, at(-3, -1)), "\x1B[J");
  EXPECT_EQ(Shown(screen, at(2147483647, 5)), "\x1B[6;2147483648H");
  EXPECT_EQ(Shown(screen, "gone" + at(1, 24) + "x" + at(-3, -1) + "1;2;"), "gone\x1B[25;2Hx\x1B[J1;2;");
  EXPECT_EQ(screen.OpenLine(), "1;2;");
  for (const auto& [column, row] : std::vector<std::pair<int, int>>{{-2, -1}, {-1, 0}, {0, -1}, {-3, -3}}) {
    EXPECT_EQ(at(column, row), "") << column << "," << row;
  }
}

TEST(ScreenText, CounterfeitCursorStringsAreText) {
  ScreenText screen(/*hasCursor=*/true);
  ScreenText other(/*hasCursor=*/true);
  ScreenText bare(/*hasCursor=*/false);
  const std::string own = screen.CursorString(3, 4);
  const std::string start = own.substr(0, own.find("3;"));
  const std::pair<const char*, std::string> rows[] = {
      {"another session's", other.CursorString(3, 4)},
      {"without its ESC", own.substr(1)},
      {"cut off", own.substr(0, own.size() - 1)},
      {"in capitals", "\x1BZZZZZZZZZZZZZZZZ:3;4;"},
      {"a word for a number", start + "3;x;"},
      {"a number too large", start + "99999999999;4;"},
      {"no numbers", start},
  };
  for (const auto& [name, text] : rows) EXPECT_FALSE(HoldsControl(Shown(screen, text))) << name;
  EXPECT_FALSE(HoldsControl(Shown(bare, own))) << "a screen without cursor";
  EXPECT_EQ(bare.CursorString(-1, -1), "");
}

}  // namespace
}  // namespace nvadmin::host
