// MD, ML, MR: masked decimals. M, the letter, decimals and scale, options; then MD takes a width with a fill,
// ML and MR a mask.
#include <algorithm>

#include "mv/ConversionRoutines.h"
#include "mv/Masks.h"
#include "mv/NumberFormat.h"
#include "mv/Scan.h"

namespace nvadmin::mv {

namespace {

constexpr std::string_view kOptions = "Z,$PT";
constexpr std::string_view kSignCodes = "-M<ECD+N";
// Where a mask follows, "-" is a part of it.
constexpr std::string_view kSignCodesBeforeMask = "M<ECD+N";

struct DecimalCode {
  NumberFormat format;
  bool onlyMask = false;  // no decimals and no options: any text goes into the mask
  std::string_view rest;  // behind the options
};

DecimalCode ParseDecimalCode(std::string_view rest, std::string_view signCodes) {
  DecimalCode code;
  code.format.places = 0;
  const bool hasPlaces = TakeDigit(rest, code.format.places);
  code.format.shift = code.format.places;
  if (hasPlaces) TakeDigit(rest, code.format.shift);
  const bool hasOptions = TakeNumberOptions(rest, kOptions, signCodes, code.format);
  code.onlyMask = !hasPlaces && !hasOptions && !rest.empty();
  code.rest = rest;
  return code;
}

// One or two digits and a fill character, which is a blank if it is left out and never a sign code.
bool ParseWidth(std::string_view rest, std::size_t& width, char& fill) {
  int digit = 0;
  if (rest.empty()) return true;
  if (!TakeDigit(rest, digit)) return false;
  width = static_cast<std::size_t>(digit);
  if (TakeDigit(rest, digit)) width = width * 10 + static_cast<std::size_t>(digit);
  if (rest.empty()) return true;
  fill = rest.front();
  return rest.size() == 1 && kSignCodes.find(ToUpper(fill)) == std::string_view::npos;
}

bool ConvertIntoMask(const Conversion& conversion, Justification justification, std::string& result) {
  const DecimalCode code = ParseDecimalCode(conversion.code, kSignCodesBeforeMask);
  const std::string_view mask = WithoutParentheses(code.rest);
  if (code.onlyMask) return AppendInMask(conversion.value, mask, justification, result);
  NumberText number;
  if (!ParseNumber(conversion.value, number)) return false;
  if (mask.empty()) {
    AppendNumber(number, code.format, result);
    return true;
  }
  std::string written;
  AppendNumber(number, code.format, written);
  return AppendInMask(written, mask, justification, result);
}

// Takes what stands around a typed number off it; true when that says the number is negative.
bool TakeSign(std::string_view& typed, char signCode) {
  const auto takeEnd = [&](std::string_view end) {
    if (typed.size() <= end.size() || !IsWord(typed.substr(typed.size() - end.size()), end)) return false;
    typed = TrimBlanks(typed.substr(0, typed.size() - end.size()));
    return true;
  };
  if (typed.size() > 2 && typed.front() == '<' && typed.back() == '>') {
    typed = TrimBlanks(typed.substr(1, typed.size() - 2));
    return true;
  }
  if (takeEnd("CR") || takeEnd("-")) return true;
  if (signCode == 'D') takeEnd("DB");
  if (signCode == '+') takeEnd("+");
  if (typed.empty() || typed.front() != '-') return false;
  typed.remove_prefix(1);
  return true;
}

// Copies the number without its commas, each of which must have three digits behind it.
bool CopyWithoutCommas(std::string_view typed, std::string& digits) {
  const std::string_view whole = typed.substr(0, typed.find('.'));
  for (std::size_t comma = whole.find(','); comma != std::string_view::npos;
       comma = whole.find(',', comma + 1)) {
    const std::size_t next = std::min(whole.find(',', comma + 1), whole.size());
    if (comma == 0 || next != comma + 4) return false;
  }
  std::remove_copy(whole.begin(), whole.end(), std::back_inserter(digits), ',');
  digits.append(typed.substr(whole.size()));
  return true;
}

bool ReadDecimal(std::string_view typed, const NumberFormat& format, std::string& stored) {
  typed = TrimBlanks(typed);
  const bool negative = TakeSign(typed, format.sign);
  TakeCharacter(typed, '$');
  std::string digits;
  NumberText number;
  const bool hasSecondSign = !typed.empty() && (typed.front() == '-' || (negative && typed.front() == '+'));
  if (hasSecondSign || !CopyWithoutCommas(typed, digits) || !ParseNumber(digits, number)) return false;
  number.negative = negative;
  Decimal value = Decimal::From(number);
  value.MultiplyByTenTo(static_cast<std::size_t>(format.shift));
  stored = value.ToText();
  return true;
}

bool ReadFromMask(std::string_view typed, std::string_view codeText, Justification justification,
                  std::string& stored) {
  const DecimalCode code = ParseDecimalCode(codeText, kSignCodesBeforeMask);
  if (!code.onlyMask) return ReadDecimal(typed, code.format, stored);
  if (!TakeOutOfMask(typed, WithoutParentheses(code.rest), justification, stored)) stored.assign(typed);
  return true;
}

}  // namespace

bool ConvertMaskedDecimal(const Conversion& conversion, std::string& result) {
  const DecimalCode code = ParseDecimalCode(conversion.code, kSignCodes);
  std::size_t width = 0;
  char fill = ' ';
  NumberText number;
  if (!ParseWidth(code.rest, width, fill) || !ParseNumber(conversion.value, number)) return false;
  const std::size_t leftPart = AppendNumber(number, code.format, result);
  if (result.size() < width) result.insert(leftPart, width - result.size(), fill);
  return true;
}

bool ConvertLeftMaskedDecimal(const Conversion& conversion, std::string& result) {
  return ConvertIntoMask(conversion, Justification::kLeft, result);
}

bool ConvertRightMaskedDecimal(const Conversion& conversion, std::string& result) {
  return ConvertIntoMask(conversion, Justification::kRight, result);
}

bool ReadMaskedDecimal(std::string_view typed, std::string_view codeText, std::string& stored) {
  const DecimalCode code = ParseDecimalCode(codeText, kSignCodes);
  std::size_t width = 0;
  char fill = ' ';
  return ParseWidth(code.rest, width, fill) && ReadDecimal(typed, code.format, stored);
}

bool ReadLeftMaskedDecimal(std::string_view typed, std::string_view code, std::string& stored) {
  return ReadFromMask(typed, code, Justification::kLeft, stored);
}

bool ReadRightMaskedDecimal(std::string_view typed, std::string_view code, std::string& stored) {
  return ReadFromMask(typed, code, Justification::kRight, stored);
}

}  // namespace nvadmin::mv
