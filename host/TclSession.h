// A session at the TCL prompt: one port, one engine session and one BP, on the thread that calls Run and that
// nothing else of the add-in has used before.
//
// The order for each sentence: BeginTypedSentence; the add-in or the engine serves it; what the add-in hasn't
// shown of a failure is shown; EndTypedSentence. A failure that leaves the add-in or the engine is one line
// on the screen, and the session goes on unless the port is gone.
#pragma once

#include <atomic>
#include <cstddef>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "engine/EngineSession.h"
#include "engine/Home.h"
#include "host/SessionPort.h"
#include "session/BP.h"

namespace nvadmin::host {

enum class ExitCode {
  kFine = 0,
  kFailed = 1,    // a sentence or command failed, or the output went away
  kUsage = 2,     // the command line can't be understood
  kRefusals = 3,  // all went well but for lines that were refused
  kNoEntry = 4,   // home or account can't be opened
};

struct TclSettings {
  // What the engine's session is told: see engine::SessionSettings.
  std::string account;
  std::string user;
  std::string from;
  std::function<bool(std::string_view account)> mayEnter;
  std::function<void(const engine::RefusedWrite&)> onRefusedWrite;
  std::function<void(std::string_view line)> onLoad;
  // Takes each failure that left the add-in or the engine, which the port shows too, and why a session
  // couldn't begin, which it doesn't. Empty: the latter goes to standard error.
  std::function<void(std::string_view failure)> onFailure;
  // The sentences to run, in UTF-8; without them the port is asked for sentences.
  std::optional<std::vector<std::string>> sentences;
  // A person types the sentences: prompts are shown, and failures don't count in the exit code.
  bool prompts = false;
  // Takes the lines of the add-in's debug trace; empty: no trace.
  std::function<void(std::string_view line)> trace;
};

class TclSession {
 public:
  // Home and port are lent.
  TclSession(engine::Home& home, SessionPort& port, TclSettings settings)
      : home_(home), port_(port), settings_(std::move(settings)) {}

  // Runs the session until OFF, the end of its sentences or the loss of the port. What can't be shown on the
  // port goes to standard error.
  ExitCode Run();

  // Stops the sentence under way, if there is one. May be called from another thread.
  void Interrupt() noexcept;

 private:
  enum class Outcome { kFine, kFailed, kOff };

  void Serve(engine::EngineSession& engine);
  bool NextSentence(std::string& sentence);
  bool NextGivenSentence(std::string& sentence);
  void Prompt();
  Outcome ServeSentence(engine::EngineSession& engine, std::string_view sentence);
  Outcome RunSentence(engine::EngineSession& engine, std::string_view sentence);
  Outcome RunPromptVerb(std::string_view word, std::string_view sentence);
  void LendAgainAfterLogto(engine::EngineSession& engine);
  void PrintLine(std::string_view text);
  void SetRunning(engine::EngineSession* engine);

  engine::Home& home_;
  SessionPort& port_;
  TclSettings settings_;
  std::optional<BP> bp_;     // made on the session's thread
  engine::Account account_;  // as the add-in knows it
  std::size_t givenSentence_ = 0;
  bool anyFailed_ = false;
  bool anyRefused_ = false;

  std::mutex runningMutex_;
  engine::EngineSession* running_ = nullptr;  // while a sentence is under way
  std::atomic<bool> interrupted_ = false;     // during the sentence last begun
};

// A message on standard error, from code page bytes: "nvadmin: " and the text.
void Complain(std::string_view text);

}  // namespace nvadmin::host
