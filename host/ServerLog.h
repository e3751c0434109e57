// The log of a server, on standard error: one line an event, with its time. Holds no contents of items and no
// passwords; control bytes are escaped, and what is longer than 1000 bytes is cut.
#pragma once

#include <string_view>

namespace nvadmin::host {

// Writes a line of code page bytes. Any thread.
void LogEvent(std::string_view event);

}  // namespace nvadmin::host
