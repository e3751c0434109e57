// A: algebraic expressions, evaluated while they are read.
//   expression = IF expression THEN expression ELSE expression | operand { operator operand }
//   operand    = - operand | plain { R | (code) | [start,count] }
//   plain      = ( expression ) | "text" | number | word | function ( ... )
// Operators of one level bind from left to right, those of a higher level first.
#include "mv/Effort.h"
#include "mv/Operands.h"
#include "mv/Scan.h"

namespace nvadmin::mv {

namespace {

struct AlgebraOperator {
  std::string_view word;
  int level;
  ValueOperation operation;
};

// A word stands before those that begin it.
constexpr AlgebraOperator kOperators[] = {
    {"OR", 1, IsEither},    {"AND", 2, IsBoth},  {"<=", 3, IsAtMost},      {">=", 3, IsAtLeast},
    {"=", 3, IsEqual},      {"#", 3, IsUnequal}, {"<", 3, IsLess},         {">", 3, IsGreater},
    {":", 4, JoinValues},   {"+", 5, AddValues}, {"-", 5, SubtractValues}, {"*", 6, MultiplyValues},
    {"/", 6, DivideValues},
};
constexpr int kLowestLevel = 1;

class Algebra {
 public:
  Algebra(const Conversion& conversion, std::string_view expression, Fractions fractions)
      : conversion_(conversion), rest_(expression), fractions_(fractions) {}

  bool Evaluate(std::string& result) {
    Operand operand;
    if (!ReadExpression(operand)) return false;
    SkipBlanks();
    result.swap(operand.text);
    return rest_.empty();
  }

 private:
  struct Function {
    std::string_view word;  // with its parenthesis
    bool (Algebra::*read)(Operand& result);
  };

  void SkipBlanks() { rest_.remove_prefix(std::min(rest_.find_first_not_of(' '), rest_.size())); }

  bool Take(std::string_view word) {
    SkipBlanks();
    return TakeWord(rest_, word);
  }

  bool ReadExpression(Operand& result) {
    const NestingLevel level;
    if (!level.IsAllowed()) return false;
    return Take("IF") ? ReadChoice(result) : ReadOperation(kLowestLevel, result);
  }

  bool ReadChoice(Operand& result) {
    Operand condition;
    Operand whenTrue;
    Operand whenFalse;
    if (!ReadExpression(condition) || !Take("THEN") || !ReadExpression(whenTrue)) return false;
    if (!Take("ELSE") || !ReadExpression(whenFalse)) return false;
    return Choose(condition, whenTrue, whenFalse, result);
  }

  bool ReadOperation(int lowestLevel, Operand& result) {
    if (!ReadOperand(result)) return false;
    while (const AlgebraOperator* found = TakeOperator(lowestLevel)) {
      Operand right;
      if (!ReadOperation(found->level + 1, right)) return false;
      if (!Combine(found->operation, result, right, fractions_, result)) return false;
    }
    return true;
  }

  const AlgebraOperator* TakeOperator(int lowestLevel) {
    SkipBlanks();
    for (const AlgebraOperator& row : kOperators) {
      if (!BeginsWith(rest_, row.word)) continue;
      if (row.level < lowestLevel) return nullptr;
      rest_.remove_prefix(row.word.size());
      return &row;
    }
    return nullptr;
  }

  bool ReadOperand(Operand& result) {
    if (Take("-")) return ReadNegated(result);
    return ReadPlainOperand(result) && Spend(result.text.size() + 1) && ReadSuffixes(result);
  }

  bool ReadNegated(Operand& result) {
    const NestingLevel level;
    return level.IsAllowed() && ReadOperand(result) &&
           Combine(SubtractValues, {"0", true}, result, fractions_, result);
  }

  bool ReadPlainOperand(Operand& result) {
    static constexpr Function kFunctions[] = {
        {"N(", &Algebra::ReadColumn},
        {"S(", &Algebra::ReadSum},
        {"I(", &Algebra::ReadWhole},
        {"R(", &Algebra::ReadRemainder},
    };
    std::string_view quoted;
    std::size_t number = 0;
    if (TakeQuoted(rest_, quoted)) {
      result = {std::string(quoted), true};
      return true;
    }
    if (TakeNumber(rest_, number)) return ResolveAttribute(conversion_, number, result.text);
    if (TakeWord(rest_, "(")) return ReadExpression(result) && Take(")");
    for (const Function& function : kFunctions) {
      if (TakeWord(rest_, function.word)) return (this->*function.read)(result);
    }
    return ReadWord(result);
  }

  bool ReadWord(Operand& result) {
    std::size_t length = 0;
    while (length < rest_.size() && IsLetter(rest_[length])) ++length;
    std::string_view word = rest_.substr(0, length);
    if (IsWord(word, "VR") || IsWord(word, "LPVR")) word.remove_suffix(1);  // the R behind an operand
    rest_.remove_prefix(word.size());
    if (IsWord(word, "V") || IsWord(word, "LPV")) {
      result.text.assign(conversion_.value);
      return true;
    }
    result.repeats = true;
    return ResolveSystemWord(conversion_, word, result.text);
  }

  bool ReadSuffixes(Operand& operand) {
    std::string_view code;
    for (;;) {
      SkipBlanks();
      if (BeginsWith(rest_, "R") && (rest_.size() == 1 || !IsLetter(rest_[1]))) {
        rest_.remove_prefix(1);
        operand.repeats = true;
      } else if (TakeParenthesised(rest_, code)) {
        if (!ConvertValues(conversion_, code, operand)) return false;
      } else if (TakeWord(rest_, "[")) {
        if (!ReadTextPart(operand)) return false;
      } else {
        return true;
      }
    }
  }

  // ["start","count"]
  bool ReadTextPart(Operand& operand) {
    Operand start;
    Operand count;
    return ReadExpression(start) && Take(",") && ReadExpression(count) && Take("]") &&
           CutText(start, count, operand);
  }

  bool ReadColumn(Operand& result) {
    const std::size_t end = rest_.find(')');
    if (end == std::string_view::npos || !conversion_.context.column || !Spend(kCallEffort)) return false;
    const std::string_view name = TrimBlanks(rest_.substr(0, end));
    rest_.remove_prefix(end + 1);
    return conversion_.context.column(name, result.text);
  }

  bool ReadSum(Operand& result) {
    return ReadExpression(result) && Take(")") && SumValues(result, fractions_);
  }

  bool ReadWhole(Operand& result) { return ReadExpression(result) && Take(")") && CutValues(result); }

  bool ReadRemainder(Operand& result) {
    Operand divisor;
    return ReadExpression(result) && Take(",") && ReadExpression(divisor) && Take(")") &&
           Combine(TakeRemainder, result, divisor, fractions_, result);
  }

  const Conversion& conversion_;
  std::string_view rest_;
  Fractions fractions_;
};

}  // namespace

// A;expression, Aexpression, AE;expression
bool EvaluateAlgebra(const Conversion& conversion, std::string& result) {
  std::string_view expression = conversion.code;
  const Fractions fractions = TakeWord(expression, "E;") ? Fractions::kKept : Fractions::kCut;
  if (fractions == Fractions::kCut) TakeCharacter(expression, ';');
  return Algebra(conversion, expression, fractions).Evaluate(result);
}

}  // namespace nvadmin::mv
