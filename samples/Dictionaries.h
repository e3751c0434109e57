// The words of the sample files: what their dictionaries hold.
#pragma once

#include <span>
#include <string_view>
#include <vector>

#include "samples/Item.h"

namespace nvadmin::samples {

// One dictionary item, read like the item itself.
struct Word {
  std::string_view word;        // its ID
  char type;                    // 'A' and 'S' (they lie alike), 'D', 'I'
  std::string_view attribute;   // number in the data item, "0" for the item ID; empty for 'I'
  std::string_view heading;     // no longer than the column is wide
  std::string_view conversion;  // for output
  std::string_view
      correlative;     // on the stored value (on the item ID for 'I'); a chain is parted by value marks
  char justification;  // 'L' or 'R'
  int width;           // a right-justified column needs one more than its longest value
};

// The words of a sample file's dictionary; none for another file.
std::span<const Word> WordsOf(std::string_view file);

// The item of a word in the layout of its type. Requires a word without a correlative for 'D'.
Item MakeDictionaryItem(const Word& word);
std::vector<Item> MakeDictionary(std::span<const Word> words);

}  // namespace nvadmin::samples
