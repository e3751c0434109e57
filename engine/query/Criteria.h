// The criteria of a query, made ready to test item after item: fields are columns, literals are read under
// their column's input conversion and as numbers, long lists of literals are sets.
//
// A criterion looks at the values of its column one by one (subvalues count as values, an empty column as one
// empty value). Literals of = and # may begin or end in a wildcard: "[AN" ends with AN, "AN]" begins with it,
// "[AN]" holds it. A wildcard looks at the value as a report shows it, after its conversion; everything else
// at the stored one. LIKE and UNLIKE look at it as a wildcard does. The order of <, > and BETWEEN is that of
// Order.h, so an empty value lies before every other.
#pragma once

#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>

#include "engine/Order.h"
#include "engine/query/Columns.h"
#include "engine/query/PushDown.h"
#include "engine/query/Query.h"
#include "engine/query/Text.h"
#include "mv/Pattern.h"

namespace nvadmin::engine {

// "unknown word 'CITTY' in WITH at position 23; LIST DICT CUSTOMERS shows the file's words"
std::string UnknownWord(const Word& word, std::string_view clause, const Query& query);

class Criteria {
 public:
  // Enters the columns of the query's criteria into `columns`. False: a word is no column, or a literal can't
  // be read under its column's conversion; `error` names it and its position.
  bool Compile(const Query& query, Columns& columns, std::string& error);

  bool Meets(Row& row);

  // What every item that meets them has; see PushDown.h.
  const PushedConditions& Conditions() const { return conditions_; }

 private:
  enum class Match { kWhole, kBegins, kEnds, kHolds };
  struct Literal {
    std::string text;
    Match match = Match::kWhole;
    Operand operand;  // of a numeric column
  };
  using KeySet = std::unordered_set<std::string, TextHash, std::equal_to<>>;
  struct Test {
    std::size_t column = 0;
    const Column* definition = nullptr;
    Quantifier quantifier = Quantifier::kAny;
    Operator op = Operator::kNotEmpty;
    bool hasWildcard = false;
    std::vector<Literal> literals;
    std::vector<mv::Pattern> patterns;
    KeySet keys;  // instead of the whole literals of a long list; order keys in a numeric column
  };

  bool CompileTest(const Query& query, const Criterion& criterion, Test& test, std::string& error);
  bool CompilePattern(const Word& word, Test& test, std::string& error);
  bool CompileLiteral(const Word& word, const Criterion& criterion, Test& test, std::string& error);
  static PushedConditions ConditionsOf(const Test& test);
  static ScanCondition ConditionOf(const Test& test);
  bool MeetsTest(Test& test, Row& row);
  bool MeetsValue(Test& test, std::string_view value);
  bool IsOneOf(const Test& test, std::string_view value);
  bool IsLike(Test& test, std::string_view value);
  std::string_view Shown(const Test& test, std::string_view value);

  std::vector<Test> tests_;
  std::vector<CriteriaStep> steps_;
  PushedConditions conditions_;
  std::string key_;    // scratch
  std::string shown_;  // scratch
};

}  // namespace nvadmin::engine
