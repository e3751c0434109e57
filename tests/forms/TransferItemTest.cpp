// The format of transfer item files, both ways.
#include "forms/TransferItem.h"

#include "tests/support/ScriptedSession.h"

namespace nvadmin::test {
namespace {

TEST(TransferItem, LineEndsAndMarksTable) {
  struct Row {
    std::string_view name, text, item;
  };
  const Row rows[] = {
      {"CR LF ends a line, and what is behind the last is one", "A\r\nB\r\n", "A^B^"},
      {"LF alone ends a line", "A\nB", "A^B"},
      {"CR alone ends a line, and a bare LF vanishes beside it", "A\rB\nC", "A^BC"},
      {"no line end", "A", "A"},
      {"empty", "", ""},
      {"words in any letter case", "<&VM>a<&svm>b<&Ssvm>c", "]a\\b{SSM}c"},
      {"words that are none, or stand in one another", "<&XM><&<&VM>VM><&VM", "<&XM><&]VM><&VM"},
      {"a word parted by a line end that vanishes", "\r<&\nVM>", "^]"},
  };
  for (const Row& row : rows) {
    std::string want(Dyn(row.item));
    if (const std::size_t at = want.find("{SSM}"); at != std::string::npos) want.replace(at, 5, "\xFB");
    EXPECT_EQ(Shown(ItemOfFileText(std::string(row.text))), Shown(want)) << row.name;
  }
}

TEST(TransferItem, EveryByteComesBackButLineEndsAndWords) {
  std::string item;
  for (int byte = 0; byte < 256; ++byte) {
    if (byte != '\r' && byte != '\n') item += static_cast<char>(byte);
  }
  const std::string text = FileTextOfItem(item);
  EXPECT_EQ(text.substr(text.size() - 3), "\xFF\r\n");
  EXPECT_EQ(ItemOfFileText(text), item + "\xFE") << "one empty last attribute more";
}

}  // namespace
}  // namespace nvadmin::test
