// Laying a text into a mask: the places #, % and * (filled with blank, 0 and asterisk; a number behind
// repeats them) take the text, and any other character is printed as it stands.
#pragma once

#include <string>
#include <string_view>

namespace nvadmin::mv {

// kFolded is kLeft, but for a text that is broken into lines: those break at blanks.
enum class Justification { kLeft, kRight, kCentred, kFolded };

// The mask without a pair of parentheses that encloses all of it.
std::string_view WithoutParentheses(std::string_view mask);

// Appends the text in the mask. A text too long for the places loses its right end, or its left end when it
// lies right. False when that would make more than kMaxResultBytes.
bool AppendInMask(std::string_view text, std::string_view mask, Justification justification,
                  std::string& result);

// Takes the literals of the mask back out of a text that was typed with them, as far as it reaches: from the
// left, or for kRight from the right. Blanks around what remains are dropped. False when the mask has no
// literals, or the text hasn't got them where the mask has.
bool TakeOutOfMask(std::string_view text, std::string_view mask, Justification justification,
                   std::string& result);

// How many of the unused places stand before a text of that justification.
std::size_t PlacesBefore(std::size_t unused, Justification justification);

}  // namespace nvadmin::mv
