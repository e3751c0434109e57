// The code page against a list of its characters, and what is refused at the outer edge.
#include "engine/CodePage.h"

#include <gtest/gtest.h>

#include <random>
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

// Lengths and places around the eight-byte steps; in 4000 rounds each byte comes many times.
TEST(CodePage, TextIsTheSumOfItsBytesAndSurvivesARoundTrip) {
  std::mt19937 random(20240607);
  for (int round = 0; round < 4000; ++round) {
    const std::size_t length = random() % 41;
    const std::size_t asciiOutOf8 = random() % 9;
    std::string bytes, want;
    for (std::size_t at = 0; at < length; ++at) {
      const auto byte = static_cast<unsigned char>(random() % 128 + (random() % 8 < asciiOutOf8 ? 0 : 128));
      bytes += static_cast<char>(byte);
      want += Utf8Of(byte);
    }
    std::string out = "kept ", back = "kept ", refused = "kept";
    AppendUtf8(out, bytes);
    ASSERT_EQ(out, "kept " + want) << round;
    AppendFromStoredUtf8(back, want);
    ASSERT_EQ(back, "kept " + bytes) << round;
    std::string text = ToUtf8(bytes);  // the text that is read may be the one that is replaced
    ASSERT_TRUE(FromUtf8(text, text, refused)) << refused;
    ASSERT_EQ(text, bytes) << round;
    ASSERT_EQ(refused, "kept");
  }
  EXPECT_EQ(CodePointOf(0x80), char32_t{0x20AC});
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
      {"four bytes", "a😀", "U+1F600 '😀' at character 2", "a?"},
      {"C1 of an assigned byte isn't shown", "\xC2\x80", "U+0080 at character 1", "?"},
      {"overlong slash", "ab\xC0\xAF", "the broken UTF-8 at byte 3", "ab??"},
      {"overlong in four", "\xF0\x82\x82\xAC", "the broken UTF-8 at byte 1", "????"},
      {"surrogate", "\xED\xA0\x80", "the broken UTF-8 at byte 1", "???"},
      {"beyond the last code point", "\xF4\x90\x80\x80", "the broken UTF-8 at byte 1", "????"},
      {"lone continuation", "abcdefg\x80", "the broken UTF-8 at byte 8", "abcdefg?"},
      {"cut at the end", "a\xE2\x82", "the broken UTF-8 at byte 2", "a??"},
      {"cut by another", "\xE2\x82Z", "the broken UTF-8 at byte 1", "??Z"},
      {"bytes that never occur", "\xFE\xFF", "the broken UTF-8 at byte 1", "??"},
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

}  // namespace
}  // namespace nvadmin::engine
