#include "engine/query/Pattern.h"

#include <algorithm>

#include "engine/query/Text.h"

namespace nvadmin::engine {
namespace {

constexpr std::size_t kHugeCount = 1'000'000'000;
constexpr std::string_view kAnything = "...";

bool IsLetter(char character) { return Capital(character) >= 'A' && Capital(character) <= 'Z'; }
bool IsAny(char /*character*/) { return true; }

struct PatternClass {
  char letter;
  bool (*belongs)(char);
};
constexpr PatternClass kClasses[] = {{'N', IsDigit}, {'A', IsLetter}, {'X', IsAny}};

// Takes a count and a class letter off the front of `rest`; null, with `rest` as it was, when none stands
// there.
const PatternClass* TakeClass(std::string_view& rest, std::size_t& count) {
  std::size_t digits = 0;
  count = 0;
  for (; digits < rest.size() && IsDigit(rest[digits]); ++digits) {
    count = std::min(count * 10 + static_cast<std::size_t>(rest[digits] - '0'), kHugeCount);
  }
  if (digits == 0 || digits == rest.size()) return nullptr;
  const PatternClass* row =
      std::find_if(std::begin(kClasses), std::end(kClasses),
                   [&](const PatternClass& candidate) { return candidate.letter == Capital(rest[digits]); });
  if (row == std::end(kClasses)) return nullptr;
  rest.remove_prefix(digits + 1);
  return row;
}

// Takes a quoted text, or else a single character.
std::string_view TakeLiteral(std::string_view& rest) {
  const bool isQuote = rest[0] == '\'' || rest[0] == '"';
  const std::size_t end = isQuote ? rest.find(rest[0], 1) : std::string_view::npos;
  const std::string_view literal =
      end == std::string_view::npos ? rest.substr(0, 1) : rest.substr(1, end - 1);
  rest.remove_prefix(end == std::string_view::npos ? 1 : end + 1);
  return literal;
}

}  // namespace

// Neighbours that amount to one piece become one.
void Pattern::Add(Piece piece) {
  if (piece.belongs == IsAny && piece.IsOpen()) {
    while (!pieces_.empty() && pieces_.back().IsOpen()) pieces_.pop_back();
  }
  const bool hasBefore = !pieces_.empty();
  if (hasBefore && piece.belongs == nullptr && pieces_.back().belongs == nullptr) {
    pieces_.back().text += piece.text;
  } else if (hasBefore && piece.IsOpen() && pieces_.back().IsOpen() &&
             (pieces_.back().belongs == IsAny || pieces_.back().belongs == piece.belongs)) {
    return;
  } else {
    pieces_.push_back(std::move(piece));
  }
}

bool Pattern::Read(std::string_view text) {
  pieces_.clear();
  if (text.size() > kMostCharacters) return false;
  while (!text.empty()) {
    Piece piece;
    if (text.starts_with(kAnything)) {
      text.remove_prefix(std::min(text.find_first_not_of('.'), text.size()));
      piece.belongs = IsAny;
    } else if (const PatternClass* row = TakeClass(text, piece.count)) {
      piece.belongs = row->belongs;
    } else {
      piece.text = TakeLiteral(text);
      if (piece.text.empty()) continue;
    }
    Add(std::move(piece));
  }
  least_ = 0;
  anyOpen_ = false;
  literal_.clear();
  for (const Piece& piece : pieces_) {
    least_ += piece.Least();
    anyOpen_ = anyOpen_ || piece.IsOpen();
    if (piece.text.size() > literal_.size()) literal_ = piece.text;
  }
  return true;
}

bool Pattern::Matches(std::string_view value) {
  if (value.size() < least_ || (!anyOpen_ && value.size() != least_)) return false;
  reached_.assign(value.size() + 1, 0);
  reached_[0] = 1;
  last_ = 0;
  for (const Piece& piece : pieces_) {
    if (piece.IsOpen()) {
      AdvanceOpen(piece, value);
    } else if (!AdvanceFixed(piece, value)) {
      return false;
    }
  }
  return reached_.back() != 0;
}

void Pattern::AdvanceOpen(const Piece& piece, std::string_view value) {
  for (std::size_t at = 0; at < value.size(); ++at) {
    if (reached_[at] == 0 || !piece.belongs(value[at])) continue;
    reached_[at + 1] = 1;
    last_ = std::max(last_, at + 1);
  }
}

// False when nothing matches any more.
bool Pattern::AdvanceFixed(const Piece& piece, std::string_view value) {
  const std::size_t least = piece.Least();
  const std::size_t end = std::min(last_ + least, value.size());
  next_.assign(reached_.size(), 0);
  bool any = false;
  std::size_t run = 0;  // how many characters of the class end here
  for (std::size_t at = 1; at <= end; ++at) {
    run = piece.belongs == nullptr || piece.belongs(value[at - 1]) ? run + 1 : 0;
    if (run < least || reached_[at - least] == 0) continue;
    if (piece.belongs == nullptr && value.substr(at - least, least) != piece.text) continue;
    next_[at] = 1;
    last_ = at;
    any = true;
  }
  reached_.swap(next_);
  return any;
}

}  // namespace nvadmin::engine
