// The code page against a list of its characters, and what is refused at the outer edge.
#include "engine/CodePage.h"

#include <gtest/gtest.h>

#include <random>
#include <set>
#include <string>

namespace nvadmin::engine {
namespace {

// The bytes 0x80 to 0x9F as text; the five that the page leaves unassigned as their C1 code points.
constexpr const char* kHighCharacters[32] = {
    "€", "\xC2\x81", "‚",        "ƒ", "„",        "…",        "†", "‡",        "ˆ", "‰", "Š",
    "‹", "Œ",        "\xC2\x8D", "Ž", "\xC2\x8F", "\xC2\x90", "‘", "’",        "“", "”", "•",
    "–", "—",        "˜",        "™", "š",        "›",        "œ", "\xC2\x9D", "ž", "Ÿ"};

// The UTF-8 form of one byte, found the slow way.
std::string Utf8Of(unsigned char byte) {
  if (byte < 0x80) return std::string(1, static_cast<char>(byte));
  if (byte < 0xA0) return kHighCharacters[byte - 0x80];
  return {static_cast<char>(byte < 0xC0 ? 0xC2 : 0xC3), static_cast<char>(0x80 | (byte & 0x3F))};
}

TEST(CodePage, EveryByteSurvivesARoundTrip) {
  std::set<std::string> forms;
  for (unsigned number = 0; number < 256; ++number) {
    const std::string byte(1, static_cast<char>(number));
    EXPECT_EQ(ToUtf8(byte), Utf8Of(static_cast<unsigned char>(number))) << number;
    EXPECT_TRUE(forms.insert(ToUtf8(byte)).second) << number;
    std::string back = "before";
    std::string refused;
    ASSERT_TRUE(FromUtf8(ToUtf8(byte), back, refused)) << refused;
    EXPECT_EQ(back, byte) << number;
  }
  EXPECT_EQ(CodePointOf(0x80), char32_t{0x20AC});
  EXPECT_EQ(CodePointOf(0x9D), char32_t{0x9D});
  EXPECT_EQ(CodePointOf(0xFE), char32_t{0xFE});
}

// Lengths and places around the eight-byte steps.
TEST(CodePage, MixedTextIsTheSumOfItsBytes) {
  const unsigned seed = 20240607;
  std::mt19937 random(seed);
  for (int round = 0; round < 4000; ++round) {
    const std::size_t length = random() % 41;
    const std::size_t asciiOutOf8 = random() % 9;
    std::string bytes;
    std::string want = "kept ";
    for (std::size_t at = 0; at < length; ++at) {
      const auto byte =
          static_cast<unsigned char>(random() % 8 < asciiOutOf8 ? random() % 128 : 128 + random() % 128);
      bytes += static_cast<char>(byte);
      want += Utf8Of(byte);
    }
    std::string out = "kept ";
    AppendUtf8(out, bytes);
    ASSERT_EQ(out, want) << "seed " << seed << ", round " << round;
    std::string back = "kept ";
    AppendFromStoredUtf8(back, std::string_view(out).substr(5));
    ASSERT_EQ(back, "kept " + bytes) << "seed " << seed << ", round " << round;
    std::string strict;
    std::string refused;
    ASSERT_TRUE(FromUtf8(std::string_view(out).substr(5), strict, refused)) << refused;
    ASSERT_EQ(strict, bytes) << "seed " << seed << ", round " << round;
  }
}

TEST(CodePage, RefusesWhatHasNoByteAndWhatIsBroken) {
  const struct {
    const char* name;
    std::string utf8;
    std::string refused;
    std::string stored;
  } kCases[] = {
      {"no byte, after ASCII of one step", "12345678ł", "U+0142 'ł' at character 9", "12345678?"},
      {"characters are counted, not bytes", "é€ł", "U+0142 'ł' at character 3", "\xE9\x80?"},
      {"three bytes beyond the table", "語x", "U+8A9E '語' at character 1", "?x"},
      {"four bytes", "a😀", "U+1F600 '😀' at character 2", "a?"},
      {"C1 of an assigned byte isn't shown", "\xC2\x80", "U+0080 at character 1", "?"},
      {"decomposed", "e\xCC\x81", "U+0301 '\xCC\x81' at character 2", "e?"},
      {"overlong slash", "ab\xC0\xAF", "the broken UTF-8 at byte 3", "ab??"},
      {"overlong in three", "\xE0\x82\x80", "the broken UTF-8 at byte 1", "???"},
      {"overlong in four", "\xF0\x82\x82\xAC", "the broken UTF-8 at byte 1", "????"},
      {"surrogate", "\xED\xA0\x80", "the broken UTF-8 at byte 1", "???"},
      {"beyond the last code point", "\xF4\x90\x80\x80", "the broken UTF-8 at byte 1", "????"},
      {"lone continuation", "abcdefg\x80", "the broken UTF-8 at byte 8", "abcdefg?"},
      {"cut at the end", "a\xE2\x82", "the broken UTF-8 at byte 2", "a??"},
      {"cut by another",
       "\xE2\x82"
       "A",
       "the broken UTF-8 at byte 1", "??A"},
      {"bytes that never occur", "\xFE\xFF", "the broken UTF-8 at byte 1", "??"},
      {"five-byte form", "\xF8\x88\x80\x80\x80", "the broken UTF-8 at byte 1", "?????"},
  };
  for (const auto& row : kCases) {
    std::string bytes = "unchanged";
    std::string refused;
    EXPECT_FALSE(FromUtf8(row.utf8, bytes, refused)) << row.name;
    EXPECT_EQ(refused, row.refused) << row.name;
    EXPECT_EQ(bytes, "unchanged") << row.name;
    EXPECT_EQ(ForeignText(row.utf8), row.stored) << row.name;
  }
}

TEST(CodePage, ReplacesTheTextThatItReads) {
  std::string text = "caf\xC3\xA9 \xE2\x82\xAC";
  std::string refused = "kept";
  ASSERT_TRUE(FromUtf8(text, text, refused));
  EXPECT_EQ(text, "caf\xE9 \x80");
  EXPECT_EQ(refused, "kept");
}

}  // namespace
}  // namespace nvadmin::engine
