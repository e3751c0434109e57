#include "engine/query/Columns.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <utility>

#include "engine/Marks.h"
#include "mv/DynamicArray.h"

namespace nvadmin::engine {
namespace {

// The attributes of a dictionary item that make a column, in the order in which Dictionary::Load gets them.
const std::vector<std::int32_t> kDictionaryAttributes = {1, 2, 3, 5, 7, 8, 9};
enum DictionaryValue { kType, kLocation, kThird, kFifth, kConversion, kCorrelative, kJustification };

// A correlative may go from column to column this far.
constexpr int kMostReferences = 32;

constexpr std::string_view kItemIdWords[] = {"@ID", "ID", "0"};

// The number at the start of an attribute 2; kNoAttribute when there is none of use.
std::int32_t ReadLocation(std::string_view text) {
  if (text == "0") return kItemId;
  std::int32_t attribute = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), attribute);
  return error == std::errc() && attribute > 0 ? attribute : kNoAttribute;
}

bool IsStoredAsNumber(std::string_view conversion) {
  const std::string code = Capitals(conversion.substr(0, 2));
  if (code.starts_with('D') || code == "MT" || code == "MD") return true;
  // The codes with a mask show any text where the mask stands alone.
  return (code == "ML" || code == "MR") && mv::Oconv("text", conversion) == mv::kInconvertible;
}

// False when the dictionary item is no column.
bool ReadColumn(std::span<const std::string_view> values, Column& column) {
  const std::string_view type = Trimmed(values[kType]);
  const std::string_view format = Trimmed(values[kFifth]);
  std::string_view justification = Trimmed(values[kJustification]);
  switch (type.empty() ? '\0' : Capital(type[0])) {
    case 'A':
    case 'S':
      column.attribute = ReadLocation(Trimmed(values[kLocation]));
      column.conversion = Trimmed(values[kConversion]);
      column.correlative = Trimmed(values[kCorrelative]);
      break;
    case 'D':
      column.attribute = ReadLocation(Trimmed(values[kLocation]));
      column.conversion = Trimmed(values[kThird]);
      justification = format.empty() ? format : format.substr(format.size() - 1);
      break;
    case 'I':
      column.attribute = kItemId;
      column.conversion = Trimmed(values[kThird]);
      column.correlative = Trimmed(values[kLocation]);
      justification = format.empty() ? format : format.substr(format.size() - 1);
      break;
    default:
      return false;
  }
  column.numeric =
      (!justification.empty() && Capital(justification[0]) == 'R') || IsStoredAsNumber(column.conversion);
  return true;
}

// Whether the words NA and NL can be in a code: the item's number of attributes, and its length.
bool MeasuresItem(std::string_view code) {
  for (std::size_t at = 0; at + 1 < code.size(); ++at) {
    const char measure = Capital(code[at + 1]);
    const char behind = at + 2 < code.size() ? Capital(code[at + 2]) : ' ';
    const bool isEnd = behind < 'A' || behind > 'Z';
    if (Capital(code[at]) == 'N' && (measure == 'A' || measure == 'L') && isEnd) return true;
  }
  return false;
}

// Whether a code can refer to other attributes of the item.
bool RefersToItem(std::string_view code) {
  if (code.empty()) return false;
  const char letter = Capital(code[0]);
  return letter == 'A' || letter == 'F' || letter == 'C' || (letter == 'S' && code.size() > 1);
}

// Whether a code can translate by way of a file, by itself or in parentheses.
bool MayTranslateIn(std::string_view code) {
  return code.starts_with('T') || code.starts_with('t') || code.find("(T") != std::string_view::npos ||
         code.find("(t") != std::string_view::npos;
}

}  // namespace

// ---- Dictionary ----

Dictionary::Dictionary(Store& store, std::string_view file, bool ofDictionary)
    : store_(store), name_(fmt::format("DICT {}{}", file, ofDictionary ? "_dict" : "")) {}

void Dictionary::Load() {
  if (std::exchange(loaded_, true)) return;
  TableHandle table = 0;
  std::string error;
  if (!store_.OpenTable(name_, table, error)) return;
  store_.Scan(table, {kDictionaryAttributes, /*wholeItem=*/false},
              [this](std::string_view id, std::span<const std::string_view> values) {
                Column column;
                if (ReadColumn(values, column)) items_.emplace(id, std::move(column));
                return true;
              });
}

bool Dictionary::ReadItem(std::string_view id, std::string& item) {
  TableHandle table = 0;
  std::string error;
  return store_.OpenTable(name_, table, error) && store_.Read(table, id, item);
}

const Column* Dictionary::FindItem(std::string_view word) {
  Load();
  std::string underscored(word);
  std::replace(underscored.begin(), underscored.end(), '.', '_');
  for (const std::string& spelling :
       {std::string(word), underscored, Capitals(word), Capitals(underscored)}) {
    if (const auto item = items_.find(spelling); item != items_.end()) return &item->second;
  }
  return nullptr;
}

// The column of a word such as A5; null for any other.
const Column* Dictionary::MakeAttribute(std::string_view word) {
  constexpr std::size_t kMostDigits = 9;
  if (word.size() < 2 || word.size() > 1 + kMostDigits || Capital(word[0]) != 'A') return nullptr;
  if (!std::all_of(word.begin() + 1, word.end(), IsDigit)) return nullptr;
  Column column;
  std::from_chars(word.data() + 1, word.data() + word.size(), column.attribute);
  return &made_.try_emplace(std::string(word), std::move(column)).first->second;
}

bool Dictionary::Knows(std::string_view word) {
  return FindItem(word) != nullptr || MakeAttribute(word) != nullptr;
}

const Column* Dictionary::Find(std::string_view word) {
  if (const Column* column = FindItem(word)) return column;
  if (const Column* column = MakeAttribute(word)) return column;
  const bool isId = std::any_of(std::begin(kItemIdWords), std::end(kItemIdWords),
                                [word](std::string_view idWord) { return SameWord(word, idWord); });
  if (!isId) return nullptr;
  Column column;
  column.attribute = kItemId;
  column.numeric = HasNumericIds();
  return &made_.try_emplace(std::string(word), std::move(column)).first->second;
}

bool Dictionary::HasNumericIds() {
  const Column* column = FindItem("@ID");
  return column != nullptr && column->numeric;
}

// ---- Columns ----

bool Columns::Use(std::string_view word, std::size_t& number) {
  if (const auto known = byWord_.find(word); known != byWord_.end()) {
    number = known->second;
    return true;
  }
  const Column* column = dictionary_.Find(word);
  if (column == nullptr) return false;
  number = Add(word, *column);
  // Preparing a column can add those that it refers to, which wait behind it.
  for (std::size_t waiting = number; waiting < columns_.size(); ++waiting) Prepare(waiting);
  return true;
}

std::size_t Columns::Add(std::string_view word, const Column& column) {
  byWord_.emplace(word, columns_.size());
  columns_.push_back({&column, 0, {}});
  return columns_.size() - 1;
}

void Columns::Prepare(std::size_t number) {
  const Column& column = *columns_[number].column;
  if (column.attribute > kItemId) columns_[number].slot = UseAttribute(column.attribute);
  if (column.correlative.empty()) return;

  std::vector<CorrelativePart> parts;
  ForEachValue(column.correlative, [&](std::string_view code) {
    code = Trimmed(code);
    if (code.empty()) return;
    const char letter = Capital(code[0]);
    parts.push_back({std::string(code), letter == 'A' || letter == 'F'});
    mayTranslate_ = mayTranslate_ || MayTranslateIn(code);
    if (RefersToItem(code)) UseItem(code);
  });
  columns_[number].correlative = std::move(parts);
  UseReferences(column.correlative);
}

// The attribute's place among the values of a scan.
std::size_t Columns::UseAttribute(std::int32_t attribute) {
  const auto [slot, isNew] = slots_.try_emplace(attribute, attributes_.size());
  if (isNew) attributes_.push_back(attribute);
  return slot->second;
}

// Enters the attributes that a code can compute with: those whose numbers it holds anywhere. The whole item
// stands for large numbers, and for the words that measure it.
void Columns::UseItem(std::string_view code) {
  constexpr std::int32_t kLargestNumber = 100;
  computesWithItem_ = true;
  needsWholeItem_ = needsWholeItem_ || MeasuresItem(code);
  for (std::size_t at = 0; at < code.size() && !needsWholeItem_; ++at) {
    if (!IsDigit(code[at])) continue;
    std::int32_t number = 0;
    for (; at < code.size() && IsDigit(code[at]) && number <= kLargestNumber; ++at) {
      number = number * 10 + (code[at] - '0');
    }
    needsWholeItem_ = number > kLargestNumber;
    if (number > 0 && !needsWholeItem_) itemSlots_.emplace(number, UseAttribute(number));
  }
}

// Adds the columns that a correlative names by N(name). Unknown names are left for the computation to fail
// on.
void Columns::UseReferences(std::string_view code) {
  for (std::size_t at = 0; at + 1 < code.size(); ++at) {
    if (Capital(code[at]) != 'N' || code[at + 1] != '(') continue;
    const std::size_t end = code.find(')', at);
    if (end == std::string_view::npos) return;
    const std::string_view name = Trimmed(code.substr(at + 2, end - at - 2));
    if (byWord_.find(name) != byWord_.end()) continue;
    if (const Column* column = dictionary_.Find(name)) Add(name, *column);
  }
}

Projection Columns::Needed() const {
  if (needsWholeItem_) return {{}, /*wholeItem=*/true, {}};
  return {attributes_, /*wholeItem=*/false, {}};
}

// ---- Row ----

void Row::EnterScanned(std::string_view id, std::span<const std::string_view> values) {
  if (columns_.needsWholeItem_) {
    EnterWhole(id, values[0]);
    return;
  }
  ++row_;
  id_ = id;
  isWhole_ = false;
  values_ = values;
}

void Row::EnterWhole(std::string_view id, std::string_view item) {
  ++row_;
  id_ = id;
  item_ = item;
  isWhole_ = true;
}

std::string_view Row::Stored(const Columns::Used& used) const {
  const std::int32_t attribute = used.column->attribute;
  if (attribute == kItemId) return id_;
  if (attribute == kNoAttribute) return {};
  return isWhole_ ? mv::Extract(item_, attribute) : values_[used.slot];
}

std::string_view Row::Value(std::size_t number) {
  const Columns::Used& used = columns_.columns_[number];
  const bool isComputed = !used.correlative.empty();
  if (!isComputed && !isWhole_) return Stored(used);
  Cell& cell = cells_[number];
  if (cell.row == row_) return cell.isBusy ? mv::kInconvertible : cell.value;
  cell.row = row_;
  cell.value = Stored(used);
  if (!isComputed) return cell.value;
  cell.isBusy = true;
  cell.text = cell.value;
  ApplyCorrelative(used, cell.text);
  cell.value = cell.text;
  cell.isBusy = false;
  return cell.value;
}

// The item, or as much of it as correlatives compute with: the other attributes are empty.
std::string_view Row::ItemToComputeWith() {
  if (isWhole_ || assembledRow_ == row_) return isWhole_ ? item_ : assembled_;
  assembledRow_ = row_;
  assembled_.clear();
  std::int32_t attribute = 1;
  for (const auto& [wanted, slot] : columns_.itemSlots_) {
    assembled_.append(static_cast<std::size_t>(wanted - attribute), kAttributeMark);
    attribute = wanted;
    assembled_ += values_[slot];
  }
  return assembled_;
}

void Row::ApplyCorrelative(const Columns::Used& used, std::string& value) {
  mv::ConversionContext context;
  context.hasItem = isWhole_ || columns_.computesWithItem_;
  if (context.hasItem) context.item = ItemToComputeWith();
  context.id = id_;
  context.column = [this](std::string_view name, std::string& referred) { return Refer(name, referred); };
  for (const Columns::CorrelativePart& part : used.correlative) {
    if (part.overAllValues || value.find(kValueMark) == std::string::npos) {
      value = mv::Oconv(value, part.code, context);
      continue;
    }
    std::string converted;
    ForEachValue(value, [&](std::string_view one) {
      if (one.data() != value.data()) converted += kValueMark;
      converted += mv::Oconv(one, part.code, context);
    });
    value = std::move(converted);
  }
}

// The value of a column that a correlative names. False for an unknown one, for one whose own correlative
// fails, and where the references run in a circle or too deep.
bool Row::Refer(std::string_view name, std::string& value) {
  const auto column = columns_.byWord_.find(Trimmed(name));
  if (column == columns_.byWord_.end() || depth_ >= kMostReferences) return false;
  ++depth_;
  const std::string_view referred = Value(column->second);
  --depth_;
  if (referred == mv::kInconvertible) return false;
  value = referred;
  return true;
}

}  // namespace nvadmin::engine
