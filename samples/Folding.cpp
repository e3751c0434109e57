#include "samples/Folding.h"

#include <fmt/format.h>

#include <cstddef>
#include <cstdint>

#include "engine/CodePage.h"

namespace nvadmin::samples {
namespace {

// From this byte on the code page's letters serve as marks.
constexpr unsigned kFirstMark = 0xFA;

// A row of neighbouring code points, each with its base letter.
struct Run {
  char32_t first;
  std::string_view letters;
};

constexpr Run kRuns[] = {
    {0x00FA, "uuuy"},  // the page's own letters on the bytes of the marks
    // Latin Extended-A: macron, breve, ogonek, caron, cedilla, double acute, stroke, dotless i
    {0x0100,
     "AaAaAaCcCcCcCcDdDdEeEeEeEeEeGgGgGgGgHhHhIiIiIiIiIiIiJjKkkLlLlLlL"
     "lLlNnNnNnnNnOoOoOoOoRrRrRrSsSsSsSsTtTtTtUuUuUuUuUuUuWwYyYZzZzZzs"},
    {0x01A0, "Oo"},                            // horn
    {0x01AF, "Uu"},                            // horn
    {0x01CD, "AaIiOoUuUuUuUuUue"},             // caron; ends in the turned e
    {0x0200, "AaAaEeEeIiIiOoOoRrRrUuUuSsTt"},  // double grave, inverted breve, comma below
    {0x0253, "bocddee"},                       // hooks, open o, reversed e; ends in the schwa
    {0x025B, "e"},                             // open e
    {0x0268, "i"},                             // barred i
    // Latin Extended Additional: dot, line and cedilla below, ring, and the stacked accents of Vietnamese
    {0x1E00,
     "AaBbBbBbCcDdDdDdDdDdEeEeEeEeEeFfGgHhHhHhHhHhIiIiKkKkKkLlLlLlLlMm"
     "MmMmNnNnNnNnOoOoOoOoPpPpRrRrRrRrSsSsSsSsSsTtTtTtTtUuUuUuUuUuVvVv"
     "WwWwWwWwWwXxXxYyZzZzZzhtwyasssSdAaAaAaAaAaAaAaAaAaAaAaAaEeEeEeEe"
     "EeEeEeEeIiIiOoOoOoOoOoOoOoOoOoOoOoOoUuUuUuUuUuUuUuYyYyYyYyLlVvYy"},
};

struct Spelling {
  char32_t character;
  std::string_view text;
};

// Looked up before the runs.
constexpr Spelling kSpellings[] = {
    {0x00FE, "th"},   {0x00FF, "y"},    {0x0132, "IJ"}, {0x0133, "ij"},
    {0x014A, "Ng"},   {0x014B, "ng"},                                   // eng
    {0x01C0, "|"},    {0x01C1, "||"},   {0x01C2, "="},  {0x01C3, "!"},  // click letters
    {0x02BB, "\x91"}, {0x02BC, "\x92"},                                 // apostrophes that count as letters
};

bool IsCombiningAccent(char32_t character) { return character >= 0x0300 && character <= 0x036F; }

// The code point that begins at `position`, which moves behind it.
char32_t TakeCodePoint(std::string_view utf8, std::size_t& position) {
  const auto lead = static_cast<unsigned char>(utf8[position++]);
  if (lead < 0x80) return lead;
  const int tailBytes = lead >= 0xF0 ? 3 : lead >= 0xE0 ? 2 : 1;
  char32_t character = lead & (0x3Fu >> tailBytes);
  for (int i = 0; i < tailBytes && position < utf8.size(); ++i) {
    character = character << 6 | (static_cast<unsigned char>(utf8[position++]) & 0x3Fu);
  }
  return character;
}

bool AppendPageByte(std::string& out, char32_t character) {
  if (character >= 0xA0 && character < kFirstMark) {
    out += static_cast<char>(character);
    return true;
  }
  // The bytes 128 to 159 stand for characters from all over.
  for (unsigned byte = 0x80; byte < 0xA0; ++byte) {
    if (engine::CodePointOf(static_cast<unsigned char>(byte)) != character) continue;
    out += static_cast<char>(byte);
    return true;
  }
  return false;
}

void AppendFolded(std::string& out, char32_t character) {
  if (AppendPageByte(out, character) || IsCombiningAccent(character)) return;
  for (const Spelling& spelling : kSpellings) {
    if (spelling.character != character) continue;
    out += spelling.text;
    return;
  }
  for (const Run& run : kRuns) {
    if (character < run.first || character - run.first >= run.letters.size()) continue;
    out += run.letters[character - run.first];
    return;
  }
  out += fmt::format("{{U+{:04X}}}", static_cast<std::uint32_t>(character));
}

}  // namespace

std::string FoldName(std::string_view utf8) {
  std::string folded;
  folded.reserve(utf8.size());
  for (std::size_t position = 0; position < utf8.size();) {
    const char32_t character = TakeCodePoint(utf8, position);
    if (character < 0x80) {
      folded += static_cast<char>(character);
    } else {
      AppendFolded(folded, character);
    }
  }
  return folded;
}

}  // namespace nvadmin::samples
