// S: substitution and soundex. C: concatenation.
#include <algorithm>

#include "mv/DynamicArray.h"
#include "mv/Operands.h"
#include "mv/Scan.h"

namespace nvadmin::mv {

namespace {

constexpr std::size_t kSoundexLength = 4;

// The digit of each letter from A to Z. A letter of digit 0
// parts equal neighbours, but for the transparent ones.
constexpr std::string_view kSoundexDigits = "01230120022455012623010202";
constexpr std::string_view kSoundexTransparent = "HW";

void AppendSoundex(std::string_view value, std::string& result) {
  char before = 0;
  for (const char character : value) {
    if (!IsLetter(character)) continue;
    const char letter = ToUpper(character);
    const char digit = kSoundexDigits[static_cast<std::size_t>(letter - 'A')];
    if (result.empty()) {
      result.push_back(letter);
    } else if (kSoundexTransparent.find(letter) != std::string_view::npos) {
      continue;
    } else if (digit != '0' && digit != before) {
      result.push_back(digit);
    }
    before = digit;
    if (result.size() == kSoundexLength) return;
  }
  if (!result.empty()) result.append(kSoundexLength - result.size(), '0');
}

}  // namespace

// S;x;y and S alone
bool SubstituteOrSoundex(const Conversion& conversion, std::string& result) {
  std::string_view rest = conversion.code;
  if (rest.empty()) {
    AppendSoundex(conversion.value, result);
    return true;
  }
  std::string whenTrue;
  std::string whenFalse;
  if (!TakeCharacter(rest, ';') || !TakeElement(conversion, rest, whenTrue)) return false;
  if (!TakeCharacter(rest, ';') || !TakeElement(conversion, rest, whenFalse)) return false;
  result.swap(Truth(conversion.value) ? whenTrue : whenFalse);
  return rest.empty();
}

// C{;} elements with one joining character between two; ";" joins with nothing.
bool Concatenate(const Conversion& conversion, std::string& result) {
  std::string_view rest = conversion.code;
  std::string element;
  TakeCharacter(rest, ';');
  if (!TakeElement(conversion, rest, result)) return false;
  while (!rest.empty()) {
    if (rest.front() != ';') result.push_back(rest.front());
    rest.remove_prefix(1);
    if (!TakeElement(conversion, rest, element)) return false;
    result.append(element);
    if (result.size() > kMaxResultBytes) return false;
  }
  return true;
}

}  // namespace nvadmin::mv
