#include "bulk/TableCreation.h"

#include <algorithm>
#include <array>
#include <limits>
#include <span>

#include "session/Marks.h"
#include "session/Text.h"
#include "session/Values.h"
#include "session/basNvFunctions.h"
#include "session/basNvLibrary.h"

namespace nvadmin {

namespace {

constexpr std::int64_t kAny = std::numeric_limits<std::int64_t>::max();
constexpr std::int64_t kLargestNumber = 1'000'000'000'000;
constexpr std::int64_t kLargestCount = 1'000'000'000;

// --- The rules ---

// The type clause of a column: the first row of its datastore that fits decides. A row with a text gives it.
// A row with a factor gives VARCHAR of the width times the factor, at least `least`; where that is above
// `most`, the text.
struct ClauseRow {
  bool flag;
  std::int64_t leastScale;  // S, from ... to
  std::int64_t mostScale;
  std::int64_t mostWidth;  // W, up to
  std::string_view text;
  std::int64_t factorTenths = 0;  // 0: no size
  std::int64_t least = -kAny;
  std::int64_t most = kAny;
};

// X is the width times 1.8. It is a whole number of fifths, so there is no half to round.
constexpr std::int64_t kX = 18;
constexpr bool kFlag = true;
constexpr bool kPlain = false;

constexpr ClauseRow kMysqlClauses[] = {
    {kFlag, -kAny, kAny, 10'000, " TEXT"},
    {kFlag, -kAny, kAny, kAny, " MEDIUMTEXT"},
    {kPlain, -kAny, 249, kAny, " TEXT"},
    {kPlain, 250, kAny, 0, " TEXT"},
    {kPlain, 250, kAny, kAny, " TEXT", kX, 15, 180},
};
constexpr ClauseRow kOracleClauses[] = {
    {kFlag, -kAny, 24, kAny, " CLOB"},
    {kFlag, 25, 150, 800, "", 50},
    {kFlag, 25, 150, kAny, " CLOB"},
    {kFlag, 151, kAny, 2'000, "", 20},
    {kFlag, 151, kAny, kAny, " CLOB"},
    {kPlain, -kAny, 24, kAny, " CLOB", 40, 15, 4'000},
    {kPlain, 25, kAny, kAny, " CLOB", kX, 15, 4'000},
};
constexpr ClauseRow kMssqlClauses[] = {
    {kFlag, -kAny, 24, kAny, " TEXT"}, {kFlag, 25, 150, 70, "", 50},
    {kFlag, 25, 150, kAny, " TEXT"},   {kFlag, 151, kAny, 300, "", 25},
    {kFlag, 151, kAny, kAny, " TEXT"}, {kPlain, -kAny, kAny, kAny, " TEXT", kX, 15, 400},
};
constexpr ClauseRow kOtherClauses[] = {
    {kFlag, -kAny, kAny, 35, " VARCHAR(90)"},
    {kFlag, -kAny, kAny, kAny, " MEMO"},
    {kPlain, -kAny, kAny, kAny, " MEMO", kX, 15, 254},
};

enum class KeyClause { kBehindA0, kNamedBehindA0, kAtEnd };

struct Dialect {
  std::string_view datastore;  // empty: every other
  std::int32_t mostColumns;    // a table with more gets the item as one text
  KeyClause key;
  std::string_view itemColumn;
  std::string_view clauseEnd;
  std::span<const ClauseRow> clauses;
};
constexpr Dialect kDialects[] = {
    {"MYSQL", 1'200, KeyClause::kBehindA0, ", ITEM TEXT", " NOT NULL", kMysqlClauses},
    {"MSSQL", 700, KeyClause::kNamedBehindA0, ", ITEM TEXT", "", kMssqlClauses},
    {"ORACLE", 700, KeyClause::kAtEnd, ", ITEM TEXT", "", kOracleClauses},
    {"", 254, KeyClause::kNamedBehindA0, ", ITEM MEMO", "", kOtherClauses},
};

struct Margins {
  std::int32_t firstStep;
  std::int32_t secondStep;
};
constexpr Margins kNarrow = {5, 20};
constexpr Margins kWide = {15, 40};
constexpr std::int64_t kWideUpTo = 100;            // of attribute 2
constexpr std::int32_t kOpenCounts[] = {99, 999};  // a third count that says nothing

// --- Reading the record ---

std::int64_t WholeNumber(std::string_view text) {
  const std::string_view digits = LeadingNumber(text);
  std::int64_t number = 0;
  std::size_t at = digits.find_first_not_of("+-");
  for (; at < digits.size() && digits[at] != '.'; ++at) {
    number = std::min(number * 10 + (digits[at] - '0'), kLargestNumber);
  }
  if (at + 1 < digits.size() && digits[at + 1] >= '5') ++number;
  return digits.starts_with('-') ? -number : number;
}

std::int64_t NumberAt(std::string_view record, std::int32_t attribute) {
  return WholeNumber(AttributeView(record, attribute));
}

// --- The steps ---

std::int64_t KeyWidth(std::int64_t longestId) {
  if (longestId <= 22) return 25;
  return longestId <= 55 ? longestId + 5 : 60;
}

std::int32_t CountColumns(std::string_view record) {
  const Margins& margins = NumberAt(record, 2) > kWideUpTo ? kNarrow : kWide;
  const auto [first, second, third] = ReadColumnCounts(record);
  std::int32_t columns = first;
  if (second > columns) columns = std::min(second, columns + margins.firstStep);
  if (third <= columns) return columns;
  if (third - columns <= margins.secondStep) return third;
  const bool saysNothing =
      std::find(std::begin(kOpenCounts), std::end(kOpenCounts), third) != std::end(kOpenCounts);
  return saysNothing ? columns : columns + margins.secondStep;
}

const Dialect& DialectOf(std::string_view datastore) {
  return *std::find_if(std::begin(kDialects), std::end(kDialects), [datastore](const Dialect& dialect) {
    return dialect.datastore == datastore || dialect.datastore.empty();
  });
}

void AddSize(std::string& sentence, const ClauseRow& row, std::int64_t width) {
  const std::int64_t product = width * row.factorTenths;
  // Half a unit more rounds; factors that leave a half are cut off.
  const std::int64_t size =
      std::max(row.factorTenths == kX ? (product + (product < 0 ? -5 : 5)) / 10 : product / 10, row.least);
  if (size <= row.most) {
    sentence.append(" VARCHAR(").append(std::to_string(size)).append(")");
  } else {
    sentence.append(row.text);
  }
}

void AddColumns(std::string& sentence, const Dialect& dialect, std::string_view record,
                std::int32_t columns) {
  const std::int64_t scale = NumberAt(record, 3);
  PartWalk widths(AttributeView(record, 5), ValueMark);
  PartWalk flags(AttributeView(record, 6), ValueMark);
  for (std::int32_t column = 1; column <= columns; ++column) {
    const std::int64_t width = WholeNumber(widths.Next());
    const bool flag = flags.Next() == "Y";
    const auto row =
        std::find_if(dialect.clauses.begin(), dialect.clauses.end(), [&](const ClauseRow& clause) {
          return clause.flag == flag && scale >= clause.leastScale && scale <= clause.mostScale &&
                 width <= clause.mostWidth;
        });
    sentence.append(", A").append(std::to_string(column));
    if (row->factorTenths == 0) {
      sentence.append(row->text);
    } else {
      AddSize(sentence, *row, width);
    }
    sentence.append(dialect.clauseEnd);
  }
}

}  // namespace

ColumnCounts ReadColumnCounts(std::string_view record) {
  PartWalk counts(AttributeView(record, 4), ValueMark);
  ColumnCounts read;
  for (std::int32_t* count : {&read.first, &read.second, &read.third}) {
    const std::int64_t number = WholeNumber(counts.Next());
    *count = static_cast<std::int32_t>(std::clamp(number, -kLargestCount, kLargestCount));
  }
  return read;
}

std::string BuildCreateTable(std::string_view TargetName, std::string_view record, bool& TypeN,
                             std::int32_t& Columns) {
  const Dialect& dialect = DialectOf(EExecute("SYSTEM DATASTORE"));
  Columns = CountColumns(record);
  if (Columns > dialect.mostColumns) TypeN = true;

  std::string sentence = Concat(
      {"CREATE TABLE ", TargetName, " (A0 VARCHAR(", std::to_string(KeyWidth(NumberAt(record, 7))), ")"});
  if (dialect.key == KeyClause::kNamedBehindA0) sentence += Concat({" CONSTRAINT idx", TargetName});
  if (dialect.key != KeyClause::kAtEnd) sentence += " PRIMARY KEY";
  if (TypeN) {
    sentence += dialect.itemColumn;
  } else {
    AddColumns(sentence, dialect, record, Columns);
  }
  if (dialect.key == KeyClause::kAtEnd) sentence += ", PRIMARY KEY(A0)";
  return sentence + ")";
}

}  // namespace nvadmin
