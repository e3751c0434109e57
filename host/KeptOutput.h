// What a web session keeps of its output, so that a page that lost its connection, or was loaded anew, can
// show it again: the form or page that is up with all that came after it, and before that the end of the
// terminal's text. Knows no sockets and no threads.
//
// (1) Messages are counted from 1 as they are added. (2) Kept are two parts: the tail, up to 64 KiB of
// terminal text, and behind it the pages, from the "<TX>" of the frame that last replaced the page on.
// Nothing within the pages is missing; between older messages some may be. (3) A "<TERMINAL>" line ends the
// pages: frames go, what was terminal text among them joins the tail. (4) Pages over their limit go too, and
// a note takes their place.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <string>
#include <vector>

namespace nvadmin::host {

// A message to the page in UTF-8: the letter of its kind, then its text.
using WebMessage = std::shared_ptr<const std::string>;

class KeptOutput {
 public:
  static constexpr std::size_t kTailBytes = std::size_t{64} << 10;
  static constexpr std::size_t kPagesBytes = std::size_t{32} << 20;

  explicit KeptOutput(std::size_t pagesBytes = kPagesBytes) : pagesBytes_(pagesBytes) {}

  void Add(WebMessage message);
  // Whether a form or page is up: a frame came after the last "<TERMINAL>".
  bool ShowsFrame() const { return showsFrame_; }
  // Whether the last message closed a frame: what shows one asks for a reply then.
  bool EndsInFrame() const { return endsInFrame_; }

  struct Replay {
    std::uint64_t next = 1;  // the number of the first message, or of the next to come
    std::vector<WebMessage> messages;
  };
  // What to send to a page that has seen the messages up to number `seen` (0: none). `next` is seen + 1 when
  // that goes on where the page is, and another number when the page must be emptied first: the messages are
  // then counted so that the last has its own number.
  Replay After(std::uint64_t seen) const;

 private:
  struct Entry {
    std::uint64_t number = 0;  // 0: a note
    bool isFrame = false;
    WebMessage message;
  };

  bool NoteFrame(const std::string& message);
  void AddToTail(Entry entry);
  // The first `count` entries of the pages are over.
  void EndPages(std::size_t count);

  std::size_t pagesBytes_;
  std::uint64_t last_ = 0;
  std::deque<Entry> tail_;
  std::size_t tailSize_ = 0;
  std::deque<Entry> pages_;
  std::size_t pagesSize_ = 0;
  bool showsFrame_ = false;
  bool endsInFrame_ = false;
  bool inFrame_ = false;
  std::size_t frameStart_ = 0;  // in pages_, of the frame that is open
  bool dropsFrame_ = false;     // the open frame isn't kept
};

}  // namespace nvadmin::host
