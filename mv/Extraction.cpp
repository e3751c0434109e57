// G and T: parts of a text by separator and by position.
#include <algorithm>

#include "mv/ConversionRoutines.h"
#include "mv/Scan.h"

namespace nvadmin::mv {

namespace {

// Position behind the `count`-th separator at or behind `begin`; npos when there are fewer.
std::size_t FindBehind(std::string_view text, std::size_t begin, char separator, std::size_t count) {
  for (; count > 0; --count) {
    begin = text.find(separator, begin);
    if (begin == std::string_view::npos) return begin;
    ++begin;
  }
  return begin;
}

}  // namespace

// G{skip}xn
bool ExtractGroup(const Conversion& conversion, std::string& result) {
  std::string_view rest = conversion.code;
  std::size_t skip = 0;
  std::size_t count = 0;
  TakeNumber(rest, skip);
  if (rest.empty()) return false;
  const char separator = rest.front();
  rest.remove_prefix(1);
  if (!TakeNumber(rest, count) || !rest.empty()) return false;

  const std::size_t begin = FindBehind(conversion.value, 0, separator, skip);
  if (begin == std::string_view::npos || count == 0) return true;
  const std::size_t end = FindBehind(conversion.value, begin, separator, count);
  const std::size_t length = end == std::string_view::npos ? end : end - 1 - begin;
  result.assign(conversion.value.substr(begin, length));
  return true;
}

// Tm,n or Tn; anything else behind the T is a file.
bool ExtractTextOrTranslate(const Conversion& conversion, std::string& result) {
  std::string_view rest = conversion.code;
  std::size_t position = 1;
  std::size_t count = 0;
  if (!TakeNumber(rest, count)) return TranslateThroughFile(conversion, result);
  if (TakeCharacter(rest, ',')) {
    position = std::max<std::size_t>(count, 1);
    if (!TakeNumber(rest, count)) return false;
  }
  if (!rest.empty()) return TranslateThroughFile(conversion, result);
  if (position <= conversion.value.size()) result.assign(conversion.value.substr(position - 1, count));
  return true;
}

}  // namespace nvadmin::mv
