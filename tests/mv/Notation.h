// The notation of the tables: "^" attribute mark, "]" value mark, "\" subvalue mark, "{251}" that character,
// "·" a blank.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <string_view>

namespace nvadmin::mv {

inline std::string Translate(std::string text, std::string_view from, std::string_view to) {
  for (std::size_t at = 0; (at = text.find(from, at)) != std::string::npos; at += to.size()) {
    text.replace(at, from.size(), to);
  }
  return text;
}

inline std::string WithBlanks(std::string_view notation) {
  return Translate(std::string(notation), "·", " ");
}

inline std::string Bytes(std::string_view notation) {
  std::string text = Translate(WithBlanks(notation), "{251}", "\xFB");
  text = Translate(std::move(text), "^", "\xFE");
  text = Translate(std::move(text), "]", "\xFD");
  return Translate(std::move(text), "\\", "\xFC");
}

// In the codes of F, "]" and "^" are operators; its value marks are written "{VM}".
inline std::string CodeBytes(std::string_view notation) {
  if (notation.empty() || notation.front() != 'F') return Bytes(notation);
  return Translate(WithBlanks(notation), "{VM}", "\xFD");
}

inline std::string Notation(std::string_view bytes) {
  std::string text = Translate(std::string(bytes), "\xFB", "{251}");
  text = Translate(std::move(text), "\xFE", "^");
  text = Translate(std::move(text), "\xFD", "]");
  text = Translate(std::move(text), "\xFC", "\\");
  return Translate(std::move(text), " ", "·");
}

}  // namespace nvadmin::mv
