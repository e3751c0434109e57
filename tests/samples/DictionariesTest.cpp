// The dictionaries of the sample files: that their words are well formed and fit together.
#include "samples/Dictionaries.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <charconv>
#include <set>
#include <string>

#include "samples/SampleFiles.h"

namespace nvadmin::samples {
namespace {

const Word* FindWord(std::string_view file, std::string_view name) {
  for (const Word& word : WordsOf(file)) {
    if (word.word == name) return &word;
  }
  return nullptr;
}

int NumberOf(std::string_view digits) {
  int number = -1;
  std::from_chars(digits.data(), digits.data() + digits.size(), number);
  return number;
}

// That the names in an arithmetic correlative are words that show what is stored: calculations need that.
void ExpectPlainOperands(std::string_view file, std::string_view correlative) {
  for (std::size_t at = 0; (at = correlative.find("N(", at)) != std::string_view::npos; ++at) {
    const std::string_view name = correlative.substr(at + 2, correlative.find(')', at) - at - 2);
    const Word* operand = FindWord(file, name);
    ASSERT_NE(operand, nullptr) << name;
    EXPECT_EQ(std::string(operand->conversion).append(operand->correlative), "") << name;
    EXPECT_GT(NumberOf(operand->attribute), 0) << name;
  }
}

TEST(Dictionaries, AreWellFormed) {
  for (const SampleFile& file : SampleFiles()) {
    std::set<std::string_view> seen;
    int used = 12;  // of the screen by the item ID and its blank; the numbered columns follow without a gap
    int next = 1;
    for (const Word& word : WordsOf(file.name)) {
      SCOPED_TRACE(std::string(file.name) + " " + std::string(word.word));
      EXPECT_TRUE(seen.insert(word.word).second) << "twice";
      EXPECT_NE(std::string_view("ASDI").find(word.type), std::string_view::npos);
      EXPECT_NE(std::string_view("LR").find(word.justification), std::string_view::npos);
      EXPECT_FALSE(word.heading.empty());
      EXPECT_LE(word.heading.size(), static_cast<std::size_t>(word.width));
      EXPECT_EQ(word.type == 'I', word.attribute.empty());
      EXPECT_TRUE(word.type != 'D' || word.correlative.empty());
      EXPECT_TRUE(file.columns == 0 || word.type == 'I' || NumberOf(word.attribute) <= file.columns);
      if (word.correlative.starts_with("A;")) ExpectPlainOperands(file.name, word.correlative);
      if (NumberOf(word.word) < 0) continue;
      EXPECT_EQ(NumberOf(word.word), next++);
      used += word.width + 1;
    }
    EXPECT_GE(next, 3) << file.name;
    EXPECT_LE(used - 1, 79) << file.name;
  }
}

TEST(Dictionaries, LayTheirItemsOutByType) {
  const struct {
    Word word;
    const char* want;  // "^" is the attribute mark
  } cases[] = {
      {{"W", 'A', "7", "Head", "MD2", "", 'R', 9}, "A^7^Head ^^^^MD2^^R^9"},
      {{"W", 'S', "0", "Head", "", "G0-1\xFDMCU", 'L', 12}, "S^0^Head^^^^^G0-1\xFDMCU^L^12"},
      {{"W", 'D', "3", "Head", "D2/", "", 'L', 10}, "D^3^D2/^Head^10L"},
      {{"W", 'I', "", "Head", "MCU", "TX;X;;1", 'R', 8}, "I^TX;X;;1^MCU^Head^8R"},
  };
  for (const auto& row : cases) {
    std::string want = row.want;
    std::replace(want.begin(), want.end(), '^', '\xFE');
    EXPECT_EQ(MakeDictionaryItem(row.word).body, want) << row.word.type;
  }
}

}  // namespace
}  // namespace nvadmin::samples
