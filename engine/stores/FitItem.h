// How an item lies in a table, alike on every store: what fits, and what is said when it doesn't.
// Lengths are in characters, which are bytes of the code page. Knows no database.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "engine/stores/Store.h"

namespace nvadmin::engine {

// Cuts an item into the texts of its columns: A1 and up as far as the item goes, without trailing empty ones,
// or ITEM alone. `columns` points into `item`. False, with the reason in `error`, when the ID is empty or
// something is too long or too much.
bool FitItem(const TableDescription& table, std::string_view id, std::string_view item,
             std::vector<std::string_view>& columns, std::string& error);

// "table customers, item '1001'": how messages name an item. A long ID is cut.
std::string NameItem(std::string_view table, std::string_view id);

}  // namespace nvadmin::engine
