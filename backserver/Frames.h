// What the server sends: the frames without data, the texts of all errors, and the two ways to send.
#pragma once

#include <initializer_list>
#include <string_view>

#include "backserver/ServerRun.h"

namespace nvadmin {

inline constexpr std::string_view kFrameStart = "<TXA>";
inline constexpr std::string_view kFrameEnd = "</TXA>";

// Parts the head of a WRITE from its body, and the rows of a row frame.
inline constexpr std::string_view kItemMark = "<&IM>";

// Texts of the frames without data.
inline constexpr std::string_view kStartText = "<START>";  // the server stands ready
inline constexpr std::string_view kNextText = "<NEXT>";    // the request goes on: send its next line
inline constexpr std::string_view kDoneText = "OK";
inline constexpr std::string_view kEndText = "<END>";  // the last frame of all
inline constexpr std::string_view kRowsetStartText = "ROWSET START";
inline constexpr std::string_view kRowsetExitText = "ROWSET EXIT";

// An error, with the file, ID or keyword that it names in the middle.
struct ErrorText {
  std::string_view before;
  std::string_view behind;
};

inline constexpr ErrorText kFileFails = {"[911] File '", "' fails to OPEN so may not exist."};
inline constexpr ErrorText kItemNotRead = {"[912] READ ERROR", ""};
inline constexpr ErrorText kAttributeNotRead = {"[912] READV ERROR", ""};
inline constexpr ErrorText kDictionaryFails = {"[914] Open supporting LIST Dict Items fails for 'DICT ", "'"};
inline constexpr ErrorText kRowItemMissing = {"[914] Item '", "' not found (in main Rowset loop)"};
inline constexpr ErrorText kUnknownKeyword = {"[915] Keyword ", " not recognised."};
inline constexpr ErrorText kRecordLocked = {"[920] Record locked", ""};
inline constexpr ErrorText kNoItemMark = {
    "WRITE holds no <&IM> between its head and its body: nothing written", ""};
inline constexpr ErrorText kEngineDetail = {"", ""};  // the engine's own text is all

// Puts a frame together in run.frame, without sending it.
void ComposeFrame(ServerRun& run, std::initializer_list<std::string_view> pieces);
// Sends a frame, in one print.
void SendFrame(ServerRun& run, std::initializer_list<std::string_view> pieces, bool lineEnd = true);
void SendError(ServerRun& run, const ErrorText& error, std::string_view named = {});

}  // namespace nvadmin
