// Sentences beyond all measure: an answer or an error by name, in time that grows with their length alone.
#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <string>

#include "engine/ResultGrid.h"
#include "engine/query/RunQuery.h"
#include "tests/query/MemoryStore.h"

namespace nvadmin::engine {
namespace {

constexpr std::size_t kMegabyte = 1'000'000;
// Each takes some hundredths of a second; quadratic cost would take minutes.
constexpr auto kMostTime = std::chrono::seconds(10);

std::string Repeat(std::string_view text, std::size_t times) {
  std::string repeated;
  for (; times > 0; --times) repeated += text;
  return repeated;
}

struct Case {
  const char* name;
  std::string sentence;
  const char* want;  // the keys, or a part of the error behind "!"
};

TEST(QueryLimitsTest, AnswersHugeSentencesInBoundedTime) {
  MemoryStore store;
  store.Put("DICT F", "N", "A^1^^^^^^^R^9");
  store.Put("F", "one", "1");
  store.Put("F", "two", "2");
  store.Put("DICT G", "L", "A^1^^^^^^^L^9");
  store.Put("G", "long", std::string(kMegabyte, 'a') + "-z");
  // Each N() doubles what a computation without memory costs.
  for (int level = 0; level < 200; ++level) {
    store.Put("DICT F", "D" + std::to_string(level),
              "S^0^^^^^^A;N(D" + std::to_string(level + 1) + ")+N(D" + std::to_string(level + 1) + ")^R^9");
  }
  std::string distinctWords;
  for (int number = 0; number < 100'000; ++number) distinctWords += " w" + std::to_string(number);

  const std::size_t manyBrackets = 10'000;
  const Case kCases[] = {
      {"criteria under AND", "SELECT F WITH N = 2" + Repeat(" AND N = 2", 10'000), "two"},
      {"criteria under OR", "SELECT F WITH N = 1" + Repeat(" OR N = 3", 10'000), "one"},
      {"alternating criteria", "SELECT F WITH N = 1" + Repeat(" AND N = 2 OR N = 2", 10'000), "two"},
      {"WITH after WITH", "SELECT F" + Repeat(" WITH N = 2", 10'000), "two"},
      {"brackets to the left",
       "SELECT F WITH " + Repeat("(", manyBrackets) + "N = 2" + Repeat(")", manyBrackets), "two"},
      {"brackets to the right",
       "SELECT F WITH " + Repeat("(N = 1 OR (N = 2 AND ", manyBrackets) + "N" + Repeat("))", manyBrackets),
       "one two"},
      {"brackets never closed", "SELECT F WITH " + Repeat("(", kMegabyte) + "N", "!is never closed"},
      {"brackets without criteria", "SELECT F WITH " + Repeat("(", kMegabyte), "!needs a field behind it"},
      {"brackets as options", "LIST F " + Repeat("(", kMegabyte), "one two"},
      {"closing brackets", "LIST F " + Repeat(")", kMegabyte), "!stray bracket"},
      {"values", "SELECT F WITH N =" + Repeat(" '3'", kMegabyte / 4), ""},
      {"values without quotes", "SELECT F WITH N = 2" + distinctWords, "two"},
      {"fields", "SELECT F WITH A1 = 1 AND" + Repeat(" A1 = 1 AND", 100'000) + " A1 = 1", "one"},
      {"item IDs", "SELECT F " + Repeat("'one'", 200'000) + " WITH N = 2", ""},
      {"sort fields", "SSELECT F" + Repeat(" BY N", 100'000), "one two"},
      {"columns", "LIST F" + Repeat(" x", kMegabyte / 2), "one two"},
      {"one word", "LIST F WITH " + std::string(kMegabyte, 'x'), "!unknown word 'xxxx"},
      {"one quote", "LIST F '" + std::string(kMegabyte, 'x'), "!has no partner"},
      {"one long number", "SELECT F WITH N < " + std::string(kMegabyte, '9'), "one two"},
      {"patterns of many pieces", "SELECT G WITH L LIKE" + Repeat(" '" + Repeat("0N0A", 49) + "-'", 5), ""},
      {"patterns of one letter", "SELECT G WITH L LIKE" + Repeat(" '..." + std::string(196, 'a') + "'", 5),
       ""},
      {"a long pattern", "SELECT F WITH N LIKE '" + Repeat("0N1N", 250'000) + "'",
       "!longer than 200 characters"},
      {"a huge count", "SELECT F WITH N LIKE '99999999999999999999999N'", ""},
      {"ranges", "SELECT F WITH N BETWEEN" + Repeat(" 1 1", kMegabyte / 8), "one"},
      {"exploded fields", "SSELECT F BY N" + Repeat(" BY-EXP N", 100'000), "one two"},
      {"operators", "LIST F WITH N " + Repeat("<", kMegabyte), "!no value behind it"},
      {"throw-away words", "SELECT F" + Repeat(" THE", kMegabyte / 4), "one two"},
      {"correlatives that double", "SELECT F WITH D0 = '####'", "one two"},
  };
  for (const Case& test : kCases) {
    ResultGrid grid;
    std::string reply;
    std::string error;
    const auto start = std::chrono::steady_clock::now();
    const bool ran = RunQuery(test.sentence, store, nullptr, grid, reply, error);
    EXPECT_LT(std::chrono::steady_clock::now() - start, kMostTime) << test.name;
    EXPECT_LT(error.size(), 400U) << test.name;
    if (test.want[0] == '!') {
      EXPECT_FALSE(ran) << test.name;
      EXPECT_NE(error.find(test.want + 1), std::string::npos) << test.name << ": " << error;
    } else {
      EXPECT_TRUE(ran) << test.name << ": " << error;
      EXPECT_EQ(KeysOf(grid), test.want) << test.name;
    }
  }
}

}  // namespace
}  // namespace nvadmin::engine
