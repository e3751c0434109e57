#include "host/WebSession.h"

#include <algorithm>
#include <charconv>
#include <exception>
#include <optional>

#include <fmt/format.h>

#include "host/Passwords.h"
#include "host/ServerLog.h"

namespace nvadmin::host {

namespace {

// Reasons of an end that the page knows; others are sentences.
constexpr std::string_view kOff = "off";
constexpr std::string_view kUnknown = "unknown";

constexpr char kNew = 'N';
constexpr char kResume = 'R';
constexpr char kLine = 'L';
constexpr char kInterrupt = 'I';

// The number at the front of the text, which is taken away. None where there isn't one.
std::optional<std::uint64_t> TakeNumber(std::string_view& text) {
  std::uint64_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc()) return std::nullopt;
  text.remove_prefix(static_cast<std::size_t>(end - text.data()));
  return number;
}

}  // namespace

WebSession::WebSession(WebSessionContext context, std::int64_t number, WebLogIn logIn, std::string from,
                       std::string token, std::function<void(const WebSession&)> onEnd)
    : context_(std::move(context)),
      logIn_(std::move(logIn)),
      token_(std::move(token)),
      onEnd_(std::move(onEnd)),
      logInNumber_(logIn_.number),
      port_(token_, logIn_.account, context_.limits),
      prompt_(context_.home, port_, context_.trace, number, std::move(from)) {}

void WebSession::Serve() noexcept {
  try {
    RunSentences();
    port_.Close(kOff);
  } catch (const std::exception& failure) {
    port_.Close(failure.what());
  }
  try {
    const std::string reason = port_.EndReason();
    prompt_.Log(fmt::format("ended: {}", reason == kOff ? "the user ended it" : reason));
  } catch (const std::exception&) {
    // There is no memory for a line of the log.
  }
  onEnd_(*this);
}

// The user may have changed since the log-in, which lasts for hours.
void WebSession::RunSentences() {
  const std::optional<nvadmin::host::User> user = context_.users.Find(logIn_.user);
  if (!user || user->passwordHash != logIn_.passwordHash || !user->MayEnter(logIn_.account))
    return port_.Close("Your password or your accounts have changed: log out, then log in again.");
  const auto mayEnter = [user = *user](std::string_view account) { return user.MayEnter(account); };
  if (!prompt_.Run({logIn_.user, logIn_.account, mayEnter})) port_.Close(kAccountUnopened);
}

WebSession::Verdict WebSession::Take(std::string_view message) {
  if (message.size() == 1 && message.front() == kInterrupt) {
    port_.Interrupt([this] { prompt_.Interrupt(); });
    return Verdict::kFine;
  }
  if (!message.starts_with(kLine)) return Verdict::kBroken;
  message.remove_prefix(1);
  const std::optional<std::uint64_t> number = TakeNumber(message);
  if (!number || !message.starts_with(' ') || message.find_first_of("\r\n") != std::string_view::npos)
    return Verdict::kBroken;
  switch (port_.TakeLine(*number, message.substr(1))) {
    case WebPort::Taken::kAccepted:
    case WebPort::Taken::kKnown:
      return Verdict::kFine;
    case WebPort::Taken::kFull:
      return Verdict::kLater;
    case WebPort::Taken::kMissing:
      break;
  }
  return Verdict::kBroken;
}

void WebSession::End(std::string_view reason) noexcept {
  port_.Lose(reason);
  prompt_.Interrupt();
}

void WebSession::Resume(const WebLogIn& logIn, std::string_view from) {
  logInNumber_ = logIn.number;
  prompt_.Log(fmt::format("resumed from {}", from));
}

// --- All of them ---

WebSessions::Begun WebSessions::Begin(std::string_view message, const WebLogIn& logIn,
                                      std::string_view address, std::string_view from,
                                      const std::shared_ptr<WebChannel>& channel) {
  if (ending_) return {nullptr, "the server ends"};
  if (message.size() == 1 && message.front() == kNew) return Open(logIn, address, from, channel);
  const std::size_t blank = message.find(' ');
  if (!message.starts_with(kResume) || blank == std::string_view::npos) return {};
  std::string_view rest = message.substr(blank + 1);
  const std::optional<std::uint64_t> seen = TakeNumber(rest);
  if (!seen || !rest.empty()) return {};
  return Resume(message.substr(1, blank - 1), *seen, logIn, from, channel);
}

WebSessions::Begun WebSessions::Open(const WebLogIn& logIn, std::string_view address, std::string_view from,
                                     const std::shared_ptr<WebChannel>& channel) {
  Begun begun;
  begun.refusal = served_.Open(address, [&](std::int64_t number) {
    begun.session = std::make_shared<WebSession>(context_, number, logIn, std::string(from), NewToken(),
                                                 [this](const WebSession& session) { Forget(session); });
    const std::lock_guard lock(mutex_);
    sessions_.push_back(begun.session);
    return begun.session;
  });
  if (begun.refusal.empty()) {
    begun.session->Port().Attach(channel, /*seen=*/0);
    return begun;
  }
  LogEventOfMany("refused sessions", fmt::format("session for {} refused: {}", from, begun.refusal));
  if (begun.session != nullptr) Forget(*begun.session);
  begun.session.reset();
  return begun;
}

WebSessions::Begun WebSessions::Resume(std::string_view token, std::uint64_t seen, const WebLogIn& logIn,
                                       std::string_view from, const std::shared_ptr<WebChannel>& channel) {
  const std::lock_guard lock(mutex_);
  const auto found =
      std::find_if(sessions_.begin(), sessions_.end(), [&](const std::shared_ptr<WebSession>& session) {
        return IsSameToken(session->Token(), token) && session->User() == logIn.user;
      });
  if (found == sessions_.end()) return {nullptr, std::string(kUnknown)};
  (*found)->Resume(logIn, from);
  (*found)->Port().Attach(channel, seen);
  return {*found, {}};
}

void WebSessions::Forget(const WebSession& session) {
  std::shared_ptr<WebSession> last;  // goes when the mutex is free again
  const std::lock_guard lock(mutex_);
  const auto found = std::find_if(sessions_.begin(), sessions_.end(),
                                  [&](const auto& candidate) { return candidate.get() == &session; });
  if (found == sessions_.end()) return;
  last = std::move(*found);
  sessions_.erase(found);
}

void WebSessions::LogOut(std::int64_t logIn) {
  const std::lock_guard lock(mutex_);
  for (const auto& session : sessions_) {
    if (session->LogInNumber() == logIn) session->End("You have logged out.");
  }
}

void WebSessions::Look(WebPort::Clock::time_point now) {
  const std::lock_guard lock(mutex_);
  for (const auto& session : sessions_) {
    // An end may have met the session between two steps.
    if (session->Port().IsLost() || session->Port().IsAbandoned(now))
      session->End("the page didn't come back");
  }
}

}  // namespace nvadmin::host
