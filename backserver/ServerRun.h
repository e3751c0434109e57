// What the back server holds for one run. It is no part of the session's state: open files, values kept for
// the client and modes are gone when the run ends.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "session/Values.h"

namespace nvadmin {

// Where a request has its keyword, and the one argument that every command knows: a file, a sentence, a
// value.
inline constexpr std::int32_t kKeywordAttribute = 1;
inline constexpr std::int32_t kFirstArgument = 2;

// Slots of the table of open files count from 1 to this.
inline constexpr std::int32_t kLastSlot = 200;

struct ServerRun {
  std::string Request;  // being assembled, then being served: attribute 1 is the keyword
  bool ended = false;   // EXIT was served

  std::string WhoText;      // the sentence's answer at the start
  std::string UserInst;     // the engine's answer at the start, then the client's own word
  std::string LockTimeout;  // kept for the client to read back; no lock waits for it
  std::string PickMode;     // true: full row frames go out by way of the helper
  std::string Flavour;      // this and the next are taken from the client, and change nothing
  std::string UltPlus;

  // Attribute n is the name, as the client first sent it, of the file open in slot n. A name enters once its
  // file is open, and stays.
  std::string OpenFileNames;
  std::array<std::string, kLastSlot + 1> OpenFiles;  // FileVars by slot
  std::int32_t CurrentSlot = 0;                      // of the file of the current request; 0: none

  // Buffers that one request leaves to the next.
  std::string line;      // of input: a part of a request, or a pacing line
  std::string itemText;  // what a READ has read
  std::string frame;     // the frame that goes out
};

// An argument of the request, by attribute; empty when the client left it out. Lent by the request.
inline std::string_view Argument(const ServerRun& run, std::int32_t attribute) {
  return AttributeView(run.Request, attribute);
}

}  // namespace nvadmin
