// Columns: how a dictionary word becomes a value of an item.
//
// A dictionary item of type A or S names an attribute (0 is the item ID), an output conversion (7), a
// correlative (8) and a justification (9). Type D has the conversion in 3 and width and justification in 5;
// type I an expression in 2 that serves as the correlative of the item ID, the rest as D. Items of another
// type are no columns. A column is numeric, for comparing and sorting, when it is right-justified or its
// conversion (D, MT, MD, ML and MR but for a mask alone) belongs to values that are stored as numbers. A word
// is looked up as it stands, with "_" for ".", in capitals, and in both. Without a dictionary item A5 is
// attribute 5, and ID, @ID and 0 are the item ID.
//
// The value of a column is the stored one after its correlative and before its conversion. A correlative that
// computes with attributes or columns (A, F) runs once over all values and pairs their positions; any other
// is applied to value by value. A correlative that refers to itself, at whatever distance, ends as "####".
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "engine/query/Text.h"
#include "engine/stores/Store.h"
#include "mv/Conversions.h"

namespace nvadmin::engine {

inline constexpr std::int32_t kItemId = 0;
inline constexpr std::int32_t kNoAttribute = -1;  // always empty

struct Column {
  std::int32_t attribute = kNoAttribute;
  bool numeric = false;
  std::string conversion;
  std::string correlative;
};

// The dictionary of a file, read when the first word is looked up. A file without a dictionary has one
// without words.
class Dictionary {
 public:
  // `file` as the sentence spells it.
  Dictionary(Store& store, std::string_view file, bool ofDictionary);

  // Null when the word is no column. Valid as long as the dictionary.
  const Column* Find(std::string_view word);
  // As Find, without the words for the item ID: whether the word reads as a column where it could also be a
  // value.
  bool Knows(std::string_view word);
  // Whether the file's item IDs order as numbers: its @ID item is right-justified.
  bool HasNumericIds();
  // The dictionary item as it is stored; false when there is none.
  bool ReadItem(std::string_view id, std::string& item);

 private:
  void Load();
  const Column* FindItem(std::string_view word);
  const Column* MakeAttribute(std::string_view word);

  Store& store_;
  std::string name_;
  bool loaded_ = false;
  TextMap<Column> items_;
  TextMap<Column> made_;  // A5, ID
};

// The columns that a query uses, each once, with those that their correlatives refer to.
class Columns {
 public:
  explicit Columns(Dictionary& dictionary) : dictionary_(dictionary) {}

  // A column's number, from 0; false when the word is none.
  bool Use(std::string_view word, std::size_t& number);

  // What a scan has to hand out for all columns in use.
  Projection Needed() const;
  // Whether a correlative may translate by way of a file.
  bool MayTranslate() const { return mayTranslate_; }
  // Whether any value but the item ID is needed.
  bool NeedsItem() const { return needsWholeItem_ || !attributes_.empty(); }

  const Column& operator[](std::size_t number) const { return *columns_[number].column; }
  std::size_t Size() const { return columns_.size(); }

 private:
  friend class Row;

  struct CorrelativePart {
    std::string code;
    bool overAllValues;
  };
  struct Used {
    const Column* column;
    std::size_t slot;  // of its attribute in a scan's values
    std::vector<CorrelativePart> correlative;
  };

  std::size_t Add(std::string_view word, const Column& column);
  void Prepare(std::size_t number);
  void UseReferences(std::string_view code);
  std::size_t UseAttribute(std::int32_t attribute);
  void UseItem(std::string_view code);

  Dictionary& dictionary_;
  std::vector<Used> columns_;
  TextMap<std::size_t> byWord_;
  std::vector<std::int32_t> attributes_;
  std::unordered_map<std::int32_t, std::size_t> slots_;
  bool needsWholeItem_ = false;
  bool computesWithItem_ = false;
  bool mayTranslate_ = false;
  std::map<std::int32_t, std::size_t> itemSlots_;  // what is computed with, by attribute
};

// One item after the other, seen through the columns. All columns must be in use before the first item.
class Row {
 public:
  explicit Row(const Columns& columns) : columns_(columns), cells_(columns.Size()) {}

  // The item as a scan with Columns::Needed hands it out, or whole. Views must stay valid until the next
  // item.
  void EnterScanned(std::string_view id, std::span<const std::string_view> values);
  void EnterWhole(std::string_view id, std::string_view item);

  std::string_view Id() const { return id_; }
  // All values of the column, with their marks; valid until the next item.
  std::string_view Value(std::size_t number);

 private:
  struct Cell {
    std::uint64_t row = 0;  // which row the rest belongs to
    bool isBusy = false;    // its correlative is being computed
    std::string_view value;
    std::string text;
  };

  std::string_view Stored(const Columns::Used& used) const;
  std::string_view ItemToComputeWith();
  void ApplyCorrelative(const Columns::Used& used, std::string& value);
  bool Refer(std::string_view name, std::string& value);

  const Columns& columns_;
  std::vector<Cell> cells_;
  std::uint64_t row_ = 0;
  int depth_ = 0;
  std::string_view id_;
  std::string_view item_;
  bool isWhole_ = false;
  std::span<const std::string_view> values_;
  std::string assembled_;  // of the row assembledRow_
  std::uint64_t assembledRow_ = 0;
};

}  // namespace nvadmin::engine
