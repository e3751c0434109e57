// What file translation read lately. A report translates the codes of each of its items, mostly the same few
// hundred over and over: what was read once, also that nothing was there, is answered from here until it is
// forgotten. It knows no file: how an item is read it is told. Whoever owns it forgets wherever an item may
// have changed.
#pragma once

#include <cstddef>
#include <functional>
#include <span>
#include <string>
#include <string_view>

#include "engine/query/Text.h"
#include "engine/stores/Store.h"

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
  // What was read before it was asked for: ReadItem may say more than it was asked.
  void Remember(std::string_view file, std::string_view id, bool found, std::string_view item);
  bool Knows(std::string_view file, std::string_view id) const { return Find(file, id) != nullptr; }
  // Costs nothing when nothing is remembered.
  void Forget();

 private:
  struct Target {
    bool found = false;
    std::string item;
  };

  const Target* Find(std::string_view file, std::string_view id) const;

  ReadItem read_;
  TextMap<TextMap<Target>> targetsByFile_;
  std::size_t targets_ = 0;
  std::size_t bytes_ = 0;  // of IDs and items
};

// The items that a walk on this thread comes to next, the one at which it stands first: what the codes in
// them translate to can be read at once. Views that are whoever's walk it is.
class ItemsToCome {
 public:
  ItemsToCome() : before_(items_) {}
  ~ItemsToCome() { items_ = before_; }
  ItemsToCome(const ItemsToCome&) = delete;
  ItemsToCome& operator=(const ItemsToCome&) = delete;

  static std::span<const BatchItem> All() { return items_; }
  void Are(std::span<const BatchItem> items) { items_ = items; }

 private:
  static thread_local std::span<const BatchItem> items_;
  std::span<const BatchItem> before_;
};

}  // namespace nvadmin::engine
