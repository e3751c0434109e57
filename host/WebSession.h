// The sessions of the web server: each a TCL prompt on a thread of its own, to which pages come and go by a
// token. Knows no sockets: a connection is a WebChannel with messages both ways (docs/web.md).
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "engine/Home.h"
#include "host/ServedPrompt.h"
#include "host/ServerSessions.h"
#include "host/Users.h"
#include "host/WebLogIns.h"
#include "host/WebPort.h"

namespace nvadmin::host {

// What all sessions share; lent.
struct WebSessionContext {
  engine::Home& home;
  Users& users;
  WebLimits limits;
  std::function<void(std::string_view line)> trace;
};

class WebSession final : public ServedSession {
 public:
  // `from` is the client's address with its port.
  WebSession(WebSessionContext context, std::int64_t number, WebLogIn logIn, std::string from,
             std::string token, std::function<void(const WebSession&)> onEnd);

  void Serve() noexcept override;
  // There is nobody to tell: no page is attached before the session runs.
  void Refuse(std::string_view /*why*/) noexcept override {}
  void EndSoon() noexcept override { port_.EndSoon(); }
  void EndNow() noexcept override { End("the server ends"); }

  // --- From any thread ---

  enum class Verdict {
    kFine,
    kLater,   // the page sends faster than the session takes: it may come back and send the rest again
    kBroken,  // no page of ours sends this
  };
  // A message of the page, behind its first.
  Verdict Take(std::string_view message);

  // Ends it at once. May have to be called again while the session is there: see ServerSessions::EndNow.
  void End(std::string_view reason) noexcept;
  WebPort& Port() { return port_; }
  const std::string& Token() const { return token_; }
  const std::string& User() const { return logIn_.user; }
  // The log-in that it ends with: that of the page that had it last.
  std::int64_t LogInNumber() const { return logInNumber_; }
  void Resume(const WebLogIn& logIn, std::string_view from);

 private:
  void RunSentences();

  WebSessionContext context_;
  WebLogIn logIn_;
  std::string token_;
  std::function<void(const WebSession&)> onEnd_;
  std::atomic<std::int64_t> logInNumber_;
  WebPort port_;
  ServedPrompt prompt_;
};

class WebSessions {
 public:
  // `served` gives each its place and its thread; lent.
  WebSessions(WebSessionContext context, ServerSessions& served)
      : context_(std::move(context)), served_(served) {}

  struct Begun {
    std::shared_ptr<WebSession> session;  // null: there is none
    std::string refusal;                  // the reason for the page; empty: no page of ours sends this
  };
  // The page's first message: a new session, or one to go on with. The channel is attached to it.
  Begun Begin(std::string_view message, const WebLogIn& logIn, std::string_view address,
              std::string_view from, const std::shared_ptr<WebChannel>& channel);
  // The sessions of a log-in end.
  void LogOut(std::int64_t logIn);
  // Any thread: none begins any more.
  void EndSoon() noexcept { ending_ = true; }
  // To be called each second or so: ends sessions whose page doesn't come back.
  void Look(WebPort::Clock::time_point now);

 private:
  Begun Open(const WebLogIn& logIn, std::string_view address, std::string_view from,
             const std::shared_ptr<WebChannel>& channel);
  Begun Resume(std::string_view token, std::uint64_t seen, const WebLogIn& logIn, std::string_view from,
               const std::shared_ptr<WebChannel>& channel);
  void Forget(const WebSession& session);

  WebSessionContext context_;
  ServerSessions& served_;
  std::atomic<bool> ending_ = false;
  std::mutex mutex_;
  std::vector<std::shared_ptr<WebSession>> sessions_;
};

}  // namespace nvadmin::host
