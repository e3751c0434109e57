// The query verbs, at a terminal and as pages for a browser. All routines work on the session's sentence and
// print their result themselves.
#pragma once

namespace nvadmin {

// Serves a select verb: runs the sentence, saves its list for what the user does next, and prints the count
// or the error.
void SelectAndSave();

// Shows the result of an SQL query, one block an item, with paging: the item ID, the other columns numbered,
// a blank line. A block that would start at line 18 or below moves to a fresh screen; one that reaches line
// 22 is cut there and goes on under a line that names the item.
void QueryListing();

// Shows a report as a page: at most 500 items, an error above the table.
void ReportPage();

// Shows the result of an SQL query as a page. A JET store is asked for 500 rows at most; elsewhere all rows
// are shown, with a warning from 500 on. The page is built in memory, whatever its size.
void QueryPage();

}  // namespace nvadmin
