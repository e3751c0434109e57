#include "backserver/basNvBacksrv.h"

#include <algorithm>
#include <string>
#include <string_view>

#include "backserver/Frames.h"
#include "backserver/RecordCommands.h"
#include "backserver/Rowset.h"
#include "backserver/SentenceCommands.h"
#include "backserver/ServerRun.h"
#include "session/Text.h"
#include "session/basNvFunctions.h"
#include "session/basNvLibrary.h"

namespace nvadmin {

namespace {

constexpr std::string_view kEndMark = "</TXB>";
constexpr std::string_view kEndMarkStart = "</";  // the same in any letter case
// A buffer that has grown beyond this isn't kept for the next request.
constexpr std::size_t kMostKeptBytes = std::size_t{1} << 20;

// --- Requests ---

// Where the end mark first stands in a line, in any letter case; npos when it doesn't.
std::size_t FindEndMark(std::string_view line) {
  std::size_t at = line.find(kEndMarkStart);
  while (at != std::string_view::npos && !EqualInAnyCase(line.substr(at, kEndMark.size()), kEndMark)) {
    at = line.find(kEndMarkStart, at + 1);
  }
  return at;
}

// Reads lines into run.Request, up to the end mark. A request of one line is that line, not a copy.
void AssembleRequest(ServerRun& run) {
  run.Request.clear();
  for (;;) {
    IInput(run.line);
    const std::size_t end = FindEndMark(run.line);
    if (end != std::string::npos) run.line.resize(end);
    if (run.Request.empty()) {
      run.Request.swap(run.line);
    } else {
      run.Request += run.line;
    }
    if (end != std::string::npos) return;
    SendFrame(run, {kNextText});
  }
}

void DropLargeBuffers(ServerRun& run) {
  for (std::string* buffer : {&run.Request, &run.line, &run.itemText, &run.frame}) {
    if (buffer->capacity() > kMostKeptBytes) std::string().swap(*buffer);
  }
}

// --- Keywords ---

void ServeExit(ServerRun& run) {
  SendFrame(run, {kEndText});
  run.ended = true;
}

struct Keyword {
  std::string_view word;
  void (*serve)(ServerRun& run);
};

// In the order in which they are tested.
constexpr Keyword kKeywords[] = {
    {"READ", ServeRead},           {"WRITE", ServeWrite},       {"ROWSET", ServeRowset},
    {"OPEN", ServeOpen},           {"EXECUTE", ServeExecute},   {"TCL", ServeTcl},
    {"CAPTURING", ServeCapturing}, {"EXECUTEPS", RunExecutePs}, {"PICK", ServePick},
    {"FLAVOUR", ServeFlavour},     {"ULTPLUS", ServeUltPlus},   {"RELEASE", ServeRelease},
    {"DELETE", ServeDelete},       {"EXIT", ServeExit},
};

void ServeRequest(ServerRun& run) {
  const std::string_view keyword = Argument(run, kKeywordAttribute);
  const auto* found = std::find_if(std::begin(kKeywords), std::end(kKeywords), [keyword](const Keyword& row) {
    return CCompare(keyword, "=", row.word);
  });
  if (found == std::end(kKeywords)) return SendError(run, kUnknownKeyword, keyword);
  found->serve(run);
}

// The frame goes out first, so that the client may send its first line at once.
void Start(ServerRun& run) {
  SendFrame(run, {kStartText});
  run.WhoText = EExecute("WHO");
  run.UserInst = EExecute("SYSTEM USERINST");
  EExecute("SYSTEM ACCOUNT");
}

}  // namespace

void BackServer() {
  ServerRun run;
  Start(run);
  while (!run.ended) {
    AssembleRequest(run);
    ServeRequest(run);
    DropLargeBuffers(run);
  }
}

}  // namespace nvadmin
