// ICONV: the table of code families that change what a user
// typed. A chain is undone from its last code to its first.
#include "mv/ConversionRoutines.h"
#include "mv/DynamicArray.h"
#include "mv/Scan.h"

namespace nvadmin::mv {

namespace {

struct InputFamily {
  std::string_view letters;
  bool (*routine)(std::string_view typed, std::string_view code, std::string& stored);
};

constexpr InputFamily kInputFamilies[] = {
    {"D", ReadDate},
    {"MT", ReadTime},
    {"MD", ReadMaskedDecimal},
    {"ML", ReadLeftMaskedDecimal},
    {"MR", ReadRightMaskedDecimal},
};

bool ReadOnce(std::string_view typed, std::string_view code, std::string& stored) {
  for (const InputFamily& family : kInputFamilies) {
    // DI turns a typed date into a day number on output, so what is stored under it is what was typed.
    if (!BeginsWith(code, family.letters) || BeginsWith(code, "DI") || typed.empty()) continue;
    return family.routine(typed, code.substr(family.letters.size()), stored);
  }
  stored.assign(typed);
  return true;
}

}  // namespace

bool Iconv(std::string_view typed, std::string_view code, std::string& stored) {
  std::string value(typed);
  for (;;) {
    const std::size_t mark = code.rfind(kValueMark);
    const bool isFirst = mark == std::string_view::npos;
    std::string read;
    if (!ReadOnce(value, isFirst ? code : code.substr(mark + 1), read)) return false;
    value.swap(read);
    if (isFirst) break;
    code = code.substr(0, mark);
  }
  stored.swap(value);
  return true;
}

}  // namespace nvadmin::mv
