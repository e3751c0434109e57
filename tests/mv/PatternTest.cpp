// Patterns against a matcher that tries every way, on random patterns and values.
#include "mv/Pattern.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <random>
#include <string>

#include "mv/Conversions.h"

namespace nvadmin::mv {
namespace {

bool MatchesNaively(std::string text, const std::string& value, bool pointsAreAny) {
  if (text.empty()) return value.empty();
  if (pointsAreAny && text.starts_with("...")) {
    while (text.starts_with(".")) text.erase(0, 1);
    text.insert(0, "0X");
  }
  const std::size_t digits = std::min(text.find_first_not_of("0123456789"), text.size());
  const char letter =
      digits > 0 && digits < text.size() ? static_cast<char>(std::toupper(text[digits])) : ' ';
  if (letter == 'N' || letter == 'A' || letter == 'X') {
    const auto count = static_cast<std::size_t>(std::atoi(text.c_str()));
    const std::string rest = text.substr(digits + 1);
    for (std::size_t taken = 0;; ++taken) {
      if ((taken == count || count == 0) && MatchesNaively(rest, value.substr(taken), pointsAreAny))
        return true;
      if (taken == value.size() || (taken == count && count > 0)) return false;
      const char c = value[taken];
      const bool isLetter = (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
      if ((letter == 'N' && (c < '0' || c > '9')) || (letter == 'A' && !isLetter)) return false;
    }
  }
  const std::size_t quote = text[0] == '\'' || text[0] == '"' ? text.find(text[0], 1) : std::string::npos;
  const std::string literal = quote == std::string::npos ? text.substr(0, 1) : text.substr(1, quote - 1);
  text.erase(0, quote == std::string::npos ? 1 : quote + 1);
  return value.starts_with(literal) && MatchesNaively(text, value.substr(literal.size()), pointsAreAny);
}

TEST(PatternTest, MatchesAsOneThatTriesEveryWay) {
  const char* const pieces[] = {"1N", "2n", "0N", "0A", "1A", "0X", "1x", "3X", "'a'",  "\"1-\"", "''", "...",
                                "a",  "-",  "10", "7",  "'",  ".",  "..", "0",  "0N0X", "A",      "ab", "12"};
  constexpr std::string_view kLetters =
      "a1-'.0\xE4"
      "A7b2";
  constexpr unsigned kSeed = 88;
  std::mt19937 random(kSeed);
  int hits = 0;
  for (int round = 0; round < 60'000; ++round) {
    std::string text;
    std::string value;
    for (std::size_t count = random() % 6; count > 0; --count) text += pieces[random() % std::size(pieces)];
    for (std::size_t count = random() % 7; count > 0; --count) value += kLetters[random() % kLetters.size()];
    for (const bool pointsAreAny : {false, true}) {
      const std::string trace = "seed " + std::to_string(kSeed) + ": " + text + " on " + value;
      Pattern pattern;
      pattern.Read(text, pointsAreAny ? Pattern::Points::kAnyText : Pattern::Points::kThemselves);
      const bool matches = pattern.Matches(value);
      ASSERT_EQ(matches, MatchesNaively(text, value, pointsAreAny)) << trace;
      ASSERT_TRUE(!matches || value.find(pattern.Literal()) != std::string::npos) << trace;
      if (!pointsAreAny) {
        ASSERT_EQ(Oconv(value, "P(" + text + ")"), matches ? value : "") << trace;
      }
      hits += matches ? 1 : 0;
    }
  }
  EXPECT_GT(hits, 8'000);
}

}  // namespace
}  // namespace nvadmin::mv
