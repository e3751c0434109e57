// Random items and random sentences against an evaluator that takes every criterion literally: a tree walked
// by recursion, numbers as floating point (all of few digits), a stable sort.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include "engine/ResultGrid.h"
#include "engine/query/RunQuery.h"
#include "tests/query/MemoryStore.h"
#include "tests/query/Random.h"

namespace nvadmin::engine {
namespace {

struct Field {
  const char* word;
  int attribute;  // 0: the item ID
  bool numeric;
};
constexpr Field kFields[] = {{"NAME", 1, false},  {"AMOUNT", 2, true}, {"TAGS", 3, false},
                             {"COUNTS", 4, true}, {"A5", 5, false},    {"@ID", 0, false}};
constexpr const char* kDictionary[][2] = {
    {"NAME", "A^1^^^^^^^L^9"}, {"AMOUNT", "S^2^^^^^^^R^9"}, {"TAGS", "D^3^^^9L"}, {"COUNTS", "D^4^^^9R"}};
constexpr const char* kTexts[] = {"",    "a",   "ab", "abc",  "b",   "ba", "B", "1",  "10",  "2",    "9",
                                  "007", "1.0", "-1", "-1.5", "1.5", ".5", "0", "-0", "x 1", "\xE4", "\xE4z"};
constexpr const char* kOperators[] = {"=", "#", "<", ">", "<=", ">="};
constexpr const char* kQuantifiers[] = {"", "EVERY ", "NO "};

std::vector<std::string> Split(const std::string& text, const char* marks) {
  std::vector<std::string> parts;
  for (std::size_t from = 0, to = 0; to != std::string::npos; from = to + 1) {
    to = text.find_first_of(marks, from);
    parts.push_back(text.substr(from, to - from));
  }
  return parts;
}

bool LooksNumeric(const std::string& text) {
  char* end = nullptr;
  std::strtod(text.c_str(), &end);
  return !text.empty() && end == text.c_str() + text.size();
}

int CompareNaively(const std::string& left, const std::string& right, bool numeric) {
  if (numeric) {
    const auto rank = [](const std::string& text) { return text.empty() ? 0 : LooksNumeric(text) ? 1 : 2; };
    if (rank(left) != rank(right)) return rank(left) - rank(right);
    if (rank(left) == 1) {
      const double difference = std::strtod(left.c_str(), nullptr) - std::strtod(right.c_str(), nullptr);
      return difference < 0 ? -1 : difference > 0 ? 1 : 0;
    }
  }
  return left.compare(right);
}

// A criterion, or two joined.
struct Node {
  enum Kind { kTest, kAnd, kOr } kind = kTest;
  std::vector<Node> sides;
  Field field{};
  std::string quantifier, op;
  std::vector<std::string> literals;  // none: the field is not empty
};

Node MakeTree(Random& random, int depth) {
  Node node;
  if (depth > 0 && random.Chance(65)) {
    node.kind = random.Chance(50) ? Node::kAnd : Node::kOr;
    for (int side = 0; side < 2; ++side) node.sides.push_back(MakeTree(random, depth - 1));
    return node;
  }
  node.field = random.Of(kFields);
  node.quantifier = random.Of(kQuantifiers);
  if (random.Chance(15)) return node;
  node.op = random.Of(kOperators);
  const std::size_t count = random.Chance(15) ? 12 : 1 + random.Below(3);
  for (std::size_t at = 0; at < count; ++at) {
    std::string literal = random.Of(kTexts);
    if ((node.op == "=" || node.op == "#") && random.Chance(25)) {
      if (random.Chance(50)) literal += ']';
      if (random.Chance(50)) literal.insert(0, "[");
    }
    node.literals.push_back(literal);
  }
  return node;
}

// The sentence form, with brackets where needed and sometimes where not.
std::string Write(const Node& node, Random& random) {
  if (node.kind == Node::kTest) {
    std::string text = node.quantifier + node.field.word;
    if (!node.op.empty()) text.append(" ").append(node.op);
    for (const std::string& literal : node.literals) text.append(" '").append(literal).append("'");
    return random.Chance(10) ? '(' + text + ')' : text;
  }
  const auto side = [&](const Node& child) {
    const bool isNeeded = node.kind == Node::kAnd && child.kind == Node::kOr;
    const std::string text = Write(child, random);
    return isNeeded || random.Chance(10) ? '(' + text + ')' : text;
  };
  const char* joint = node.kind == Node::kAnd ? " AND " : " OR ";
  const std::string left = side(node.sides[0]);
  return left + joint + (random.Chance(20) ? "WITH " : "") + side(node.sides[1]);
}

bool MatchesNaively(const std::string& value, const std::string& literal, bool numeric) {
  const bool openStart = literal.starts_with('[');
  const bool openEnd = literal.ends_with(']');
  const std::string core = literal.substr(openStart, literal.size() - openStart - openEnd);
  if (openStart && openEnd) return value.find(core) != std::string::npos;
  if (openStart) return value.ends_with(core);
  return openEnd ? value.starts_with(core) : CompareNaively(value, literal, numeric) == 0;
}

bool MeetsNaively(const Node& node, const std::string& value) {
  if (node.op.empty()) return !value.empty();
  const bool opposite = node.op == "#";
  const auto meets = [&](const std::string& literal) {
    if (opposite || node.op == "=") return MatchesNaively(value, literal, node.field.numeric);
    const int order = CompareNaively(value, literal, node.field.numeric);
    return order == 0 ? node.op.size() == 2 : (order < 0) == node.op.starts_with('<');
  };
  return std::any_of(node.literals.begin(), node.literals.end(), meets) != opposite;
}

std::vector<std::string> ValuesOf(const Field& field, const std::string& id, const std::string& item) {
  if (field.attribute == 0) return {id};
  const std::vector<std::string> attributes = Split(item, "\xFE");
  const auto at = static_cast<std::size_t>(field.attribute - 1);
  return Split(at < attributes.size() ? attributes[at] : std::string(), "\xFD\xFC");
}

bool MeetsTree(const Node& node, const std::string& id, const std::string& item) {
  const auto meets = [&](const Node& side) { return MeetsTree(side, id, item); };
  if (node.kind == Node::kAnd) return std::all_of(node.sides.begin(), node.sides.end(), meets);
  if (node.kind == Node::kOr) return std::any_of(node.sides.begin(), node.sides.end(), meets);
  const std::vector<std::string> values = ValuesOf(node.field, id, item);
  const auto hits = std::count_if(values.begin(), values.end(),
                                  [&](const std::string& value) { return MeetsNaively(node, value); });
  if (node.quantifier == "NO ") return hits == 0;
  return node.quantifier == "EVERY " ? hits == static_cast<std::ptrdiff_t>(values.size()) : hits > 0;
}

std::string RandomValues(Random& random) {
  std::string values = random.Of(kTexts);
  while (random.Chance(25)) values += (random.Chance(70) ? '\xFD' : '\xFC') + std::string(random.Of(kTexts));
  return values;
}

TEST(QueryModelTest, RandomSentencesFindWhatTheyState) {
  constexpr unsigned kFirstSeed = 20240;
  for (unsigned seed = kFirstSeed; seed < kFirstSeed + 40; ++seed) {
    Random random(seed);
    MemoryStore store;
    for (const auto& [word, item] : kDictionary) store.Put("DICT F", word, item);
    MemoryStore::Items& items = store.ItemsOf("F");
    for (std::size_t count = random.Below(40); count > 0; --count) {
      std::string item = RandomValues(random);
      for (int attribute = 2; attribute <= 5; ++attribute) item += '\xFE' + RandomValues(random);
      const bool isText = random.Chance(30);
      items[isText ? std::string("k") + random.Of(kTexts) : std::to_string(random.Below(200))] = item;
    }

    for (int number = 0; number < 25; ++number) {
      const Node tree = MakeTree(random, 4);
      std::string sentence = "SSELECT F WITH " + Write(tree, random);
      std::vector<std::pair<Field, bool>> sort;
      while (random.Chance(40)) {
        sort.emplace_back(random.Of(kFields), random.Chance(50));
        sentence += std::string(sort.back().second ? " BY-DSND " : " BY ") + sort.back().first.word;
      }

      std::vector<std::string> want;
      for (const auto& [id, item] : items) {
        if (MeetsTree(tree, id, item)) want.push_back(id);
      }
      std::stable_sort(want.begin(), want.end(), [&](const std::string& left, const std::string& right) {
        for (const auto& [field, descending] : sort) {
          const int order = CompareNaively(ValuesOf(field, left, items[left]).front(),
                                           ValuesOf(field, right, items[right]).front(), field.numeric);
          if (order != 0) return (order < 0) != descending;
        }
        return false;
      });

      ResultGrid grid;
      std::string reply;
      std::string error;
      ASSERT_TRUE(RunQuery(sentence, store, nullptr, grid, reply, error)) << sentence << "\n" << error;
      std::vector<std::string> found;
      for (std::int32_t row = 1; row <= grid.HighestRow(); ++row) found.emplace_back(grid.Cell(0, row));
      ASSERT_EQ(found, want) << "seed " << seed << ": " << sentence;
    }
  }
}

}  // namespace
}  // namespace nvadmin::engine
