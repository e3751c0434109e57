// An item as the sample files make it, and how its body grows.
#pragma once

#include <initializer_list>
#include <string>
#include <string_view>

#include "engine/Marks.h"

namespace nvadmin::samples {

struct Item {
  std::string id;
  std::string body;
};

// The texts with a mark between them; empty ones at the end vanish.
inline std::string Join(std::initializer_list<std::string_view> texts, char mark = engine::kAttributeMark) {
  std::string joined;
  for (const std::string_view text : texts) {
    joined += text;
    joined += mark;
  }
  joined.erase(joined.find_last_not_of(mark) + 1);
  return joined;
}

// Adds a value to an attribute that grows. Requires a value that isn't empty.
inline void AppendValue(std::string& attribute, std::string_view value) {
  if (!attribute.empty()) attribute += engine::kValueMark;
  attribute += value;
}

}  // namespace nvadmin::samples
