// Whatever codes and values say: an answer in bounded time and memory. No clock is read: what doesn't grow in
// line with these sizes takes hours, which the time limit of the whole test program ends.
#include <random>

#include "mv/DynamicArray.h"
#include "mv/EngineHooks.h"
#include "session/MvServices.h"
#include "tests/mv/Notation.h"

namespace nvadmin::mv {
namespace {

std::string Repeat(std::string_view text, int times) {
  std::string result;
  for (int at = 0; at < times; ++at) result.append(text);
  return result;
}

TEST(Robustness, WildCodesEnd) {
  const std::string nines(400, '9');
  const struct {
    const char* fault;
    std::string value, code, want;
  } rows[] = {
      {"400 digits lose precision", nines, "MD2", nines.substr(2) + ".99"},
      {"400 digits lose a carry", nines, "MD02", "1" + std::string(398, '0')},
      {"400 digits multiplied", nines, "A;V*V", std::string(399, '9') + "8" + std::string(399, '0') + "1"},
      {"400 digits of seconds", nines, "MTHS", "05:46:39PM"},
      {"400 digits of days", nines, "D", "####"},
      {"400 zeros before a day", std::string(400, '0') + "1", "D", "01 JAN 1968"},
      {"power of P without end", nines, "F;1" + Repeat(";P;*", 5000), "####"},
      {"text doubled without end", "abcdefgh", "F;1" + Repeat(";P;:", 5000), "####"},
      {"expression nested too deep", "1", "A;" + Repeat("(", 10000) + "1" + Repeat(")", 10000), "####"},
      {"open parentheses nested too deep", "1", "A;" + Repeat("(", 100000), "####"},
      {"functions nested too deep", "1", "A;" + Repeat("S(", 10000) + "1" + Repeat(")", 10000), "####"},
      {"minus signs nested too deep", "1", "A;" + Repeat("-", 100000) + "1", "####"},
      {"choices nested too deep", "1", "A;" + Repeat("IF ", 10000), "####"},
      {"codes nested too deep", "1", "A;" + Repeat("1(A;", 10000) + "1" + Repeat(")", 10000), "####"},
      {"fair nesting refused", "1", "A;" + Repeat("(", 100) + "1" + Repeat(")", 100), "1"},
      {"long sum refused", "1", "A;1" + Repeat("+1", 5000), "5001"},
      {"pattern tried in every way", std::string(200'000, '1') + "x", "P(" + Repeat("0N", 200) + ")", ""},
      {"pattern of any characters", std::string(200'000, 'a') + "!", "P(" + Repeat("0X0A", 100) + "1N)", ""},
      {"count of a pattern overflows", "1", "P(99999999999999999999N)", ""},
      {"replacement fills the memory", std::string(1 << 20, 'a'), "MCC;a;" + std::string(1000, 'b'), "####"},
      {"mask of megabytes", "1", "MR#999999999", "####"},
      {"many masks of megabytes", "1", "MR(" + Repeat("#4000000", 1000) + ")", "####"},
      {"binary digits fill the memory", std::string(1 << 20, 'a'), "MB0C", "####"},
      {"base of a number without end", std::string(1 << 20, '9'), "MX", "####"},
      {"bases over and over", nines, "F;1" + Repeat(";P;(MX);^", 20000), "####"},
      {"chain over a long text", std::string(1 << 20, 'a'), Repeat("MCC;a;b\xFDMCC;b;a\xFD", 5000), "####"},
      {"fair chain refused", "1", Repeat("TF;C;;1\xFD", 999), "1"},
      {"chain without end", "1", Repeat("TF;C;;1\xFD", 200'000), "####"},
      {"group numbers overflow", "a*b", "G99999999999999999999*1", ""},
      {"text numbers overflow", "abc", "T99999999999999999999,99999999999999999999", ""},
      {"length overflows", "abc", "L99999999999999999999", "abc"},
  };
  for (const auto& row : rows) EXPECT_EQ(Oconv(row.value, row.code), row.want) << row.fault;
}

TEST(Robustness, WildMasksEnd) {
  EXPECT_EQ(Fmt("1", "R#99999999999999999999"), "####");
  EXPECT_EQ(Fmt("1", "99999999999999999999L"), "####");
  EXPECT_EQ(Fmt("1", "L" + Repeat("#1000000", 5000)), "####");
  EXPECT_EQ(Fmt(std::string(100'000, ' '), "3000000T"), Fmt("", "3000000T"));
  EXPECT_EQ(Fmt(std::string(3 << 20, 'x'), "2L"), "####") << "marks between lines are not counted";
  EXPECT_EQ(Fmt(std::string(400, '9'), "R2#500").substr(97), std::string(400, '9') + ".00");
}

TEST(Robustness, RecursionThroughTheEngineEnds) {
  // A column that is an expression of itself, twice: without a limit it would be asked for without end.
  int calls = 0;
  ConversionContext context;
  context.hasItem = true;
  context.column = [&](std::string_view, std::string& value) {
    ++calls;
    value = Oconv("1", "A;N(SELF)+N(SELF)", context);
    return true;
  };
  EXPECT_EQ(Oconv("1", "A;N(SELF)", context), "####");
  EXPECT_LT(calls, 1000);
  EXPECT_EQ(Oconv("1", "A;V+V"), "2") << "a failed conversion spoils the next";

  // The same through a file that is translated while it is read.
  Hooks().readItem = [](std::string_view, std::string_view id, std::string& item) {
    item = Oconv(id, "TF;V;;1");
    return true;
  };
  EXPECT_EQ(Oconv("1", "TF;V;;1"), "####");
  Hooks().readItem = nullptr;
}

TEST(Robustness, RandomCodesNeverBreak) {
  // Pieces of every family, thrown together: whatever comes, it is an answer within the limit.
  const std::string_view pieces[] = {
      "D",  "2",  "/",  "E",  "I",  "MT", "H",       "S",     "MD",    "ML", "MR",     "MC",   "MX",
      "MO", "MB", "0C", "G",  "T",  "L",  "R",       "P",     "C",     "A",  "F",      ";",    "(",
      ")",  "[",  "]",  "\"", "'",  "*",  "#",       "%",     "9",     "1",  "0",      ",",    "$",
      "-",  "+",  "<",  "N(", "S(", "V",  "IF ",     "THEN",  "ELSE",  "U",  "X",      "\xFD", "\xFE",
      " ",  ":",  "=",  "_",  "^",  "{",  "P(0N2X)", "DICT ", "u017e", "",   "R(1,2)", "99",
  };
  const char* const values[] = {"", "0", "-12.5", "20000", "ab cd", "1]2^3", "\\", "+", ".", "1e5"};
  constexpr unsigned kSeed = 20000;
  std::mt19937 random(kSeed);
  for (int round = 0; round < 40'000; ++round) {
    std::string code;
    for (auto count = random() % 9; count > 0; --count) code.append(pieces[random() % std::size(pieces)]);
    const std::string value = Bytes(values[random() % std::size(values)]);
    std::string stored;
    ASSERT_LE(Oconv(value, code).size(), 5'000'000U) << "seed " << kSeed << ", code " << Notation(code);
    ASSERT_LE(Fmt(value, code).size(), 5'000'000U) << "seed " << kSeed << ", mask " << Notation(code);
    Iconv(value, code, stored);
  }
}

TEST(MvServices, AnswersAsTheFunctions) {
  const std::unique_ptr<nvadmin::MvServices> helper = CreateMvServices();
  EXPECT_EQ(helper->Field("a;b", ";", 2), "b");
  EXPECT_EQ(helper->Index("abab", "b", 2), 4);
  EXPECT_EQ(helper->Replace(Bytes("a^b"), -1, 0, 0, "c"), Bytes("a^b^c"));
  std::int32_t position = 7;
  EXPECT_FALSE(helper->Locate("c", Bytes("a^b"), position));
  EXPECT_EQ(position, 7) << "a miss changes the position";
  EXPECT_TRUE(helper->Locate("b", Bytes("a^b"), position));
  EXPECT_EQ(position, 2);
  EXPECT_TRUE(helper->Not("0"));
  EXPECT_TRUE(helper->Truth("1"));
  EXPECT_TRUE(helper->Compare("<button>", "=", "<BUTTON>"));
}

}  // namespace
}  // namespace nvadmin::mv
