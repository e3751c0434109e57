// Names of the world in the letters that an item can hold: from UTF-8 to bytes of the code page below the
// marks.
//
// One rule a character, the first that applies:
//   1. A character of the code page whose byte is below 250 stays itself.
//   2. A combining accent is dropped; its base letter stands before it.
//   3. A letter with accents beyond the page, or one whose byte is a mark, becomes its base letter (table of
//   runs).
//   4. Letters that have no single base letter, and apostrophes, have a spelling of their own (table of
//   spellings).
//   5. What is left is written as its number, "{U+4E2D}": nothing disappears, and nothing turns into a
//   question mark.
#pragma once

#include <string>
#include <string_view>

namespace nvadmin::samples {

// Requires valid UTF-8.
std::string FoldName(std::string_view utf8);

}  // namespace nvadmin::samples
