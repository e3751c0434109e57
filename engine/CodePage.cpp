#include "engine/CodePage.h"

#include <fmt/format.h>

#include <array>
#include <bit>
#include <cstdint>
#include <cstring>

namespace nvadmin::engine {

namespace {

constexpr char32_t kHighestCodePoint = 0x2122;

// The UTF-8 form of a byte from 0x80 on: two or three bytes.
struct Utf8Form {
  char bytes[3];
  std::uint8_t length;
};

constexpr auto kUtf8Forms = [] {
  std::array<Utf8Form, 128> forms{};
  for (unsigned high = 0; high < forms.size(); ++high) {
    const char32_t point = CodePointOf(static_cast<unsigned char>(0x80 + high));
    const char last = static_cast<char>(0x80 | (point & 0x3F));
    if (point < 0x800) {
      forms[high] = {{static_cast<char>(0xC0 | (point >> 6)), last, 0}, 2};
    } else {
      const char middle = static_cast<char>(0x80 | ((point >> 6) & 0x3F));
      forms[high] = {{static_cast<char>(0xE0 | (point >> 12)), middle, last}, 3};
    }
  }
  return forms;
}();

// The byte of a code point up to the highest; 0 (but for code point 0) where it has none.
constexpr auto kBytes = [] {
  std::array<unsigned char, kHighestCodePoint + 1> bytes{};
  for (unsigned byte = 0; byte < 256; ++byte) {
    bytes[CodePointOf(static_cast<unsigned char>(byte))] = static_cast<unsigned char>(byte);
  }
  return bytes;
}();

constexpr std::uint64_t kHighBits = 0x8080808080808080;

std::uint64_t LoadEight(const char* at) {
  std::uint64_t word;
  std::memcpy(&word, at, sizeof word);
  return word;
}

// How many of the eight bytes stand before the first that isn't ASCII. Requires that there is one.
std::size_t AsciiBefore(std::uint64_t high) {
  const int bits =
      std::endian::native == std::endian::little ? std::countr_zero(high) : std::countl_zero(high);
  return static_cast<std::size_t>(bits) / 8;
}

// Copies ASCII from `in` to `out` and stops at the first other byte or at the end. Requires as much room at
// `out` as there is text at `in`: it may write up to that much beyond what it copies.
void CopyAscii(const char*& in, const char* end, char*& out) {
  while (end - in >= 8) {
    const std::uint64_t word = LoadEight(in);
    std::memcpy(out, &word, sizeof word);
    const std::uint64_t high = word & kHighBits;
    const std::size_t copied = high == 0 ? 8 : AsciiBefore(high);
    in += copied;
    out += copied;
    if (high != 0) return;
  }
  while (in != end && static_cast<signed char>(*in) >= 0) *out++ = *in++;
}

std::size_t CountHighBytes(std::string_view bytes) {
  const char* in = bytes.data();
  const char* const end = in + bytes.size();
  std::size_t count = 0;
  for (; end - in >= 8; in += 8) count += static_cast<std::size_t>(std::popcount(LoadEight(in) & kHighBits));
  for (; in != end; ++in) count += static_cast<signed char>(*in) < 0;
  return count;
}

// The valid UTF-8 character at `in`, from U+0080 on: its length and code point. Length 0: there is none.
std::size_t DecodeCharacter(const char* in, const char* end, char32_t& point) {
  const auto lead = static_cast<unsigned char>(*in);
  const std::size_t length = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : 2;
  if (lead < 0xC2 || lead > 0xF4 || static_cast<std::size_t>(end - in) < length) return 0;
  point = lead & (0xFFU >> (length + 1));
  for (std::size_t at = 1; at < length; ++at) {
    const auto next = static_cast<unsigned char>(in[at]);
    if ((next & 0xC0) != 0x80) return 0;
    point = point << 6 | (next & 0x3FU);
  }
  constexpr char32_t kLeastOfLength[] = {0, 0, 0x80, 0x800, 0x10000};
  const bool surrogate = point >= 0xD800 && point <= 0xDFFF;
  return point < kLeastOfLength[length] || surrogate || point > 0x10FFFF ? 0 : length;
}

// Writes the bytes of `in` until its end or the first character without a byte; `in` then stands there.
void DecodeKnown(const char*& in, const char* end, char*& out) {
  for (;;) {
    CopyAscii(in, end, out);
    if (in == end) return;
    char32_t point = 0;
    const std::size_t length = DecodeCharacter(in, end, point);
    if (length == 0 || point > kHighestCodePoint || kBytes[point] == 0) return;
    *out++ = static_cast<char>(kBytes[point]);
    in += length;
  }
}

std::string DescribeRefused(std::string_view utf8, const char* at) {
  const char* const end = utf8.data() + utf8.size();
  char32_t point = 0;
  const std::size_t length = DecodeCharacter(at, end, point);
  if (length == 0) return fmt::format("the broken UTF-8 at byte {}", at - utf8.data() + 1);
  // Everything before is valid, so each byte that continues no character begins one.
  std::size_t number = 1;
  for (const char* in = utf8.data(); in != at; ++in)
    number += (static_cast<unsigned char>(*in) & 0xC0) != 0x80;
  const std::string code = fmt::format("U+{:04X}", static_cast<std::uint32_t>(point));
  // A control character isn't shown: it would act on the terminal.
  if (point < 0xA0) return fmt::format("{} at character {}", code, number);
  return fmt::format("{} '{}' at character {}", code, std::string_view(at, length), number);
}

}  // namespace

std::string ToUtf8(std::string_view bytes) {
  std::string out;
  AppendUtf8(out, bytes);
  return out;
}

std::size_t Utf8Size(std::string_view bytes) {
  std::size_t size = bytes.size();
  if (CountHighBytes(bytes) == 0) return size;
  for (const char byte : bytes) {
    if (static_cast<signed char>(byte) < 0)
      size += kUtf8Forms[static_cast<unsigned char>(byte) - 0x80U].length - std::size_t{1};
  }
  return size;
}

void AppendUtf8(std::string& out, std::string_view bytes) {
  const std::size_t size = Utf8Size(bytes);
  if (size == bytes.size()) {
    out.append(bytes);
    return;
  }
  const std::size_t before = out.size();
  out.resize(before + size + 1);  // every form is copied as if it had three bytes
  char* to = out.data() + before;
  const char* in = bytes.data();
  const char* const end = in + bytes.size();
  for (;;) {
    CopyAscii(in, end, to);
    if (in == end) break;
    const Utf8Form& form = kUtf8Forms[static_cast<unsigned char>(*in++) - 0x80U];
    std::memcpy(to, form.bytes, sizeof form.bytes);
    to += form.length;
  }
  out.resize(static_cast<std::size_t>(to - out.data()));
}

bool FromUtf8(std::string_view utf8, std::string& bytes, std::string& refused) {
  std::string decoded(utf8.size(), '\0');
  char* to = decoded.data();
  const char* in = utf8.data();
  const char* const end = in + utf8.size();
  DecodeKnown(in, end, to);
  if (in != end) {
    refused = DescribeRefused(utf8, in);
    return false;
  }
  decoded.resize(static_cast<std::size_t>(to - decoded.data()));
  bytes = std::move(decoded);
  return true;
}

void AppendFromStoredUtf8(std::string& out, std::string_view utf8) {
  const std::size_t before = out.size();
  out.resize(before + utf8.size());
  char* to = out.data() + before;
  const char* in = utf8.data();
  const char* const end = in + utf8.size();
  for (;;) {
    DecodeKnown(in, end, to);
    if (in == end) break;
    char32_t point = 0;
    const std::size_t length = DecodeCharacter(in, end, point);
    *to++ = '?';
    in += length != 0 ? length : 1;
  }
  out.resize(static_cast<std::size_t>(to - out.data()));
}

std::string ForeignText(std::string_view utf8) {
  std::string text;
  AppendFromStoredUtf8(text, utf8);
  return text;
}

}  // namespace nvadmin::engine
