// Patterns of LIKE and UNLIKE: pieces that stand for one part of a value after the other, all of it.
//
//   nN nA nX   n digits, letters (A-Z, a-z), characters of any kind; n = 0: any number of them, none included
//   ...        any characters, as 0X; further points belong to it
//   'text'     itself, in " or '; all other characters stand for themselves as well
//
// The class letters count in either letter case; literals as they stand. It is the language of the conversion
// P, with "..." besides. A match takes at most one look at each character for each
// of the pattern's.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace nvadmin::engine {

class Pattern {
 public:
  // Reads a pattern; every text is one. False: it has more than kMostCharacters.
  bool Read(std::string_view text);

  bool Matches(std::string_view value);

  // The longest text that every matching value holds; empty when there is none.
  std::string_view Literal() const { return literal_; }

  static constexpr std::size_t kMostCharacters = 200;

 private:
  // So many characters of a class, or a text.
  struct Piece {
    bool (*belongs)(char) = nullptr;  // null: the text
    std::size_t count = 0;            // of the class; 0: any number
    std::string text;

    bool IsOpen() const { return belongs != nullptr && count == 0; }
    std::size_t Least() const { return belongs != nullptr ? count : text.size(); }
  };

  void Add(Piece piece);
  void AdvanceOpen(const Piece& piece, std::string_view value);
  bool AdvanceFixed(const Piece& piece, std::string_view value);

  std::vector<Piece> pieces_;
  std::size_t least_ = 0;  // characters that a match takes at least
  bool anyOpen_ = false;
  std::string literal_;
  // Whether the pieces so far match the value's first so many characters; none beyond last_.
  std::vector<char> reached_;
  std::vector<char> next_;
  std::size_t last_ = 0;
};

}  // namespace nvadmin::engine
