// Every column of every sample file over every item, as a report would work it out.
#include "samples/Dictionaries.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <charconv>
#include <map>
#include <set>
#include <string>
#include <unordered_map>

#include "mv/Conversions.h"
#include "mv/DynamicArray.h"
#include "mv/EngineHooks.h"
#include "samples/SampleFiles.h"

namespace nvadmin::samples {
namespace {

constexpr char kValueMark = mv::kValueMark;

using Bodies = std::unordered_map<std::string, std::string>;

// All items of all files, made once.
const std::map<std::string, Bodies, std::less<>>& AllFiles() {
  static const auto* const files = [] {
    auto* all = new std::map<std::string, Bodies, std::less<>>;
    const IsoCodes codes = ReadIsoCodes("/usr/share/iso-codes/json");
    for (const SampleFile& file : SampleFiles()) {
      Bodies& bodies = (*all)[std::string(file.name)];
      for (const Item& item : file.make(codes)) {
        EXPECT_TRUE(bodies.emplace(item.id, item.body).second) << file.name << " has " << item.id << " twice";
      }
    }
    for (const SampleFile& file : SampleFiles()) {
      (*all)["ABOUT"].emplace(file.name, MakeAboutItem(file, (*all)[std::string(file.name)].size()).body);
    }
    return all;
  }();
  return *files;
}

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

bool IsArithmetic(const Word& word) { return word.correlative.substr(0, 2) == "A;"; }

// The names of an arithmetic correlative.
std::vector<std::string> NamesIn(std::string_view correlative) {
  std::vector<std::string> names;
  for (std::size_t at = correlative.find("N("); at != std::string_view::npos;
       at = correlative.find("N(", at + 1)) {
    names.emplace_back(correlative.substr(at + 2, correlative.find(')', at) - at - 2));
  }
  return names;
}

std::string StoredCell(const Word& word, const std::string& id, const std::string& body) {
  if (word.type == 'I' || word.attribute == "0") return id;
  return std::string(mv::Extract(body, NumberOf(word.attribute)));
}

// Value n of a cell after its correlative, before its conversion.
std::string CorrelatedValue(std::string_view file, const Word& word, const std::string& id,
                            const std::string& body, std::string_view value, int n) {
  if (word.correlative.empty()) return std::string(value);
  mv::ConversionContext context;
  context.hasItem = true;
  context.item = body;
  context.id = id;
  context.column = [&](std::string_view name, std::string& result) {
    const Word* column = FindWord(file, name);
    if (column == nullptr) return false;
    result = std::string(mv::Extract(body, NumberOf(column->attribute), n));
    return true;
  };
  return mv::Oconv(value, word.correlative, context);
}

// What a column showed over a whole file.
struct Shown {
  std::size_t filled = 0;
  std::size_t longest = 0;
};

Shown ShowColumn(std::string_view file, const Word& word) {
  Shown shown;
  for (const auto& [id, body] : AllFiles().find(file)->second) {
    const std::string cell = StoredCell(word, id, body);
    const int count = std::max(mv::Count(cell, std::string_view(&kValueMark, 1)), 1);
    for (int n = 1; n <= count; ++n) {
      const std::string_view stored = mv::Field(cell, std::string_view(&kValueMark, 1), n);
      std::string value = CorrelatedValue(file, word, id, body, stored, n);
      if (!word.conversion.empty() && !value.empty()) value = mv::Oconv(value, word.conversion);
      if (value == mv::kInconvertible)
        ADD_FAILURE() << file << " " << word.word << " of item " << id << ": " << stored;
      if (!value.empty()) ++shown.filled;
      shown.longest = std::max(shown.longest, value.size());
    }
  }
  return shown;
}

class Dictionaries : public testing::Test {
 protected:
  void SetUp() override {
    mv::Hooks().readItem = [](std::string_view file, std::string_view id, std::string& item) {
      const auto found = AllFiles().find(file);
      if (found == AllFiles().end()) return false;
      const auto body = found->second.find(std::string(id));
      if (body == found->second.end()) return false;
      item = body->second;
      return true;
    };
  }
  void TearDown() override { mv::Hooks() = {}; }
};

TEST_F(Dictionaries, ConvertEveryValueOfEveryItem) {
  for (const SampleFile& file : SampleFiles()) {
    ASSERT_FALSE(WordsOf(file.name).empty()) << file.name;
    for (const Word& word : WordsOf(file.name)) {
      const Shown shown = ShowColumn(file.name, word);
      EXPECT_GT(shown.filled, 0u) << file.name << " " << word.word << " never shows anything";
      if (word.justification != 'R') continue;
      EXPECT_LT(shown.longest, static_cast<std::size_t>(word.width))
          << file.name << " " << word.word << " loses the left end of its longest value";
    }
  }
}

TEST_F(Dictionaries, AreWellFormed) {
  for (const SampleFile& file : SampleFiles()) {
    std::set<std::string_view> seen;
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
    }
  }
}

TEST_F(Dictionaries, CalculateWithPlainWordsOnly) {
  std::size_t names = 0;
  for (const SampleFile& file : SampleFiles()) {
    for (const Word& word : WordsOf(file.name)) {
      if (!IsArithmetic(word)) continue;
      for (const std::string& name : NamesIn(word.correlative)) {
        ++names;
        const Word* operand = FindWord(file.name, name);
        ASSERT_NE(operand, nullptr) << name;
        EXPECT_EQ(operand->conversion, "") << name;
        EXPECT_EQ(operand->correlative, "") << name;
        EXPECT_GT(NumberOf(operand->attribute), 0) << name;
      }
    }
  }
  EXPECT_EQ(names, 4u);
}

TEST_F(Dictionaries, NumberTheirDefaultColumnsWithoutAGapAndFitTheScreen) {
  constexpr int kScreen = 79;
  for (const SampleFile& file : SampleFiles()) {
    int used = 12;  // the item ID and its blank
    int next = 1;
    for (const Word& word : WordsOf(file.name)) {
      if (NumberOf(word.word) < 0) continue;
      EXPECT_EQ(word.word, std::to_string(next)) << file.name;
      ++next;
      used += word.width + 1;
    }
    EXPECT_GE(next, 3) << file.name;
    EXPECT_LE(used - 1, kScreen) << file.name;
  }
}

TEST_F(Dictionaries, ExtendOrderLinesToTheStoredAmount) {
  const Word& extended = *FindWord("ORDERS", "EXTENDED");
  for (const auto& [id, body] : AllFiles().find("ORDERS")->second) {
    long long total = 0;
    const std::string cell = StoredCell(extended, id, body);
    for (int n = 1; n <= mv::Count(cell, std::string_view(&kValueMark, 1)); ++n) {
      total += std::stoll(CorrelatedValue("ORDERS", extended, id, body, mv::Extract(cell, 1, n), n));
    }
    EXPECT_EQ(std::to_string(total), mv::Extract(body, 7)) << id;
  }
}

TEST_F(Dictionaries, LayTheirItemsOutByType) {
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
    std::replace(want.begin(), want.end(), '^', mv::kAttributeMark);
    EXPECT_EQ(MakeDictionaryItem(row.word).body, want) << row.word.type;
  }
}

}  // namespace
}  // namespace nvadmin::samples
