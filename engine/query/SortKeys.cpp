#include "engine/query/SortKeys.h"

#include <algorithm>

#include "engine/Order.h"
#include "engine/query/Criteria.h"
#include "engine/query/Text.h"

namespace nvadmin::engine {
namespace {

using LastKey = ScanOrder::Last;

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
  const Word& saved = query.outcome.saved;
  std::size_t savedColumn = 0;
  const bool isSavedKnown = !saved.text.empty() && columns.Use(saved.text, savedColumn);
  neededBeside_ = columns.Needed();

  std::vector<bool> seen;  // a column that is named again sorts nothing
  for (const SortField& field : query.sortFields) {
    std::size_t column = 0;
    if (!columns.Use(field.field.text, column)) {
      error = UnknownWord(field.field, Capitals(field.lead.text), query);
      return false;
    }
    const std::size_t place = column * 2 + (field.explodes ? 1 : 0);
    if (seen.size() <= place) seen.resize(2 * columns.Size());
    if (seen[place]) continue;
    seen[place] = true;
    fields_.push_back({column, columns[column].numeric, field.descending, field.explodes});
    explodes_ = explodes_ || field.explodes;
  }
  if (!saved.text.empty() && !isSavedKnown) {
    error = UnknownWord(saved, "SAVING", query);
    return false;
  }
  if (isSavedKnown) saved_ = savedColumn;
  for (std::size_t at = 0; at < fields_.size(); ++at) {
    if (fields_[at].explodes && fields_[at].column == saved_) savedField_ = at;
  }
  if (query.verb->sortsById) {
    last_ = dictionary.HasNumericIds() ? LastKey::kNumericId : LastKey::kId;
  }
  order_ = MakeOrder(query, columns);
  values_.resize(fields_.size());
  waiting_.resize(fields_.size());
  return true;
}

std::optional<ScanOrder> SortKeys::MakeOrder(const Query& query, const Columns& columns) const {
  if (fields_.empty()) return {};
  ScanOrder order;
  for (const Field& field : fields_) {
    const Column& column = columns[field.column];
    if (field.explodes || !column.correlative.empty()) return {};
    if (column.attribute != kNoAttribute)
      order.keys.push_back({column.attribute, field.numeric, field.descending});
  }
  order.last = last_;
  order.most = query.outcome.MostItems();
  return order;
}

void SortKeys::Add(Row& row) {
  for (std::size_t at = 0; at < fields_.size(); ++at) waiting_[at] = row.Value(fields_[at].column);
  while (TakeValues()) {
    AddKey(row);
    if (!explodes_) return;
  }
}

// Takes the next value of each exploded field, and the first value of every other. False: there is none left.
bool SortKeys::TakeValues() {
  bool any = !explodes_;
  for (std::size_t at = 0; at < fields_.size(); ++at) {
    std::optional<std::string_view>& waiting = waiting_[at];
    const std::string_view rest = waiting.value_or(std::string_view());
    const std::size_t length = ValueLength(rest);
    values_[at] = rest.substr(0, length);
    if (!fields_[at].explodes) continue;
    any = any || waiting.has_value();
    if (length < rest.size()) {
      waiting = rest.substr(length + 1);
    } else {
      waiting.reset();
    }
  }
  return any;
}

void SortKeys::AddKey(Row& row) {
  const std::size_t start = keys_.size();
  for (std::size_t at = 0; at < fields_.size(); ++at) {
    AppendOrderKey(values_[at], fields_[at].numeric, fields_[at].descending, keys_);
  }
  switch (last_) {
    case LastKey::kAsScanned:
      AppendOrdinal(entries_.size(), keys_);
      break;
    case LastKey::kNumericId:
      AppendOrderKey(row.Id(), /*numeric=*/true, /*descending=*/false, keys_);
      break;
    case LastKey::kId:
      break;
  }
  if (saved_ && last_ != LastKey::kAsScanned) {
    AppendOrderKey(row.Id(), /*numeric=*/false, /*descending=*/false, keys_);
    AppendOrdinal(entries_.size(), keys_);
  }
  const std::string_view result = savedField_ ? values_[*savedField_] : ResultOf(row);
  keys_.append(result);
  const std::size_t length = keys_.size() - start;
  entries_.push_back({PrefixOf(std::string_view(keys_).substr(start)), start,
                      static_cast<std::uint32_t>(length), static_cast<std::uint32_t>(result.size())});
  isInOrder_ =
      isInOrder_ && (entries_.size() < 2 || !IsBelow(entries_.back(), entries_[entries_.size() - 2]));
}

void SortKeys::Write(std::size_t most, const ResultVisitor& visit) {
  const auto isBelow = [this](const Entry& left, const Entry& right) { return IsBelow(left, right); };
  const std::size_t count = most > 0 ? std::min(most, entries_.size()) : entries_.size();
  if (!isInOrder_ && count < entries_.size()) {
    std::partial_sort(entries_.begin(), entries_.begin() + static_cast<std::ptrdiff_t>(count), entries_.end(),
                      isBelow);
  } else if (!isInOrder_) {
    std::sort(entries_.begin(), entries_.end(), isBelow);
  }
  for (std::size_t at = 0; at < count; ++at) {
    const std::string_view key = KeyOf(entries_[at]);
    if (!visit(key.substr(key.size() - entries_[at].resultLength))) return;
  }
}

}  // namespace nvadmin::engine
