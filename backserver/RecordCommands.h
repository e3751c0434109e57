// The commands on single items, and the table of open files: a file is opened the first time that a request
// names it, and stays open.
#pragma once

#include "backserver/ServerRun.h"

namespace nvadmin {

// Finds the file that attribute 2 of the request names, letter case apart, or opens it: run.CurrentSlot is
// its slot then. False when it can't be opened or all slots are taken; the client has had its error frame,
// and the table is as it was.
bool OpenRequestFile(ServerRun& run);

// Attributes behind the keyword: file, ID, attribute number (empty: the whole item), "LOCK" or nothing.
void ServeRead(ServerRun& run);   // attribute 6: most characters to send
void ServeWrite(ServerRun& run);  // "<&IM>" and the body stand behind the last of them
void ServeOpen(ServerRun& run);
void ServeRelease(ServerRun& run);
void ServeDelete(ServerRun& run);

}  // namespace nvadmin
