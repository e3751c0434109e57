// Fuzz target of the multivalue helper. An input is a code or mask on its first line, what a user typed on
// its second, and behind them a value, all as plain bytes with their marks.
//
// Every call ends, within its limits; and what the functions answer fits together: a replaced part is
// extracted again, the parts of a text make up the text, exactly one of less, equal and greater holds, what
// was read under a code can be shown under it.
//
// The corpus runs among the tests. To search for new inputs, with clang and its fuzzer runtime
// (libclang-rt-14-dev):
//   cmake --preset dev -B build/fuzz -DNVADMIN_FUZZ=ON -DCMAKE_CXX_COMPILER=clang++
//     -DCMAKE_CXX_FLAGS=-fsanitize=fuzzer-no-link,address,undefined
//   ninja -C build/fuzz fuzz_conversions
//   build/fuzz/bin/fuzz_conversions -max_len=1000 -dict=tests/fuzz/conversions.dict -max_total_time=180
//     FOLDER tests/fuzz/corpus/conversions
// New inputs go to FOLDER; one that fails is written beside it, and belongs into the corpus once it is
// mended.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "mv/Conversions.h"
#include "mv/DynamicArray.h"
#include "mv/EngineHooks.h"

namespace nvadmin::mv {
namespace {

constexpr std::size_t kMostBytes = 5'000'000;

void Require(bool holds) {
  if (!holds) std::abort();
}

std::string_view TakeLine(std::string_view& rest) {
  const std::string_view line = rest.substr(0, rest.find('\n'));
  rest.remove_prefix(std::min(line.size() + 1, rest.size()));
  return line;
}

void Convert(std::string_view code, std::string_view typed, std::string_view value) {
  // A file whose every item leads back to itself, and a column SELF that computes with itself.
  Hooks().readItem = [](std::string_view, std::string_view id, std::string& item) {
    item.assign(id).append("\xFEtwo\xFDparts");
    return !id.starts_with("none");
  };
  ConversionContext context{true, value, typed, nullptr};
  context.column = [&](std::string_view name, std::string& text) {
    text = name == "SELF" ? Oconv(value, code, context) : std::string(name);
    return text != kInconvertible;
  };
  Require(Oconv(value, code).size() <= kMostBytes);
  Require(Oconv(value, code, context).size() <= kMostBytes);
  Require(Fmt(value, code).size() <= kMostBytes);

  std::string stored = "untouched";
  if (!Iconv(typed, code, stored)) Require(stored == "untouched");
  const bool isOneCode = code.find(kValueMark) == std::string_view::npos;
  const bool readsDate = code.size() > 1 && (code[1] == 'I' || code[1] == 'i');
  if (isOneCode && code.starts_with('D') && !readsDate && Iconv(typed, code, stored))
    Require(Oconv(stored, code) != kInconvertible);
  if (isOneCode && (code.starts_with("MD") || code.starts_with("MT")) && Iconv(typed, code, stored))
    Require(stored.empty() ? typed.empty() : IsNumeric(stored));
}

// Masks and positions of the size of small numbers in the input.
void LayOut(std::size_t width, std::string_view value) {
  for (const char* justification : {"L#", "R#", "C#"})
    Require(Fmt(value, justification + std::to_string(width)).size() == width);
}

void ChangeArray(std::string_view code, std::string_view content, std::string_view text) {
  const auto position = [&](std::size_t at) {
    return at < code.size() ? static_cast<std::int32_t>(static_cast<unsigned char>(code[at])) - 1 : 0;
  };
  const std::int32_t attribute = position(0);
  const std::int32_t value = position(1);
  const std::int32_t subvalue = position(2);
  const std::string changed = Replace(text, attribute, value, subvalue, content);
  const bool isPlain = content.find_first_of("\xFE\xFD\xFC") == std::string_view::npos;
  const bool hasPosition = attribute > 0 || value > 0 || subvalue > 0;
  if (isPlain && hasPosition && std::min({attribute, value, subvalue}) >= 0)
    Require(Extract(changed, attribute, value, subvalue) == content);
  if (isPlain && attribute < 0 && value == 0 && subvalue == 0 && !content.empty())
    Require(Extract(changed, Count(changed, "\xFE")) == content);
}

void SearchText(std::string_view typed, std::string_view text) {
  const std::string_view delimiter = typed.substr(0, 1);
  if (!delimiter.empty() && !text.empty()) {
    std::string joined;
    const std::int32_t parts = Count(text, delimiter);
    for (std::int32_t part = 1; part <= parts; ++part)
      joined.append(part == 1 ? "" : delimiter).append(Field(text, delimiter, part));
    Require(joined == text);
    Require(Field(text, delimiter, parts + 1).empty());
  }
  for (std::int32_t occurrence = 1, before = 0; !typed.empty(); ++occurrence) {
    const std::int32_t at = Index(text, typed, occurrence);
    if (at == 0) break;
    Require(at > before && text.substr(static_cast<std::size_t>(at - 1)).starts_with(typed));
    before = at;
  }
  const std::int32_t found = Locate(typed, text);
  if (found > 0) Require(Extract(text, found) == typed);
  Require(Compare(typed, "<", text) + Compare(typed, "=", text) + Compare(typed, ">", text) == 1);
  Require(Compare(typed, "<", text) == Compare(text, ">", typed));
}

}  // namespace
}  // namespace nvadmin::mv

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::string_view rest(reinterpret_cast<const char*>(data), size);
  const std::string_view code = nvadmin::mv::TakeLine(rest);
  const std::string_view typed = nvadmin::mv::TakeLine(rest);
  nvadmin::mv::Convert(code, typed, rest);
  nvadmin::mv::LayOut(typed.size(), rest);
  nvadmin::mv::ChangeArray(code, typed, rest);
  nvadmin::mv::SearchText(typed, rest);
  return 0;
}
