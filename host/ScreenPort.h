// The ports that a person or a pipe stands behind: text goes out in large writes, and sentences come in
// beside the lines that the add-in asks for.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "host/ScreenText.h"
#include "host/SessionPort.h"

namespace nvadmin::host {

class ScreenPort : public SessionPort {
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

  engine::InputResult ReadSentence(std::string& sentence) final;
  void EndOpenLine() final;
  std::string_view OpenLine() const final { return screen_.OpenLine(); }  // UTF-8
  bool IsLost() const final { return lost_; }
  int RefusedLines() const final { return refusedLines_; }

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
