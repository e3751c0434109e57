#include "host/LineSession.h"

#include <exception>

#include <fmt/format.h>

#include "host/ServerLog.h"

namespace nvadmin::host {

namespace {

constexpr int kTries = 3;
constexpr std::size_t kLogInLineBytes = 1024;
constexpr std::string_view kNoUsers =
    "This server has no users yet. Its operator adds one with: nvadmin user add NAME --account A,B";

bool LooksLikeHttp(std::string_view line) { return line.find(" HTTP/") != std::string_view::npos; }

}  // namespace

LineSession::LineSession(LineSessionContext context, std::int64_t number,
                         std::unique_ptr<Connection> connection, std::string host, std::string from)
    : context_(std::move(context)),
      host_(std::move(host)),
      port_(std::move(connection), context_.limits),
      prompt_(context_.home, port_, context_.trace, number, std::move(from)) {}

void LineSession::Serve() noexcept {
  std::string failureText;
  try {
    prompt_.Log("connected");
    LogInAndRun();
  } catch (const PortLost&) {
    // Its reason is the port's.
  } catch (const std::exception& failure) {
    failureText = failure.what();
    port_.Close(failureText);
  }
  port_.Close("");
  try {
    prompt_.Log(fmt::format("ended: {}", failureText.empty() ? port_.EndReason() : failureText));
  } catch (const std::exception&) {
    // There is no memory for a line of the log.
  }
  port_.AwaitHangUp();
}

void LineSession::LogInAndRun() {
  const auto until = std::chrono::steady_clock::now() + context_.logIn;
  if (!port_.Open(until)) return;
  if (context_.users.IsEmpty()) return port_.Close(kNoUsers);
  std::optional<LoggedIn> user = LogIn(until);
  if (user && !prompt_.Run(std::move(*user))) port_.Close(kAccountUnopened);
}

std::optional<LoggedIn> LineSession::LogIn(std::chrono::steady_clock::time_point until) {
  const auto isLate = [until] { return std::chrono::steady_clock::now() >= until; };
  std::string name;
  std::string password;
  std::string account;
  for (int attempt = 1; attempt <= kTries; ++attempt) {
    if (!Ask("login: ", name, until)) return std::nullopt;
    if (LooksLikeHttp(name)) {
      port_.Close("this is a line server, and no web server");
      return std::nullopt;
    }
    if (!Ask("password: ", password, until) || !Ask("account: ", account, until)) return std::nullopt;
    std::optional<LoggedIn> user =
        context_.desk.LogIn(name, password, account, host_, [&] { return port_.IsEnding() || isLate(); });
    if (user || port_.IsEnding()) return user;
    if (isLate()) {
      port_.Close("the log-in took too long");
      return std::nullopt;
    }
    LogRefusal(name);
    port_.Write("Log-in refused: user, password or account is wrong.", /*lineEnd=*/true);
  }
  port_.Close("too many log-ins were refused");
  return std::nullopt;
}

// What isn't the name of a user may be a password typed too soon.
void LineSession::LogRefusal(std::string_view name) const {
  const std::optional<User> user = context_.users.Find(name);
  LogEventOfMany("refused log-ins", prompt_.LogLine(user ? fmt::format("log-in refused: user {}", user->name)
                                                         : "log-in refused: no such user"));
}

bool LineSession::Ask(std::string_view question, std::string& answer,
                      std::chrono::steady_clock::time_point until) {
  port_.Write(question, /*lineEnd=*/false);
  return port_.ReadLogInLine(answer, kLogInLineBytes, until) == engine::InputResult::kLine;
}

void LineSession::EndSoon() noexcept { port_.EndSoon(); }

void LineSession::EndNow() noexcept {
  port_.HangUp();
  prompt_.Interrupt();
}

}  // namespace nvadmin::host
