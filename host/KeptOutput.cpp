#include "host/KeptOutput.h"

#include <algorithm>
#include <string_view>

namespace nvadmin::host {

namespace {

constexpr std::size_t kEntryBytes = 96;  // what an entry costs beside its text, about
constexpr std::string_view kFrameStart = "<TX>";
constexpr std::string_view kFrameEnd = "</TX>";
constexpr std::string_view kTerminal = "<TERMINAL>";
constexpr std::string_view kLineEnd = "\r\n";
// How a message begins that replaces the page, and one that may close a frame.
constexpr std::string_view kReplacements[] = {"<TX>IREPLACE|", "IREPLACE|", "^IREPLACE|"};
constexpr std::string_view kClosings[] = {kFrameStart, kFrameEnd, "MSGBOX|"};
constexpr std::string_view kTooLong =
    "EWhat was shown here is too long to be kept by the server. Leave it with an empty line, then ask "
    "again.\r\n";

template <std::size_t count>
bool BeginsWithOneOf(std::string_view text, const std::string_view (&starts)[count]) {
  return std::any_of(std::begin(starts), std::end(starts),
                     [text](std::string_view start) { return text.starts_with(start); });
}

bool ClosesFrame(std::string_view text) {
  if (!BeginsWithOneOf(text, kClosings)) return false;
  if (text.ends_with(kLineEnd)) text.remove_suffix(kLineEnd.size());
  return text.ends_with(kFrameEnd);
}

}  // namespace

// Whether the message is one of a frame. Moves the pages along.
bool KeptOutput::NoteFrame(const std::string& message) {
  if (message.front() != 'A') return false;
  const std::string_view text = std::string_view(message).substr(1);
  const bool opens = !inFrame_ && text.starts_with(kFrameStart);
  const std::string_view inside = opens ? text.substr(kFrameStart.size()) : text;
  if (inside.starts_with(kTerminal)) {
    EndPages(pages_.size());
    inFrame_ = dropsFrame_ = showsFrame_ = false;
    return false;
  }
  if (!inFrame_ && !opens) return false;
  showsFrame_ = true;
  if (opens) frameStart_ = pages_.size();
  if (BeginsWithOneOf(text, kReplacements)) {
    EndPages(frameStart_);
    frameStart_ = 0;
  }
  inFrame_ = !ClosesFrame(text);
  return true;
}

void KeptOutput::Add(WebMessage message) {
  const std::size_t size = message->size() + kEntryBytes;
  const bool isFrame = NoteFrame(*message);
  endsInFrame_ = isFrame && !inFrame_;
  Entry entry{++last_, isFrame, std::move(message)};
  if (isFrame && dropsFrame_) {
    dropsFrame_ = inFrame_;
    return;
  }
  if (!isFrame && pages_.empty()) return AddToTail(std::move(entry));
  pages_.push_back(std::move(entry));
  pagesSize_ += size;
  if (pagesSize_ <= pagesBytes_) return;
  EndPages(pages_.size());
  dropsFrame_ = inFrame_;
  AddToTail({0, false, std::make_shared<const std::string>(kTooLong)});
}

void KeptOutput::AddToTail(Entry entry) {
  tailSize_ += entry.message->size() + kEntryBytes;
  tail_.push_back(std::move(entry));
  while (tailSize_ > kTailBytes) {
    tailSize_ -= tail_.front().message->size() + kEntryBytes;
    tail_.pop_front();
  }
}

void KeptOutput::EndPages(std::size_t count) {
  for (; count > 0; --count) {
    Entry entry = std::move(pages_.front());
    pages_.pop_front();
    pagesSize_ -= entry.message->size() + kEntryBytes;
    if (!entry.isFrame) AddToTail(std::move(entry));
  }
}

KeptOutput::Replay KeptOutput::After(std::uint64_t seen) const {
  std::vector<Entry> kept(tail_.begin(), tail_.end());
  kept.insert(kept.end(), pages_.begin(), pages_.end());
  // How many at the end follow each other without a gap.
  std::size_t unbroken = 0;
  while (unbroken < kept.size() && kept[kept.size() - 1 - unbroken].number == last_ - unbroken) ++unbroken;

  std::size_t from = 0;
  const bool goesOn = seen <= last_ && last_ - seen <= unbroken;
  if (goesOn) {
    from = kept.size() - (last_ - seen);
  } else if (last_ - kept.size() == seen) {
    // By chance it would look as if it went on.
    from = 1;
  }
  Replay replay;
  replay.next = last_ - (kept.size() - from) + 1;
  for (; from < kept.size(); ++from) replay.messages.push_back(std::move(kept[from].message));
  return replay;
}

}  // namespace nvadmin::host
