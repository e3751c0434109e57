#include "mv/DynamicArray.h"

#include <random>
#include <stdexcept>
#include <vector>

#include "tests/mv/Notation.h"

namespace nvadmin::mv {
namespace {

TEST(DynamicArray, Count) {
  const struct {
    const char *name, *text, *delimiter;
    int want;
  } rows[] = {
      {"parts", "a]b]c", "]", 3},      {"empty parts", "a]]", "]", 3}, {"mark alone", "]", "]", 2},
      {"no mark", "abc", "]", 1},      {"empty text", "", "]", 0},     {"two characters", "aXXbXXc", "XX", 3},
      {"no delimiter", "abcd", "", 5}, {"not a mark", "x;y", ";", 2},  {"overlap", "aXXXb", "XX", 2},
  };
  for (const auto& row : rows) EXPECT_EQ(Count(Bytes(row.text), Bytes(row.delimiter)), row.want) << row.name;
  const std::string twenty = "abababababababababab";
  EXPECT_EQ(Count(twenty.substr(4) + twenty, twenty), 2) << "overlap of a long delimiter";
}

TEST(DynamicArray, Field) {
  const struct {
    const char *name, *text, *delimiter;
    int occurrence;
    const char* want;
  } rows[] = {
      {"a part", "one*two*three", "*", 2, "two"},
      {"0 is the first", "one*two*three", "*", 0, "one"},
      {"negative too", "one*two*three", "*", -4, "one"},
      {"long delimiter", "one*two*three", "*-", 3, "three"},
      {"beyond the end", "one*two", "*", 3, ""},
      {"not parted", "plain", "*", 1, "plain"},
      {"not parted, 2", "plain", "*", 2, ""},
      {"no delimiter", "plain", "", 4, "plain"},
      {"empty first", "*lead", "*", 1, ""},
      {"empty last", "a*", "*", 2, ""},
  };
  for (const auto& row : rows)
    EXPECT_EQ(Field(row.text, row.delimiter, row.occurrence), row.want) << row.name;
}

TEST(DynamicArray, Index) {
  const struct {
    const char *name, *text, *substring;
    int occurrence, want;
  } rows[] = {
      {"second", "banana", "an", 2, 4}, {"overlap", "banana", "ana", 2, 4},
      {"third", "banana", "an", 3, 0},  {"occurrence 0", "banana", "an", 0, 0},
      {"empty", "banana", "", 1, 1},    {"empty, 3", "banana", "", 3, 3},
      {"empty text", "", "a", 1, 0},    {"case", "Banana", "b", 1, 0},
  };
  for (const auto& row : rows)
    EXPECT_EQ(Index(row.text, row.substring, row.occurrence), row.want) << row.name;
  const std::string twenty(20, 'a');
  EXPECT_EQ(Index("aa" + twenty, twenty, 3), 3) << "overlap of a long substring";
  EXPECT_EQ(Index("aaaaa" + twenty + "b", twenty + "b", 1), 6) << "a long substring behind a false start";
}

TEST(DynamicArray, Extract) {
  const struct {
    const char *fault, *text;
    int attribute, value, subvalue;
    const char* want;
  } rows[] = {
      {"whole attribute loses its marks", "a^b]c\\d^e", 2, 0, 0, "b]c\\d"},
      {"whole value loses its marks", "a^b]c\\d^e", 2, 2, 0, "c\\d"},
      {"wrong subvalue", "a^b]c\\d^e", 2, 2, 2, "d"},
      {"unmarked attribute has no value 1", "a^b]c\\d^e", 3, 1, 1, "e"},
      {"value beyond the end repeats", "a^b]c\\d^e", 3, 2, 0, ""},
      {"0 above a value isn't 1", "a]b^c", 0, 2, 0, "b"},
      {"0 between isn't 1", "a^b\\c]d", 2, 0, 2, "c"},
      {"all zeros give attribute 1", "a^b", 0, 0, 0, ""},
      {"negative gives something", "a^b", -1, 0, 0, ""},
      {"negative value gives something", "a]b", 1, -1, 0, ""},
      {"value search runs into the next attribute", "a^b]c", 1, 2, 0, ""},
      {"last empty attribute reads past the end", "a^", 2, 0, 0, ""},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(Notation(Extract(Bytes(row.text), row.attribute, row.value, row.subvalue)), row.want)
        << row.fault;
  }
}

TEST(DynamicArray, Replace) {
  const struct {
    const char *fault, *text;
    int attribute, value, subvalue;
    const char *content, *want;
  } rows[] = {
      {"attribute not replaced", "a^b^c", 2, 0, 0, "X", "a^X^c"},
      {"values below survive", "a^b]c^d", 2, 0, 0, "X", "a^X^d"},
      {"too few attribute marks", "a", 4, 0, 0, "X", "a^^^X"},
      {"value marks made at the end of the text", "a^b^c", 2, 3, 0, "X", "a^b]]X^c"},
      {"levels mixed when both are made", "a^b", 1, 2, 3, "X", "a]\\\\X^b"},
      {"no attribute appended", "a^b", -1, 0, 0, "X", "a^b^X"},
      {"value appended to the text's end", "a^b^c", 2, -1, 0, "X", "a^b]X^c"},
      {"mark before the first attribute", "", -1, 0, 0, "X", "X"},
      {"empty content removes the attribute", "a^b^c", 2, 0, 0, "", "a^^c"},
      {"subvalue not replaced", "a\\b", 1, 1, 2, "X", "a\\X"},
      {"all zeros change something", "a^b", 0, 0, 0, "X", "a^b"},
      {"empty content makes no mark", "a", -1, 0, 0, "", "a^"},
      {"mark before the first value of an empty attribute", "a^^c", 2, -1, 0, "X", "a^X^c"},
      {"0 above a value isn't 1", "a]b", 0, 2, 0, "X", "a]X"},
      {"marks below an appended attribute missing", "a", -1, 2, 0, "X", "a^]X"},
      {"subvalue appended behind the attribute", "a\\b]c", 1, 1, -1, "X", "a\\b\\X]c"},
      {"marks made below a missing attribute", "a", 3, 2, 2, "X", "a^^]\\X"},
  };
  for (const auto& row : rows) {
    const std::string result = Replace(Bytes(row.text), row.attribute, row.value, row.subvalue, row.content);
    EXPECT_EQ(Notation(result), row.want) << row.fault;
  }
  EXPECT_THROW(Replace("a", 2'000'000'000, 0, 0, "X"), std::length_error)
      << "a wild position fills the memory";
}

TEST(DynamicArray, Locate) {
  const struct {
    const char *fault, *value, *text;
    int want;
  } rows[] = {
      {"not found", "green", "red^green^blue", 2}, {"not the first match", "red", "red^green^red", 1},
      {"case ignored", "green", "red^Green", 0},   {"value inside an attribute hit", "b", "a]b^b", 2},
      {"compared as numbers", "1", "01^1", 2},     {"beginning of an attribute hit", "re", "red^blue", 0},
      {"empty attribute missed", "", "a^^b", 2},   {"empty last attribute missed", "", "a^", 2},
      {"found in an empty list", "", "", 0},
  };
  for (const auto& row : rows) EXPECT_EQ(Locate(row.value, Bytes(row.text)), row.want) << row.fault;
}

TEST(DynamicArray, Truth) {
  const struct {
    const char *name, *value;
    bool want;
  } rows[] = {
      {"empty", "", false},       {"zero", "0", false},     {"signed zero", "-0.00", false},
      {"long zero", "00", false}, {"negative", "-1", true}, {"fraction", "0.01", true},
      {"text", "no", true},       {"blank", " ", true},     {"zero, blank", "0 ", true},
      {"sign", "-", true},        {"point", ".", true},     {"two points", "0.0.0", true},
  };
  for (const auto& row : rows) EXPECT_EQ(Truth(row.value), row.want) << row.name;
}

TEST(DynamicArray, Compare) {
  const struct {
    const char *name, *left, *op, *right;
    bool want;
  } rows[] = {
      {"zero in front", "01", "=", "1", true},
      {"form", "1.50", "=", "+1.5", true},
      {"by size", "10", ">", "9", true},
      {"one is text", "10", ">", "9A", false},
      {"letter case", "<button>", "=", "<BUTTON>", true},
      {"empty isn't 0", "", "=", "0", false},
      {"empty is least", "0", ">", "", true},
      {"longer", "abc", ">=", "abcd", false},
      {"a blank counts", "1 ", "<>", "1", true},
      {"case in order", "a", ">", "B", false},
      {"negative", "-2", "<", "-1", true},
      {"signed zero", "-0", "=", "0.0", true},
      {"fraction", "0.10", "<", "0.9", true},
      {"byte above 127", "\xFE", ">", "a", true},
      {"no operator", "1", "==", "1", false},
      {"or equal", "1", "<=", "1", true},
  };
  for (const auto& row : rows) EXPECT_EQ(Compare(row.left, row.op, row.right), row.want) << row.name;
  const std::string nines(400, '9');
  EXPECT_TRUE(Compare(nines + "1", ">", nines + "0")) << "compared as binary fractions";
}

// Many marks are counted off in blocks; where a block begins or ends must not matter.
TEST(DynamicArray, LongTextsAgreeWithAPlainSplit) {
  std::mt19937 random(20000);
  for (int round = 0; round < 300; ++round) {
    std::vector<std::string> parts(1 + random() % 200);
    const auto longest = 1 + random() % 9;
    std::string text;
    for (std::size_t at = 0; at < parts.size(); ++at) {
      parts[at].assign(random() % longest, static_cast<char>('a' + at % 26));
      text.append(at == 0 ? "" : "\xFE").append(parts[at]);
    }
    const auto count = static_cast<std::int32_t>(parts.size());
    ASSERT_EQ(Count(text, "\xFE"), text.empty() ? 0 : count);
    for (std::int32_t at = 1; at <= count; ++at) {
      ASSERT_EQ(Extract(text, at), parts[static_cast<std::size_t>(at - 1)]) << at << " of " << count;
      ASSERT_EQ(Extract(Replace(text, at, 0, 0, "new"), at), "new") << at << " of " << count;
    }
    ASSERT_EQ(Extract(text, count + 1), "");
    ASSERT_EQ(Replace(text, count + 2, 0, 0, "x"), text + "\xFE\xFEx");
  }
}

TEST(DynamicArray, SearchesStayLinear) {
  const std::string text(4'000'000, 'a');
  const std::string substring(100'000, 'a');
  EXPECT_EQ(Index(text, substring, 3'900'001), 3'900'001);
  EXPECT_EQ(Count(text, substring), 41);
}

}  // namespace
}  // namespace nvadmin::mv
