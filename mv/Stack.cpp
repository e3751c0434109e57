// F: stack expressions. Elements parted by ";" work on a stack from left to right; the top is the answer.
#include <vector>

#include "mv/Effort.h"
#include "mv/Operands.h"
#include "mv/Scan.h"

namespace nvadmin::mv {

namespace {

class StackExpression {
 public:
  StackExpression(const Conversion& conversion, Fractions fractions)
      : conversion_(conversion), fractions_(fractions) {}

  bool Evaluate(std::string_view elements, std::string& result) {
    do {
      if (!Perform(elements)) return false;
    } while (TakeCharacter(elements, ';'));
    if (!elements.empty() || stack_.empty()) return false;
    result.swap(stack_.back().text);
    return true;
  }

 private:
  struct TwoEntryOperator {
    std::string_view word;
    ValueOperation operation;  // on entry 2 and the top
  };
  struct StackOperator {
    std::string_view word;
    std::size_t entries;  // that it needs
    bool (StackExpression::*perform)();
  };

  // Takes one element off the front and performs it.
  bool Perform(std::string_view& rest) {
    std::string_view text;
    std::size_t number = 0;
    if (TakeNumber(rest, number)) return PushAttribute(number, TakeCharacter(rest, 'R'));
    if (TakeQuoted(rest, text)) return Push({std::string(text), true});
    if (TakeParenthesised(rest, text))
      return !stack_.empty() && ConvertValues(conversion_, text, stack_.back());
    const std::string_view element = rest.substr(0, rest.find(';'));
    rest.remove_prefix(element.size());
    if (BeginsWith(element, "C")) return Push({std::string(element.substr(1)), true});
    return PerformWord(element);
  }

  bool PerformWord(std::string_view word) {
    static constexpr TwoEntryOperator kTwoEntryOperators[] = {
        {"+", AddValues},     {"-", SubtractValues}, {"*", MultiplyValues}, {"/", DivideValues},
        {"R", TakeRemainder}, {":", JoinValues},     {"=", IsEqual},        {"#", IsUnequal},
        {"<", IsLess},        {">", IsGreater},      {"[", IsAtMost},       {"]", IsAtLeast},
        {"&", IsBoth},        {"!", IsEither},
    };
    static constexpr StackOperator kStackOperators[] = {
        {"P", 1, &StackExpression::PushTopAgain}, {"S", 1, &StackExpression::SumTop},
        {"I", 1, &StackExpression::CutTop},       {"_", 2, &StackExpression::Exchange},
        {"^", 1, &StackExpression::Drop},
    };
    for (const TwoEntryOperator& row : kTwoEntryOperators) {
      if (IsWord(word, row.word)) return Calculate(row.operation);
    }
    for (const StackOperator& row : kStackOperators) {
      if (IsWord(word, row.word)) return stack_.size() >= row.entries && (this->*row.perform)();
    }
    Operand operand{{}, true};
    return ResolveSystemWord(conversion_, word, operand.text) && Push(std::move(operand));
  }

  bool Push(Operand operand) {
    stack_.push_back(std::move(operand));
    return Spend(stack_.back().text.size() + sizeof(Operand));
  }

  bool PushAttribute(std::size_t number, bool repeats) {
    Operand operand{{}, repeats};
    return ResolveAttribute(conversion_, number, operand.text) && Push(std::move(operand));
  }

  bool Calculate(ValueOperation operation) {
    if (stack_.size() < 2) return false;
    Operand& left = stack_[stack_.size() - 2];
    if (!Combine(operation, left, stack_.back(), fractions_, left)) return false;
    stack_.pop_back();
    return true;
  }

  bool PushTopAgain() { return Push(stack_.back()); }
  bool SumTop() { return SumValues(stack_.back(), fractions_); }
  bool CutTop() { return CutValues(stack_.back()); }

  bool Exchange() {
    std::swap(stack_.back(), stack_[stack_.size() - 2]);
    return true;
  }

  bool Drop() {
    stack_.pop_back();
    return true;
  }

  const Conversion& conversion_;
  Fractions fractions_;
  std::vector<Operand> stack_;
};

}  // namespace

// F;elements, FS;elements, FE;elements
bool EvaluateStack(const Conversion& conversion, std::string& result) {
  std::string_view elements = conversion.code;
  const Fractions fractions = TakeCharacter(elements, 'E') ? Fractions::kKept : Fractions::kCut;
  if (fractions == Fractions::kCut) TakeCharacter(elements, 'S');
  const NestingLevel level;
  if (!level.IsAllowed() || !TakeCharacter(elements, ';')) return false;
  return StackExpression(conversion, fractions).Evaluate(elements, result);
}

}  // namespace nvadmin::mv
