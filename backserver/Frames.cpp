#include "backserver/Frames.h"

#include "session/basNvLibrary.h"

namespace nvadmin {

void ComposeFrame(ServerRun& run, std::initializer_list<std::string_view> pieces) {
  run.frame = kFrameStart;
  for (std::string_view piece : pieces) run.frame += piece;
  run.frame += kFrameEnd;
}

void SendFrame(ServerRun& run, std::initializer_list<std::string_view> pieces, bool lineEnd) {
  ComposeFrame(run, pieces);
  PPrint(run.frame, lineEnd);
}

void SendError(ServerRun& run, const ErrorText& error, std::string_view named) {
  SendFrame(run, {"<ERROR>", error.before, named, error.behind});
}

}  // namespace nvadmin
