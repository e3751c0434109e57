#include "engine/query/Retrieve.h"

#include <algorithm>
#include <unordered_set>

namespace nvadmin::engine {
namespace {

// So many items are read at once: few enough to hold large ones, enough to make a server's round trip cheap.
constexpr std::size_t kItemsPerBatch = 200;

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
  Row row(columns);
  Projection projection = columns.Needed();
  projection.conditions = conditions.all;
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
  while (!ids.empty()) {
    const std::span<const std::string_view> batch = ids.first(std::min(kItemsPerBatch, ids.size()));
    store.ReadBatch(table, batch, items);
    for (std::size_t at = 0; at < batch.size(); ++at) {
      if (!visit(batch[at], items[at])) return;
    }
    ids = ids.subspan(batch.size());
  }
}

}  // namespace nvadmin::engine
