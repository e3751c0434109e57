#include "host/ServedPrompt.h"

#include <utility>

#include <fmt/format.h>

#include "host/ServerLog.h"

namespace nvadmin::host {

bool ServedPrompt::Run(LoggedIn user) {
  Log(fmt::format("logged in: user {}, account {}", user.user, user.account));
  TclSettings settings;
  settings.account = std::move(user.account);
  settings.user = std::move(user.user);
  settings.from = from_;
  settings.mayEnter = std::move(user.mayEnter);
  settings.onRefusedWrite = [this](const engine::RefusedWrite& write) {
    Log(fmt::format("refused write: {}", write.Text()));
  };
  settings.onLoad = [this](std::string_view line) { Log(line); };
  settings.onFailure = [this](std::string_view failure) { Log(fmt::format("failure: {}", failure)); };
  settings.prompts = true;
  settings.trace = trace_;
  TclSession session(home_, port_, std::move(settings));
  SetRunning(&session);
  const struct AtEnd {
    ServedPrompt& prompt;
    ~AtEnd() { prompt.SetRunning(nullptr); }
  } atEnd{*this};
  return session.Run() != ExitCode::kNoEntry;
}

void ServedPrompt::SetRunning(TclSession* session) {
  const std::lock_guard lock(runningMutex_);
  running_ = session;
}

void ServedPrompt::Interrupt() noexcept {
  const std::lock_guard lock(runningMutex_);
  if (running_ != nullptr) running_->Interrupt();
}

void ServedPrompt::Log(std::string_view event) const { LogEvent(LogLine(event)); }

std::string ServedPrompt::LogLine(std::string_view event) const {
  return fmt::format("session {} from {}: {}", number_, from_, event);
}

}  // namespace nvadmin::host
