#include "reports/Columns.h"

#include <algorithm>
#include <unordered_map>
#include <utility>

#include "reports/basNvLibAdd.h"
#include "session/Marks.h"
#include "session/Text.h"
#include "session/Values.h"
#include "session/basNvFunctions.h"
#include "session/basNvLibrary.h"

namespace nvadmin {

namespace {

constexpr std::string_view kTotalMark = "T\xF8";
constexpr std::string_view kBreakMark = "B\xF8";
constexpr std::int32_t kHeadingAttribute = 3;
constexpr std::int32_t kTotalAttribute = 4;
constexpr std::int32_t kBreakAttribute = 5;
constexpr std::string_view kFourMarks = "\xFE\xFE\xFE\xFE";
constexpr std::int32_t kLastDefaultColumn = 1000;
constexpr std::int32_t kMissesThatEndDefaults = 4;
constexpr std::int32_t kDefaultWidth = 10;
constexpr std::int32_t kWidestColumn = 1'000'000;
constexpr std::string_view kInconvertible = "####";

std::string Attribute(std::string_view item, std::int32_t number) { return EExtract(item, number, 0, 0); }

std::vector<ReportColumn> DefaultColumns(std::string_view dictionary) {
  std::vector<ReportColumn> columns;
  std::int32_t misses = 0;
  for (std::int32_t number = 1; number <= kLastDefaultColumn && misses < kMissesThatEndDefaults; ++number) {
    std::string item;
    if (!RREAD(item, dictionary, std::to_string(number))) {
      ++misses;
      continue;
    }
    CompileCorrelative(item, dictionary);
    columns.emplace_back(item);
  }
  return columns;
}

// A word such as A5 shows attribute 5 without any dictionary item. Empty when the word isn't of that form.
std::string MadeUpItem(std::string_view word) {
  const std::string capitals = ToUpper(word);
  if (!capitals.starts_with('A') || !IsNumber(word.substr(1))) return {};
  std::string item = Concat({"A", AttributeMark, word.substr(1), AttributeMark, capitals});
  for (int mark = 0; mark < 10; ++mark) item += AttributeMark;
  return item;
}

// The dictionary item of a column word, found under the word, under the word with "_" for ".", or made up.
// May be empty.
std::string FindColumnItem(const std::string& word, std::string_view dictionary) {
  std::string item;
  if (RREAD(item, dictionary, word)) return item;
  if (word.find('.') == std::string::npos) return word.empty() ? std::string() : MadeUpItem(word);
  std::string underlined = word;
  std::replace(underlined.begin(), underlined.end(), '.', '_');
  if (!RREAD(item, dictionary, underlined)) item.clear();
  return item;
}

// The words that a phrase of the modifiers names: a value "TOTAL" and the word as the next value, or
// "BREAK-ON" and a value that begins with the word and a SubvalueMark. Read once, since a sentence may hold
// thousands. Words are in capitals: letter case doesn't count. A word's first phrase decides, and at the very
// start of the modifiers it doesn't count.
class Phrases {
 public:
  explicit Phrases(std::string_view modifierList) {
    PartWalk values(modifierList.substr(1, modifierList.size() - 2), ValueMark);
    std::string_view verb = values.Next();
    for (bool atStart = true; !values.AtEnd(); atStart = false) {
      const std::string_view value = values.Next();
      if (EqualInAnyCase(verb, "TOTAL")) totals_.try_emplace(ToUpper(value), !atStart);
      if (EqualInAnyCase(verb, "BREAK-ON") && value.find(SubvalueMark) != std::string_view::npos) {
        breaks_.try_emplace(ToUpper(value.substr(0, value.find(SubvalueMark))), !atStart);
      }
      verb = value;
    }
  }

  bool IsTotal(std::string_view word) const { return Holds(totals_, word); }
  bool IsBreak(std::string_view word) const { return Holds(breaks_, word); }

 private:
  using Words = std::unordered_map<std::string, bool>;  // false: the phrase doesn't count
  static bool Holds(const Words& words, std::string_view word) {
    const auto found = words.find(ToUpper(word));
    return found != words.end() && found->second;
  }

  Words totals_;
  Words breaks_;
};

// Marks the column of a word as its phrases say; sets `anyTotal` when it is totalled.
void SetMarks(std::string& item, std::string_view word, const Phrases& phrases, bool& anyTotal) {
  if (phrases.IsTotal(word)) {
    item = RReplace(item, kTotalAttribute, kTotalMark);
    anyTotal = true;
  }
  if (phrases.IsBreak(word)) item = RReplace(item, kBreakAttribute, kBreakMark);
}

// The ColumnItem of a word, with its marks set and its correlative compiled; sets `anyTotal` when it is
// totalled.
std::string PrepareColumnItem(const std::string& word, const ReportSentence& report, const Phrases& phrases,
                              bool& anyTotal) {
  std::string item = FindColumnItem(word, report.dictionaryFile);
  if (item.empty()) {
    item = Concat({"ERROR", AttributeMark, AttributeMark, "ERROR(", word, ")"});
  } else {
    if (Trim(Attribute(item, kHeadingAttribute)).empty()) item = RReplace(item, kHeadingAttribute, word);
    SetMarks(item, word, phrases, anyTotal);
  }
  CompileCorrelative(item, report.dictionaryFile);
  return item;
}

std::int32_t UsableWidth(std::int32_t width) {
  return width < 1 ? kDefaultWidth : std::min(width, kWidestColumn);
}

// The values of a cell that are still to be converted. A result that holds marks of its own moves the values
// behind it: what stands behind its first value comes next, before the others.
class WaitingValues {
 public:
  explicit WaitingValues(std::string values) { PutFirst(std::move(values)); }

  void PutFirst(std::string values) { pieces_.push_back({std::move(values), 0}); }

  // False when none is left.
  bool TakeNext(std::string& value) {
    if (pieces_.empty()) return false;
    Piece& piece = pieces_.back();
    const std::size_t end = piece.text.find(ValueMark, piece.at);
    value.assign(piece.text, piece.at, end == std::string::npos ? end : end - piece.at);
    piece.at = end + 1;
    if (end == std::string::npos) pieces_.pop_back();
    return true;
  }

  // All that are left, with a ValueMark before each.
  std::string TakeAll() {
    std::string all;
    for (; !pieces_.empty(); pieces_.pop_back()) {
      all.append(ValueMark).append(pieces_.back().text, pieces_.back().at);
    }
    return all;
  }

 private:
  struct Piece {
    std::string text;
    std::size_t at;  // where its next value begins
  };
  std::vector<Piece> pieces_;  // the next one last
};

}  // namespace

ReportColumn::ReportColumn(std::string_view item)
    : attribute(LeadingWholeNumber(Attribute(item, 2))),
      heading(Attribute(item, kHeadingAttribute)),
      isTotalled(Attribute(item, kTotalAttribute) == kTotalMark),
      isBreak(Attribute(item, kBreakAttribute) == kBreakMark),
      conversion(Trim(Attribute(item, 7))),
      correlative(Trim(Attribute(item, 8))),
      justification(Attribute(item, 9)),
      declaredWidth(LeadingWholeNumber(Attribute(item, 10))),
      width(UsableWidth(declaredWidth)) {
  if (declaredWidth == 0) declaredWidth = kDefaultWidth;
  const std::string type = ToUpper(Attribute(item, 1).substr(0, 1));
  hasData = type == "A" || type == "D" || type == "S";
  showsItemId = Attribute(item, 2) == "0";
}

ReportColumns PrepareColumns(const ReportSentence& report) {
  ReportColumns prepared;
  if (report.columnWords.empty()) {
    prepared.columns = DefaultColumns(report.dictionaryFile);
    return prepared;
  }
  const Phrases phrases(report.modifierList);
  PartWalk words(report.columnWords, ValueMark);
  while (!words.AtEnd()) {
    const std::string word(words.Next());
    prepared.columns.emplace_back(PrepareColumnItem(word, report, phrases, prepared.anyTotal));
  }
  return prepared;
}

ReportColumns PrepareDescribedColumns(const std::vector<std::string>& descriptions,
                                      std::string_view modifierList) {
  ReportColumns prepared;
  const Phrases phrases(modifierList);
  for (const std::string& description : descriptions) {
    const std::string heading = FField(description, ColumnPartMark, 1);
    const std::string format = FField(description, ColumnPartMark, 2);
    const std::string conversion = FField(description, ColumnPartMark, 3);
    const std::string word = FField(description, ColumnPartMark, 4);
    std::string item =
        Concat({"A", AttributeMark, std::to_string(prepared.columns.size() + 1), AttributeMark, heading,
                kFourMarks, conversion, AttributeMark, AttributeMark, std::string_view(format).substr(0, 1),
                AttributeMark, std::string_view(format).substr(std::min<std::size_t>(1, format.size()))});
    SetMarks(item, word.empty() ? heading : word, phrases, prepared.anyTotal);
    prepared.columns.emplace_back(item);
  }
  return prepared;
}

std::string StoredCell(const ReportColumn& column, std::string_view dataItem, std::string_view itemId,
                       std::string_view dataFile) {
  std::string cell = column.showsItemId ? std::string(itemId) : EExtract(dataItem, column.attribute, 0, 0);
  if (column.correlative.empty()) return cell;
  return ApplyCorrelative(cell, column.correlative, dataItem, itemId, dataFile);
}

// Value i is converted as the cell stands after the values before it. Only attribute 1 of the cell has
// values; behind its last one a value is empty, and a result there makes the values up to it.
void ConvertValues(std::string& cell, std::string_view conversion, Inconvertible inconvertible) {
  if (cell.empty()) return;
  const std::int32_t count = DDCount(cell, ValueMark);
  const std::size_t attributeEnd = cell.find(AttributeMark);
  std::string behind = attributeEnd == std::string::npos ? std::string() : cell.substr(attributeEnd);
  WaitingValues waiting(cell.substr(0, attributeEnd));
  ValueJoin done;
  std::int32_t skipped = 0;  // places behind the last value that got none
  std::string value;
  for (std::int32_t place = 1; place <= count; ++place) {
    const bool exists = waiting.TakeNext(value);
    if (!exists) value.clear();
    std::string result = OOConv(value, conversion);
    if (inconvertible == Inconvertible::kStaysStored && result == kInconvertible) {
      if (exists) {
        done.Add(value);
      } else {
        ++skipped;
      }
      continue;
    }
    for (; !exists && skipped > 0; --skipped) done.Add("");
    if (const std::size_t mark = result.find(AttributeMark); mark != std::string::npos) {
      behind.insert(0, result.substr(mark) + waiting.TakeAll());
      result.resize(mark);
    }
    const std::size_t mark = result.find(ValueMark);
    done.Add(std::string_view(result).substr(0, mark));
    if (mark != std::string::npos) waiting.PutFirst(result.substr(mark + 1));
  }
  cell = Concat({done.Take(), waiting.TakeAll(), behind});
}

void ConvertCell(const ReportColumn& column, std::string& cell) {
  if (!column.conversion.empty()) ConvertValues(cell, column.conversion, Inconvertible::kStaysStored);
}

}  // namespace nvadmin
