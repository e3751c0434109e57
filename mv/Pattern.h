// The pattern language of the conversion P and of queries (LIKE): pieces that stand for one part of a value
// after the other, together for all of it.
//
//   nN nA nX   n digits, letters (A-Z, a-z), characters of any kind; n = 0: any number of them, none included
//   ...        where points are any text: any characters, as 0X; further points belong to it
//   'text'     itself, in " or '; all other characters stand for themselves as well
//
// The class letters count in either letter case, literals as they stand. Every text is a pattern. A match
// takes at most one look at each of the value's characters for each of the pattern's.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace nvadmin::mv {

class Pattern {
 public:
  // What "..." stands for.
  enum class Points { kThemselves, kAnyText };

  // What reading costs, in bytes touched for each of the pattern's characters.
  static constexpr std::size_t kReadingCost = 64;

  // Replaces what was read before. `text` must outlive the pattern.
  void Read(std::string_view text, Points points);

  bool Matches(std::string_view value);

  // How many looks a match with a value of that length takes at most.
  std::size_t CostOf(std::size_t length) const { return looks_ * (length + 1); }
  // A text that every matching value holds, the longest that stands in the pattern; empty: there is none.
  std::string_view Literal() const { return literal_; }

 private:
  // So many characters of a class, or a text.
  struct Piece {
    bool (*belongs)(char) = nullptr;  // null: the text
    std::size_t count = 0;            // of the class; 0: any number
    std::string_view text;

    bool IsOpen() const { return belongs != nullptr && count == 0; }
    std::size_t Least() const { return belongs != nullptr ? count : text.size(); }
  };

  static bool TakeClass(std::string_view& rest, Piece& piece);
  static void TakeLiteral(std::string_view& rest, Piece& piece);
  void Add(const Piece& piece);
  void AdvanceOpen(const Piece& piece, std::string_view value);
  bool AdvanceFixed(const Piece& piece, std::string_view value);

  std::vector<Piece> pieces_;
  std::size_t least_ = 0;  // characters that a match takes at least
  std::size_t looks_ = 0;  // at each character of a value
  bool anyOpen_ = false;
  std::string_view literal_;
  // Whether the pieces so far match the value's first so many characters; none beyond last_.
  std::string reached_;
  std::string next_;
  std::size_t last_ = 0;
};

}  // namespace nvadmin::mv
