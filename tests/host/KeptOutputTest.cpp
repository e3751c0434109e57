// What a page is shown again: table of outputs, and a page that loses its connection at every place.
#include "host/KeptOutput.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>

namespace nvadmin::host {
namespace {

using Messages = std::vector<std::string>;

Messages Texts(const KeptOutput::Replay& replay) {
  Messages texts;
  for (const WebMessage& message : replay.messages) texts.push_back(*message);
  return texts;
}

void Add(KeptOutput& kept, const std::string& message) {
  kept.Add(std::make_shared<const std::string>(message));
}

TEST(KeptOutput, ReplayTable) {
  const std::string page = "A<TX>IREPLACE|doc1=one</TX>\r\n";
  const std::string other = "A<TX>IREPLACE|doc1=two</TX>\r\n";
  const struct {
    const char* name;
    Messages output;
    std::uint64_t seen;
    std::uint64_t next;
    Messages want;
  } rows[] = {
      {"nothing yet", {}, 0, 1, {}},
      {"what wasn't seen", {"E1", "E2", "K1"}, 1, 2, {"E2", "K1"}},
      {"all seen", {"E1", "E2"}, 2, 3, {}},
      {"a number from elsewhere", {"E1", "E2"}, 7, 1, {"E1", "E2"}},
      {"a form of several messages, with its later words",
       {"E:", "K1", "A<TX>", "AIREPLACE|doc1=<form>", "A^FOCUS|fx1</TX>\r\n", "K2",
        "A<TX>VALUE|fx1=x</TX>\r\n"},
       0,
       1,
       {"E:", "K1", "A<TX>", "AIREPLACE|doc1=<form>", "A^FOCUS|fx1</TX>\r\n", "K2",
        "A<TX>VALUE|fx1=x</TX>\r\n"}},
      {"the next page replaces the one before, in a frame that began with words",
       {"E:", page, "K1", "A<TX>", "AVALUE|fx1=x", "A^IREPLACE|doc1=two", "A</TX>\r\n"},
       0,
       2,
       {"E:", "K1", "A<TX>", "AVALUE|fx1=x", "A^IREPLACE|doc1=two", "A</TX>\r\n"}},
      {"going on within the page", {"E:", page, "K1", other, "K2"}, 3, 4, {other, "K2"}},
      {"before the page: all again", {"E:", page, "K1", other, "K2"}, 1, 3, {"K1", other, "K2"}},
      {"the terminal ends pages",
       {"E:", page, "K1", "A<TERMINAL>\r\n", "E:"},
       0,
       2,
       {"E:", "K1", "A<TERMINAL>\r\n", "E:"}},
      {"within an open frame too",
       {"A<TX>", "AIREPLACE|doc1=", "A<TERMINAL>\r\n", "Atext"},
       0,
       3,
       {"A<TERMINAL>\r\n", "Atext"}},
      {"item text opens, replaces and closes nothing",
       {page, "A<TX>", "AVALID|fx4=x</TX>", "AVALUE|fx1=^IREPLACE|doc1=", "A</TX>",
        "AIREPLACE|doc1=", "E<TX>", "E<TERMINAL>"},
       0,
       1,
       {page, "A<TX>", "AVALID|fx4=x</TX>", "AVALUE|fx1=^IREPLACE|doc1=", "A</TX>",
        "AIREPLACE|doc1=", "E<TX>", "E<TERMINAL>"}},
      {"an open question is asked again",
       {page, "K1", "A<TX>MSGBOX|Sure?\\vbYesNo\r\n"},
       0,
       1,
       {page, "K1", "A<TX>MSGBOX|Sure?\\vbYesNo\r\n"}},
  };
  for (const auto& row : rows) {
    KeptOutput kept;
    for (const std::string& message : row.output) Add(kept, message);
    const KeptOutput::Replay replay = kept.After(row.seen);
    EXPECT_EQ(replay.next, row.next) << row.name;
    EXPECT_EQ(Texts(replay), row.want) << row.name;
  }
}

TEST(KeptOutput, TailAndPagesAreBounded) {
  KeptOutput kept(/*pagesBytes=*/2000);
  const std::string line(1000, 'x');
  for (int count = 0; count < 1000; ++count) Add(kept, "E" + line);
  const std::size_t inTail = kept.After(0).messages.size();
  EXPECT_LE(inTail * line.size(), KeptOutput::kTailBytes);
  EXPECT_GE(inTail * line.size(), KeptOutput::kTailBytes / 2);
  Add(kept, "A<TX>");
  Add(kept, "AIREPLACE|doc1=" + line);
  Add(kept, "A^VALUE|fx1=" + line);
  Add(kept, "A^VALUE|fx2=y");
  Add(kept, "A</TX>\r\n");
  const Messages texts = Texts(kept.After(0));
  EXPECT_NE(texts.back().find("too long to be kept"), std::string::npos)
      << "the rest of its frame is no text";
  Add(kept, "A<TX>IREPLACE|doc1=new</TX>");
  EXPECT_EQ(Texts(kept.After(0)).back(), "A<TX>IREPLACE|doc1=new</TX>");
}

// A page that counts as pages do, cut off at any message, shows all that is kept, in order and nothing twice.
TEST(KeptOutput, AnyLossShowsTheSame) {
  const Messages kinds = {"Etext",
                          "K1",
                          "Aline",
                          "A<TX>",
                          "A</TX>",
                          "AIREPLACE|doc1=",
                          "A<TX>IREPLACE|doc1=</TX>",
                          "A<TERMINAL>",
                          "AMSGBOX|x</TX>"};
  for (unsigned seed = 1; seed <= 300; ++seed) {
    std::mt19937 random(seed);
    KeptOutput kept;
    std::vector<WebMessage> all, shown;
    std::uint64_t seen = 0;
    for (int step = 0; step < 60; ++step) {
      all.push_back(std::make_shared<const std::string>(kinds[random() % kinds.size()]));
      kept.Add(all.back());
      const bool isLast = step == 59;
      if (random() % 3 != 0 && !isLast) continue;
      const KeptOutput::Replay replay = kept.After(seen);
      EXPECT_EQ(replay.next + replay.messages.size(), all.size() + 1) << seed;
      if (replay.next != seen + 1) shown.clear();
      seen = replay.next - 1;
      const std::size_t arrived = isLast ? replay.messages.size() : random() % (replay.messages.size() + 1);
      shown.insert(shown.end(), replay.messages.begin(), replay.messages.begin() + std::ptrdiff_t(arrived));
      seen += arrived;
    }
    auto at = all.begin();
    for (const WebMessage& message : shown) {
      at = std::find(at, all.end(), message);
      ASSERT_NE(at++, all.end()) << "out of order or twice, seed " << seed;
    }
    // Where a replay had to be told from going on, the oldest went.
    const std::vector<WebMessage> fresh = kept.After(0).messages;
    for (std::size_t index = 1; index < fresh.size(); ++index)
      EXPECT_NE(std::find(shown.begin(), shown.end(), fresh[index]), shown.end()) << seed;
  }
}

}  // namespace
}  // namespace nvadmin::host
