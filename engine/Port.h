// A port: where a session's text comes from and goes to. The host implements it for a terminal, plain streams
// and the network; the engine knows nothing of what lies behind. All text is bytes of the code page;
// conversion is the port's.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace nvadmin::engine {

// A printed line that ends in this word is progress, not an answer. A port that shows pages answers it by
// itself, at once and with an empty line: the ReadLine behind it never waits for a person or for the network.
inline constexpr std::string_view kProgressWord = "<AUTORX>";

enum class InputResult {
  kLine,  // a line came
  kEnd,   // the input is over (end of a pipe), while output goes on
  kLost,  // the port is gone, both ways
};

class Port {
 public:
  virtual ~Port() = default;

  // Waits for one line and puts it into `line` without its end. What was written before is on the screen by
  // then. `length`: most bytes taken from the line, -1 for all. `echoLineEnd` false: the line end typed isn't
  // shown, where the port can choose. After kEnd and kLost `line` is empty.
  virtual InputResult ReadLine(std::string& line, std::int32_t length, bool echoLineEnd) = 0;

  // Takes text for output; lineEnd ends the line. May gather text, and sends it at the latest in Flush and
  // ReadLine.
  virtual void Write(std::string_view text, bool lineEnd) = 0;
  virtual void Flush() = 0;
  // As Write, for a text that the add-in prints. A browser's port sends each such text as one message,
  // because the page tells frames from item text by how messages begin and end; what else is written opens no
  // frame.
  virtual void WriteMessage(std::string_view text, bool lineEnd) { Write(text, lineEnd); }

  // True for a browser: the session answers "HTML" as its output mode.
  virtual bool ShowsPages() const { return false; }

  // What to print to move the cursor (column and row from 0), to clear the screen (-1, -1) or to clear from
  // the cursor on (-3, -1). Empty where the output has no cursor. The string is recognised by this port
  // alone, so that control bytes in item text can't pass for it.
  virtual std::string CursorString(std::int32_t column, std::int32_t row) = 0;
};

}  // namespace nvadmin::engine
