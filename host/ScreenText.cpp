#include "host/ScreenText.h"

#include <array>
#include <charconv>
#include <cstring>
#include <random>

#include <fmt/format.h>

#include "engine/CodePage.h"
#include "engine/Marks.h"

namespace nvadmin::host {

namespace {

constexpr char kEscape = '\x1B';
constexpr char kDelete = '\x7F';
constexpr char32_t kControlPictures = 0x2400;  // U+2400 + n shows control character n
constexpr char32_t kDeletePicture = 0x2421;
constexpr std::string_view kReplacementCharacter = "\xEF\xBF\xBD";

constexpr std::string_view kClearScreen = "\x1B[H\x1B[2J";
constexpr std::string_view kClearToEnd = "\x1B[J";

constexpr bool IsPlain(char byte) { return byte >= ' ' && byte < kDelete; }

// A code point from U+0800 to U+FFFF.
std::string ThreeBytes(char32_t point) {
  return {static_cast<char>(0xE0 | point >> 12), static_cast<char>(0x80 | (point >> 6 & 0x3F)),
          static_cast<char>(0x80 | (point & 0x3F))};
}

std::string ShownForm(char byte) {
  const auto number = static_cast<unsigned char>(byte);
  if (byte == engine::kAttributeMark) return "^";
  if (byte == engine::kValueMark) return "]";
  if (byte == engine::kSubvalueMark) return "\\";
  if (number < ' ') return ThreeBytes(kControlPictures + number);
  if (byte == kDelete) return ThreeBytes(kDeletePicture);
  const char32_t point = engine::CodePointOf(number);
  if (point >= 0x80 && point < 0xA0) return std::string(kReplacementCharacter);
  return engine::ToUtf8(std::string_view(&byte, 1));
}

// What each byte shows as, up to three bytes of UTF-8.
class ShownForms {
 public:
  ShownForms() {
    for (int number = 0; number < 256; ++number) {
      const std::string form = ShownForm(static_cast<char>(number));
      std::memcpy(forms_[number].bytes, form.data(), form.size());
      forms_[number].size = static_cast<unsigned char>(form.size());
    }
  }
  std::string_view Of(char byte) const {
    const Form& form = forms_[static_cast<unsigned char>(byte)];
    return {form.bytes, form.size};
  }

 private:
  struct Form {
    char bytes[3] = {};
    unsigned char size = 0;
  };
  std::array<Form, 256> forms_;
};

// How many bytes at the front of the text are the same in UTF-8 and act on no terminal.
std::size_t PlainLength(std::string_view text) {
  std::size_t length = 0;
  while (length < text.size() && IsPlain(text[length])) ++length;
  return length;
}

// The number at the front of the text, up to its ";"; both are taken away. False when there is none.
bool TakeNumber(std::string_view& text, std::int32_t& number) {
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || end == text.data() + text.size() || *end != ';') return false;
  text.remove_prefix(static_cast<std::size_t>(end - text.data()) + 1);
  return true;
}

}  // namespace

ScreenText::ScreenText(bool hasCursor, std::string_view lineEnd) : lineEnd_(lineEnd) {
  if (!hasCursor) return;
  std::random_device random;
  tokenStart_ = fmt::format("{}{:08x}{:08x}:", kEscape, random(), random());
}

std::string ScreenText::CursorString(std::int32_t column, std::int32_t row) const {
  const bool isPlace = column >= 0 && row >= 0;
  const bool isClear = row == -1 && (column == -1 || column == -3);
  if (tokenStart_.empty() || (!isPlace && !isClear)) return {};
  return fmt::format("{}{};{};", tokenStart_, column, row);
}

std::string_view ScreenText::CursorWord() const {
  if (tokenStart_.empty()) return {};
  return std::string_view(tokenStart_).substr(1, tokenStart_.size() - 2);
}

// The length of the cursor string at the front of the text, whose control it appends; 0 when there is none.
std::size_t ScreenText::AppendCursorControl(std::string& out, std::string_view text) const {
  if (tokenStart_.empty() || !text.starts_with(tokenStart_)) return 0;
  std::string_view rest = text.substr(tokenStart_.size());
  std::int32_t column = 0;
  std::int32_t row = 0;
  if (!TakeNumber(rest, column) || !TakeNumber(rest, row)) return 0;
  if (row >= 0) {
    fmt::format_to(std::back_inserter(out), "\x1B[{};{}H", std::int64_t{row} + 1, std::int64_t{column} + 1);
  } else {
    out += column == -1 ? kClearScreen : kClearToEnd;
  }
  return text.size() - rest.size();
}

void ScreenText::Append(std::string& out, std::string_view text, bool lineEnd) {
  static const ShownForms kShown;
  std::size_t lineStart = out.size();  // of what this call adds to the open line
  const auto startLine = [&] {
    openLine_.clear();
    lineStart = out.size();
  };
  for (;;) {
    const std::size_t plain = PlainLength(text);
    out.append(text, 0, plain);
    text.remove_prefix(plain);
    if (text.empty()) break;
    std::size_t taken = 1;
    if (text.starts_with("\r\n")) {
      taken = 2;
      out += lineEnd_;
      startLine();
    } else if (const std::size_t control = text.front() == kEscape ? AppendCursorControl(out, text) : 0) {
      taken = control;
      startLine();
    } else {
      out += kShown.Of(text.front());
    }
    text.remove_prefix(taken);
  }
  if (lineEnd) {
    out += lineEnd_;
    startLine();
  }
  openLine_.append(out, lineStart);
}

}  // namespace nvadmin::host
