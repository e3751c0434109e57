// The port of a terminal: line editing, a history of the sentences typed, and cursor strings as ANSI control.
//
// The line editor is one for the whole program, so there is one TerminalPort at a time. It lives on the
// session's thread; Notify alone may be called from another one. The signals that it takes must be blocked in
// all threads: who waits for them passes them on.
#pragma once

#include <array>
#include <atomic>
#include <csignal>
#include <filesystem>
#include <string>

#include "host/ScreenPort.h"
#include "host/SentenceHistory.h"

namespace nvadmin::host {

class TerminalPort final : public ScreenPort {
 public:
  static constexpr std::array kSignals = {SIGINT, SIGHUP, SIGTERM, SIGWINCH, SIGCONT};

  // On standard input and output. Sets the locale of characters to a UTF-8 one.
  explicit TerminalPort(const std::filesystem::path& historyFile);
  ~TerminalPort() override;
  TerminalPort(const TerminalPort&) = delete;
  TerminalPort& operator=(const TerminalPort&) = delete;

  // One of kSignals came. SIGINT drops the line being typed: at the prompt it is asked again, elsewhere it
  // counts as empty. SIGHUP and SIGTERM lose the port.
  void Notify(int signal);
  bool IsInterrupted() const override { return interrupted_ || hungUp_; }

 protected:
  engine::InputResult WaitForLine(std::string& utf8, Asked asked) override;

 private:
  static int NextCharacter(FILE* input);
  int ReadCharacter();
  bool WaitForByte(unsigned char& byte);
  bool HandleNotices();
  void StartRow(std::string& prompt);

  SentenceHistory history_;
  std::array<int, 2> wake_{-1, -1};  // a pipe: Notify writes, the editor's wait reads
  std::atomic<bool> interrupted_ = false;
  std::atomic<bool> hungUp_ = false;
  std::atomic<bool> resized_ = false;
  std::atomic<bool> resumed_ = false;
};

}  // namespace nvadmin::host
