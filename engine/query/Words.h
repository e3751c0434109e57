// The words of a query sentence, as views of it.
//
// Blanks, tabs and line ends part words. Brackets are words of their own wherever they stand, and so are = <
// > and the pairs <> >< <= =< >= =>. # is one at the start of a word and before a quote; elsewhere it belongs
// to its word, so that ORDER# can name a column. A quote (' " or \) at the start of a word runs to the next
// quote of its kind, and what lies between is the word. Inside a word, as in O'NEIL, a quote is a character
// like any other.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace nvadmin::engine {

enum class WordKind { kBare, kQuoted, kOperator, kOpenBracket, kCloseBracket };

struct Word {
  std::string_view text;     // without its quotes
  std::size_t position = 0;  // of the first character, the quote included, from 1
  WordKind kind = WordKind::kBare;
};

// False when a quote has no partner; `error` then names it and its position.
bool CutWords(std::string_view sentence, std::vector<Word>& words, std::string& error);

// "'CITTY'" for a message; a text that would fill the screen is cut.
std::string Quoted(std::string_view text);
// "'CITTY' at position 23"
std::string Placed(const Word& word);

}  // namespace nvadmin::engine
