// The commands that run a sentence, and those that set or ask for a value of the run. What a sentence prints
// while it runs goes to the client between whatever a command prints itself.
#pragma once

#include "backserver/ServerRun.h"

namespace nvadmin {

// Attribute 2 is the sentence, or the value.
void ServeExecute(ServerRun& run);    // sends nothing of its own
void ServeTcl(ServerRun& run);        // between "<TXC>" and "</TXC>"
void ServeCapturing(ServerRun& run);  // the text that the sentence returns, as a frame
// A few words are answered here: ACCOUNT, WHO, SYSTEM USERINST and SYSTEM LOCKTIMEOUT. Any other sentence
// that begins with SYSTEM gets no answer at all; the rest run inside a frame that doesn't end its line.
void RunExecutePs(ServerRun& run);
void ServePick(ServerRun& run);
void ServeFlavour(ServerRun& run);
void ServeUltPlus(ServerRun& run);

}  // namespace nvadmin
