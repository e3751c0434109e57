// The log of a server, on standard error: one line an event, with its time. Holds no contents of items and no
// passwords; control bytes are escaped, and what is longer than 1000 bytes is cut.
#pragma once

#include <string_view>

namespace nvadmin::host {

constexpr int kMostLinesOfKind = 10;  // a second

// Writes a line of code page bytes. Any thread.
void LogEvent(std::string_view event);
// The same for a kind of event that strangers can bring about as often as they like. Of those beyond the
// limit just the number is told, by a line of its own before the first line of whatever kind after that
// second. `kind` names the events: "refused connections".
void LogEventOfMany(std::string_view kind, std::string_view event);

}  // namespace nvadmin::host
