// The conditions of a scan as SQLite can test them: a WHERE clause that keeps every item that meets them, and
// most often few others.
//
// What makes it keep them all: a text that is looked for is cut to the longest run of it that is plain ASCII
// (and no "?", which stands for characters that have no byte), so that it is the same in UTF-8, in a blob of
// bytes and in the text of a number, and a byte of it is never part of another character. Where nothing is
// left to look for, the condition is dropped.
#pragma once

#include <span>
#include <string>

#include "engine/stores/Store.h"

namespace nvadmin::engine {

// " WHERE ..." or empty. `keepsBytes`: the table's texts are blobs.
std::string ScanFilter(const TableDescription& table, std::span<const ScanCondition> conditions,
                       bool keepsBytes);

}  // namespace nvadmin::engine
