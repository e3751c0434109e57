// The ports that a person or a pipe stands behind: text goes out in large writes, and sentences come in
// beside the lines that the add-in asks for.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "engine/Port.h"
#include "host/ScreenText.h"
#include "session/EngineCallBack.h"

namespace nvadmin::host {

// The port is gone; what() is empty where there is nothing to say (the reader of a pipe went away).
struct PortLost : EngineFailure {
  using EngineFailure::EngineFailure;
};

// Once the output can't be written any more, each Write and Flush fails with PortLost, and each reading gives
// kLost.
class ScreenPort : public engine::Port {
 public:
  // `output` is a file descriptor, lent. inputEchoes: what is typed shows on the same screen, its line end
  // included; otherwise the port ends the line of a question itself when the answer comes.
  ScreenPort(int output, bool hasCursor, bool inputEchoes)
      : output_(output), inputEchoes_(inputEchoes), screen_(hasCursor) {}

  engine::InputResult ReadLine(std::string& line, std::int32_t length, bool echoLineEnd) final;
  void Write(std::string_view text, bool lineEnd) final;
  void Flush() final;
  std::string CursorString(std::int32_t column, std::int32_t row) final {
    return screen_.CursorString(column, row);
  }

  // The next sentence typed at the prompt, which stands on the open line.
  engine::InputResult ReadSentence(std::string& sentence);
  // Ends the open line, if there is one.
  void EndOpenLine();
  // UTF-8.
  const std::string& OpenLine() const { return screen_.OpenLine(); }
  bool IsLost() const { return lost_; }
  // Lines that came in but hold what the code page can't; each was refused by name.
  int RefusedLines() const { return refusedLines_; }

 protected:
  enum class Asked { kSentence, kAnswer };

  // Waits for one line, in UTF-8, without its end. All output is written by then. Where the input echoes, the
  // cursor stands at the start of a line afterwards, also after kEnd.
  virtual engine::InputResult WaitForLine(std::string& utf8, Asked asked) = 0;

  // For WaitForLine: the input or the output is gone for good.
  void SetLost() { lost_ = true; }

 private:
  engine::InputResult Read(std::string& bytes, Asked asked, bool endLine);

  int output_;
  bool inputEchoes_;
  ScreenText screen_;
  std::string gathered_;
  bool lost_ = false;
  int refusedLines_ = 0;
};

}  // namespace nvadmin::host
