// MC: characters. Letters are A-Z and a-z alone; marks pass through the extracting and the case codes.
// A well-formed code always gives text; only one that would make too much of it, or too long a number, fails.
#include <algorithm>

#include "mv/Bases.h"
#include "mv/ConversionRoutines.h"
#include "mv/Scan.h"

namespace nvadmin::mv {

namespace {

void AppendMapped(std::string_view value, char (*map)(char), std::string& result) {
  result.resize(value.size());
  std::transform(value.begin(), value.end(), result.begin(), map);
}

bool ConvertToCapitals(const Conversion& conversion, std::string& result) {
  AppendMapped(conversion.value, ToUpper, result);
  return conversion.code.empty();
}

bool ConvertToSmallLetters(const Conversion& conversion, std::string& result) {
  AppendMapped(conversion.value, ToLower, result);
  return conversion.code.empty();
}

bool CapitaliseWords(const Conversion& conversion, std::string& result) {
  result.reserve(conversion.value.size());
  char before = ' ';
  for (const char character : conversion.value) {
    result.push_back(before == ' ' ? ToUpper(character) : ToLower(character));
    before = character;
  }
  return conversion.code.empty();
}

bool IsLetterOrDigit(char c) { return IsLetter(c) || IsDigit(c); }

// Keeps the characters of a class, or with kKept false what that drops. Marks stay.
template <bool (*kBelongs)(char), bool kKept>
bool KeepCharacters(const Conversion& conversion, std::string& result) {
  std::copy_if(conversion.value.begin(), conversion.value.end(), std::back_inserter(result),
               [](char c) { return kBelongs(c) == kKept || IsMark(c); });
  return conversion.code.empty();
}

// MCC;x;y
bool ChangeText(const Conversion& conversion, std::string& result) {
  std::string_view rest = conversion.code;
  if (!TakeCharacter(rest, ';') || rest.find(';') == std::string_view::npos) return false;
  const std::string_view from = TakePart(rest, ';');
  const std::string_view to = rest;
  std::string_view value = conversion.value;
  for (std::size_t at = 0; !from.empty() && (at = value.find(from)) != std::string_view::npos;) {
    result.append(value.substr(0, at)).append(to);
    value.remove_prefix(at + from.size());
    if (result.size() > kMaxResultBytes && to.size() > from.size()) return false;
  }
  result.append(value);
  return true;
}

bool MakePrintable(const Conversion& conversion, std::string& result) {
  if (conversion.code.size() > 1) return false;
  const char substitute = conversion.code.empty() ? '.' : conversion.code.front();
  result.assign(conversion.value);
  std::replace_if(
      result.begin(), result.end(), [](char c) { return c < ' ' || c > '~'; }, substitute);
  return true;
}

bool ConvertLeadingDecimal(const Conversion& conversion, std::string& result) {
  const std::string_view value = conversion.value;
  return conversion.code.empty() &&
         AppendInBase(value.substr(0, value.find_first_not_of("0123456789")), kHexadecimal, result);
}

bool ConvertLeadingHexadecimal(const Conversion& conversion, std::string& result) {
  const std::string_view value = conversion.value;
  return conversion.code.empty() &&
         AppendFromHexadecimal(value.substr(0, value.find_first_not_of("0123456789ABCDEFabcdef")), result);
}

bool ConvertToHexadecimalPairs(const Conversion& conversion, std::string& result) {
  return conversion.code.empty() && AppendCharactersInBase(conversion.value, kHexadecimal, result);
}

// Ends at the first pair that isn't two hexadecimal digits.
bool ConvertFromHexadecimalPairs(const Conversion& conversion, std::string& result) {
  const std::string_view value = conversion.value;
  for (std::size_t at = 0; at + 1 < value.size(); at += 2) {
    const int high = HexadecimalDigit(value[at]);
    const int low = HexadecimalDigit(value[at + 1]);
    if (high < 0 || low < 0) break;
    result.push_back(static_cast<char>(high * 16 + low));
  }
  return conversion.code.empty();
}

struct CharacterCode {
  std::string_view letters;
  bool (*routine)(const Conversion& conversion, std::string& result);
};

// The first row that the code begins with holds, so a word stands before those that begin it.
constexpr CharacterCode kCharacterCodes[] = {
    {"U", ConvertToCapitals},
    {"L", ConvertToSmallLetters},
    {"T", CapitaliseWords},
    {"AX", ConvertToHexadecimalPairs},
    {"A", KeepCharacters<IsLetter, true>},
    {"N", KeepCharacters<IsDigit, true>},
    {"B", KeepCharacters<IsLetterOrDigit, true>},
    {"/A", KeepCharacters<IsLetter, false>},
    {"/N", KeepCharacters<IsDigit, false>},
    {"/B", KeepCharacters<IsLetterOrDigit, false>},
    {"C", ChangeText},
    {"P", MakePrintable},
    {"DX", ConvertLeadingDecimal},
    {"D", ConvertLeadingDecimal},
    {"XD", ConvertLeadingHexadecimal},
    {"XA", ConvertFromHexadecimalPairs},
    {"X", ConvertLeadingHexadecimal},
};

}  // namespace

bool ConvertCharacters(const Conversion& conversion, std::string& result) {
  for (const CharacterCode& row : kCharacterCodes) {
    if (!BeginsWith(conversion.code, row.letters)) continue;
    return row.routine({conversion.value, conversion.code.substr(row.letters.size()), conversion.context},
                       result);
  }
  return false;
}

}  // namespace nvadmin::mv
