#include "host/TclSession.h"

#include <cstdio>
#include <exception>

#include <fmt/format.h>

#include "engine/CodePage.h"
#include "engine/Marks.h"
#include "engine/sentences/Arguments.h"
#include "engine/sentences/Verbs.h"
#include "host/ScreenText.h"
#include "platform/TransferObserver.h"
#include "session/SessionState.h"
#include "session/basNvLibrary.h"

namespace nvadmin::host {

namespace {

constexpr std::string_view kPrompt = ":";
constexpr std::string_view kFailedAnswer = "ERROR";

std::string_view TrimBlanks(std::string_view text) {
  const std::size_t first = text.find_first_not_of(' ');
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(' ') - first + 1);
}

// The add-in shows the failure of a select or query itself; a report ends as an empty one without saying why.
bool AddInShowsFailure(const engine::Verb* verb) {
  return verb != nullptr && verb->kind == engine::VerbKind::kAddIn && verb->word != "LIST" &&
         verb->word != "SORT";
}

// What the prompt prints of an answer: a list (files, for instance) an entry a line, other replies on one
// line. SQL has no verb of ours; it answers.
std::string ShownAnswer(std::string_view answer, const engine::Verb* verb) {
  const bool isList = verb != nullptr && verb->kind == engine::VerbKind::kAnswers;
  std::string shown;
  for (char letter : answer) {
    if (letter == engine::kAttributeMark) {
      shown += isList ? "\r\n" : " ";
    } else {
      shown += letter;
    }
  }
  return shown;
}

// The add-in takes a certain answer for a lost port, also when it was typed, and is without an engine then:
// the session is over, as its locks should be.
bool HasHungUp() { return Session().Engine == nullptr; }

bool IsSameAccount(const engine::Account& left, const engine::Account& right) {
  return left.name == right.name && left.datastore == right.datastore;
}

}  // namespace

void Complain(std::string_view text) {
  ScreenText screen(/*hasCursor=*/false);
  std::string shown = "nvadmin: ";
  screen.Append(shown, text, /*lineEnd=*/true);
  std::fputs(shown.c_str(), stderr);
}

ExitCode TclSession::Run() {
  std::optional<engine::EngineSession> engine;
  try {
    engine.emplace(home_, port_,
                   engine::SessionSettings{settings_.account, settings_.user, settings_.from,
                                           settings_.mayEnter, settings_.onRefusedWrite, settings_.onLoad});
    TraceTo(settings_.trace);
    bp_.emplace().CallBack(&*engine);
    account_ = engine->CurrentAccount();
  } catch (const std::exception& failure) {
    settings_.onFailure ? settings_.onFailure(failure.what()) : Complain(failure.what());
    return ExitCode::kNoEntry;
  }

  platform::ObserverOfTransfers() = {
      [&engine](std::string_view path) { engine->BeginLoad(path); },
      [&] {
        try {
          engine->EndLoad();
        } catch (...) {  // the items are in, just the record of them may be short
          anyFailed_ = true;
        }
      }};
  try {
    Serve(*engine);
    port_.EndOpenLine();
    port_.Flush();
  } catch (const PortLost& loss) {
    anyFailed_ = true;
    if (*loss.what() != '\0') Complain(loss.what());
  }
  bp_->CallBackClose();
  platform::ObserverOfTransfers() = {};
  if (settings_.prompts) return port_.IsLost() ? ExitCode::kFailed : ExitCode::kFine;
  if (anyFailed_) return ExitCode::kFailed;
  return anyRefused_ || port_.RefusedLines() > 0 ? ExitCode::kRefusals : ExitCode::kFine;
}

void TclSession::Interrupt() noexcept {
  const std::lock_guard lock(runningMutex_);
  interrupted_ = true;
  if (running_ != nullptr) running_->Interrupt();
}

void TclSession::SetRunning(engine::EngineSession* engine) {
  const std::lock_guard lock(runningMutex_);
  running_ = engine;
  if (engine != nullptr) interrupted_ = false;
}

void TclSession::Serve(engine::EngineSession& engine) {
  if (settings_.prompts)
    PrintLine("Account " + account_.name + ". HELP shows the verbs, OFF ends the session.");
  std::string sentence;
  while (NextSentence(sentence)) {
    engine::BlankTabs(sentence);
    const std::string_view trimmed = TrimBlanks(sentence);
    if (trimmed.empty()) continue;
    const Outcome outcome = ServeSentence(engine, trimmed);
    if (outcome == Outcome::kFailed) anyFailed_ = true;
    if (outcome == Outcome::kOff || port_.IsLost() || HasHungUp()) return;
    if (interrupted_ && !settings_.prompts) return;
  }
}

// False when there is none any more.
bool TclSession::NextSentence(std::string& sentence) {
  if (settings_.prompts) {
    Prompt();
  } else {
    port_.EndOpenLine();
  }
  if (settings_.sentences) return NextGivenSentence(sentence);
  return port_.ReadSentence(sentence) == engine::InputResult::kLine;
}

// Given sentences that the code page can't hold are refused and left out.
bool TclSession::NextGivenSentence(std::string& sentence) {
  while (givenSentence_ < settings_.sentences->size()) {
    const std::string& utf8 = (*settings_.sentences)[givenSentence_++];
    std::string refused;
    if (engine::FromUtf8(utf8, sentence, refused)) return true;
    anyRefused_ = true;
    fmt::print(
        stderr,
        "nvadmin: sentence {} of the command line isn't run: {} is not in the code page Windows-1252\n",
        givenSentence_, refused);
  }
  return false;
}

// Reports leave a prompt of their own behind.
void TclSession::Prompt() {
  const std::string_view open = port_.OpenLine();
  if (open == kPrompt || open == ": ") return;
  port_.EndOpenLine();
  port_.Write(kPrompt, /*lineEnd=*/false);
}

TclSession::Outcome TclSession::ServeSentence(engine::EngineSession& engine, std::string_view sentence) {
  Outcome outcome = Outcome::kFailed;
  std::string failureText;
  try {
    engine.BeginTypedSentence(sentence);
    SetRunning(&engine);
    // What came before there was anything to stop.
    if (port_.IsLost() || port_.IsInterrupted()) Interrupt();
    outcome = RunSentence(engine, sentence);
  } catch (const PortLost&) {
    SetRunning(nullptr);
    throw;
  } catch (const std::exception& failure) {
    failureText = failure.what();
  }
  SetRunning(nullptr);
  try {
    engine.EndTypedSentence();
  } catch (const PortLost&) {
    throw;
  } catch (const std::exception& failure) {
    outcome = Outcome::kFailed;
    if (failureText.empty()) failureText = failure.what();
  }
  if (!failureText.empty() && !port_.IsLost() && !HasHungUp()) {
    if (settings_.onFailure) settings_.onFailure(failureText);
    // What failed may have left a form on the screen.
    if (port_.ShowsPages()) {
      port_.EndOpenLine();
      port_.WriteMessage("<TERMINAL>", /*lineEnd=*/true);
    }
    PrintLine(failureText);
  }
  return outcome;
}

TclSession::Outcome TclSession::RunSentence(engine::EngineSession& engine, std::string_view sentence) {
  const engine::Verb* verb = engine::FindVerb(sentence);
  if (verb != nullptr && verb->kind == engine::VerbKind::kPrompt) {
    const Outcome outcome = RunPromptVerb(verb->word, sentence);
    LendAgainAfterLogto(engine);
    return outcome;
  }
  if (verb != nullptr && verb->kind == engine::VerbKind::kAddIn) {
    bp_->CmdSentence(sentence);
    bp_->Query();
  } else {
    const std::string answer = engine.ExecuteSentence(sentence);
    const bool wasPrinted = verb != nullptr && verb->kind == engine::VerbKind::kPrints;
    if (answer != kFailedAnswer && !wasPrinted) PrintLine(ShownAnswer(answer, verb));
    LendAgainAfterLogto(engine);
  }
  const std::string& error = engine.TypedSentenceError();
  if (error.empty()) return Outcome::kFine;
  if (!AddInShowsFailure(verb)) PrintLine(std::string(error));
  return Outcome::kFailed;
}

TclSession::Outcome TclSession::RunPromptVerb(std::string_view word, std::string_view sentence) {
  if (word == "MENU") {
    if (!port_.ShowsPages()) {
      PrintLine("MENU needs a browser: this is a terminal");
      return Outcome::kFailed;
    }
    bp_->UMenu();
    return Outcome::kFine;
  }
  if (word == "NV.BACKSRV") {
    bp_->CmdSentence(sentence);
    bp_->Query();
    return Outcome::kFine;
  }
  return Outcome::kOff;
}

void TclSession::LendAgainAfterLogto(engine::EngineSession& engine) {
  if (IsSameAccount(engine.CurrentAccount(), account_)) return;
  bp_->CallBack(&engine);
  account_ = engine.CurrentAccount();
  port_.ShowAccount(account_.name);
}

void TclSession::PrintLine(std::string_view text) {
  port_.EndOpenLine();
  port_.Write(text, /*lineEnd=*/true);
}

}  // namespace nvadmin::host
