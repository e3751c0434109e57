#include "engine/stores/StoredText.h"

#include <algorithm>
#include <cstring>

#include "engine/CodePage.h"
#include "engine/Marks.h"

namespace nvadmin::engine {

namespace {

constexpr std::string_view kStoredMark = "\xC3\xBE";  // the attribute mark in UTF-8
constexpr std::string_view kRawMark = "\xFE";         // and in a blob

// Where the attribute mark next stands from `at` on.
std::size_t FindMark(std::string_view item, std::string_view mark, std::size_t at) {
  // The last byte of the mark is the rarer one in text.
  for (std::size_t found = at + mark.size() - 1; found < item.size(); ++found) {
    found = item.find(mark.back(), found);
    if (found == std::string_view::npos) break;
    if (item[found + 1 - mark.size()] == mark.front()) return found + 1 - mark.size();
  }
  return std::string_view::npos;
}

// What SQLite gives as a pointer and a length; an empty text has no pointer.
std::string_view BytesAt(const void* bytes, int size) {
  if (bytes == nullptr) return {};
  return {static_cast<const char*>(bytes), static_cast<std::size_t>(size)};
}

}  // namespace

bool IsAscii(std::string_view text) {
  std::size_t at = 0;
  for (; at + 8 <= text.size(); at += 8) {
    std::uint64_t eight = 0;
    std::memcpy(&eight, text.data() + at, 8);
    if ((eight & 0x8080808080808080U) != 0) return false;
  }
  for (; at < text.size(); ++at) {
    if (static_cast<unsigned char>(text[at]) >= 0x80) return false;
  }
  return true;
}

std::size_t AsciiPrefix(std::string_view text) {
  const auto beyond = std::find_if(text.begin(), text.end(),
                                   [](char letter) { return static_cast<unsigned char>(letter) >= 0x80; });
  return static_cast<std::size_t>(beyond - text.begin());
}

std::string_view AsUtf8(std::string_view bytes, std::string& memory) {
  if (IsAscii(bytes)) return bytes;
  memory.clear();
  AppendUtf8(memory, bytes);
  return memory;
}

StoredValue StoredColumn(sqlite3_stmt* statement, int column) {
  const bool isBlob = sqlite3_column_type(statement, column) == SQLITE_BLOB;
  const void* bytes = sqlite3_column_blob(statement, column);
  return {BytesAt(bytes, sqlite3_column_bytes(statement, column)), isBlob};
}

StoredValue StoredArgument(sqlite3_value* argument) {
  const bool isBlob = sqlite3_value_type(argument) == SQLITE_BLOB;
  const void* bytes = sqlite3_value_blob(argument);
  return {BytesAt(bytes, sqlite3_value_bytes(argument)), isBlob};
}

std::string_view InCodePage(const StoredValue& value, std::string& memory) {
  if (value.isBlob || IsAscii(value.bytes)) return value.bytes;
  memory.clear();
  AppendFromStoredUtf8(memory, value.bytes);
  return memory;
}

void AppendStored(std::string& out, const StoredValue& value) {
  if (value.isBlob) {
    out.append(value.bytes);
  } else {
    AppendFromStoredUtf8(out, value.bytes);
  }
}

void JoinStored(std::string& item, sqlite3_stmt* statement, int first) {
  item.clear();
  const int columns = sqlite3_column_count(statement);
  for (int column = first; column < columns; ++column) {
    if (column > first) item += kAttributeMark;
    AppendStored(item, StoredColumn(statement, column));
  }
  item.resize(item.find_last_not_of(kAttributeMark) + 1);
}

void CutStored(const StoredValue& item, std::span<const AttributeCut> cuts, std::span<StoredValue> results) {
  const std::string_view mark = item.isBlob ? kRawMark : kStoredMark;
  std::int32_t attribute = 1;
  std::size_t start = 0;
  for (std::size_t next = 0; next < cuts.size(); ++attribute) {
    const std::size_t end = FindMark(item.bytes, mark, start);
    for (; next < cuts.size() && cuts[next].attribute == attribute; ++next) {
      results[cuts[next].result] = {item.bytes.substr(start, end - start), item.isBlob};
    }
    if (end == std::string_view::npos) return;
    start = end + mark.size();
  }
}

int CompareInCodePage(void* /*unused*/, int leftSize, const void* left, int rightSize, const void* right) {
  const std::string_view first(static_cast<const char*>(left), static_cast<std::size_t>(leftSize));
  const std::string_view second(static_cast<const char*>(right), static_cast<std::size_t>(rightSize));
  if (IsAscii(first) && IsAscii(second)) return first.compare(second);
  std::string firstBytes;
  std::string secondBytes;
  AppendFromStoredUtf8(firstBytes, first);
  AppendFromStoredUtf8(secondBytes, second);
  return firstBytes.compare(secondBytes);
}

}  // namespace nvadmin::engine
