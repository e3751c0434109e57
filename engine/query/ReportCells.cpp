#include "engine/query/ReportCells.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>

#include "engine/Marks.h"
#include "engine/query/Retrieve.h"
#include "engine/query/Text.h"
#include "mv/Conversions.h"
#include "mv/DynamicArray.h"

namespace nvadmin::engine {
namespace {

constexpr char kPieceMark = '\xFA';  // parts the pieces of a description
constexpr std::int32_t kLastDefaultColumn = 1000;
constexpr int kMissesThatEndDefaults = 4;
constexpr std::int32_t kDefaultWidth = 10;
constexpr std::int32_t kWidestColumn = 1'000'000;

struct CellColumn {
  std::string description;
  std::optional<std::size_t> value;  // number among the query's columns; none: the cells are empty
  std::string conversion;            // of the cells
};

// Where a dictionary item keeps what a heading needs. Of `format`, justification and width share an attribute
// as in "10R".
struct Form {
  std::string_view types;
  std::int32_t heading;
  std::int32_t justification;
  std::int32_t width;
};
constexpr Form kForms[] = {{"AS", 3, 9, 10}, {"DI", 4, 5, 5}};

// The form of an item, by its type; null for an item that is no column.
const Form* FindForm(std::string_view item) {
  const std::string_view type = Trimmed(mv::Extract(item, 1));
  const auto form = std::find_if(std::begin(kForms), std::end(kForms), [&](const Form& known) {
    return !type.empty() && known.types.find(Capital(type[0])) != std::string_view::npos;
  });
  return form == std::end(kForms) ? nullptr : form;
}

// The number with which a text begins, within what a column's width can be.
std::int32_t ReadWidth(std::string_view text) {
  std::int32_t width = 0;
  text = Trimmed(text);
  const auto [end, problem] = std::from_chars(text.data(), text.data() + text.size(), width);
  if (problem == std::errc::result_out_of_range) return kWidestColumn;
  return width < 1 ? kDefaultWidth : std::min(width, kWidestColumn);
}

// The letter of "R" or "10R", in capitals; L where there is none.
char ReadJustification(std::string_view text) {
  const auto letter = std::find_if_not(text.begin(), text.end(),
                                       [](char character) { return character == ' ' || IsDigit(character); });
  return letter == text.end() ? 'L' : Capital(*letter);
}

std::string Describe(std::string_view heading, char justification, std::int32_t width,
                     std::string_view conversion, std::string_view word) {
  const auto piece = [](std::string_view text) {
    std::string plain(text);
    std::replace(plain.begin(), plain.end(), kPieceMark, 'u');
    return plain;
  };
  return fmt::format("{}{}{}{}{}{}{}{}", piece(heading), kPieceMark, justification, width, kPieceMark,
                     piece(conversion), kPieceMark, piece(word));
}

// The columns of a report, with what they need of an item.
class CellColumns {
 public:
  CellColumns(const Query& query, Dictionary& dictionary) : dictionary_(dictionary), values_(dictionary) {
    for (std::size_t phrase = 0; phrase < query.modifiers.size(); phrase += 2) {
      if (query.modifiers[phrase] == "TOTAL") totalled_.insert(Capitals(query.modifiers[phrase + 1]));
    }
    for (const std::string_view word : query.columns) AddWord(word);
    if (query.columns.empty()) AddDefaults();
  }

  const std::vector<CellColumn>& All() const { return columns_; }
  const Columns& Values() const { return values_; }

  // The cell of a column for the item of the row.
  std::string_view Cell(const CellColumn& column, Row& row) {
    if (!column.value) return {};
    const std::string_view stored = row.Value(*column.value);
    if (column.conversion.empty() || stored.empty()) return stored;
    cell_.clear();
    ForEachValue(stored, [&](std::string_view value) {
      if (value.data() != stored.data()) cell_ += kValueMark;
      const std::string shown = mv::Oconv(value, column.conversion);
      cell_ += shown == mv::kInconvertible ? value : std::string_view(shown);
    });
    return cell_;
  }

 private:
  void AddWord(std::string_view word) {
    std::string item;
    const bool isDotted = word.find('.') != std::string_view::npos;
    std::string underscored(word);
    std::replace(underscored.begin(), underscored.end(), '.', '_');
    if (dictionary_.ReadItem(word, item)) return AddItem(word, word, item);
    if (isDotted && dictionary_.ReadItem(underscored, item)) return AddItem(underscored, word, item);
    const bool isAttribute = !isDotted && word.size() > 1 && Capital(word[0]) == 'A' &&
                             std::all_of(word.begin() + 1, word.end(), IsDigit);
    if (isAttribute) return AddValue(word, Describe(Capitals(word), 'L', kDefaultWidth, {}, word));
    columns_.push_back({Describe(fmt::format("ERROR({})", word), 'L', kDefaultWidth, {}, word), {}, {}});
  }

  void AddDefaults() {
    std::string item;
    int misses = 0;
    for (std::int32_t number = 1; number <= kLastDefaultColumn && misses < kMissesThatEndDefaults; ++number) {
      const std::string word = fmt::format("{}", number);
      if (dictionary_.ReadItem(word, item)) {
        AddItem(word, {}, item);
      } else {
        ++misses;
      }
    }
  }

  // `id` is the item's ID in the dictionary, `word` how the sentence named the column; it may be empty.
  void AddItem(std::string_view id, std::string_view word, std::string_view item) {
    const Form* form = FindForm(item);
    const Form& shown = form == nullptr ? kForms[0] : *form;
    std::string_view heading = mv::Extract(item, shown.heading);
    if (Trimmed(heading).empty() && !word.empty()) heading = word;
    const auto describe = [&](std::string_view conversion) {
      return Describe(heading, ReadJustification(mv::Extract(item, shown.justification)),
                      ReadWidth(mv::Extract(item, shown.width)), conversion, word);
    };
    std::size_t number = 0;
    if (form == nullptr || !values_.Use(id, number)) {
      columns_.push_back({describe({}), {}, {}});
      return;
    }
    std::string ofCells = values_[number].conversion;
    std::string ofTotals = ofCells;
    const bool isTotalled = totalled_.contains(Capitals(word));
    if (isTotalled && !mv::SplitDecimalCode(values_[number].conversion, ofCells, ofTotals)) ofCells.clear();
    columns_.push_back({describe(ofTotals), number, std::move(ofCells)});
  }

  void AddValue(std::string_view word, std::string description) {
    CellColumn column{std::move(description), {}, {}};
    std::size_t number = 0;
    if (values_.Use(word, number)) column.value = number;
    columns_.push_back(std::move(column));
  }

  Dictionary& dictionary_;
  Columns values_;
  std::unordered_set<std::string> totalled_;  // words, in capitals
  std::vector<CellColumn> columns_;
  std::string cell_;
};

}  // namespace

void FillReportCells(const Query& query, Store& store, TableHandle table, Dictionary& dictionary,
                     const ResultGrid& keys, ResultGrid& report) {
  CellColumns columns(query, dictionary);
  report.Start(static_cast<std::int32_t>(columns.All().size()) + 1);
  std::int32_t number = 0;
  for (const CellColumn& column : columns.All()) report.Describe(++number, column.description);

  Row row(columns.Values());
  ReadItems(store, table, KeysInList(keys), [&](std::string_view id, const BatchItem& item) {
    row.EnterWhole(id, item.item);
    report.AppendCell(id);
    for (const CellColumn& column : columns.All())
      report.AppendCell(item.found ? columns.Cell(column, row) : std::string_view());
    return true;
  });
}

}  // namespace nvadmin::engine
