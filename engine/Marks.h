// The marks that part a dynamic array, as the engine uses them.
#pragma once

#include <algorithm>
#include <cstddef>
#include <string_view>

#include "mv/DynamicArray.h"

namespace nvadmin::engine {

using mv::kAttributeMark;
using mv::kSubvalueMark;
using mv::kValueMark;
inline constexpr char kColumnPartMark = '\xFA';

// The marks that end a single value: to queries subvalues count as values.
inline bool EndsValue(char character) { return character == kValueMark || character == kSubvalueMark; }
// Length of the single value at the start of an attribute.
inline std::size_t ValueLength(std::string_view values) {
  const auto end =
      std::find_if(values.begin(), values.end(), [](char character) { return EndsValue(character); });
  return static_cast<std::size_t>(end - values.begin());
}

}  // namespace nvadmin::engine
