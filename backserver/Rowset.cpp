#include "backserver/Rowset.h"

#include <algorithm>
#include <vector>

#include "backserver/Frames.h"
#include "backserver/RecordCommands.h"
#include "reports/Columns.h"
#include "reports/basNvLibAdd.h"
#include "session/Marks.h"
#include "session/Text.h"
#include "session/basNvFunctions.h"
#include "session/basNvLibrary.h"

namespace nvadmin {

namespace {

// Arguments behind the file.
constexpr std::int32_t kSelectArgument = 3;
constexpr std::int32_t kColumnsArgument = 4;

constexpr std::string_view kListWord = "LIST ";
constexpr std::int32_t kRowsOfWholeItems = 10;
constexpr std::int32_t kRowsOfIds = 100;
constexpr std::int32_t kRowsOfColumns = 20;
constexpr std::int32_t kLastNumberedColumn = 500;
constexpr std::int32_t kMissesThatEndNumbers = 4;

// What a row needs of a column. Without an attribute and a code its cells are empty.
struct RowColumn {
  bool isItemId = false;
  std::int32_t attribute = 0;
  std::string correlative = {};  // trimmed
  std::string conversion = {};
};

struct Rowset {
  std::string_view ColumnSpec;
  std::int32_t RowsPerBatch = kRowsOfColumns;
  bool readsItems = true;
  bool sendsWholeItems = false;

  std::string DictFile;
  std::string ColumnDescriptions;
  std::vector<RowColumn> columns;  // of a row, in its order: a LIST begins with the item ID
  std::size_t highestAttribute = 0;

  std::string BatchText;  // the rows of the frame, with ItemMark between two
  std::string RowId;
  std::string RowItem;
  std::string RowText;
  std::vector<std::string_view> attributes;  // of RowItem, up to the highest that a column shows
};

// A line of the client that isn't a request: it only lets the transfer go on.
void AwaitPacingLine(ServerRun& run) { IInput(run.line); }

// The same where the client may stop the transfer. False when it did; it has had the exit frame.
bool AwaitGoAhead(ServerRun& run) {
  AwaitPacingLine(run);
  if (!CCompare(run.line, "=", "QUIT")) return true;
  SendFrame(run, {kRowsetExitText});
  return false;
}

// --- Columns ---

std::string Attribute(std::string_view item, std::int32_t number) { return EExtract(item, number, 0, 0); }

void PutAttribute(std::string& item, std::int32_t number, std::string_view content) {
  item = RReplace(item, number, content);
}

// Brings a dictionary item of any layout to that of the types A and S (2 attribute number, 3 heading, 7
// conversion, 8 correlative, 9 justification, 10 width), and describes it at that attribute of the column
// frame. Types D and I have the conversion in 3, the heading in 4, width and justification as one format in
// 5; an I has its correlative in 2.
void NormaliseColumnItem(Rowset& rowset, std::string& columnItem, std::int32_t descriptionPosition) {
  constexpr std::string_view kNoFormat = "L";
  const std::string type = Attribute(columnItem, 1).substr(0, 1);
  if (type == "D") PutAttribute(columnItem, 8, "");
  if (type == "I") {
    PutAttribute(columnItem, 1, "S");
    PutAttribute(columnItem, 8, Attribute(columnItem, 2));
    PutAttribute(columnItem, 2, "0");
  }
  if (type == "D" || type == "I") {
    PutAttribute(columnItem, 7, Attribute(columnItem, 3));
    PutAttribute(columnItem, 3, Attribute(columnItem, 4));
    PutAttribute(columnItem, 4, "");
    const std::string stored = Attribute(columnItem, 5);
    const std::string_view format = stored.empty() ? kNoFormat : std::string_view(stored);
    PutAttribute(columnItem, 9, format.substr(format.size() - 1));
    PutAttribute(columnItem, 10, format.substr(0, format.size() - 1));
    PutAttribute(columnItem, 5, "");
  }
  if (descriptionPosition > 1) rowset.ColumnDescriptions += AttributeMark;
  rowset.ColumnDescriptions += Concat({Attribute(columnItem, 3), ColumnPartMark, Attribute(columnItem, 9),
                                       Attribute(columnItem, 10), ColumnPartMark, Attribute(columnItem, 7)});
}

// The column of a normalised dictionary item. Its type counts as it stands, in capitals alone.
RowColumn ColumnOf(std::string_view columnItem) {
  const std::string type = Attribute(columnItem, 1).substr(0, 1);
  if (type != "A" && type != "S" && type != "D") return {};
  const std::string location = Attribute(columnItem, 2);
  return {.isItemId = location == "0",
          .attribute = LeadingWholeNumber(location),
          .correlative = std::string(Trim(Attribute(columnItem, 8))),
          .conversion = Attribute(columnItem, 7)};
}

// A name that the dictionary lacks still makes a column, with empty cells. Attribute 1 of the descriptions
// stays empty, so that they stand in line with a row.
void AddNamedColumns(Rowset& rowset, PartWalk names) {
  std::string columnItem;
  for (std::int32_t position = 2; !names.AtEnd(); ++position) {
    if (!RREAD(columnItem, rowset.DictFile, names.Next())) columnItem.clear();
    NormaliseColumnItem(rowset, columnItem, position);
    rowset.columns.push_back(ColumnOf(columnItem));
  }
}

// The dictionary's items 1, 2, 3 ...; the fourth that is missing ends the walk. Their descriptions begin at
// attribute 1.
void AddNumberedColumns(Rowset& rowset) {
  std::string columnItem;
  std::int32_t misses = 0;
  for (std::int32_t number = 1; number <= kLastNumberedColumn && misses < kMissesThatEndNumbers; ++number) {
    if (!RREAD(columnItem, rowset.DictFile, std::to_string(number))) {
      ++misses;
      continue;
    }
    NormaliseColumnItem(rowset, columnItem, number - misses);
    rowset.columns.push_back(ColumnOf(columnItem));
  }
}

// False when the rowset is over; the client has had its last frame.
bool PrepareListColumns(ServerRun& run, Rowset& rowset) {
  PartWalk words(rowset.ColumnSpec, " ");
  words.Next();
  const std::string_view dictionary = words.Next();
  std::string name = Concat({"DICT ", dictionary});
  if (!OOpen(name, rowset.DictFile)) {
    SendError(run, kDictionaryFails, dictionary);
    return false;
  }
  rowset.columns.push_back({.isItemId = true});
  if (words.AtEnd()) {
    AddNumberedColumns(rowset);
  } else {
    AddNamedColumns(rowset, words);
  }
  if (rowset.ColumnDescriptions.empty()) return true;
  SendFrame(run, {"<&Q.COLS>", rowset.ColumnDescriptions});
  return AwaitGoAhead(run);
}

void PrepareAttributeNumbers(Rowset& rowset) {
  PartWalk numbers = WalkValues(rowset.ColumnSpec);
  while (!numbers.AtEnd()) {
    const std::string_view number = numbers.Next();
    rowset.columns.push_back({.isItemId = CCompare(number, "=", "0"),
                              .attribute = IsNumber(number) ? LeadingWholeNumber(number) : 0});
  }
}

bool PrepareColumns(ServerRun& run, Rowset& rowset) {
  if (rowset.sendsWholeItems) return true;
  if (!rowset.ColumnSpec.starts_with(kListWord)) {
    PrepareAttributeNumbers(rowset);
  } else if (!PrepareListColumns(run, rowset)) {
    return false;
  }
  for (const RowColumn& column : rowset.columns) {
    const auto attribute = static_cast<std::size_t>(std::max(column.attribute, 0));
    rowset.highestAttribute = std::max(rowset.highestAttribute, attribute);
  }
  return true;
}

// --- Rows ---

void SplitRowItem(Rowset& rowset) {
  rowset.attributes.clear();
  PartWalk attributes(rowset.RowItem, AttributeMark);
  while (!attributes.AtEnd() && rowset.attributes.size() < rowset.highestAttribute) {
    rowset.attributes.push_back(attributes.Next());
  }
}

std::string_view StoredValue(const Rowset& rowset, const RowColumn& column) {
  if (column.isItemId) return rowset.RowId;
  const auto index = static_cast<std::size_t>(column.attribute) - 1;
  return index < rowset.attributes.size() ? rowset.attributes[index] : std::string_view();
}

std::string ComputedValue(const Rowset& rowset, const RowColumn& column, std::string_view stored) {
  std::string value =
      column.correlative.empty()
          ? std::string(stored)
          : ApplyCorrelative(stored, column.correlative, rowset.RowItem, rowset.RowId, rowset.DictFile);
  if (!column.conversion.empty()) ConvertValues(value, column.conversion, Inconvertible::kShowsAnswer);
  return value;
}

// Puts each column's value into the attribute of its number. A value that holds attribute marks of its own
// makes more attributes, which the columns behind it replace one by one.
void BuildRowOfColumns(Rowset& rowset) {
  SplitRowItem(rowset);
  std::string& rowText = rowset.RowText;
  rowText.clear();
  bool holdsMarks = false;
  std::int32_t position = 0;
  for (const RowColumn& column : rowset.columns) {
    ++position;
    std::string_view value = StoredValue(rowset, column);
    std::string computed;
    if (!column.correlative.empty() || !column.conversion.empty()) {
      computed = ComputedValue(rowset, column, value);
      value = computed;
    }
    if (holdsMarks) {
      PutAttribute(rowText, position, value);
      continue;
    }
    if (position > 1) rowText += AttributeMark;
    rowText += value;
    holdsMarks = value.find(AttributeMark) != std::string_view::npos;
  }
}

void AddRow(Rowset& rowset) {
  if (!rowset.BatchText.empty()) rowset.BatchText += kItemMark;
  if (rowset.sendsWholeItems) {
    rowset.BatchText.append(rowset.RowId).append(AttributeMark).append(rowset.RowItem);
  } else {
    BuildRowOfColumns(rowset);
    rowset.BatchText += rowset.RowText;
  }
}

// --- Batches ---

// In its own mode a full frame reaches the client by way of the helper, which sends what it is given.
void SendFullBatch(ServerRun& run, const Rowset& rowset) {
  if (!TTrue(run.PickMode)) return SendFrame(run, {rowset.BatchText});
  ComposeFrame(run, {rowset.BatchText});
  OOConv(run.frame, "u017e");
}

void EndList(ServerRun& run, const Rowset& rowset, bool tookKeys) {
  if (!rowset.BatchText.empty()) SendFrame(run, {rowset.BatchText});
  if (tookKeys) AwaitPacingLine(run);
  SendFrame(run, {kRowsetExitText});
}

// False when the rowset is over; the client has had its last frame.
bool SendBatch(ServerRun& run, Rowset& rowset) {
  rowset.BatchText.clear();
  std::int32_t listPosition = 0;
  for (std::int32_t row = 1; row <= rowset.RowsPerBatch; ++row) {
    if (!RReadNext(rowset.RowId, listPosition)) {
      EndList(run, rowset, /*tookKeys=*/row > 1);
      return false;
    }
    if (rowset.readsItems && !RREAD(rowset.RowItem, run.OpenFiles[run.CurrentSlot], rowset.RowId)) {
      SendError(run, kRowItemMissing, rowset.RowId);
      return false;
    }
    AddRow(rowset);
  }
  SendFullBatch(run, rowset);
  return AwaitGoAhead(run);
}

void RunRowset(ServerRun& run) {
  Rowset rowset;
  rowset.ColumnSpec = Trim(Argument(run, kColumnsArgument));
  if (rowset.ColumnSpec.empty()) {
    rowset.sendsWholeItems = true;
    rowset.RowsPerBatch = kRowsOfWholeItems;
  } else if (CCompare(rowset.ColumnSpec, "=", "0")) {
    rowset.readsItems = false;
    rowset.RowsPerBatch = kRowsOfIds;
  }

  const std::string_view sentence = Argument(run, kSelectArgument);
  EExecute(sentence.empty() ? Concat({"SELECT ", Argument(run, kFirstArgument)}) : std::string(sentence));
  SendFrame(run, {kRowsetStartText});
  AwaitPacingLine(run);
  if (!PrepareColumns(run, rowset)) return;
  while (SendBatch(run, rowset)) {
  }
}

// --- The account's files ---

// Each row but the last is a file's name and the letter D as its second attribute. No frame ends its line.
void SendFileList(ServerRun& run) {
  const std::string names = EExecute("LISTF");
  SendFrame(run, {kRowsetStartText}, /*lineEnd=*/false);
  AwaitPacingLine(run);

  PartWalk walk(names, AttributeMark);
  std::string rows(walk.Next());
  while (!walk.AtEnd()) rows.append(AttributeMark).append("D").append(kItemMark).append(walk.Next());
  SendFrame(run, {rows}, /*lineEnd=*/false);
  AwaitPacingLine(run);
  SendFrame(run, {kRowsetExitText}, /*lineEnd=*/false);
}

}  // namespace

void ServeRowset(ServerRun& run) {
  if (Argument(run, kFirstArgument) == "XLISTF") return SendFileList(run);
  if (OpenRequestFile(run)) RunRowset(run);
}

}  // namespace nvadmin
