#include "engine/query/SortKeys.h"

#include <algorithm>

#include "engine/query/Criteria.h"
#include "engine/query/Order.h"
#include "engine/query/Text.h"

namespace nvadmin::engine {
namespace {

constexpr std::size_t kPrefixBytes = 8;

std::uint64_t PrefixOf(std::string_view key) {
  std::uint64_t prefix = 0;
  for (std::size_t at = 0; at < kPrefixBytes; ++at) {
    prefix = prefix << 8 | (at < key.size() ? static_cast<unsigned char>(key[at]) : 0U);
  }
  return prefix;
}

void AppendOrdinal(std::uint64_t ordinal, std::string& key) {
  for (int shift = 56; shift >= 0; shift -= 8) key += static_cast<char>(ordinal >> shift & 0xFF);
}

}  // namespace

bool SortKeys::Compile(const Query& query, Columns& columns, Dictionary& dictionary, std::string& error) {
  for (const SortField& field : query.sortFields) {
    std::size_t column = 0;
    if (!columns.Use(field.field.text, column)) {
      error = UnknownWord(field.field, field.descending ? "BY-DSND" : "BY", query);
      return false;
    }
    fields_.push_back({column, columns[column].numeric, field.descending});
  }
  if (query.verb->sortsById) {
    last_ = dictionary.HasNumericIds() ? LastKey::kIdAsNumber : LastKey::kIdAsText;
  }
  return true;
}

void SortKeys::Add(Row& row) {
  const std::size_t start = keys_.size();
  for (const Field& field : fields_) {
    const std::string_view values = row.Value(field.column);
    AppendOrderKey(values.substr(0, ValueLength(values)), field.numeric, field.descending, keys_);
  }
  switch (last_) {
    case LastKey::kAsFound:
      AppendOrdinal(entries_.size(), keys_);
      break;
    case LastKey::kIdAsNumber:
      AppendOrderKey(row.Id(), /*numeric=*/true, /*descending=*/false, keys_);
      break;
    case LastKey::kIdAsText:
      break;
  }
  keys_.append(row.Id());
  const std::size_t length = keys_.size() - start;
  entries_.push_back({PrefixOf(std::string_view(keys_).substr(start)), start,
                      static_cast<std::uint32_t>(length), static_cast<std::uint32_t>(row.Id().size())});
}

void SortKeys::Write(ResultGrid& grid) {
  const auto keyOf = [this](const Entry& entry) {
    return std::string_view(keys_).substr(entry.start, entry.length);
  };
  std::sort(entries_.begin(), entries_.end(), [&keyOf](const Entry& left, const Entry& right) {
    if (left.prefix != right.prefix) return left.prefix < right.prefix;
    return keyOf(left) < keyOf(right);
  });
  for (const Entry& entry : entries_) {
    const std::string_view key = keyOf(entry);
    grid.AppendCell(key.substr(key.size() - entry.idLength));
  }
}

}  // namespace nvadmin::engine
