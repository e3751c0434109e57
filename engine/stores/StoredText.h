// Text as SQLite keeps it: UTF-8 with a character for each byte of the code page, and how items are made of
// it. What is ASCII, most text, is the same in both and never copied. A blob, which only SQL of the user can
// have stored, is bytes of the code page already; numbers come as their text, and NULL as empty.
#pragma once

#include <sqlite3.h>

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace nvadmin::engine {

bool IsAscii(std::string_view text);
// How many bytes stand before the first one beyond ASCII.
std::size_t AsciiPrefix(std::string_view text);
// UTF-8 of `bytes`: the bytes themselves when they are ASCII, else a text in `memory`.
std::string_view AsUtf8(std::string_view bytes, std::string& memory);

struct StoredValue {
  std::string_view bytes;
  bool isBlob = false;
};

// A column of the row at which a statement stands, from 0. Valid until its next step or reset.
StoredValue StoredColumn(sqlite3_stmt* statement, int column);
// An argument of a function of ours. Valid during its call.
StoredValue StoredArgument(sqlite3_value* argument);
// The code page form: the bytes themselves where they are that already, else a text in `memory`.
std::string_view InCodePage(const StoredValue& value, std::string& memory);
// Appends the code page form.
void AppendStored(std::string& out, const StoredValue& value);
// Makes `item` of the columns from `first` on, an attribute each, without trailing empty ones.
void JoinStored(std::string& item, sqlite3_stmt* statement, int first);

// An attribute to cut from an item, and the index that its value has among the results.
struct AttributeCut {
  std::int32_t attribute = 0;
  std::size_t result = 0;
};

// Cuts attributes (numbers ascending, from 1 up) from an item in one pass. Results of attributes behind the
// item's end stay as they are.
void CutStored(const StoredValue& item, std::span<const AttributeCut> cuts, std::span<StoredValue> results);

// A collation for SQLite: the order of the bytes of the code page.
int CompareInCodePage(void* unused, int leftSize, const void* left, int rightSize, const void* right);

}  // namespace nvadmin::engine
