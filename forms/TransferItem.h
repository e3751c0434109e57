// Transfer item files: one item a file, in the folder TransferItem of the system; the file's name is the
// item's ID, or is proposed as such.
//
// In a file that holds a CR, or no LF, each CR ends a line and each LF vanishes; in any other each LF ends a
// line. A line end is an attribute mark. "<&VM>", "<&SVM>" and "<&SSVM>", in any letter case, are the marks
// of values, subvalues and the level below. All other bytes are themselves, the mark characters among them.
// What is written has CR LF for each attribute mark and one more at the end, and none of the three words.
#pragma once

#include <string>
#include <string_view>

#include "platform/Folder.h"

namespace nvadmin {

// The item that a file's text holds, made in the place of the text, and the text of a file for an item.
std::string ItemOfFileText(std::string text);
std::string FileTextOfItem(std::string_view item);

// A folder of the system by its name, TransferItem or TransferBulk. Asks for the system's path each time.
Folder OpenTransferFolder(std::string_view name);
inline constexpr std::string_view kTransferItem = "TransferItem";
inline constexpr std::string_view kTransferBulk = "TransferBulk";

}  // namespace nvadmin
