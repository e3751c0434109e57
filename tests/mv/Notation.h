// The notation of the tables: "^" attribute mark, "]" value mark, "\" subvalue mark, "{251}" that character,
// "·" a blank. And the functions that tables run, from notation to notation.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <string_view>

#include "mv/Conversions.h"

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

inline std::string ShownAsOconv(std::string_view value, std::string_view code) {
  return Notation(Oconv(Bytes(value), CodeBytes(code)));
}

inline std::string ShownAsFmt(std::string_view value, std::string_view mask) {
  return Notation(Fmt(Bytes(value), Bytes(mask)));
}

// "*refused*" where nothing is stored.
inline std::string StoredByIconv(std::string_view typed, std::string_view code) {
  std::string stored = "untouched";
  if (Iconv(Bytes(typed), CodeBytes(code), stored)) return Notation(stored);
  return stored == "untouched" ? "*refused*" : "*refused, but stored*";
}

// `want` is what the function makes of `value` under `code`; the name tells the fault that the row catches.
struct Row {
  const char *fault, *value, *code, *want;
};

template <std::size_t kCount, typename Function>
void Check(const Row (&rows)[kCount], Function run) {
  for (const Row& row : rows) {
    EXPECT_EQ(run(row.value, row.code), row.want)
        << row.fault << ": '" << row.value << "' under " << row.code;
  }
}

}  // namespace nvadmin::mv
