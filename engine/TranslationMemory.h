// What file translation read lately. A report translates the codes of each of its items, mostly the same few
// hundred over and over: what was read once, also that nothing was there, is answered from here until it is
// forgotten. It knows no file: how an item is read it is told. Whoever owns it forgets wherever an item may
// have changed.
#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>

#include "engine/query/Text.h"

namespace nvadmin::engine {

class TranslationMemory {
 public:
  // Beyond either of these it begins anew.
  static constexpr std::size_t kMostTargets = 10'000;
  static constexpr std::size_t kMostBytes = std::size_t{16} << 20;

  // Reads an item; false when it, or its file, is missing. What it throws is let through, and remembered is
  // nothing.
  using ReadItem = std::function<bool(std::string_view file, std::string_view id, std::string& item)>;
  explicit TranslationMemory(ReadItem read) : read_(std::move(read)) {}

  // The item as it was when it was first asked for; false, with `item` empty, when it was missing then.
  // `file` as the code spells it: two spellings of a file are two files here.
  bool Read(std::string_view file, std::string_view id, std::string& item);
  // Costs nothing when nothing is remembered.
  void Forget();

 private:
  struct Target {
    bool found = false;
    std::string item;
  };

  ReadItem read_;
  TextMap<TextMap<Target>> targetsByFile_;
  std::size_t targets_ = 0;
  std::size_t bytes_ = 0;  // of IDs and items
};

}  // namespace nvadmin::engine
