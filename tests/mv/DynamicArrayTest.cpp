#include "mv/DynamicArray.h"

#include <random>
#include <vector>

#include <stdexcept>

#include "tests/mv/Notation.h"

namespace nvadmin::mv {
namespace {

TEST(DynamicArray, Count) {
  const struct {
    const char *fault, *text, *delimiter;
    int want;
  } rows[] = {
      {"parts miscounted", "a]b]c", "]", 3},
      {"empty part at the end lost", "a]]", "]", 3},
      {"mark alone taken as one part", "]", "]", 2},
      {"absent delimiter gives no part", "abc", "]", 1},
      {"empty text counted as a part", "", "]", 0},
      {"only first character of delimiter counts", "aXXbXXc", "XX", 3},
      {"empty delimiter not the length plus 1", "abcd", "", 5},
      {"delimiter treated as mark", "x;y", ";", 2},
      {"overlapping delimiters counted", "aXXXb", "XX", 2},
      {"long delimiter counted with overlap", "abababababababababababababababababab", "abababababababababab",
       2},
  };
  for (const auto& row : rows) EXPECT_EQ(Count(Bytes(row.text), Bytes(row.delimiter)), row.want) << row.fault;
}

TEST(DynamicArray, Field) {
  const struct {
    const char *fault, *text, *delimiter;
    int occurrence;
    const char* want;
  } rows[] = {
      {"wrong part", "one*two*three", "*", 2, "two"},
      {"0 gives nothing", "one*two*three", "*", 0, "one"},
      {"negative gives nothing", "one*two*three", "*", -4, "one"},
      {"whole of a longer delimiter counts", "one*two*three", "*-", 3, "three"},
      {"beyond the end repeats the last part", "one*two", "*", 3, ""},
      {"absent delimiter loses the text", "plain", "*", 1, "plain"},
      {"absent delimiter gives the text for every part", "plain", "*", 2, ""},
      {"empty delimiter parts the text", "plain", "", 4, "plain"},
      {"empty first part skipped", "*lead", "*", 1, ""},
      {"empty last part reads past the end", "a*", "*", 2, ""},
  };
  for (const auto& row : rows)
    EXPECT_EQ(Field(row.text, row.delimiter, row.occurrence), row.want) << row.fault;
}

TEST(DynamicArray, Index) {
  const std::string twenty(20, 'a');
  const struct {
    const char* fault;
    std::string text, substring;
    int occurrence, want;
  } rows[] = {
      {"wrong occurrence", "banana", "an", 2, 4},
      {"overlap missed", "banana", "ana", 2, 4},
      {"found more often than there", "banana", "an", 3, 0},
      {"occurrence 0 taken as 1", "banana", "an", 0, 0},
      {"empty substring not the occurrence", "banana", "", 1, 1},
      {"empty substring always 1", "banana", "", 3, 3},
      {"found in empty text", "", "a", 1, 0},
      {"case ignored", "Banana", "b", 1, 0},
      {"overlap of a long substring missed", std::string(22, 'a'), twenty, 3, 3},
      {"start of a long substring lost after a false start", std::string(5, 'a') + twenty + "b", twenty + "b",
       1, 6},
  };
  for (const auto& row : rows)
    EXPECT_EQ(Index(row.text, row.substring, row.occurrence), row.want) << row.fault;
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
    const char *fault, *value;
    bool want;
  } rows[] = {
      {"empty is true", "", false},
      {"zero is true", "0", false},
      {"signed zero is true", "-0.00", false},
      {"long zero is true", "00", false},
      {"negative is false", "-1", true},
      {"fraction is false", "0.01", true},
      {"text is false", "no", true},
      {"blank is false", "·", true},
      {"zero and blank is numeric", "0·", true},
      {"sign alone is numeric", "-", true},
      {"point alone is numeric", ".", true},
      {"two points are numeric", "0.0.0", true},
  };
  for (const auto& row : rows) EXPECT_EQ(Truth(WithBlanks(row.value)), row.want) << row.fault;
}

TEST(DynamicArray, Compare) {
  const std::string long9(400, '9');
  const struct {
    const char* fault;
    std::string left, op, right;
    bool want;
  } rows[] = {
      {"leading zero counts", "01", "=", "1", true},
      {"form of a number counts", "1.50", "=", "+1.5", true},
      {"numbers compared as text", "10", ">", "9", true},
      {"number and text compared as numbers", "10", ">", "9A", false},
      {"case counts", "<button>", "=", "<BUTTON>", true},
      {"empty equals zero", "", "=", "0", false},
      {"empty isn't least", "0", ">", "", true},
      {"longer isn't greater", "abc", ">=", "abcd", false},
      {"blank ignored", "1·", "<>", "1", true},
      {"order by case", "a", ">", "B", false},
      {"negative order by size", "-2", "<", "-1", true},
      {"signed zero unequal", "-0", "=", "0.0", true},
      {"fraction compared as a whole number", "0.10", "<", "0.9", true},
      {"long numbers compared as binary fractions", long9 + "1", ">", long9 + "0", true},
      {"bytes above 127 compared as signed", "\xFE", ">", "a", true},
      {"unknown operator true", "1", "==", "1", false},
      {"<= lacks equal", "1", "<=", "1", true},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(Compare(WithBlanks(row.left), row.op, WithBlanks(row.right)), row.want) << row.fault;
  }
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
