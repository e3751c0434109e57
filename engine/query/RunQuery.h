// The query language: a sentence becomes words, words a query, the query a list of keys.
//
//   verb [DICT] file ['id' ...] [WITH [EVERY|NO] field [op] value ... [AND|OR [WITH] ...]]
//        [BY|BY-DSND|BY-EXP|BY-EXP-DSND field]... [column | TOTAL column | BREAK-ON column ["text"]]...
//        [ID-SUPP] [HEADING|FOOTING "text"] [SAVING [UNIQUE] field] [SAMPLE n] [(options)]
//   QSELECT [DICT] file id ['id' ...] [attribute]   (behind a list the IDs may be left out)
//
// Clauses stand in any order; a quoted text that is no value of WITH is an item ID; brackets group criteria.
// Knows dictionaries and how they make a value of an item; prints nothing. In the order in which a sentence
// passes them:
//   Words        the sentence's words, with their positions
//   Query        what the sentence states; Parse makes it, and tells which words the language has
//   Columns      what a dictionary word is, and its value for an item
//   Criteria     which items meet the query; PushDown, what of it a store may look at
//   SortKeys     in which order
//   Retrieve     the walk over the items
//   ReportCells  what a report shows, where the engine computes it
//   ReportReply  the answer
#pragma once

#include <string>
#include <string_view>

#include "engine/ResultGrid.h"
#include "engine/stores/Store.h"

namespace nvadmin::engine {

enum class GridContents {
  kKeys,
  kKeysAndCells,  // LIST and SORT put the report's cells beside its keys, as ReportCells.h says
};

// Runs a sentence of the verbs SELECT, SSELECT, PSELECT (as SELECT), QSELECT, LIST, SORT and COUNT (in any
// letter case). `activeList`, unless null, restricts the query to its keys (column 0) and gives their order;
// it may be `grid` itself. True: `grid` holds the keys (column 0, one column; complete, and without rows
// where nothing was found), and `reply` the sentence's result: two or more attributes, as ReportReply.h says.
// False: `error` names the word at fault and its position (from 1, in characters); `grid` is empty then, and
// `reply` unchanged. A failure of the store leaves as it came (StoreFailure), with `grid` empty. SORT and
// SSELECT order by their sort fields and then by item ID; the other verbs by their sort fields, and otherwise
// keep the order of the sentence's IDs, of the active list, or of the store's keys. The cost of reading a
// sentence is in line with its length, whatever it says.
bool RunQuery(std::string_view sentence, Store& store, const ResultGrid* activeList, ResultGrid& grid,
              std::string& reply, std::string& error, GridContents contents = GridContents::kKeys);

}  // namespace nvadmin::engine
