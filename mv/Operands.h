// What the expressions of A and F, and the elements of S and C, are made of: operands resolved against the
// value or its item, and operations on two of them, value by value.
#pragma once

#include <string>
#include <string_view>

#include "mv/ConversionRoutines.h"

namespace nvadmin::mv {

struct Operand {
  std::string text;
  // Against an operand with more values the last value is taken again; else empty ones fill up.
  bool repeats = false;
};

// Text of the attribute of that number, 0 being the item ID; false when there is no item to take that from.
bool ResolveAttribute(const Conversion& conversion, std::size_t number, std::string& text);

// The value of a system word of expressions: D, T, NA, NL and the counters; false for any other word.
bool ResolveSystemWord(const Conversion& conversion, std::string_view word, std::string& text);

// Takes a quoted text, "*" (the value) or an attribute number
// off `rest`; false when there is none or it can't be resolved.
bool TakeElement(const Conversion& conversion, std::string_view& rest, std::string& text);

enum class Fractions { kCut, kKept };

// An operation on two single values, appending its result; false when a number is too long for it.
using ValueOperation = bool (*)(std::string_view left, std::string_view right, Fractions fractions,
                                std::string& result);

bool AddValues(std::string_view left, std::string_view right, Fractions fractions, std::string& result);
bool SubtractValues(std::string_view left, std::string_view right, Fractions fractions, std::string& result);
bool MultiplyValues(std::string_view left, std::string_view right, Fractions fractions, std::string& result);
bool DivideValues(std::string_view left, std::string_view right, Fractions fractions, std::string& result);
bool TakeRemainder(std::string_view left, std::string_view right, Fractions fractions, std::string& result);
bool JoinValues(std::string_view left, std::string_view right, Fractions fractions, std::string& result);
bool IsEqual(std::string_view left, std::string_view right, Fractions fractions, std::string& result);
bool IsUnequal(std::string_view left, std::string_view right, Fractions fractions, std::string& result);
bool IsLess(std::string_view left, std::string_view right, Fractions fractions, std::string& result);
bool IsGreater(std::string_view left, std::string_view right, Fractions fractions, std::string& result);
bool IsAtMost(std::string_view left, std::string_view right, Fractions fractions, std::string& result);
bool IsAtLeast(std::string_view left, std::string_view right, Fractions fractions, std::string& result);
bool IsBoth(std::string_view left, std::string_view right, Fractions fractions, std::string& result);
bool IsEither(std::string_view left, std::string_view right, Fractions fractions, std::string& result);

// Applies an operation to the values of both operands in pairs. All of these need a NestingLevel and fail
// when the conversion has cost too much.
bool Combine(ValueOperation operation, const Operand& left, const Operand& right, Fractions fractions,
             Operand& result);
// The first operand where the condition's value is true, else the second.
bool Choose(const Operand& condition, const Operand& whenTrue, const Operand& whenFalse, Operand& result);
// The sum of all values, as one value.
bool SumValues(Operand& operand, Fractions fractions);
// The whole part of each value.
bool CutValues(Operand& operand);
// Each value through an output code.
bool ConvertValues(const Conversion& conversion, std::string_view code, Operand& operand);
// Of each value as many characters as `count` says, from position `start`, which is 1 at least.
bool CutText(const Operand& start, const Operand& count, Operand& operand);

}  // namespace nvadmin::mv
