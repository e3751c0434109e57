#include "mv/Pattern.h"

#include <algorithm>

#include "mv/Scan.h"

namespace nvadmin::mv {

namespace {

constexpr std::string_view kAnyText = "...";
// What ends a run of characters that stand for themselves, as something else may begin with it.
constexpr std::string_view kOpeners = "0123456789'\".";

constexpr char kNo = 0;
constexpr char kYes = 1;

bool IsAny(char /*c*/) { return true; }

struct PatternClass {
  char letter;
  bool (*belongs)(char);
};
constexpr PatternClass kClasses[] = {{'N', IsDigit}, {'A', IsLetter}, {'X', IsAny}};

}  // namespace

// A count and a class letter.
bool Pattern::TakeClass(std::string_view& rest, Piece& piece) {
  std::string_view behind = rest;
  if (!TakeNumber(behind, piece.count)) return false;
  for (const PatternClass& row : kClasses) {
    if (!TakeCharacter(behind, row.letter)) continue;
    piece.belongs = row.belongs;
    rest = behind;
    return true;
  }
  return false;
}

// A quoted text, a number that counts nothing, or characters up to what may be something else.
void Pattern::TakeLiteral(std::string_view& rest, Piece& piece) {
  if (TakeQuoted(rest, piece.text)) return;
  const std::size_t end =
      IsDigit(rest.front()) ? rest.find_first_not_of("0123456789") : rest.find_first_of(kOpeners, 1);
  piece.text = rest.substr(0, end);
  rest.remove_prefix(piece.text.size());
}

void Pattern::Read(std::string_view text, Points points) {
  pieces_.clear();
  least_ = looks_ = 0;
  anyOpen_ = false;
  literal_ = {};
  while (!text.empty()) {
    Piece piece;
    if (points == Points::kAnyText && text.starts_with(kAnyText)) {
      text.remove_prefix(std::min(text.find_first_not_of('.'), text.size()));
      piece.belongs = IsAny;
    } else if (!TakeClass(text, piece)) {
      TakeLiteral(text, piece);
      if (piece.text.empty()) continue;
    }
    least_ += piece.Least();
    looks_ += std::max<std::size_t>(piece.text.size(), 1);
    anyOpen_ = anyOpen_ || piece.IsOpen();
    Add(piece);
  }
}

// Texts that stand beside one another become one.
void Pattern::Add(const Piece& piece) {
  std::string_view last = pieces_.empty() ? std::string_view() : pieces_.back().text;
  if (!last.empty() && last.data() + last.size() == piece.text.data()) {
    last = {last.data(), last.size() + piece.text.size()};
    pieces_.back().text = last;
  } else {
    last = piece.text;
    pieces_.push_back(piece);
  }
  if (last.size() > literal_.size()) literal_ = last;
}

bool Pattern::Matches(std::string_view value) {
  if (value.size() < least_ || (!anyOpen_ && value.size() != least_)) return false;
  reached_.assign(value.size() + 1, kNo);
  reached_[0] = kYes;
  last_ = 0;
  for (const Piece& piece : pieces_) {
    if (piece.IsOpen()) {
      AdvanceOpen(piece, value);
    } else if (!AdvanceFixed(piece, value)) {
      return false;
    }
  }
  return reached_.back() == kYes;
}

void Pattern::AdvanceOpen(const Piece& piece, std::string_view value) {
  for (std::size_t at = 0; at < value.size(); ++at) {
    if (reached_[at] == kNo || !piece.belongs(value[at])) continue;
    reached_[at + 1] = kYes;
    last_ = std::max(last_, at + 1);
  }
}

// False when nothing matches any more.
bool Pattern::AdvanceFixed(const Piece& piece, std::string_view value) {
  const std::size_t least = piece.Least();
  const std::size_t end = std::min(last_ + least, value.size());
  next_.assign(reached_.size(), kNo);
  bool any = false;
  std::size_t run = 0;  // how many characters of the class end here
  for (std::size_t at = 1; at <= end; ++at) {
    run = piece.belongs == nullptr || piece.belongs(value[at - 1]) ? run + 1 : 0;
    if (run < least || reached_[at - least] == kNo) continue;
    if (piece.belongs == nullptr && value.substr(at - least, least) != piece.text) continue;
    next_[at] = kYes;
    last_ = at;
    any = true;
  }
  reached_.swap(next_);
  return any;
}

}  // namespace nvadmin::mv
