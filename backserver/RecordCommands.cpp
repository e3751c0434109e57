#include "backserver/RecordCommands.h"

#include "backserver/Frames.h"
#include "session/Marks.h"
#include "session/Text.h"
#include "session/basNvFunctions.h"
#include "session/basNvLibrary.h"

namespace nvadmin {

namespace {

// Arguments behind the file.
constexpr std::int32_t kIdArgument = 3;
constexpr std::int32_t kNumberArgument = 4;  // of the attribute
constexpr std::int32_t kLockArgument = 5;
constexpr std::int32_t kLengthArgument = 6;

constexpr std::size_t kMostBodyCharacters = 999'999;
constexpr std::string_view kLockRefused = "[920]";

// The first slot whose name fits; 0 when none does.
template <typename Fits>
std::int32_t FindSlot(std::string_view openFileNames, Fits fits) {
  if (openFileNames.empty()) return 0;
  PartWalk names(openFileNames, AttributeMark);
  for (std::int32_t slot = 1; !names.AtEnd(); ++slot) {
    if (fits(names.Next())) return slot;
  }
  return 0;
}

// The first slot without a name, behind the last one if need be.
std::int32_t FirstFreeSlot(std::string_view openFileNames) {
  PartWalk names(openFileNames, AttributeMark);
  std::int32_t slot = 1;
  while (!names.AtEnd() && !names.Next().empty()) ++slot;
  return slot;
}

bool AsksForLock(std::string_view argument) { return CCompare(argument, "=", "LOCK"); }

// Reads into run.itemText. False when the client has had an error frame.
bool ReadPlainly(ServerRun& run, std::string_view file, std::string_view id, std::string_view attribute) {
  const bool isWholeItem = attribute.empty();
  const bool found = isWholeItem ? RREAD(run.itemText, file, id)
                                 : RREADV(run.itemText, file, id, LeadingWholeNumber(attribute));
  if (!found) SendError(run, isWholeItem ? kItemNotRead : kAttributeNotRead);
  return found;
}

// The same with a lock. An item that isn't there can be locked too, so only the engine's text tells.
bool ReadLocking(ServerRun& run, std::string_view file, std::string_view id, std::string_view attribute) {
  if (attribute.empty()) {
    RREADU(run.itemText, file, id);
  } else {
    RREADVU(run.itemText, file, id, LeadingWholeNumber(attribute));
  }
  const std::string detail = ErrorDetail();
  if (detail.empty()) return true;
  if (detail.starts_with(kLockRefused)) {
    SendError(run, kRecordLocked);
  } else {
    SendError(run, kEngineDetail, detail);
  }
  return false;
}

void ReadRequestItem(ServerRun& run) {
  const std::string_view file = run.OpenFiles[run.CurrentSlot];
  const std::string_view id = Argument(run, kIdArgument);
  const std::string_view attribute = Argument(run, kNumberArgument);
  run.itemText.clear();
  const bool done = AsksForLock(Argument(run, kLockArgument)) ? ReadLocking(run, file, id, attribute)
                                                              : ReadPlainly(run, file, id, attribute);
  if (!done) return;

  std::string_view sent = run.itemText;
  const std::string_view limit = Argument(run, kLengthArgument);
  if (IsNumber(limit) && CCompare(limit, ">=", "0")) {
    sent = sent.substr(0, static_cast<std::size_t>(LeadingWholeNumber(limit)));
  }
  SendFrame(run, {sent});
}

// Head and body are views of the request, which may be large.
void WriteRequestItem(ServerRun& run) {
  const std::size_t mark = run.Request.find(kItemMark);
  if (mark == std::string::npos) return SendError(run, kNoItemMark);
  const std::string_view request = run.Request;
  const std::string_view head = request.substr(0, mark);
  const std::string_view body = request.substr(mark + kItemMark.size(), kMostBodyCharacters);

  const std::string_view file = run.OpenFiles[run.CurrentSlot];
  const std::string_view id = AttributeView(head, kIdArgument);
  const std::string_view attribute = AttributeView(head, kNumberArgument);
  const bool keepsLock = AsksForLock(AttributeView(head, kLockArgument));
  if (attribute.empty()) {
    (keepsLock ? WWRITEU : WWRITE)(body, file, id);
  } else {
    (keepsLock ? WWRITEVU : WWRITEV)(body, file, id, LeadingWholeNumber(attribute));
  }
  SendFrame(run, {kDoneText});
}

}  // namespace

bool OpenRequestFile(ServerRun& run) {
  const std::string_view file = Argument(run, kFirstArgument);
  run.CurrentSlot =
      FindSlot(run.OpenFileNames, [file](std::string_view name) { return CCompare(file, "=", name); });
  if (run.CurrentSlot != 0) return true;

  const std::int32_t slot = FirstFreeSlot(run.OpenFileNames);
  std::string name(file);  // may come back as the table's name
  if (slot > kLastSlot || !OOpen(name, run.OpenFiles[slot])) {
    SendError(run, kFileFails, file);
    return false;
  }
  run.CurrentSlot = slot;
  run.OpenFileNames = RReplace(run.OpenFileNames, slot, file);
  return true;
}

void ServeRead(ServerRun& run) {
  if (OpenRequestFile(run)) ReadRequestItem(run);
}

void ServeWrite(ServerRun& run) {
  if (OpenRequestFile(run)) WriteRequestItem(run);
}

void ServeOpen(ServerRun& run) {
  if (OpenRequestFile(run)) SendFrame(run, {kDoneText});
}

// Opens nothing: a file that isn't open has no locks of its own to drop, and its name stands for all files.
void ServeRelease(ServerRun& run) {
  const std::string_view file = Argument(run, kFirstArgument);
  run.CurrentSlot =
      file.empty() ? 0 : FindSlot(run.OpenFileNames, [file](std::string_view name) { return name == file; });
  if (run.CurrentSlot == 0) {
    RRELEASE("", "");
  } else {
    RRELEASE(run.OpenFiles[run.CurrentSlot], Argument(run, kIdArgument));
  }
  SendFrame(run, {kDoneText});
}

void ServeDelete(ServerRun& run) {
  if (!OpenRequestFile(run)) return;
  DDELETE(run.OpenFiles[run.CurrentSlot], Argument(run, kIdArgument));
  SendFrame(run, {kDoneText});
}

}  // namespace nvadmin
