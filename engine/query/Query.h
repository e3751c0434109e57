// A query as its sentence states it: what Parse makes and everything behind it works on. Words are views of
// the sentence.
//
// The criteria are a program without brackets: steps run in order over one truth value. A test sets it; a
// skip jumps forward to its target when the value is already settled (false before AND, true before OR). So a
// query of any depth is read and run without recursion.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "engine/query/Words.h"

namespace nvadmin::engine {

// What a verb's reply tells.
enum class Answer {
  kSelected,  // how many items it selected
  kCounted,   // how many items it counted
  kReport,    // the columns, options and modifiers of a report
  kValues,    // how many values it took from items, as keys
};

struct QueryVerb {
  std::string_view word;
  Answer answer;
  bool sortsById;  // the last sort key is the item ID; otherwise items stay as found
};

enum class Operator {
  kEqual,
  kNotEqual,
  kLess,
  kGreater,
  kLessOrEqual,
  kGreaterOrEqual,
  kBetween,  // literals in pairs, both ends belong to it
  kLike,
  kUnlike,
  kNotEmpty,
};

// Of an attribute's values, how many have to meet a criterion.
enum class Quantifier { kAny, kEvery, kNone };

struct Criterion {
  Word field;
  bool behindConnective = false;  // directly behind AND or OR
  bool hasOperator = false;
  Quantifier quantifier = Quantifier::kAny;
  Operator op = Operator::kNotEmpty;
  std::size_t firstLiteral = 0;  // in Query::literals; kNotEmpty has none
  std::size_t literalCount = 0;
};

struct CriteriaStep {
  enum class Kind { kTest, kSkipIfFalse, kSkipIfTrue };
  Kind kind = Kind::kTest;
  std::size_t target = 0;  // of kTest a criterion, of a skip a later step or the end
};

struct SortField {
  Word lead;  // BY, BY-DSND, BY-EXP, BY-EXP-DSND
  Word field;
  bool descending = false;
  bool explodes = false;  // an item counts once for each of its values
};

// What becomes of the items found.
struct Outcome {
  Word saved;  // the column whose values are the keys; empty: the item IDs
  bool unique = false;
  std::size_t most = 0;  // of SAMPLE, keys; 0: all

  // So many items (or exploded values) give them; under SAVING one may give none or several.
  std::size_t MostItems() const { return saved.text.empty() ? most : 0; }
};

struct Query {
  const QueryVerb* verb = nullptr;
  bool ofDictionary = false;
  Word file;
  bool behindList = false;  // an active list restricts it
  std::vector<Word> ids;
  Word attribute;  // of QSELECT; empty when it takes all

  std::vector<Criterion> criteria;
  std::vector<Word> literals;
  std::vector<CriteriaStep> steps;
  std::vector<SortField> sortFields;
  Outcome outcome;

  std::vector<std::string_view> columns;  // in the order in which the report shows them
  std::string options;                    // ID-SUPP and what stood in brackets, parted by blanks
  std::vector<std::string> modifiers;     // the values behind the verb: TOTAL, its column ...
};

}  // namespace nvadmin::engine
