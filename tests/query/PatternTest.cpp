// Patterns against the conversion P, whose language they extend, on random patterns and values.
#include "engine/query/Pattern.h"

#include <gtest/gtest.h>

#include <random>
#include <string>

#include "mv/Conversions.h"

namespace nvadmin::engine {
namespace {

bool Matches(std::string_view text, std::string_view value) {
  Pattern pattern;
  EXPECT_TRUE(pattern.Read(text)) << text;
  return pattern.Matches(value);
}

TEST(PatternTest, MatchesAsTheConversionDoes) {
  const char* const pieces[] = {"1N", "2n", "0N", "0A", "1A", "0X", "1x", "3X", "'a'",  "\"1-\"",
                                "a",  "-",  "10", "7",  "''", "'",  ".",  "0",  "0N0X", "A"};
  constexpr std::string_view kLetters =
      "a1-'.0\xE4"
      "A7";
  constexpr unsigned kSeed = 88;
  std::mt19937 random(kSeed);
  int hits = 0;
  for (int round = 0; round < 60'000; ++round) {
    std::string text;
    for (std::size_t count = 1 + random() % 5; count > 0; --count)
      text += pieces[random() % std::size(pieces)];
    if (text.find("...") != std::string::npos) continue;
    std::string value;
    for (std::size_t count = 1 + random() % 6; count > 0; --count)
      value += kLetters[random() % kLetters.size()];
    const bool matches = Matches(text, value);
    ASSERT_EQ(matches, mv::Oconv(value, "P(" + text + ")") == value)
        << "seed " << kSeed << ": " << text << " on " << value;
    hits += matches ? 1 : 0;
  }
  EXPECT_GT(hits, 3'000);
}

TEST(PatternTest, KnowsPointsAndEmptyValues) {
  const struct {
    const char* text;
    const char* value;
    bool matches;
  } rows[] = {
      {"...", "", true},        {"a...", "a", true},       {"...b....c", "abxc", true},
      {"a..", "abc", false},    {"'...'", "abc", false},   {"'...'", "...", true},
      {"", "", true},           {"", "a", false},          {"0N", "", true},
      {"1N...1N", "1", false},  {"1N...1N", "1x1", true},  {"0A0N...", "--", true},
      {"ab...ab", "ab", false}, {"ab...ab", "abab", true}, {"0Xaa", "aaa", true},
  };
  for (const auto& row : rows)
    EXPECT_EQ(Matches(row.text, row.value), row.matches) << row.text << " " << row.value;
}

}  // namespace
}  // namespace nvadmin::engine
