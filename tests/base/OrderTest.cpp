// The order of values: the comparison and the order keys against one list written down in ascending order.
#include "engine/Order.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace nvadmin::engine {
namespace {

using namespace std::string_literals;

int SignOf(int order) { return (order > 0) - (order < 0); }

// Z stands for a hundred zeros, @ for the character 0.
constexpr std::string_view kNumericOrder =
    " < -1ZZZ < -1Z < -1234567890123456789012345.5 < -1000000000000000000=-1000000000000000000.0"
    " < -999999999999999999 < -100=-0100.00 < -99.99 < -2 < -1.5=-01.50 < -1.25 < -1 < -0.1 < -.ZZ1"
    " < 0=-0=+0.000=.0=0.=Z < .ZZ1 < 0.000000000000000001 < 0.05=.05=0.0500 < 0.5"
    " < 1=+1=1.=01=1.000000000000000000=00000000000000000000001 < 1.000000000000000001 < 1.05 < 1.5 < 9"
    " < 10=10.0 < 12 < 120 < 123 < 999999999999999999 < 999999999999999999.5"
    " < 1000000000000000000=1000000000000000000.00 < 1234567890123456789012345"
    " < 1234567890123456789012345.5 < 1Z < 1ZZZ < @ < @@ < @a <  1 < + < - < . < 1,000 < 1.2.3 < 1a < A < A@"
    " < A@B < AB < a < \xFFz";

std::vector<std::string> Split(std::string_view text, std::string_view mark) {
  std::vector<std::string> parts;
  for (std::size_t from = 0, to = 0; to != std::string_view::npos; from = to + mark.size()) {
    to = text.find(mark, from);
    parts.emplace_back(text.substr(from, to - from));
  }
  return parts;
}

TEST(OrderTest, NumericColumnsPutEmptyThenNumbersThenText) {
  struct Entry {
    std::size_t group;
    std::string text, key, descendingKey;
  };
  std::vector<Entry> entries;
  std::size_t group = 0;
  for (const std::string& members : Split(kNumericOrder, " < ")) {
    ++group;
    for (const std::string& member : Split(members, "=")) {
      Entry entry{group, "", "", ""};
      for (const char letter : member) {
        entry.text += letter == 'Z' ? std::string(100, '0') : std::string(1, letter == '@' ? '\0' : letter);
      }
      AppendOrderKey(entry.text, /*numeric=*/true, /*descending=*/false, entry.key);
      AppendOrderKey(entry.text, /*numeric=*/true, /*descending=*/true, entry.descendingKey);
      entries.push_back(entry);
    }
  }
  for (const Entry& left : entries) {
    for (const Entry& right : entries) {
      const std::string pair = left.text + " | " + right.text;
      const int want = (left.group > right.group) - (left.group < right.group);
      EXPECT_EQ(SignOf(CompareOperands(ReadOperand(left.text), ReadOperand(right.text))), want) << pair;
      EXPECT_EQ(SignOf(left.key.compare(right.key)), want) << pair;
      EXPECT_EQ(SignOf(left.descendingKey.compare(right.descendingKey)), -want) << pair;
      EXPECT_FALSE(left.key != right.key && right.key.starts_with(left.key)) << pair;
    }
  }
}

TEST(OrderTest, TextColumnsGoByBytes) {
  const std::vector<std::string> ascending = {"",   "\0"s, "\0\0"s, "\0\xFF"s, "10",
                                              "2",  "A",   "A\0"s,  "A\0B"s,   "A\x01",
                                              "AB", "a",   "\xE4",  "\xFF",    "\xFF\xFF"};
  for (std::size_t left = 0; left < ascending.size(); ++left) {
    for (std::size_t right = 0; right < ascending.size(); ++right) {
      std::string keys[2];
      AppendOrderKey(ascending[left], /*numeric=*/false, /*descending=*/false, keys[0]);
      AppendOrderKey(ascending[right], /*numeric=*/false, /*descending=*/false, keys[1]);
      EXPECT_EQ(SignOf(keys[0].compare(keys[1])), (left > right) - (left < right)) << left << " | " << right;
    }
  }
}

}  // namespace
}  // namespace nvadmin::engine
