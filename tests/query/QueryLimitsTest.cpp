// Sentences beyond all measure: an answer or an error by name, at a cost that grows with their length alone.
#include <gtest/gtest.h>

#include <ctime>
#include <string>

#include "engine/ResultGrid.h"
#include "engine/query/RunQuery.h"
#include "tests/query/MemoryStore.h"

namespace nvadmin::engine {
namespace {

// A sentence: the start, a piece so many times, the middle, a closing piece as many times.
struct Case {
  const char* name;
  std::string start;
  const char* piece;
  int times;
  const char *middle, *closingPiece;
  const char* want;  // the keys, or a part of the error behind "!"
};

// A "%" in the piece becomes a number, another one each time.
std::string Repeat(std::string_view piece, int times) {
  std::string repeated;
  for (; times > 0; --times) {
    repeated += piece;
    const std::size_t number = repeated.find('%', repeated.size() - piece.size());
    if (number != std::string::npos) repeated.replace(number, 1, std::to_string(times));
  }
  return repeated;
}

// What this thread has computed, in seconds: unlike a clock, it doesn't run while others have the machine.
double CpuTime() {
  timespec time{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

TEST(QueryLimitsTest, AnswersHugeSentencesAtACostInLine) {
  MemoryStore store;
  store.Put("DICT F", "N", "A^1^^^^^^^R^9");
  store.Put("F", "one", "1");
  store.Put("F", "two", "2");
  store.Put("DICT G", "L", "A^1^^^^^^^L^9");
  store.Put("G", "long", std::string(200'000, 'a') + "-z");
  // Each N() doubles what a computation without memory costs.
  for (int level = 0; level < 200; ++level) {
    const std::string next = "N(D" + std::to_string(level + 1) + ")";
    store.Put("DICT F", "D" + std::to_string(level), "S^0^^^^^^A;" + next + "+" + next + "^R^9");
  }
  const std::string manyPieces = " '" + Repeat("0N0A", 49) + "-'";
  const std::string oneLetter = " '..." + std::string(196, 'a') + "'";

  const Case cases[] = {
      {"criteria under AND", "SELECT F WITH N = 2", " AND N = 2", 30'000, "", "", "two"},
      {"criteria under OR", "SELECT F WITH N = 1", " OR N = 3", 30'000, "", "", "one"},
      {"alternating criteria", "SELECT F WITH N = 1", " AND N = 2 OR N = 2", 30'000, "", "", "two"},
      {"WITH after WITH", "SELECT F", " WITH N = 2", 30'000, "", "", "two"},
      {"brackets to the left", "SELECT F WITH ", "(", 30'000, "N = 2", ")", "two"},
      {"brackets to the right", "SELECT F WITH ", "(N = 1 OR (N = 2 AND ", 30'000, "N", "))", "one two"},
      {"brackets never closed", "SELECT F WITH ", "(", 250'000, "N", "", "!is never closed"},
      {"brackets without criteria", "SELECT F WITH ", "(", 250'000, "", "", "!needs a field behind it"},
      {"brackets as options", "LIST F ", "(", 250'000, "", "", "one two"},
      {"closing brackets", "LIST F ", ")", 250'000, "", "", "!stray bracket"},
      {"values", "SELECT F WITH N =", " '3'", 100'000, "", "", ""},
      {"different values", "SELECT F WITH N = 2", " 'w%'", 100'000, "", "", "two"},
      {"fields", "SELECT F WITH A1 = 1 AND", " A1 = 1 AND", 100'000, " A1 = 1", "", "one"},
      {"item IDs", "SELECT F ", "'one'", 200'000, " WITH N = 2", "", ""},
      {"sort fields", "SSELECT F", " BY N", 100'000, "", "", "one two"},
      {"columns", "LIST F", " x", 125'000, "", "", "one two"},
      {"one word", "LIST F WITH ", "x", 250'000, "", "", "!unknown word 'xxxx"},
      {"one quote", "LIST F '", "x", 250'000, "", "", "!has no partner"},
      {"one long number", "SELECT F WITH N < ", "9", 250'000, "", "", "one two"},
      {"patterns of many pieces", "SELECT G WITH L LIKE" + Repeat(manyPieces, 5), "", 1, "", "", ""},
      {"patterns of one letter", "SELECT G WITH L LIKE" + Repeat(oneLetter, 5), "", 1, "", "", ""},
      {"a long pattern", "SELECT F WITH N LIKE '", "0N1N", 250'000, "'", "", "!longer than 200 characters"},
      {"a huge count", "SELECT F WITH N LIKE '99999999999999999999999N'", "", 1, "", "", ""},
      {"ranges", "SELECT F WITH N BETWEEN", " 1 1", 125'000, "", "", "one"},
      {"exploded fields", "SSELECT F BY N", " BY-EXP N", 100'000, "", "", "one two"},
      {"operators", "LIST F WITH N ", "<", 250'000, "", "", "!no value behind it"},
      {"throw-away words", "SELECT F", " THE", 100'000, "", "", "one two"},
      {"correlatives that double", "SELECT F WITH D0 = '####'", "", 1, "", "", "one two"},
  };
  for (const Case& test : cases) {
    double costs[2] = {};
    for (const int part : {16, 1}) {
      const int times = std::max(test.times / part, 1);
      const std::string sentence =
          test.start + Repeat(test.piece, times) + test.middle + Repeat(test.closingPiece, times);
      ResultGrid grid;
      std::string reply, error;
      const double start = CpuTime();
      const bool ran = RunQuery(sentence, store, nullptr, grid, reply, error);
      costs[part == 1] = CpuTime() - start;
      EXPECT_LT(error.size(), 400U) << test.name;
      const bool refuses = test.want[0] == '!';
      EXPECT_EQ(ran, !refuses) << test.name << ": " << error;
      if (refuses) {
        EXPECT_NE(error.find(test.want + 1), std::string::npos) << test.name << ": " << error;
      } else {
        EXPECT_EQ(KeysOf(grid), test.want) << test.name;
      }
    }
    // Sixteen times as long; a quadratic cost would be 256 times as high.
    EXPECT_LT(costs[1], 80 * costs[0] + 0.1) << test.name << ": " << costs[0] << " s, " << costs[1] << " s";
  }
}

}  // namespace
}  // namespace nvadmin::engine
