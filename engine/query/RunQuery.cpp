#include "engine/query/RunQuery.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <optional>
#include <unordered_set>
#include <utility>
#include <vector>

#include "engine/query/Columns.h"
#include "engine/query/Criteria.h"
#include "engine/query/Parse.h"
#include "engine/query/Query.h"
#include "engine/query/ReportCells.h"
#include "engine/query/ReportReply.h"
#include "engine/query/Retrieve.h"
#include "engine/query/SortKeys.h"
#include "engine/query/Text.h"
#include "engine/query/Words.h"
#include "mv/DynamicArray.h"

namespace nvadmin::engine {
namespace {

bool OpenFile(const Query& query, Store& store, TableHandle& table, std::string& error) {
  const std::string name = fmt::format("{}{}", query.ofDictionary ? "DICT " : "", query.file.text);
  std::string reason;
  if (store.OpenTable(name, table, reason)) return true;
  error = fmt::format("unknown file {} at position {}; LISTF shows the account's files", Quoted(name),
                      query.file.position);
  if (!reason.empty()) error += fmt::format(" ({})", reason);
  return false;
}

// The filled values and subvalues of a text, one by one.
template <typename Visit>
void ForEachKey(std::string_view text, const Visit& visit) {
  while (!text.empty()) {
    const auto mark = std::find_if(text.begin(), text.end(), IsMark);
    const auto length = static_cast<std::size_t>(mark - text.begin());
    if (length > 0) visit(text.substr(0, length));
    text.remove_prefix(std::min(length + 1, text.size()));
  }
}

// Puts results into the grid: item IDs as they are, of the values that SAVING takes each that isn't empty,
// under UNIQUE only once.
class ResultWriter {
 public:
  ResultWriter(const Outcome& outcome, ResultGrid& found) : outcome_(outcome), found_(found) {}

  // False when that was the last one wanted.
  bool Append(std::string_view result) {
    if (outcome_.saved.text.empty()) {
      Put(result);
    } else {
      ForEachKey(result, [this](std::string_view value) {
        if (WantsMore() && (!outcome_.unique || seen_.emplace(value).second)) Put(value);
      });
    }
    return WantsMore();
  }

 private:
  bool WantsMore() const { return outcome_.most == 0 || count_ < outcome_.most; }
  void Put(std::string_view key) {
    found_.AppendCell(key);
    ++count_;
  }

  const Outcome& outcome_;
  ResultGrid& found_;
  std::size_t count_ = 0;
  std::unordered_set<std::string> seen_;
};

bool SelectItems(const Query& query, Store& store, TableHandle table, Dictionary& dictionary,
                 const ResultGrid* activeList, ResultGrid& found, std::string& error) {
  Columns columns(dictionary);
  Criteria criteria;
  SortKeys sort;
  if (!criteria.Compile(query, columns, error) || !sort.Compile(query, columns, dictionary, error))
    return false;

  ResultWriter writer(query.outcome, found);
  const KeySource source = FindKeys(query, activeList);
  const RowVisitor write = [&](Row& row) {
    return !criteria.Meets(row) || writer.Append(sort.ResultOf(row));
  };
  if (RetrieveInOrder(store, table, source, columns, criteria.Conditions(), sort, write)) return true;
  const RowVisitor keep = [&](Row& row) {
    if (criteria.Meets(row)) sort.Add(row);
    return true;
  };
  Retrieve(store, table, source, columns, criteria.Conditions(), sort.IsNeeded() ? keep : write);
  sort.Write(query.outcome.MostItems(), [&writer](std::string_view result) { return writer.Append(result); });
  return true;
}

// What a QSELECT takes of an item: everything, the attribute of a number, or a column of the dictionary.
class TakenValues {
 public:
  explicit TakenValues(Dictionary& dictionary) : columns_(dictionary) {}

  bool Compile(const Query& query, std::string& error) {
    const std::string_view word = query.attribute.text;
    if (word.empty()) return true;
    kind_ = Kind::kAttribute;
    const auto [end, problem] = std::from_chars(word.data(), word.data() + word.size(), attribute_);
    if (problem == std::errc() && end == word.data() + word.size() && attribute_ >= 0) return true;
    kind_ = Kind::kColumn;
    if (columns_.Use(word, column_)) {
      row_.emplace(columns_);
      return true;
    }
    error = UnknownWord(query.attribute, "QSELECT", query);
    return false;
  }

  std::string_view Of(std::string_view id, std::string_view item) {
    switch (kind_) {
      case Kind::kAll:
        return item;
      case Kind::kAttribute:
        return attribute_ == kItemId ? id : mv::Extract(item, attribute_);
      case Kind::kColumn:
        break;
    }
    row_->EnterWhole(id, item);
    return row_->Value(column_);
  }

 private:
  enum class Kind { kAll, kAttribute, kColumn };
  Kind kind_ = Kind::kAll;
  std::int32_t attribute_ = 0;
  Columns columns_;
  std::size_t column_ = 0;
  std::optional<Row> row_;
};

// Keys out of the items named, or of the active list. An item that the sentence names must exist.
bool SelectValues(const Query& query, Store& store, TableHandle table, Dictionary& dictionary,
                  const ResultGrid* activeList, ResultGrid& found, std::string& error) {
  const KeySource source = FindKeys(query, activeList);
  if (source.isWholeFile) {
    error = fmt::format("QSELECT needs an item ID behind the file {}", Placed(query.file));
    return false;
  }
  TakenValues values(dictionary);
  if (!values.Compile(query, error)) return false;
  ReadItems(store, table, source.ids, [&](std::string_view id, const BatchItem& item) {
    if (item.found) {
      ForEachKey(values.Of(id, item.item), [&found](std::string_view key) { found.AppendCell(key); });
    } else if (activeList == nullptr) {
      error = fmt::format("item {} is not in {}", Quoted(id), query.file.text);
    }
    return error.empty();
  });
  return error.empty();
}

bool Run(std::string_view sentence, Store& store, const ResultGrid* activeList, GridContents contents,
         ResultGrid& found, std::string& reply, std::string& error) {
  std::vector<Word> words;
  Query query;
  TableHandle table = 0;
  if (!CutWords(sentence, words, error) || !ParseFile(words, query, error) ||
      !OpenFile(query, store, table, error)) {
    return false;
  }
  Dictionary dictionary(store, query.file.text, query.ofDictionary);
  const Vocabulary vocabulary = [&dictionary](std::string_view word) { return dictionary.Knows(word); };
  query.behindList = activeList != nullptr;
  if (!ParseClauses(sentence, words, vocabulary, query, error)) return false;

  const auto select = query.verb->answer == Answer::kValues ? SelectValues : SelectItems;
  if (!select(query, store, table, dictionary, activeList, found, error)) return false;
  std::int32_t columns = 1;
  if (contents == GridContents::kKeysAndCells && query.verb->answer == Answer::kReport) {
    const ResultGrid keys = std::move(found);
    FillReportCells(query, store, table, dictionary, keys, found);
    columns = found.HighestColumn();
  }
  reply = MakeReply(query, columns, found.HighestRow());
  return true;
}

}  // namespace

bool RunQuery(std::string_view sentence, Store& store, const ResultGrid* activeList, ResultGrid& grid,
              std::string& reply, std::string& error, GridContents contents) {
  ResultGrid found;
  found.Start(1);
  error.clear();
  try {
    const bool ran = Run(sentence, store, activeList, contents, found, reply, error);
    if (!ran) found.Clear();
    grid = std::move(found);
    return ran;
  } catch (...) {
    grid.Clear();
    throw;
  }
}

}  // namespace nvadmin::engine
