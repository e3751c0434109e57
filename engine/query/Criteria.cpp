#include "engine/query/Criteria.h"

#include <fmt/format.h>

#include <algorithm>

#include "engine/query/Text.h"
#include "mv/Conversions.h"
#include "mv/DynamicArray.h"

namespace nvadmin::engine {
namespace {

// From so many literals on a set is faster than one comparison after the other.
constexpr std::size_t kLongList = 8;
// A match costs in line with it.
constexpr std::size_t kLongestPattern = 200;

std::string ClauseOf(const Criterion& criterion) {
  return criterion.quantifier == Quantifier::kNone ? "WITH NO" : "WITH";
}

// What a conversion reads, for the message about a literal that isn't one.
std::string_view KindOf(std::string_view conversion) {
  if (conversion.starts_with('D') || conversion.starts_with('d')) return "date";
  return SameWord(conversion.substr(0, 2), "MT") ? "time" : "number";
}

// Why a literal can't be one for a column, and what to do: a code may show what it doesn't read, as the name
// of a weekday.
std::string RefuseLiteral(const Word& word, std::string_view field, std::string_view conversion) {
  const std::string_view kind = KindOf(conversion);
  std::string text = fmt::format("{} is no {} for {}", Placed(word), kind, field);
  std::string stored;
  const bool readsWhatItShows = mv::Iconv(mv::Oconv("0", conversion), conversion, stored);
  if (!readsWhatItShows)
    text += fmt::format(", which takes whole {}s; LIKE takes what the report shows", kind);
  return text;
}

// Makes every skip go where the skip that it lands on would lead: it lands behind an operand, so on a skip or
// the end.
void ShortenSkips(std::vector<CriteriaStep>& steps) {
  for (std::size_t at = steps.size(); at-- > 0;) {
    CriteriaStep& step = steps[at];
    if (step.kind == CriteriaStep::Kind::kTest || step.target >= steps.size()) continue;
    const CriteriaStep& target = steps[step.target];
    step.target = target.kind == step.kind ? target.target : step.target + 1;
  }
}

}  // namespace

std::string UnknownWord(const Word& word, std::string_view clause, const Query& query) {
  return fmt::format("unknown word {} in {} at position {}; LIST DICT {}{} shows the file's words",
                     Quoted(word.text), clause, word.position, query.file.text,
                     query.ofDictionary ? "_dict" : "");
}

bool Criteria::Compile(const Query& query, Columns& columns, std::string& error) {
  tests_.reserve(query.criteria.size());
  std::vector<PushedConditions> ofTests;
  for (const Criterion& criterion : query.criteria) {
    Test test;
    test.quantifier = criterion.quantifier;
    test.op = criterion.op;
    if (!columns.Use(criterion.field.text, test.column)) {
      error = UnknownWord(criterion.field, ClauseOf(criterion), query);
      if (criterion.behindConnective) error += "; a value behind AND and OR stands in quotes";
      return false;
    }
    test.definition = &columns[test.column];
    if (!CompileTest(query, criterion, test, error)) return false;
    ofTests.push_back(ConditionsOf(test));
    tests_.push_back(std::move(test));
  }
  steps_ = query.steps;
  conditions_ = FindConditions(steps_, ofTests);
  ShortenSkips(steps_);
  return true;
}

bool Criteria::CompileTest(const Query& query, const Criterion& criterion, Test& test, std::string& error) {
  const bool isPattern = test.op == Operator::kLike || test.op == Operator::kUnlike;
  const auto literals = std::span(query.literals).subspan(criterion.firstLiteral, criterion.literalCount);
  for (const Word& word : literals) {
    const bool isRead =
        isPattern ? CompilePattern(word, test, error) : CompileLiteral(word, criterion, test, error);
    if (!isRead) return false;
  }
  for (Literal& literal : test.literals) literal.operand = ReadOperand(literal.text);
  return true;
}

bool Criteria::CompilePattern(const Word& word, Test& test, std::string& error) {
  if (word.text.size() > kLongestPattern) {
    error = fmt::format("the pattern {} is longer than {} characters", Placed(word), kLongestPattern);
    return false;
  }
  test.patterns.emplace_back().Read(word.text, mv::Pattern::Points::kAnyText);
  return true;
}

bool Criteria::CompileLiteral(const Word& word, const Criterion& criterion, Test& test, std::string& error) {
  const bool isEquality = test.op == Operator::kEqual || test.op == Operator::kNotEqual;
  std::string_view text = word.text;
  const bool openStart = isEquality && text.starts_with('[');
  if (openStart) text.remove_prefix(1);
  const bool openEnd = isEquality && text.ends_with(']');
  if (openEnd) text.remove_suffix(1);
  Literal literal;
  literal.text = text;
  if (openStart || openEnd) {
    literal.match = !openEnd ? Match::kEnds : openStart ? Match::kHolds : Match::kBegins;
    test.hasWildcard = true;
    test.literals.push_back(std::move(literal));
    return true;
  }

  const Column& column = *test.definition;
  const bool isRead =
      text.empty() || column.conversion.empty() || mv::Iconv(text, column.conversion, literal.text);
  // Unquoted and without an operator before it, a word may be meant as one.
  const bool isPlain = criterion.hasOperator || word.kind == WordKind::kQuoted || !column.numeric ||
                       mv::IsNumeric(literal.text) || IsDigit(text.front());
  if (!isRead || !isPlain) {
    error = RefuseLiteral(word, criterion.field.text, column.conversion);
    return false;
  }
  if (isEquality && criterion.literalCount >= kLongList) {
    std::string key = literal.text;
    if (column.numeric) {
      key.clear();
      AppendOrderKey(literal.text, /*numeric=*/true, /*descending=*/false, key);
    }
    test.keys.insert(std::move(key));
  } else {
    test.literals.push_back(std::move(literal));
  }
  return true;
}

// What the attribute of the column must have for a value of it to meet the test; empty when that is unknown.
ScanCondition Criteria::ConditionOf(const Test& test) {
  const Column& column = *test.definition;
  const bool isStored = column.correlative.empty() && column.attribute >= kItemId;
  const bool isLong = !test.keys.empty() || test.literals.size() > 2 * kMostAlternatives;
  if (!isStored || isLong || test.quantifier == Quantifier::kNone) return {};

  ScanCondition condition;
  const auto addText = [&](std::string_view text) {
    condition.push_back({column.attribute, std::string(text)});
    return !text.empty();
  };
  const auto addRange = [&](const Literal* least, const Literal* most, bool withEnds) -> ScanAlternative& {
    ScanAlternative& added = condition.emplace_back();
    added.attribute = column.attribute;
    added.range.emplace().numeric = column.numeric;
    if (least != nullptr) added.range->least = {least->text, withEnds};
    if (most != nullptr) added.range->most = {most->text, withEnds};
    return added;
  };
  switch (test.op) {
    case Operator::kNotEmpty:
      return {{column.attribute}};
    case Operator::kEqual:
      for (const Literal& literal : test.literals) {
        if (literal.match == Match::kWhole) {
          const bool isNumber = column.numeric && literal.operand.rank == Operand::Rank::kNumber;
          addRange(&literal, &literal, true).text = isNumber ? DigitsOfNumber(literal.text) : literal.text;
        } else if (!column.conversion.empty() || !addText(literal.text)) {
          return {};
        }
      }
      break;
    case Operator::kLike:
      for (const mv::Pattern& pattern : test.patterns) {
        if (!column.conversion.empty() || !addText(pattern.Literal())) return {};
      }
      break;
    case Operator::kLess:
    case Operator::kLessOrEqual:
      for (const Literal& literal : test.literals)
        addRange(nullptr, &literal, test.op == Operator::kLessOrEqual);
      break;
    case Operator::kGreater:
    case Operator::kGreaterOrEqual:
      for (const Literal& literal : test.literals)
        addRange(&literal, nullptr, test.op == Operator::kGreaterOrEqual);
      break;
    case Operator::kBetween:
      for (std::size_t at = 0; at < test.literals.size(); at += 2)
        addRange(&test.literals[at], &test.literals[at + 1], true);
      break;
    case Operator::kNotEqual:
    case Operator::kUnlike:
      break;
  }
  return condition;
}

PushedConditions Criteria::ConditionsOf(const Test& test) {
  ScanCondition condition = ConditionOf(test);
  if (condition.empty() || condition.size() > kMostAlternatives) return {};
  const bool hasRanges = std::all_of(condition.begin(), condition.end(),
                                     [](const ScanAlternative& row) { return row.range.has_value(); });
  return {{std::move(condition)}, /*decide=*/hasRanges && test.quantifier == Quantifier::kAny};
}

bool Criteria::Meets(Row& row) {
  bool meets = true;
  for (std::size_t at = 0; at < steps_.size();) {
    const CriteriaStep& step = steps_[at];
    switch (step.kind) {
      case CriteriaStep::Kind::kTest:
        meets = MeetsTest(tests_[step.target], row);
        ++at;
        break;
      case CriteriaStep::Kind::kSkipIfFalse:
        at = meets ? at + 1 : step.target;
        break;
      case CriteriaStep::Kind::kSkipIfTrue:
        at = meets ? step.target : at + 1;
        break;
    }
  }
  return meets;
}

bool Criteria::MeetsTest(Test& test, Row& row) {
  // The first value that settles it ends the search: a miss under EVERY, a hit otherwise.
  const bool settling = test.quantifier != Quantifier::kEvery;
  bool isSettled = false;
  std::string_view rest = row.Value(test.column);
  for (;;) {
    const std::size_t length = ValueLength(rest);
    isSettled = MeetsValue(test, rest.substr(0, length)) == settling;
    if (isSettled || length == rest.size()) break;
    rest.remove_prefix(length + 1);
  }
  return isSettled == (test.quantifier == Quantifier::kAny);
}

bool Criteria::MeetsValue(Test& test, std::string_view value) {
  const bool numeric = test.definition->numeric;
  switch (test.op) {
    case Operator::kNotEmpty:
      return !value.empty();
    case Operator::kEqual:
      return IsOneOf(test, value);
    case Operator::kNotEqual:
      return !IsOneOf(test, value);
    case Operator::kLike:
      return IsLike(test, value);
    case Operator::kUnlike:
      return !IsLike(test, value);
    case Operator::kLess:
    case Operator::kGreater:
    case Operator::kLessOrEqual:
    case Operator::kGreaterOrEqual:
    case Operator::kBetween:
      break;
  }
  const Operand operand = numeric ? ReadOperand(value) : Operand{};
  const auto compare = [&](const Literal& literal) {
    return numeric ? CompareOperands(operand, literal.operand) : value.compare(literal.text);
  };
  if (test.op == Operator::kBetween) {
    for (std::size_t at = 0; at < test.literals.size(); at += 2) {
      if (compare(test.literals[at]) >= 0 && compare(test.literals[at + 1]) <= 0) return true;
    }
    return false;
  }
  const bool less = test.op == Operator::kLess || test.op == Operator::kLessOrEqual;
  const bool orEqual = test.op == Operator::kLessOrEqual || test.op == Operator::kGreaterOrEqual;
  return std::any_of(test.literals.begin(), test.literals.end(), [&](const Literal& literal) {
    const int order = compare(literal);
    return order == 0 ? orEqual : (order < 0) == less;
  });
}

// The value as a report shows it, or as it is stored where its conversion can't be done.
std::string_view Criteria::Shown(const Test& test, std::string_view value) {
  if (test.definition->conversion.empty() || value.empty()) return value;
  shown_ = mv::Oconv(value, test.definition->conversion);
  return shown_ == mv::kInconvertible ? value : std::string_view(shown_);
}

bool Criteria::IsLike(Test& test, std::string_view value) {
  const std::string_view shown = Shown(test, value);
  return std::any_of(test.patterns.begin(), test.patterns.end(),
                     [shown](mv::Pattern& pattern) { return pattern.Matches(shown); });
}

// Whether the value is one of the literals.
bool Criteria::IsOneOf(const Test& test, std::string_view value) {
  const Column& column = *test.definition;
  if (!test.keys.empty()) {
    std::string_view wanted = value;
    if (column.numeric) {
      key_.clear();
      AppendOrderKey(value, /*numeric=*/true, /*descending=*/false, key_);
      wanted = key_;
    }
    if (test.keys.find(wanted) != test.keys.end()) return true;
  }
  if (test.literals.empty()) return false;

  const std::string_view shown = test.hasWildcard ? Shown(test, value) : value;
  const Operand operand = column.numeric ? ReadOperand(value) : Operand{};
  return std::any_of(test.literals.begin(), test.literals.end(), [&](const Literal& literal) {
    switch (literal.match) {
      case Match::kWhole:
        return column.numeric ? CompareOperands(operand, literal.operand) == 0 : value == literal.text;
      case Match::kBegins:
        return shown.starts_with(literal.text);
      case Match::kEnds:
        return shown.ends_with(literal.text);
      case Match::kHolds:
        return shown.find(literal.text) != std::string_view::npos;
    }
    return false;
  });
}

}  // namespace nvadmin::engine
