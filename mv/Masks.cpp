#include "mv/Masks.h"

#include <algorithm>

#include "mv/ConversionRoutines.h"
#include "mv/Scan.h"

namespace nvadmin::mv {

namespace {

// A run of places with their fill, or one literal character.
struct MaskPiece {
  bool isPlaces = false;
  char character = 0;
  std::size_t count = 1;
};

bool TakePiece(std::string_view& rest, MaskPiece& piece) {
  if (rest.empty()) return false;
  const char first = rest.front();
  rest.remove_prefix(1);
  piece.isPlaces = first == '#' || first == '%' || first == '*';
  piece.character = first == '#' ? ' ' : first == '%' ? '0' : first;
  piece.count = 1;
  if (piece.isPlaces) TakeNumber(rest, piece.count);
  return true;
}

struct MaskSize {
  std::size_t places = 0;
  std::size_t total = 0;
};

// A mask too large to be printed counts just beyond the limit.
MaskSize Measure(std::string_view mask) {
  MaskSize size;
  MaskPiece piece;
  while (size.total <= kMaxResultBytes && TakePiece(mask, piece)) {
    size.total += piece.count;
    if (piece.isPlaces) size.places += piece.count;
  }
  return size;
}

// Appends a piece: of its places `before` stay unused, the next take from the text, the rest stay unused too.
void AppendPiece(const MaskPiece& piece, std::size_t& before, std::string_view& text, std::string& result) {
  if (!piece.isPlaces) {
    result.push_back(piece.character);
    return;
  }
  const std::size_t fill = std::min(piece.count, before);
  const std::size_t taken = std::min(piece.count - fill, text.size());
  result.append(fill, piece.character);
  result.append(text.substr(0, taken));
  result.append(piece.count - fill - taken, piece.character);
  before -= fill;
  text.remove_prefix(taken);
}

}  // namespace

std::string_view WithoutParentheses(std::string_view mask) {
  std::string_view rest = mask;
  std::string_view inner;
  return TakeParenthesised(rest, inner) && rest.empty() ? inner : mask;
}

std::size_t PlacesBefore(std::size_t unused, Justification justification) {
  switch (justification) {
    case Justification::kRight:
      return unused;
    case Justification::kCentred:
      return unused / 2;
    case Justification::kLeft:
    case Justification::kFolded:
      return 0;
  }
  return 0;
}

bool AppendInMask(std::string_view text, std::string_view mask, Justification justification,
                  std::string& result) {
  // Most masks are one piece, such as #12: it is taken but once.
  MaskPiece piece;
  if (!TakePiece(mask, piece)) return true;
  MaskSize size = Measure(mask);
  size.total += piece.count;
  if (piece.isPlaces) size.places += piece.count;
  if (size.total > kMaxResultBytes) return false;
  if (text.size() > size.places) {
    text = justification == Justification::kRight ? text.substr(text.size() - size.places)
                                                  : text.substr(0, size.places);
  }
  std::size_t before = PlacesBefore(size.places - text.size(), justification);
  result.reserve(result.size() + size.total);
  AppendPiece(piece, before, text, result);
  while (TakePiece(mask, piece)) AppendPiece(piece, before, text, result);
  return true;
}

bool TakeOutOfMask(std::string_view text, std::string_view mask, Justification justification,
                   std::string& result) {
  const MaskSize size = Measure(mask);
  if (size.places == size.total || text.size() > size.total) return false;
  std::size_t skipped = justification == Justification::kRight ? size.total - text.size() : 0;
  std::string taken;
  MaskPiece piece;
  while (!text.empty() && TakePiece(mask, piece)) {
    const std::size_t outside = std::min(piece.count, skipped);
    skipped -= outside;
    const std::string_view covered = text.substr(0, piece.count - outside);
    text.remove_prefix(covered.size());
    if (piece.isPlaces) {
      taken.append(covered);
    } else if (!covered.empty() && covered.front() != piece.character) {
      return false;
    }
  }
  const std::string_view trimmed = TrimBlanks(taken);
  result.append(trimmed);
  return !trimmed.empty();
}

}  // namespace nvadmin::mv
