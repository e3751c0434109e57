// OCONV: the table of code families, and chains of codes parted by value marks.
#include "mv/ConversionRoutines.h"
#include "mv/DynamicArray.h"
#include "mv/Effort.h"
#include "mv/EngineHooks.h"
#include "mv/Scan.h"

namespace nvadmin::mv {

namespace {

// u017e: the text goes to the client at once; the answer is the text itself.
bool SendToClient(const Conversion& conversion, std::string& result) {
  if (!conversion.code.empty()) return false;
  if (Hooks().sendToClient) Hooks().sendToClient(conversion.value);
  result.assign(conversion.value);
  return true;
}

struct CodeFamily {
  std::string_view letters;
  bool (*routine)(const Conversion& conversion, std::string& result);
  bool keepsEmptyValue;
};

constexpr CodeFamily kCodeFamilies[] = {
    {"MD", ConvertMaskedDecimal, true},
    {"D", ConvertDate, true},
    {"MT", ConvertTime, true},
    {"MR", ConvertRightMaskedDecimal, true},
    {"ML", ConvertLeftMaskedDecimal, true},
    {"MC", ConvertCharacters, true},
    {"MX", ConvertToHexadecimal, true},
    {"MO", ConvertToOctal, true},
    {"MB", ConvertToBinary, true},
    {"G", ExtractGroup, true},
    {"T", ExtractTextOrTranslate, true},
    {"L", FilterByLength, false},
    {"R", FilterByRange, true},
    {"P", FilterByPattern, true},
    {"S", SubstituteOrSoundex, false},
    {"C", Concatenate, false},
    {"A", EvaluateAlgebra, false},
    {"F", EvaluateStack, false},
    {"U017E", SendToClient, false},
};

bool ConvertOnce(const Conversion& conversion, std::string& result) {
  if (conversion.code.empty()) {
    result.assign(conversion.value);
    return true;
  }
  for (const CodeFamily& family : kCodeFamilies) {
    if (!BeginsWith(conversion.code, family.letters)) continue;
    if (family.keepsEmptyValue && conversion.value.empty()) return true;
    return family.routine(
        {conversion.value, conversion.code.substr(family.letters.size()), conversion.context}, result);
  }
  return false;
}

}  // namespace

bool ConvertChain(const Conversion& conversion, std::string& result) {
  std::string_view codes = conversion.code;
  if (codes.find(kValueMark) == std::string_view::npos) return ConvertOnce(conversion, result);
  const NestingLevel level;
  std::string value(conversion.value);
  while (!codes.empty()) {
    result.clear();
    if (!Spend(value.size() + 1)) return false;
    if (!ConvertOnce({value, TakePart(codes, kValueMark), conversion.context}, result)) return false;
    if (result == kInconvertible) return false;
    value.swap(result);
  }
  result.swap(value);
  return true;
}

std::string Oconv(std::string_view value, std::string_view code, const ConversionContext& context) {
  std::string result;
  if (!ConvertChain({value, code, context}, result)) result = kInconvertible;
  return result;
}

std::string Oconv(std::string_view value, std::string_view code) {
  static const ConversionContext kNoContext;
  return Oconv(value, code, kNoContext);
}

}  // namespace nvadmin::mv
