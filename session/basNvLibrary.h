// The wrappers of the engine: terminal input and output, record access, sentences and select lists. All other
// code of the add-in reaches the engine through them, and through nothing else.
//
// No wrapper but RReadNext catches a failure: it stops the caller and reaches the engine. After a lost port
// the session has no engine, and the next wrapper that needs one fails; so no loop handles a lost port
// itself.
//
// The item cache holds items of six system tables for the life of the session: (1) key n and body n belong
// together and never move; (2) a locked read never comes from it; (3) a write brings an entry up to date but
// never makes one; (4) only an item that was found enters it, so that a missing item never reads as found.
// Writes of other sessions don't show.
#pragma once

#include <cstdint>
#include <functional>
#include <initializer_list>
#include <string>
#include <string_view>
#include <variant>

namespace nvadmin {

// --- Terminal input and output ---

// Prints text; a true lineEnd ends the line. Terminal or browser makes no difference here.
void PPrint(std::string_view text, bool lineEnd);
// A number prints as its decimal text.
void PPrint(std::int64_t number, bool lineEnd);

// An optional argument of IInput.
using InputArgument = std::variant<bool, std::int16_t, std::int32_t, float, double, std::string>;

// Waits for one line, without its end. "<&PORT_DISCONNECT>", typed or not, means that the port is gone: the
// session's engine is emptied, and `target` keeps the text.
void IInput(std::string& target);
// A number of 16 or 32 bits or of single precision limits the length; "true", "false" and ":" (trimmed, any
// case) say whether the line end shows; another numeric text is a length. All else is read as a boolean, and
// fails without one.
void IInput(std::string& target, const InputArgument& a);
// `a` limits the length, `b` says whether the line end shows.
void IInput(std::string& target, const InputArgument& a, const InputArgument& b);

// The text that moves the cursor, column first, both from 0; printing it is up to the caller. (-1, -1) clears
// the screen, (-3, -1) clears from the cursor on.
std::string CursorAt(std::int32_t column, std::int32_t row);

// The text of the engine's last error, empty when the last operation went well.
std::string ErrorDetail();

// One line of trace: seconds since midnight, a blank, the pieces. Does nothing at all unless the trace is on.
void LogLine(std::initializer_list<std::string_view> message);
// Switches this thread's trace on, to a channel that takes complete lines without their end; an empty
// function: off.
void TraceTo(std::function<void(std::string_view line)> channel);

// --- Record access ---

// Opens a file. On a datastore whose word doesn't begin with "MV", `name` is first rewritten to the table's
// name and stays so in the caller's variable. `fileVar` is filled, without blanks, on success and left alone
// after a failure.
bool OOpen(std::string& name, std::string& fileVar);

// All below: an empty ID is false without a call of the engine, and an empty result where there is one. The
// engine's reason for a false answer stands in ErrorDetail until the next operation.
bool RREAD(std::string& item, std::string_view fileVar, std::string_view id);
bool RREADU(std::string& item, std::string_view fileVar, std::string_view id);
bool RREADV(std::string& value, std::string_view fileVar, std::string_view id, std::int32_t attribute);
bool RREADVU(std::string& value, std::string_view fileVar, std::string_view id, std::int32_t attribute);
bool WWRITE(std::string_view item, std::string_view fileVar, std::string_view id);
bool WWRITEU(std::string_view item, std::string_view fileVar, std::string_view id);
bool WWRITEV(std::string_view value, std::string_view fileVar, std::string_view id, std::int32_t attribute);
bool WWRITEVU(std::string_view value, std::string_view fileVar, std::string_view id, std::int32_t attribute);
// These two have no guard: an empty ID goes to the engine.
bool DDELETE(std::string_view fileVar, std::string_view id);
// An empty ID: all locks of the file; both empty: all locks of the session.
void RRELEASE(std::string_view fileVar, std::string_view id);

// --- Sentences and select lists ---

// The sentence's result text; exactly "ERROR" when it failed, and ErrorDetail then tells why. A sentence of
// the select family makes its list ready for RReadNext, or leaves none.
std::string EExecute(std::string_view sentence);
// One cell of the result grid: columns from 0, rows from 1. Fails outside the grid.
std::string ListItem(std::int32_t column, std::int32_t row);
// Dimension 1: the highest column; 2: the highest row, which is the number of rows.
std::int32_t ListCount(std::int32_t dimension);
// Steps to the next row and gives its key; `position` receives the row. False at the end, with `id`
// unchanged.
bool RReadNext(std::string& id, std::int32_t& position);

}  // namespace nvadmin
