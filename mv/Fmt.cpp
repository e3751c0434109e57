// FMT: {width{fill}}{justification}{decimals{scale}}{options}{mask}. The number is written first, then laid
// into the mask, then into lines of the width.
#include <algorithm>

#include "mv/ConversionRoutines.h"
#include "mv/Masks.h"
#include "mv/NumberFormat.h"
#include "mv/Scan.h"

namespace nvadmin::mv {

namespace {

// The engines' usual precision: a scale digit divides by ten to what it exceeds this.
constexpr int kUsualPrecision = 4;

// Parts the lines of a text that is broken at a width.
constexpr char kLineMark = '\xFB';

struct JustificationLetter {
  char letter;
  Justification justification;
};

constexpr JustificationLetter kJustificationLetters[] = {
    {'L', Justification::kLeft}, {'R', Justification::kRight},   {'T', Justification::kFolded},
    {'U', Justification::kLeft}, {'C', Justification::kCentred},
};

struct Layout {
  std::size_t width = 0;  // 0: no width form
  char fill = ' ';
  Justification justification = Justification::kLeft;
  bool writesNumber = false;
  NumberFormat number;
  std::string_view mask;
};

bool TakeJustification(std::string_view& rest, Justification& justification) {
  for (const JustificationLetter& row : kJustificationLetters) {
    if (!TakeCharacter(rest, row.letter)) continue;
    justification = row.justification;
    return true;
  }
  return false;
}

// A fill is one character; those that mean something else at this place stand in quotes.
void TakeFill(std::string_view& rest, char& fill) {
  std::string_view quoted;
  std::string_view behindQuotes = rest;
  Justification ignored;
  if (TakeQuoted(behindQuotes, quoted) && quoted.size() == 1) {
    fill = quoted.front();
    rest = behindQuotes;
  } else if (std::string_view behindLetter = rest;
             !rest.empty() && !TakeJustification(behindLetter, ignored)) {
    fill = rest.front();
    rest.remove_prefix(1);
  }
}

Layout ParseLayout(std::string_view rest) {
  Layout layout;
  if (TakeNumber(rest, layout.width)) TakeFill(rest, layout.fill);
  TakeJustification(rest, layout.justification);
  if (TakeDigit(rest, layout.number.places)) {
    layout.writesNumber = true;
    int scale = kUsualPrecision;
    TakeDigit(rest, scale);
    layout.number.shift = scale - kUsualPrecision;
  }
  if (TakeNumberOptions(rest, "Z,$", "CDEMN", layout.number)) layout.writesNumber = true;
  layout.mask = WithoutParentheses(rest);
  return layout;
}

// The part of the text that goes on the next line; it and a blank at which it breaks are taken off.
std::string_view TakeLine(std::string_view& text, const Layout& layout) {
  std::size_t end = std::min(layout.width, text.size());
  std::size_t behind = end;
  if (layout.justification == Justification::kFolded && end < text.size()) {
    const std::size_t blank = text.rfind(' ', end);
    if (blank != std::string_view::npos && blank > 0) {
      end = blank;
      behind = blank + 1;
    }
  }
  const std::string_view line = text.substr(0, end);
  text.remove_prefix(behind);
  return line;
}

bool AppendInLines(std::string_view text, const Layout& layout, std::string& result) {
  for (bool first = true; first || !text.empty(); first = false) {
    if (result.size() + layout.width >= kMaxResultBytes) return false;
    if (!first) result.push_back(kLineMark);
    const std::string_view line = TakeLine(text, layout);
    const std::size_t unused = layout.width - line.size();
    const std::size_t before = PlacesBefore(unused, layout.justification);
    result.append(before, layout.fill).append(line).append(unused - before, layout.fill);
  }
  return true;
}

bool AppendLaidOut(std::string_view value, const Layout& layout, std::string& result) {
  std::string written;
  NumberText number;
  if (layout.writesNumber && ParseNumber(value, number)) {
    AppendNumber(number, layout.number, written);
    value = written;
  }
  std::string masked;
  if (!layout.mask.empty()) {
    std::string& target = layout.width == 0 ? result : masked;
    if (!AppendInMask(value, layout.mask, layout.justification, target)) return false;
    value = target;
  }
  if (layout.width > 0) return AppendInLines(value, layout, result);
  if (layout.mask.empty()) result.assign(value);
  return true;
}

// Masks that are output codes of the date, decimal, time and character families.
bool IsOutputCode(std::string_view mask) {
  if (BeginsWith(mask, "D")) return IsDateCode(mask.substr(1));
  return BeginsWith(mask, "MD") || BeginsWith(mask, "MT") || BeginsWith(mask, "MC");
}

}  // namespace

std::string Fmt(std::string_view value, std::string_view mask) {
  if (mask.empty()) return std::string(value);
  if (IsOutputCode(mask)) return Oconv(value, mask);
  std::string result;
  if (!AppendLaidOut(value, ParseLayout(mask), result)) result = kInconvertible;
  return result;
}

}  // namespace nvadmin::mv
