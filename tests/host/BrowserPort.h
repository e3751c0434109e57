// A browser's port that a test scripts.
#pragma once

#include <deque>
#include <functional>
#include <string>
#include <string_view>

#include "host/SessionPort.h"

namespace nvadmin::host {

// Gives planned lines, typed at the prompt or sent as replies alike, and keeps what it was sent. Progress
// answers itself. Lost when the lines are used up.
class BrowserPort final : public SessionPort {
 public:
  engine::InputResult ReadLine(std::string& line, std::int32_t /*length*/, bool /*echoLineEnd*/) override {
    line.clear();
    if (received.ends_with("<AUTORX>\n")) {
      if (onProgress) onProgress();
      return engine::InputResult::kLine;
    }
    if (lines.empty()) return engine::InputResult::kLost;
    line = lines.front();
    lines.pop_front();
    received += "[" + line + "]\n";
    isInterrupted_ = line == interruptedLine;
    return engine::InputResult::kLine;
  }
  engine::InputResult ReadSentence(std::string& sentence) override { return ReadLine(sentence, -1, true); }
  void Write(std::string_view text, bool lineEnd) override {
    received.append(text).append(lineEnd ? "\n" : "");
  }
  void Flush() override {}
  bool ShowsPages() const override { return true; }
  std::string CursorString(std::int32_t /*column*/, std::int32_t /*row*/) override { return {}; }
  void EndOpenLine() override {
    if (!OpenLine().empty()) Write("", /*lineEnd=*/true);
  }
  std::string_view OpenLine() const override {
    return std::string_view(received).substr(received.rfind('\n') + 1);
  }
  bool IsLost() const override { return false; }
  bool IsInterrupted() const override { return isInterrupted_; }

  std::function<void()> onProgress;
  std::deque<std::string> lines;
  std::string interruptedLine = "none";  // the user breaks off behind it at once
  std::string received;

 private:
  bool isInterrupted_ = false;
};

}  // namespace nvadmin::host
