// MD, ML, MR: masked decimals. M, the letter, decimals and scale, options; then MD takes a width with a fill,
// ML and MR a mask.
#include <algorithm>
#include <utility>

#include "mv/ConversionRoutines.h"
#include "mv/Masks.h"
#include "mv/NumberFormat.h"
#include "mv/Scan.h"

namespace nvadmin::mv {

namespace {

constexpr std::string_view kOptions = "Z,$PT";
constexpr std::string_view kSignCodes = "-M<ECD+N";
// What may stand before the digits, a fill in front of it.
constexpr std::string_view kLeftSigns = "-$<";
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
  std::string written(conversion.value);
  NumberText number;
  if (!code.onlyMask) {
    if (!ParseNumber(conversion.value, number)) return false;
    written.clear();
    AppendNumber(number, code.format, written);
  }
  if (!mask.empty()) return AppendInMask(written, mask, justification, result);
  result.swap(written);
  return true;
}

// A typed number without what fills the room before it. Zeros are fill before a sign, else digits of its own.
std::string_view WithoutFill(std::string_view typed, std::string_view fills) {
  std::size_t first = std::min(typed.find_first_not_of(fills), typed.size());
  const bool isBeforeSign = first < typed.size() && kLeftSigns.find(typed[first]) != std::string_view::npos;
  if (!isBeforeSign) first = std::min(first, typed.find('0'));
  typed.remove_prefix(std::min(first, typed.size()));
  return typed;
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

bool ReadDecimal(std::string_view typed, const NumberFormat& format, std::string_view fills,
                 std::string& stored) {
  typed = WithoutFill(TrimBlanks(typed), fills);
  const bool negative = TakeSign(typed, format.sign);
  typed = WithoutFill(typed, fills);
  if (TakeCharacter(typed, '$')) typed = WithoutFill(typed, fills);
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
  const std::string_view mask = WithoutParentheses(code.rest);
  std::string taken;
  if (!TakeOutOfMask(typed, mask, justification, taken)) taken.assign(typed);
  if (code.onlyMask) {
    stored.swap(taken);
    return true;
  }
  std::string fills = " ";
  for (const auto& [place, fill] : {std::pair{'*', '*'}, {'%', '0'}}) {
    if (mask.find(place) != std::string_view::npos) fills += fill;
  }
  typed = taken;
  if (fills.find('*') != std::string::npos) typed = typed.substr(0, typed.find_last_not_of(" *") + 1);
  return ReadDecimal(typed, code.format, fills, stored);
}

// What of a width's fill can be told from the number: no digits but zeros, and a point or comma only where
// the text has the whole width.
std::string ReadableFill(char fill, bool hasWholeWidth) {
  const bool isOfNumbers = (IsDigit(fill) && fill != '0') || ((fill == '.' || fill == ',') && !hasWholeWidth);
  return isOfNumbers ? " " : std::string{' ', fill};
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

bool SplitDecimalCode(std::string_view code, std::string& plain, std::string& shown) {
  constexpr std::size_t kFamilyLetters = 2;
  const bool isMd = BeginsWith(code, "MD");
  if (!isMd && !BeginsWith(code, "ML") && !BeginsWith(code, "MR")) return false;
  const std::string_view family = code.substr(0, kFamilyLetters);
  std::string_view rest = code.substr(kFamilyLetters);
  const DecimalCode parsed = ParseDecimalCode(rest, isMd ? kSignCodes : kSignCodesBeforeMask);
  std::size_t width = 0;
  char fill = ' ';
  const bool isWrong = isMd && !ParseWidth(parsed.rest, width, fill);
  if (parsed.onlyMask || isWrong || code.find(kValueMark) != std::string_view::npos) return false;

  const NumberFormat& format = parsed.format;
  plain = "MD" + std::to_string(format.places) + std::to_string(format.shift);
  if (format.zeroIsEmpty) plain += 'Z';
  if (format.pointStopsScaling) plain += 'P';
  if (format.cutsDecimals) plain += 'T';
  int digit = 0;
  if (TakeDigit(rest, digit)) TakeDigit(rest, digit);
  shown.assign(family).append(std::to_string(format.places)).append("0").append(rest);
  return true;
}

bool ReadMaskedDecimal(std::string_view typed, std::string_view codeText, std::string& stored) {
  const DecimalCode code = ParseDecimalCode(codeText, kSignCodes);
  std::size_t width = 0;
  char fill = ' ';
  return ParseWidth(code.rest, width, fill) &&
         ReadDecimal(typed, code.format, ReadableFill(fill, typed.size() == width), stored);
}

bool ReadLeftMaskedDecimal(std::string_view typed, std::string_view code, std::string& stored) {
  return ReadFromMask(typed, code, Justification::kLeft, stored);
}

bool ReadRightMaskedDecimal(std::string_view typed, std::string_view code, std::string& stored) {
  return ReadFromMask(typed, code, Justification::kRight, stored);
}

}  // namespace nvadmin::mv
