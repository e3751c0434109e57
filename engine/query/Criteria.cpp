#include "engine/query/Criteria.h"

#include <fmt/format.h>

#include <algorithm>

#include "engine/query/Text.h"
#include "mv/Conversions.h"

namespace nvadmin::engine {
namespace {

// From so many literals on a set is faster than one comparison after the other.
constexpr std::size_t kLongList = 8;

std::string ClauseOf(const Criterion& criterion) {
  return criterion.quantifier == Quantifier::kNone ? "WITH NO" : "WITH";
}

// What a conversion reads, for the message about a literal that isn't one.
std::string_view KindOf(std::string_view conversion) {
  if (conversion.starts_with('D') || conversion.starts_with('d')) return "date";
  return SameWord(conversion.substr(0, 2), "MT") ? "time" : "number";
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
  for (const Criterion& criterion : query.criteria) {
    Test test;
    test.quantifier = criterion.quantifier;
    test.op = criterion.op;
    if (!columns.Use(criterion.field.text, test.column)) {
      error = UnknownWord(criterion.field, ClauseOf(criterion), query);
      return false;
    }
    test.definition = &columns[test.column];
    test.literals.reserve(criterion.literalCount);
    for (std::size_t literal = 0; literal < criterion.literalCount; ++literal) {
      if (!CompileLiteral(query.literals[criterion.firstLiteral + literal], criterion, test, error))
        return false;
    }
    for (Literal& literal : test.literals) literal.operand = ReadOperand(literal.text);
    tests_.push_back(std::move(test));
  }
  steps_ = query.steps;
  ShortenSkips(steps_);
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
  if (!text.empty() && !column.conversion.empty() && !mv::Iconv(text, column.conversion, literal.text)) {
    error = fmt::format("{} at position {} is no {} for {}", Quoted(word.text), word.position,
                        KindOf(column.conversion), criterion.field.text);
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

bool Criteria::MeetsTest(const Test& test, Row& row) {
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

bool Criteria::MeetsValue(const Test& test, std::string_view value) {
  switch (test.op) {
    case Operator::kNotEmpty:
      return !value.empty();
    case Operator::kEqual:
      return Equals(test, value);
    case Operator::kNotEqual:
      return !Equals(test, value);
    case Operator::kLess:
    case Operator::kGreater:
    case Operator::kLessOrEqual:
    case Operator::kGreaterOrEqual:
      break;
  }
  const bool numeric = test.definition->numeric;
  const Operand operand = numeric ? ReadOperand(value) : Operand{};
  return std::any_of(test.literals.begin(), test.literals.end(), [&](const Literal& literal) {
    const int order = numeric ? CompareOperands(operand, literal.operand) : value.compare(literal.text);
    const bool less = test.op == Operator::kLess || test.op == Operator::kLessOrEqual;
    const bool orEqual = test.op == Operator::kLessOrEqual || test.op == Operator::kGreaterOrEqual;
    return order == 0 ? orEqual : (order < 0) == less;
  });
}

// Whether the value is one of the literals.
bool Criteria::Equals(const Test& test, std::string_view value) {
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

  std::string_view shown = value;
  if (test.hasWildcard && !column.conversion.empty() && !value.empty()) {
    shown_ = mv::Oconv(value, column.conversion);
    if (shown_ != mv::kInconvertible) shown = shown_;
  }
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
