// What the web server answers to a request: the page, the log-in, its files, its health. Knows who is logged
// in, and whom to trust: names of this server (against names that somebody points at it), origins, cookies.
// Knows no sockets and no threads of connections; used on one thread, but for the answers that it gives from
// its own.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "engine/Home.h"
#include "host/LogInDesk.h"
#include "host/SideThreads.h"
#include "host/Users.h"
#include "host/WebLogIns.h"
#include "host/WebSession.h"

namespace nvadmin::host {

struct WebRequest {
  std::string method;
  std::string path;  // as it was sent
  std::string query;
  std::string host;
  std::optional<std::string> origin;
  std::optional<std::string> fetchSite;  // whose page sends it, as browsers tell
  std::string cookies;
  std::string contentType;
  std::string body;
  std::string address;  // of the client
  std::string from;     // with its port
};

struct WebAnswer {
  int status = 200;
  std::vector<std::pair<std::string, std::string>> headers;  // without the length
  std::string text;
  std::string_view fixed;  // instead of the text, for the program's life
  std::string_view Body() const { return fixed.empty() ? std::string_view(text) : fixed; }
};

// A name by which browsers may know the server.
struct WebName {
  std::string name;     // in small letters
  bool isSafe = false;  // they come to it under TLS, which somebody else speaks for the server
};
// NAME or https://NAME, without a port.
std::optional<WebName> ReadWebName(std::string_view text);

struct WebSiteSettings {
  bool isTls = false;
  bool isLoopback = false;     // it listens to this machine alone
  std::string port;            // that it listens on
  std::vector<WebName> names;  // beside those of this machine
  std::chrono::seconds logIn{60};
  std::chrono::seconds loggedIn = WebLogIns::kLife;
};

class WebSite {
 public:
  // All but the settings is lent.
  WebSite(engine::Home& home, Users& users, LogInDesk& desk, WebSessions& sessions, WebSiteSettings settings);

  // Answers by `reply`, once: at once, or later from another thread. Doesn't fail.
  void Answer(const WebRequest& request, std::function<void(WebAnswer)> reply);
  // A page asks for a connection to a session: who it is; none, with the answer, when it may not.
  std::optional<WebLogIn> AdmitPage(const WebRequest& request, WebAnswer& refusal);
  // An answer for what is no request.
  WebAnswer Refusal(int status, std::string_view text) const;

  // Any thread: nobody logs in any more.
  void EndSoon() noexcept { ending_ = true; }

 private:
  using Reply = std::function<void(WebAnswer)>;
  struct Route;
  static const Route kRoutes[];

  void ShowPage(const WebRequest& request, const Reply& reply);
  void GoToPage(const WebRequest& request, const Reply& reply);
  void LogIn(const WebRequest& request, const Reply& reply);
  void LogOut(const WebRequest& request, const Reply& reply);
  void TellLife(const WebRequest& request, const Reply& reply);
  void TellReadiness(const WebRequest& request, const Reply& reply);
  bool ShowFile(const WebRequest& request, const Reply& reply) const;

  WebAnswer CheckLogIn(const WebRequest& request);
  // `form` is what was sent: its user and account are filled in again.
  WebAnswer LogInPage(int status, std::string_view message, std::string_view form = {}) const;
  WebAnswer PlainText(int status, std::string_view text) const;
  WebAnswer SeePage(std::string cookie) const;
  std::string CookieHeader(std::string_view value, const WebRequest& request) const;
  std::optional<WebLogIn> FindLogIn(const WebRequest& request);
  bool IsOurHost(const WebRequest& request) const;
  const WebName* FindName(std::string_view name) const;
  bool IsOurOrigin(const WebRequest& request) const;
  bool MayPost(const WebRequest& request) const;

  engine::Home& home_;
  Users& users_;
  LogInDesk& desk_;
  WebSessions& sessions_;
  WebSiteSettings settings_;
  std::mutex logInsMutex_;
  WebLogIns logIns_;
  std::atomic<bool> ending_ = false;
  SideThreads logInThreads_;
  SideThreads healthThreads_;
};

}  // namespace nvadmin::host
