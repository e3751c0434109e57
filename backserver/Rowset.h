// ROWSET: the result of a query, sent in frames of many rows. After each frame one line of the client lets it
// go on or stops it.
#pragma once

#include "backserver/ServerRun.h"

namespace nvadmin {

// Attributes behind the keyword: file, or XLISTF for the account's files; select sentence (empty: all of the
// file); column specification, which makes the rows: empty, item ID and whole item, 10 a frame; "0", the item
// ID alone, 100 a frame and no item read; "LIST dictionary column ...", item ID and the columns' shown
// values, 20 a frame, with a frame of column descriptions ahead; else attribute numbers parted by ValueMark,
// 20 a frame. Rows are parted by "<&IM>". The select list is the session's own: what isn't sent stays unread
// in it.
void ServeRowset(ServerRun& run);

}  // namespace nvadmin
