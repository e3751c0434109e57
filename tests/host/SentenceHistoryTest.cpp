#include "host/SentenceHistory.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "tests/support/TemporaryFolder.h"

namespace nvadmin::host {
namespace {

TEST(SentenceHistory, KeepsSentencesForTheNextSession) {
  TemporaryFolder folder;
  const std::filesystem::path file = folder / "history";
  SentenceHistory first(file);
  SentenceHistory second(file);
  EXPECT_TRUE(first.Load().empty());
  EXPECT_TRUE(first.Append("WHO"));
  EXPECT_FALSE(first.Append("WHO")) << "a repeat";
  EXPECT_FALSE(first.Append(""));
  EXPECT_TRUE(second.Append("LISTF"));
  EXPECT_TRUE(first.Append("caf\xC3\xA9"));
  EXPECT_EQ(SentenceHistory(file).Load(), (std::vector<std::string>{"WHO", "LISTF", "caf\xC3\xA9"}));
  struct stat status {};
  ASSERT_EQ(stat(file.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777, 0600u) << "others can read what was typed";
}

TEST(SentenceHistory, ForgetsTheOldest) {
  for (const int count : {1500, 2000}) {
    TemporaryFolder folder;
    std::string text;
    for (int number = 1; number <= count; ++number) text += "S" + std::to_string(number) + "\n";
    const std::vector<std::string> sentences = SentenceHistory(folder.Put("history", text)).Load();
    ASSERT_EQ(sentences.size(), 1000u) << count;
    EXPECT_EQ(sentences.front(), "S" + std::to_string(count - 999));
    EXPECT_EQ(sentences.back(), "S" + std::to_string(count));
    EXPECT_EQ(folder.Text("history").size() < text.size(), count == 2000) << count;
    EXPECT_EQ(SentenceHistory(folder / "history").Load(), sentences) << count;
  }
}

TEST(SentenceHistory, WithoutAPlaceThereIsNone) {
  SentenceHistory history("/nonexistent/folder/history");
  EXPECT_TRUE(history.Load().empty());
  EXPECT_TRUE(history.Append("WHO")) << "it still counts for this session";
}

}  // namespace
}  // namespace nvadmin::host
