// The form that loads a TransferBulk file into the tables of the current account.
#pragma once

namespace nvadmin {

// Entered and left with a frame open. Two passes over the file: the first reads to the statistics at its end
// and makes or replaces a table for each record, with the user's help if the options ask for it; the second
// writes each item. Meanwhile the browser is on its terminal screen. A write that fails costs that item alone
// and isn't told here.
void BulkLoad();

}  // namespace nvadmin
