// Which items a query looks at, and the walk over them.
// A query over the whole file scans it, and the store hands out just the attributes that the columns need. A
// query over known keys reads their items in batches, or just asks for them if nothing of the items is
// needed, and leaves out keys without an item. Only a select of a whole list that needs nothing of its items
// keeps every key unasked.
#pragma once

#include <functional>
#include <span>
#include <string_view>
#include <vector>

#include "engine/query/Columns.h"
#include "engine/query/PushDown.h"
#include "engine/query/Query.h"
#include "engine/query/SortKeys.h"
#include "engine/stores/Store.h"

namespace nvadmin::engine {

struct KeySource {
  bool isWholeFile = true;
  std::vector<std::string_view> ids;  // otherwise, in order; views of the sentence or the active list
  bool keepsMissing = false;          // where nothing of the items is needed
};

// Column 0 of a list; views of it.
std::vector<std::string_view> KeysInList(const ResultGrid& list);

// The item IDs that the sentence names; of an active list those that the sentence names, or all, in the
// list's order.
KeySource FindKeys(const Query& query, const ResultGrid* activeList);

// True: the visitor wants more.
using RowVisitor = std::function<bool(Row& row)>;

// Calls `visit` with each item; those that don't meet `conditions` may be missing.
void Retrieve(Store& store, TableHandle table, const KeySource& source, const Columns& columns,
              const PushedConditions& conditions, const RowVisitor& visit);

// The same in the order that `sort` has for a store, with as much of each item as it needs beside its fields.
// False, and nothing visited: the engine has to sort.
bool RetrieveInOrder(Store& store, TableHandle table, const KeySource& source, const Columns& columns,
                     const PushedConditions& conditions, const SortKeys& sort, const RowVisitor& visit);

// Calls `visit` with each of the keys and its item. True: the visitor wants more.
using ItemVisitor = std::function<bool(std::string_view id, const BatchItem& item)>;
void ReadItems(Store& store, TableHandle table, std::span<const std::string_view> ids,
               const ItemVisitor& visit);

}  // namespace nvadmin::engine
