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
  const MaskSize size = Measure(mask);
  if (size.total > kMaxResultBytes) return false;
  if (text.size() > size.places) {
    text = justification == Justification::kRight ? text.substr(text.size() - size.places)
                                                  : text.substr(0, size.places);
  }
  std::size_t before = PlacesBefore(size.places - text.size(), justification);
  result.reserve(result.size() + size.total);
  MaskPiece piece;
  while (TakePiece(mask, piece)) {
    if (!piece.isPlaces) {
      result.push_back(piece.character);
      continue;
    }
    const std::size_t fill = std::min(piece.count, before);
    const std::size_t taken = std::min(piece.count - fill, text.size());
    result.append(fill, piece.character);
    result.append(text.substr(0, taken));
    result.append(piece.count - fill - taken, piece.character);
    before -= fill;
    text.remove_prefix(taken);
  }
  return true;
}

}  // namespace nvadmin::mv
