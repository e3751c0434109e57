// The item forms of the Admin Menu. Each is entered and left with a frame open, keeps its state for its one
// run, and turns until the user leaves it. Failures of the engine and of files aren't caught: they end the
// menu.
#pragma once

namespace nvadmin {

// Writes a file of the folder TransferItem as one item. A folder without files is told of; one that is
// missing is a failure, and ends the menu. An ID that was never entered, nor proposed by picking another file
// than the first, makes the write fail, and the form says so.
void ImportItem();

// Writes one item as a file of the folder TransferItem, in the place of one of the same name.
void ExportItem();

// Writes every item of a file, or every item that a sentence selects, as one file each into a subfolder of
// TransferItem; asks first when there are more than 200. An item that can't be read becomes a file that holds
// the reason.
void ExportMany();

}  // namespace nvadmin
