// The query verbs at a terminal. Both routines work on the session's sentence and print their result
// themselves.
#pragma once

namespace nvadmin {

// Serves a select verb: runs the sentence, saves its list for what the user does next, and prints the count
// or the error.
void SelectAndSave();

// Shows the result of an SQL query, one block an item, with paging: the item ID, the other columns numbered,
// a blank line. A block that would start at line 18 or below moves to a fresh screen; one that reaches line
// 22 is cut there and goes on under a line that names the item.
void QueryListing();

}  // namespace nvadmin
