// Tfile: translation through a file: T{*|DICT }file;c{v};{in};{out}.
// The value is the ID of an item of that file.
#include "mv/ConversionRoutines.h"
#include "mv/DynamicArray.h"
#include "mv/Effort.h"
#include "mv/EngineHooks.h"
#include "mv/Scan.h"

namespace nvadmin::mv {

namespace {

// What stands for an answer that is missing.
enum class Missing { kEmpty, kValue, kFailure };

struct TranslationMode {
  char letter;
  Missing missing;
};

// I demands the item on input and O on output only.
constexpr TranslationMode kTranslationModes[] = {
    {'X', Missing::kEmpty},   {'C', Missing::kValue},   {'I', Missing::kValue},
    {'V', Missing::kFailure}, {'O', Missing::kFailure},
};

struct TranslationCode {
  std::string file;
  Missing missing = Missing::kEmpty;
  std::size_t valueNumber = 0;  // 0: the whole attribute
  bool hasAttribute = false;
  std::size_t attribute = 0;
};

bool TakeMode(std::string_view& rest, Missing& missing) {
  for (const TranslationMode& mode : kTranslationModes) {
    if (!TakeCharacter(rest, mode.letter)) continue;
    missing = mode.missing;
    return true;
  }
  return false;
}

bool ParseTranslation(std::string_view rest, TranslationCode& code) {
  if (TakeCharacter(rest, '*') || TakeWord(rest, "DICT ")) code.file = "DICT ";
  const std::string_view name = TrimBlanks(TakePart(rest, ';'));
  code.file.append(name);
  if (name.empty() || !TakeMode(rest, code.missing)) return false;
  TakeNumber(rest, code.valueNumber);
  std::size_t attributeOnInput = 0;
  if (TakeCharacter(rest, ';')) TakeNumber(rest, attributeOnInput);
  if (TakeCharacter(rest, ';')) code.hasAttribute = TakeNumber(rest, code.attribute);
  return rest.empty();
}

}  // namespace

bool TranslateThroughFile(const Conversion& conversion, std::string& result) {
  TranslationCode code;
  if (!ParseTranslation(conversion.code, code)) return false;
  result.assign(conversion.value);
  if (!code.hasAttribute) return true;

  const NestingLevel level;
  if (!level.IsAllowed() || !Spend(kCallEffort)) return false;
  std::string item;
  std::string_view answer;
  if (Hooks().readItem && Hooks().readItem(code.file, conversion.value, item)) {
    answer =
        code.attribute == 0 ? conversion.value : Extract(item, static_cast<std::int32_t>(code.attribute));
    if (code.valueNumber > 0) answer = Extract(answer, 1, static_cast<std::int32_t>(code.valueNumber));
  }
  if (!answer.empty()) {
    result.assign(answer);
    return true;
  }
  if (code.missing == Missing::kEmpty) result.clear();
  return code.missing != Missing::kFailure;
}

}  // namespace nvadmin::mv
