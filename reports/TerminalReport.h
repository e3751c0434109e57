// The terminal form of LIST and SORT: paged lines under a heading, with sub-totals and totals.
#pragma once

namespace nvadmin {

// Runs the session's sentence and shows its report: 22 lines a page, then "(CR) to continue or q+(CR) to
// Quit: ". Output streams: a line goes out as its item is read, and only one item's cells are held at a time.
//
// A report with totals ends with a line of the running sub-total, if a sub-total line was written before, and
// a line "Total(s)" of the grand totals; both have the form of a sub-total line and count for paging like
// one. A total that leaves its range ends the report with a failure that names the column.
void TerminalReport();

}  // namespace nvadmin
