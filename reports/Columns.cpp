#include "reports/Columns.h"

#include <algorithm>

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

// Whether the modifiers hold the phrase. At their very start it doesn't count.
bool HasPhrase(std::string_view modifierList, std::string_view verb, std::string_view word,
               std::string_view end) {
  const std::size_t at = FindInAnyCase(modifierList, Concat({ValueMark, verb, ValueMark, word, end}));
  return at != std::string_view::npos && at > 0;
}

// The ColumnItem of a word, with its marks set and its correlative compiled; sets `anyTotal` when it is
// totalled.
std::string PrepareColumnItem(const std::string& word, const ReportSentence& report, bool& anyTotal) {
  std::string item = FindColumnItem(word, report.dictionaryFile);
  if (item.empty()) {
    item = Concat({"ERROR", AttributeMark, AttributeMark, "ERROR(", word, ")"});
  } else {
    if (Trim(Attribute(item, kHeadingAttribute)).empty()) item = RReplace(item, kHeadingAttribute, word);
    if (HasPhrase(report.modifierList, "TOTAL", word, ValueMark)) {
      item = RReplace(item, kTotalAttribute, kTotalMark);
      anyTotal = true;
    }
    if (HasPhrase(report.modifierList, "BREAK-ON", word, SubvalueMark)) {
      item = RReplace(item, kBreakAttribute, kBreakMark);
    }
  }
  CompileCorrelative(item, report.dictionaryFile);
  return item;
}

std::int32_t UsableWidth(std::int32_t width) {
  return width < 1 ? kDefaultWidth : std::min(width, kWidestColumn);
}

// One value after another, each read from the cell as the ones before have left it: a result that holds marks
// of its own moves the values behind it.
void ConvertInPlace(std::string& cell, std::string_view conversion) {
  const std::int32_t count = DDCount(cell, ValueMark);
  for (std::int32_t value = 1; value <= count; ++value) {
    const std::string result = OOConv(EExtract(cell, 1, value, 0), conversion);
    if (result != kInconvertible) cell = RReplace(cell, 1, value, result);
  }
}

bool HoldsMark(std::string_view text) {
  return text.find(AttributeMark) != std::string_view::npos || text.find(ValueMark) != std::string_view::npos;
}

}  // namespace

ReportColumn::ReportColumn(std::string_view item)
    : attribute(LeadingWholeNumber(Attribute(item, 2))),
      heading(Attribute(item, kHeadingAttribute)),
      isTotalled(Attribute(item, kTotalAttribute) == kTotalMark),
      isBreak(Attribute(item, kBreakAttribute) == kBreakMark),
      conversion(Trim(Attribute(item, 7))),
      correlative(Trim(Attribute(item, 8))),
      justification(Attribute(item, 9)),
      width(UsableWidth(LeadingWholeNumber(Attribute(item, 10)))) {
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
  PartWalk words(report.columnWords, ValueMark);
  while (!words.AtEnd()) {
    const std::string word(words.Next());
    prepared.columns.emplace_back(PrepareColumnItem(word, report, prepared.anyTotal));
  }
  return prepared;
}

std::string StoredCell(const ReportColumn& column, std::string_view dataItem, std::string_view itemId,
                       std::string_view dataFile) {
  std::string cell = column.showsItemId ? std::string(itemId) : EExtract(dataItem, column.attribute, 0, 0);
  if (column.correlative.empty()) return cell;
  return ApplyCorrelative(cell, column.correlative, dataItem, itemId, dataFile);
}

void ConvertCell(const ReportColumn& column, std::string& cell) {
  if (column.conversion.empty() || cell.empty()) return;
  if (!HoldsMark(cell)) {
    std::string result = OOConv(cell, column.conversion);
    if (result != kInconvertible) cell = std::move(result);
    return;
  }
  std::string converted;
  PartWalk values(cell, ValueMark);
  for (bool first = true; !values.AtEnd(); first = false) {
    const std::string_view value = values.Next();
    const std::string result = OOConv(value, column.conversion);
    if (HoldsMark(result) || value.find(AttributeMark) != std::string_view::npos) {
      return ConvertInPlace(cell, column.conversion);
    }
    if (!first) converted += ValueMark;
    converted += result == kInconvertible ? value : std::string_view(result);
  }
  cell = std::move(converted);
}

}  // namespace nvadmin
