#include "engine/query/Retrieve.h"

#include <algorithm>
#include <unordered_set>

#include "engine/TranslationMemory.h"

namespace nvadmin::engine {
namespace {

// So many items are read at once: few enough to hold large ones, enough to make a server's round trip cheap.
constexpr std::size_t kItemsPerBatch = 200;
constexpr std::size_t kBytesTogether = std::size_t{4} << 20;

// Of items of which nothing but their IDs is needed.
void RetrieveIds(Store& store, TableHandle table, const KeySource& source, Row& row,
                 const RowVisitor& visit) {
  std::vector<std::string_view> batch;
  for (std::span<const std::string_view> rest = source.ids; !rest.empty();) {
    const std::span<const std::string_view> next = rest.first(std::min(kItemsPerBatch, rest.size()));
    rest = rest.subspan(next.size());
    batch.assign(next.begin(), next.end());
    if (!source.keepsMissing) store.LeaveOutMissing(table, batch);
    for (const std::string_view id : batch) {
      row.EnterScanned(id, {});
      if (!visit(row)) return;
    }
  }
}

// A scan whose items translate codes: so many at once are taken before the first is looked at that the
// targets of all of them can be read together.
class ItemsTogether {
 public:
  ItemsTogether(const Columns& columns, const RowVisitor& visit) : row_(columns), visit_(visit) {}

  bool Take(std::string_view id, std::span<const std::string_view> values) {
    ids_.emplace_back(id);
    BatchItem& item = items_.emplace_back();
    item.found = true;
    for (std::size_t at = 0; at < values.size(); ++at) {
      if (at > 0) item.item += kAttributeMark;
      item.item += values[at];
      ends_.push_back(item.item.size());
    }
    bytes_ += item.item.size();
    return (items_.size() < kItemsPerBatch && bytes_ < kBytesTogether) || VisitAll();
  }

  bool VisitAll() {
    ItemsToCome toCome;
    bool goesOn = true;
    const std::size_t width = ends_.size() / std::max<std::size_t>(items_.size(), 1);
    for (std::size_t at = 0; at < items_.size() && goesOn; ++at) {
      values_.clear();
      for (std::size_t start = 0, value = 0; value < width; ++value) {
        const std::size_t end = ends_[at * width + value];
        values_.push_back(std::string_view(items_[at].item).substr(start, end - start));
        start = end + 1;
      }
      toCome.Are(std::span(items_).subspan(at));
      row_.EnterScanned(ids_[at], values_);
      goesOn = visit_(row_);
    }
    ids_.clear();
    items_.clear();
    ends_.clear();
    bytes_ = 0;
    return goesOn;
  }

 private:
  Row row_;
  const RowVisitor& visit_;
  std::vector<std::string> ids_;
  std::vector<BatchItem> items_;   // the values, an attribute each
  std::vector<std::size_t> ends_;  // of the values of all items
  std::size_t bytes_ = 0;
  std::vector<std::string_view> values_;
};

void RetrieveKeys(Store& store, TableHandle table, const KeySource& source, const Columns& columns,
                  const RowVisitor& visit) {
  Row row(columns);
  if (!columns.NeedsItem()) return RetrieveIds(store, table, source, row, visit);
  ReadItems(store, table, source.ids, [&](std::string_view id, const BatchItem& item) {
    if (!item.found) return true;
    row.EnterWhole(id, item.item);
    return visit(row);
  });
}

}  // namespace

std::vector<std::string_view> KeysInList(const ResultGrid& list) {
  std::vector<std::string_view> keys;
  const std::int32_t rows = list.HighestRow();
  keys.reserve(static_cast<std::size_t>(std::max(rows, 0)));
  std::string_view key;
  for (std::int32_t row = 1; row <= rows && list.FindCell(0, row, key); ++row) keys.push_back(key);
  return keys;
}

KeySource FindKeys(const Query& query, const ResultGrid* activeList) {
  KeySource source;
  source.isWholeFile = query.ids.empty() && activeList == nullptr;
  source.keepsMissing = query.ids.empty() && query.verb->answer == Answer::kSelected;
  if (activeList != nullptr) source.ids = KeysInList(*activeList);
  if (query.ids.empty()) return source;
  if (activeList == nullptr) {
    for (const Word& id : query.ids) source.ids.push_back(id.text);
    return source;
  }
  std::unordered_set<std::string_view> named;
  for (const Word& id : query.ids) named.insert(id.text);
  std::erase_if(source.ids, [&named](std::string_view key) { return !named.contains(key); });
  return source;
}

void Retrieve(Store& store, TableHandle table, const KeySource& source, const Columns& columns,
              const PushedConditions& conditions, const RowVisitor& visit) {
  if (!source.isWholeFile) {
    RetrieveKeys(store, table, source, columns, visit);
    return;
  }
  Projection projection = columns.Needed();
  projection.conditions = conditions.all;
  if (columns.MayTranslate()) {
    ItemsTogether items(columns, visit);
    bool goesOn = true;
    store.Scan(table, projection, [&](std::string_view id, std::span<const std::string_view> values) {
      goesOn = items.Take(id, values);
      return goesOn;
    });
    if (goesOn) items.VisitAll();
    return;
  }
  Row row(columns);
  store.Scan(table, projection, [&](std::string_view id, std::span<const std::string_view> values) {
    row.EnterScanned(id, values);
    return visit(row);
  });
}

bool RetrieveInOrder(Store& store, TableHandle table, const KeySource& source, const Columns& columns,
                     const PushedConditions& conditions, const SortKeys& sort, const RowVisitor& visit) {
  if (!source.isWholeFile || sort.OrderForStore() == nullptr) return false;
  ScanOrder order = *sort.OrderForStore();
  if (!conditions.decide) order.most = 0;  // not all that come are results
  Row row(columns);
  Projection projection = sort.NeededBeside();
  projection.conditions = conditions.all;
  return store.ScanInOrder(table, projection, order,
                           [&](std::string_view id, std::span<const std::string_view> values) {
                             row.EnterScanned(id, values);
                             return visit(row);
                           });
}

void ReadItems(Store& store, TableHandle table, std::span<const std::string_view> ids,
               const ItemVisitor& visit) {
  std::vector<BatchItem> items;
  ItemsToCome toCome;
  while (!ids.empty()) {
    const std::span<const std::string_view> batch = ids.first(std::min(kItemsPerBatch, ids.size()));
    store.ReadBatch(table, batch, items);
    for (std::size_t at = 0; at < batch.size(); ++at) {
      toCome.Are(std::span(items).subspan(at));
      if (!visit(batch[at], items[at])) return;
    }
    ids = ids.subspan(batch.size());
  }
}

}  // namespace nvadmin::engine
