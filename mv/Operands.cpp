#include "mv/Operands.h"

#include <algorithm>
#include <ctime>

#include "mv/Decimal.h"
#include "mv/DynamicArray.h"
#include "mv/Effort.h"
#include "mv/Scan.h"

namespace nvadmin::mv {

namespace {

// A quotient that keeps its fraction is rounded to so many places.
constexpr std::size_t kQuotientPlaces = 15;

std::tm LocalTime() {
  const std::time_t now = std::time(nullptr);
  std::tm local = {};
  localtime_r(&now, &local);
  return local;
}

std::string_view ItemOf(const Conversion& conversion) {
  return conversion.context.hasItem ? conversion.context.item : conversion.value;
}

std::string Today(const Conversion&) {
  const std::tm local = LocalTime();
  return DayNumberText(local.tm_year + 1900, local.tm_mon + 1, local.tm_mday);
}

std::string SecondsNow(const Conversion&) {
  const std::tm local = LocalTime();
  return std::to_string(local.tm_hour * 3600 + local.tm_min * 60 + local.tm_sec);
}

std::string AttributeCount(const Conversion& conversion) {
  return std::to_string(Count(ItemOf(conversion), std::string_view(&kAttributeMark, 1)));
}

std::string ItemLength(const Conversion& conversion) { return std::to_string(ItemOf(conversion).size()); }

// Counters of a report, which the helper doesn't see.
std::string UnknownCounter(const Conversion&) { return "0"; }

struct SystemWord {
  std::string_view word;
  std::string (*read)(const Conversion& conversion);
};

constexpr SystemWord kSystemWords[] = {
    {"D", Today},           {"T", SecondsNow},      {"NA", AttributeCount},
    {"NL", ItemLength},     {"NI", UnknownCounter}, {"NV", UnknownCounter},
    {"NS", UnknownCounter}, {"ND", UnknownCounter}, {"NB", UnknownCounter},
};

// Text counts as 0. False for a number too long to reckon with.
bool ReadNumber(std::string_view text, Fractions fractions, Decimal& number) {
  NumberText parts;
  number = Decimal();
  if (!ParseNumber(text, parts)) return true;
  if (fractions == Fractions::kCut) parts.fraction = {};
  if (parts.whole.size() + parts.fraction.size() > kMaxDigits) return false;
  number = Decimal::From(parts);
  return true;
}

bool AppendNumber(Decimal number, Fractions fractions, std::string& result) {
  if (fractions == Fractions::kCut) number.CutFraction();
  if (number.digits.size() > kMaxDigits) return false;
  result.append(number.ToText());
  return true;
}

// What an operation costs whose time grows with the product of both lengths.
std::size_t ProductEffort(const Decimal& left, const Decimal& right) {
  return (left.digits.size() + left.scale) * (right.digits.size() + right.scale) / 8;
}

Decimal DivideNumbers(const Decimal& left, const Decimal& right, Fractions fractions) {
  return fractions == Fractions::kCut ? Divide(left, right, 0, Rounding::kCut)
                                      : Divide(left, right, kQuotientPlaces, Rounding::kHalfAwayFromZero);
}

template <class Operation>
bool Calculate(std::string_view left, std::string_view right, Fractions fractions, Operation operation,
               std::string& result) {
  Decimal l;
  Decimal r;
  if (!ReadNumber(left, fractions, l) || !ReadNumber(right, fractions, r)) return false;
  return Spend(ProductEffort(l, r)) && AppendNumber(operation(l, r), fractions, result);
}

bool AppendTruth(bool truth, std::string& result) {
  result.push_back(truth ? '1' : '0');
  return true;
}

// Numbers compare as they count in the expression, texts as they stand.
bool CompareValues(std::string_view left, std::string_view op, std::string_view right, Fractions fractions,
                   std::string& result) {
  const auto asCounted = [&](std::string_view text) {
    return fractions == Fractions::kCut && IsNumeric(text) && text.find('.') > 0
               ? text.substr(0, text.find('.'))
               : text;
  };
  if (IsNumeric(left) && IsNumeric(right)) {
    left = asCounted(left);
    right = asCounted(right);
  }
  return AppendTruth(Compare(left, op, right), result);
}

// Walks the values of an operand and goes on behind the last one as the operand says.
class ValueWalk {
 public:
  explicit ValueWalk(const Operand& operand) : rest_(operand.text), repeats_(operand.repeats) {}

  bool IsAtEnd() const { return isAtEnd_; }

  std::string_view Next() {
    if (isAtEnd_) return repeats_ ? last_ : std::string_view();
    isAtEnd_ = rest_.find(kValueMark) == std::string_view::npos;
    last_ = TakePart(rest_, kValueMark);
    return last_;
  }

 private:
  std::string_view rest_;
  std::string_view last_;
  bool repeats_;
  bool isAtEnd_ = false;
};

// Replaces each value by what `change` appends for it.
template <class Change>
bool ChangeValues(Operand& operand, Change change) {
  std::string changed;
  ValueWalk walk(operand);
  do {
    if (!change(walk.Next(), changed) || changed.size() > kMaxResultBytes) return false;
    if (!walk.IsAtEnd()) changed.push_back(kValueMark);
  } while (!walk.IsAtEnd());
  operand.text.swap(changed);
  return Spend(operand.text.size() + changed.size());
}

std::size_t ReadPosition(std::string_view text) {
  NumberText number;
  if (!ParseNumber(text, number) || number.negative) return 0;
  std::size_t position = 0;
  TakeNumber(number.whole, position);
  return position;
}

}  // namespace

bool ResolveAttribute(const Conversion& conversion, std::size_t number, std::string& text) {
  if (number == 0) {
    text.assign(conversion.context.id);
    return conversion.context.hasItem;
  }
  text.assign(Extract(ItemOf(conversion), static_cast<std::int32_t>(number)));
  return true;
}

bool ResolveSystemWord(const Conversion& conversion, std::string_view word, std::string& text) {
  for (const SystemWord& row : kSystemWords) {
    if (!IsWord(word, row.word)) continue;
    text = row.read(conversion);
    return true;
  }
  return false;
}

bool TakeElement(const Conversion& conversion, std::string_view& rest, std::string& text) {
  std::string_view quoted;
  std::size_t number = 0;
  if (TakeQuoted(rest, quoted)) {
    text.assign(quoted);
    return true;
  }
  if (TakeCharacter(rest, '*')) {
    text.assign(conversion.value);
    return true;
  }
  return TakeNumber(rest, number) && ResolveAttribute(conversion, number, text);
}

bool AddValues(std::string_view left, std::string_view right, Fractions fractions, std::string& result) {
  return Calculate(left, right, fractions, Add, result);
}

bool SubtractValues(std::string_view left, std::string_view right, Fractions fractions, std::string& result) {
  return Calculate(left, right, fractions, Subtract, result);
}

bool MultiplyValues(std::string_view left, std::string_view right, Fractions fractions, std::string& result) {
  return Calculate(left, right, fractions, Multiply, result);
}

bool DivideValues(std::string_view left, std::string_view right, Fractions fractions, std::string& result) {
  const auto divide = [&](const Decimal& l, const Decimal& r) { return DivideNumbers(l, r, fractions); };
  return Calculate(left, right, fractions, divide, result);
}

bool TakeRemainder(std::string_view left, std::string_view right, Fractions fractions, std::string& result) {
  return Calculate(left, right, fractions, Remainder, result);
}

bool JoinValues(std::string_view left, std::string_view right, Fractions, std::string& result) {
  result.append(left).append(right);
  return true;
}

bool IsEqual(std::string_view left, std::string_view right, Fractions fractions, std::string& result) {
  return CompareValues(left, "=", right, fractions, result);
}

bool IsUnequal(std::string_view left, std::string_view right, Fractions fractions, std::string& result) {
  return CompareValues(left, "<>", right, fractions, result);
}

bool IsLess(std::string_view left, std::string_view right, Fractions fractions, std::string& result) {
  return CompareValues(left, "<", right, fractions, result);
}

bool IsGreater(std::string_view left, std::string_view right, Fractions fractions, std::string& result) {
  return CompareValues(left, ">", right, fractions, result);
}

bool IsAtMost(std::string_view left, std::string_view right, Fractions fractions, std::string& result) {
  return CompareValues(left, "<=", right, fractions, result);
}

bool IsAtLeast(std::string_view left, std::string_view right, Fractions fractions, std::string& result) {
  return CompareValues(left, ">=", right, fractions, result);
}

bool IsBoth(std::string_view left, std::string_view right, Fractions, std::string& result) {
  return AppendTruth(Truth(left) && Truth(right), result);
}

bool IsEither(std::string_view left, std::string_view right, Fractions, std::string& result) {
  return AppendTruth(Truth(left) || Truth(right), result);
}

bool Combine(ValueOperation operation, const Operand& left, const Operand& right, Fractions fractions,
             Operand& result) {
  std::string combined;
  ValueWalk leftWalk(left);
  ValueWalk rightWalk(right);
  for (bool first = true; first || !leftWalk.IsAtEnd() || !rightWalk.IsAtEnd(); first = false) {
    if (!first) combined.push_back(kValueMark);
    const std::size_t before = combined.size();
    if (!operation(leftWalk.Next(), rightWalk.Next(), fractions, combined)) return false;
    if (combined.size() > kMaxResultBytes || !Spend(combined.size() - before + 1)) return false;
  }
  if (!Spend(left.text.size() + right.text.size())) return false;
  const bool repeats = left.repeats && right.repeats;
  result.text.swap(combined);
  result.repeats = repeats;
  return true;
}

bool Choose(const Operand& condition, const Operand& whenTrue, const Operand& whenFalse, Operand& result) {
  // A condition of one value chooses between the operands as a whole.
  if (condition.text.find(kValueMark) == std::string::npos) {
    result = Truth(condition.text) ? whenTrue : whenFalse;
    return Spend(result.text.size() + 1);
  }
  std::string chosen;
  ValueWalk conditionWalk(condition);
  ValueWalk trueWalk(whenTrue);
  ValueWalk falseWalk(whenFalse);
  for (bool first = true; first || !conditionWalk.IsAtEnd(); first = false) {
    if (!first) chosen.push_back(kValueMark);
    const std::string_view trueValue = trueWalk.Next();
    const std::string_view falseValue = falseWalk.Next();
    chosen.append(Truth(conditionWalk.Next()) ? trueValue : falseValue);
    if (chosen.size() > kMaxResultBytes) return false;
  }
  result = {std::move(chosen), false};
  return Spend(result.text.size() + 1);
}

bool SumValues(Operand& operand, Fractions fractions) {
  if (!Spend(operand.text.size() + 1)) return false;
  Decimal sum;
  ValueWalk walk(operand);
  do {
    Decimal number;
    if (!ReadNumber(walk.Next(), fractions, number)) return false;
    sum = Add(sum, number);
  } while (!walk.IsAtEnd());
  std::string text;
  if (!AppendNumber(std::move(sum), fractions, text)) return false;
  operand.text.swap(text);
  return true;
}

bool CutValues(Operand& operand) {
  return ChangeValues(operand, [](std::string_view value, std::string& changed) {
    Decimal number;
    return ReadNumber(value, Fractions::kCut, number) &&
           AppendNumber(std::move(number), Fractions::kCut, changed);
  });
}

bool ConvertValues(const Conversion& conversion, std::string_view code, Operand& operand) {
  const NestingLevel level;
  return level.IsAllowed() && ChangeValues(operand, [&](std::string_view value, std::string& changed) {
           std::string converted;
           if (!Spend(value.size() + code.size())) return false;
           if (!ConvertChain({value, code, conversion.context}, converted)) return false;
           changed.append(converted);
           return true;
         });
}

bool CutText(const Operand& start, const Operand& count, Operand& operand) {
  ValueWalk startWalk(start);
  ValueWalk countWalk(count);
  return ChangeValues(operand, [&](std::string_view value, std::string& changed) {
    const std::size_t from = std::max<std::size_t>(ReadPosition(startWalk.Next()), 1);
    const std::size_t length = ReadPosition(countWalk.Next());
    if (from <= value.size()) changed.append(value.substr(from - 1, length));
    return true;
  });
}

}  // namespace nvadmin::mv
