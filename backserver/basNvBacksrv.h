// The back server, NV.BACKSRV: a dialogue of lines and frames by which a remote client reads and writes
// items, runs sentences and pulls query results.
#pragma once

namespace nvadmin {

// Serves requests until the client sends EXIT. Owns the conversation for as long as it runs, and sees no
// socket: a client line is what IInput gives, a frame goes out through PPrint.
//
// A request is a dynamic array, keyword and arguments by attribute. It may come in any number of lines, put
// behind one another with nothing between, and ends at the first "</TXB>" (any letter case) that stands
// within one line; what follows the mark on that line is dropped. Neither lines nor length have a limit here.
// Every request but EXECUTE and some forms of EXECUTEPS gets a reply, and no error frame ends the
// conversation. A lost port does, by the failure of the next engine operation. Files stay open and locks
// held.
void BackServer();

}  // namespace nvadmin
