#include "host/WebSite.h"

#include <algorithm>
#include <exception>

#include <fmt/format.h>

#include "engine/CodePage.h"
#include "host/ClientAddress.h"
#include "host/Passwords.h"
#include "host/ServerLog.h"
#include "host/WebFiles.h"

namespace nvadmin::host {

namespace {

constexpr std::string_view kCookie = "nvadmin";
// Comes along with the log-in page, and back with its form: only pages of this site can send it.
constexpr std::string_view kFormCookie = "nvadmin-form";
constexpr std::string_view kCookieFlags = "; HttpOnly; SameSite=Strict; Path=/";
constexpr std::string_view kHtml = "text/html; charset=utf-8";
constexpr std::string_view kPlain = "text/plain; charset=utf-8";
constexpr std::string_view kFormType = "application/x-www-form-urlencoded";
constexpr std::string_view kRefused = "Log-in refused: user, password or account is wrong.";
constexpr std::string_view kNoUsers =
    "This server has no users yet. Its operator adds one with: nvadmin user add NAME --account A,B";
constexpr std::string_view kEnded = "Your log-in has ended. Log in again.";
constexpr std::string_view kEndedQuery = "ended";
constexpr std::string_view kSafe = "https://";
constexpr std::string_view kTooMany = "Too many are logging in at the moment: try again.";
constexpr std::string_view kThisMachine[] = {"localhost", "127.0.0.1", "[::1]"};
constexpr std::size_t kLogInsAtOnce = 64;
constexpr std::size_t kLogInsPerAddress = 8;
constexpr std::size_t kHealthChecksAtOnce = 2;

constexpr std::string_view kShortPage =
    "<!doctype html><html lang=\"en\"><head><meta charset=\"utf-8\"><title>NvAdmin</title></head>"
    "<body><p>{{text}}</p><p><a href=\"/\">NvAdmin</a></p></body></html>\n";

std::string PolicyFor(std::string_view nonce) {
  return fmt::format(
      "default-src 'none'; script-src 'self'; style-src 'self' 'nonce-{}'; img-src 'self' data:; "
      "font-src 'self'; connect-src 'self'; form-action 'self'; base-uri 'none'; frame-ancestors 'none'",
      nonce);
}

// An answer with what goes with all of them. `nonce`: of the page's style elements.
WebAnswer NewAnswer(int status, std::string_view type, std::string_view nonce) {
  WebAnswer answer;
  answer.status = status;
  answer.headers = {{"Content-Type", std::string(type)},
                    {"Content-Security-Policy", PolicyFor(nonce)},
                    {"X-Content-Type-Options", "nosniff"},
                    {"Referrer-Policy", "no-referrer"},
                    {"Cache-Control", "no-store"}};
  return answer;
}

char SmallLetter(char letter) {
  return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter - 'A' + 'a') : letter;
}

std::string SmallLetters(std::string_view text) {
  std::string small(text);
  std::transform(small.begin(), small.end(), small.begin(), SmallLetter);
  return small;
}

// The piece up to the separator, which is taken away with it.
std::string_view TakePiece(std::string_view& text, char separator) {
  const std::size_t end = std::min(text.find(separator), text.size());
  const std::string_view piece = text.substr(0, end);
  text.remove_prefix(std::min(end + 1, text.size()));
  return piece;
}

// All cookies of the name: somebody else on this host may have set one too.
std::vector<std::string_view> CookiesNamed(std::string_view name, std::string_view cookies) {
  std::vector<std::string_view> found;
  while (!cookies.empty()) {
    std::string_view value = TakePiece(cookies, ';');
    while (value.starts_with(' ')) value.remove_prefix(1);
    const std::string_view its = TakePiece(value, '=');
    if (its == name) found.push_back(value);
  }
  return found;
}

int HexDigit(char letter) {
  const char small = SmallLetter(letter);
  if (small >= '0' && small <= '9') return small - '0';
  return small >= 'a' && small <= 'f' ? small - 'a' + 10 : -1;
}

std::string DecodeForm(std::string_view text) {
  std::string decoded;
  for (std::size_t at = 0; at < text.size(); ++at) {
    const int high = text[at] == '%' && at + 2 < text.size() ? HexDigit(text[at + 1]) : -1;
    const int low = high >= 0 ? HexDigit(text[at + 2]) : -1;
    if (low >= 0) {
      decoded += static_cast<char>(high << 4 | low);
      at += 2;
    } else {
      decoded += text[at] == '+' ? ' ' : text[at];
    }
  }
  return decoded;
}

// A field of a form, as it was typed: in UTF-8, if no stranger made it.
std::string TypedField(std::string_view name, std::string_view form) {
  while (!form.empty()) {
    std::string_view value = TakePiece(form, '&');
    if (TakePiece(value, '=') == name) return DecodeForm(value);
  }
  return {};
}

// The same in the code page; text that has no such form is wrong in any case and stays as it is.
std::string FormField(std::string_view name, std::string_view form) {
  const std::string utf8 = TypedField(name, form);
  std::string bytes;
  std::string refused;
  return engine::FromUtf8(utf8, bytes, refused) ? bytes : utf8;
}

// A name and a port, as a Host header and an origin have them, in small letters; the port is empty where
// there is none.
struct WebHost {
  std::string name;
  std::string port;
};

std::optional<WebHost> ReadWebHost(std::string_view text) {
  const std::string small = SmallLetters(text);
  const std::size_t bracket = small.starts_with('[') ? small.find(']') : 0;
  if (bracket == std::string::npos) return std::nullopt;
  const std::size_t colon = small.find(':', bracket);
  const std::string name = small.substr(0, colon);
  const std::string port = colon == std::string::npos ? "" : small.substr(colon + 1);
  const bool isName = !name.empty() && name.find_first_not_of("abcdefghijklmnopqrstuvwxyz0123456789.-_[:]") ==
                                           std::string::npos;
  if (!isName || port.find_first_not_of("0123456789") != std::string::npos) return std::nullopt;
  return WebHost{name, port};
}

}  // namespace

std::optional<WebName> ReadWebName(std::string_view text) {
  const bool isSafe = SmallLetters(text.substr(0, kSafe.size())) == kSafe;
  if (isSafe) text.remove_prefix(kSafe.size());
  const std::optional<WebHost> host = ReadWebHost(text);
  if (!host || host->name.size() != text.size()) return std::nullopt;
  return WebName{host->name, isSafe};
}

WebSite::WebSite(engine::Home& home, Users& users, LogInDesk& desk, WebSessions& sessions,
                 WebSiteSettings settings)
    : home_(home),
      users_(users),
      desk_(desk),
      sessions_(sessions),
      settings_(std::move(settings)),
      logIns_(settings_.loggedIn),
      logInThreads_(kLogInsAtOnce, kLogInsPerAddress),
      healthThreads_(kHealthChecksAtOnce, kHealthChecksAtOnce) {}

// --- The table of pages ---

struct WebSite::Route {
  std::string_view path;
  std::string_view method;  // GET stands for HEAD too
  void (WebSite::*serve)(const WebRequest& request, const Reply& reply);
};

const WebSite::Route WebSite::kRoutes[] = {
    {"/", "GET", &WebSite::ShowPage},      {"/login", "POST", &WebSite::LogIn},
    {"/login", "GET", &WebSite::GoToPage}, {"/logout", "POST", &WebSite::LogOut},
    {"/livez", "GET", &WebSite::TellLife}, {"/readyz", "GET", &WebSite::TellReadiness},
};

void WebSite::Answer(const WebRequest& request, Reply reply) {
  const bool isHealth = request.path == "/livez" || request.path == "/readyz";
  if (!isHealth && !IsOurHost(request)) {
    return reply(
        Refusal(421, "This server isn't known by this name. Its operator may add the name with --web-name."));
  }
  const std::string_view method = request.method == "HEAD" ? "GET" : std::string_view(request.method);
  std::string allowed;
  for (const Route& route : kRoutes) {
    if (route.path != request.path) continue;
    if (route.method == method) return (this->*route.serve)(request, reply);
    allowed +=
        fmt::format("{}{}", allowed.empty() ? "" : ", ", route.method == "GET" ? "GET, HEAD" : route.method);
  }
  if (allowed.empty()) {
    if (method == "GET" && ShowFile(request, reply)) return;
    const bool isKnownMethod = method == "GET" || method == "POST";
    if (isKnownMethod) return reply(Refusal(404, "There is no such page here."));
    allowed = "GET, HEAD";
  }
  WebAnswer refusal = Refusal(405, "This can't be done here.");
  refusal.headers.emplace_back("Allow", allowed);
  reply(std::move(refusal));
}

bool WebSite::ShowFile(const WebRequest& request, const Reply& reply) const {
  const WebFile* file =
      FindWebFile(std::string_view(request.path).substr(std::min<std::size_t>(1, request.path.size())));
  // Pages have places to be filled in, and are shown by what they are for.
  if (file == nullptr || file->type == kHtml) return false;
  WebAnswer answer = NewAnswer(200, file->type, NewToken());
  answer.fixed = file->bytes;
  reply(std::move(answer));
  return true;
}

void WebSite::ShowPage(const WebRequest& request, const Reply& reply) {
  const std::optional<WebLogIn> logIn = FindLogIn(request);
  if (!logIn) return reply(LogInPage(200, request.query == kEndedQuery ? kEnded : ""));
  const std::string nonce = NewToken();
  WebAnswer answer = NewAnswer(200, kHtml, nonce);
  const std::string user = engine::ToUtf8(logIn->user);
  answer.text = FillPage(FindWebFile("index.html")->bytes, {{"nonce", nonce}, {"user", user}});
  reply(std::move(answer));
}

void WebSite::GoToPage(const WebRequest& /*request*/, const Reply& reply) { reply(SeePage("")); }

void WebSite::TellLife(const WebRequest& /*request*/, const Reply& reply) { reply(PlainText(200, "ok\n")); }

void WebSite::TellReadiness(const WebRequest& /*request*/, const Reply& reply) {
  if (ending_) return reply(PlainText(503, "the server is ending\n"));
  const bool started = healthThreads_.Start("", [this, reply] {
    try {
      home_.Accounts();
      reply(PlainText(200, "ok\n"));
    } catch (const std::exception& failure) {
      LogEvent(fmt::format("not ready: {}", failure.what()));
      reply(PlainText(503, "the catalogue of accounts can't be read; the server's log tells why\n"));
    }
  });
  if (!started) reply(PlainText(503, "the catalogue of accounts can't be read in time\n"));
}

WebAnswer WebSite::PlainText(int status, std::string_view text) const {
  WebAnswer answer = NewAnswer(status, kPlain, NewToken());
  answer.text = text;
  return answer;
}

WebAnswer WebSite::Refusal(int status, std::string_view text) const {
  WebAnswer answer = NewAnswer(status, kHtml, NewToken());
  answer.text = FillPage(kShortPage, {{"text", text}});
  return answer;
}

// --- Log-ins ---

WebAnswer WebSite::LogInPage(int status, std::string_view message, std::string_view form) const {
  const std::string nonce = NewToken();
  const std::string user = TypedField("user", form);
  const std::string account = TypedField("account", form);
  WebAnswer answer = NewAnswer(status, kHtml, nonce);
  answer.headers.emplace_back("Set-Cookie", fmt::format("{}=1{}", kFormCookie, kCookieFlags));
  answer.text = FillPage(FindWebFile("login.html")->bytes,
                         {{"nonce", nonce}, {"message", message}, {"user", user}, {"account", account}});
  return answer;
}

WebAnswer WebSite::SeePage(std::string cookie) const {
  WebAnswer answer = NewAnswer(303, kPlain, NewToken());
  answer.headers.emplace_back("Location", "/");
  if (!cookie.empty()) answer.headers.emplace_back("Set-Cookie", std::move(cookie));
  return answer;
}

std::string WebSite::CookieHeader(std::string_view value, const WebRequest& request) const {
  const std::optional<WebHost> host = ReadWebHost(request.host);
  const WebName* name = host ? FindName(host->name) : nullptr;
  const bool isSecure = settings_.isTls || (name != nullptr && name->isSafe) ||
                        (request.origin && request.origin->starts_with(kSafe));
  return fmt::format("{}={}{}{}", kCookie, value, kCookieFlags, isSecure ? "; Secure" : "");
}

void WebSite::LogIn(const WebRequest& request, const Reply& reply) {
  if (!MayPost(request)) return reply(Refusal(403, "A log-in must come from this server's own page."));
  if (!SmallLetters(request.contentType).starts_with(kFormType))
    return reply(Refusal(415, "A log-in is a form."));
  if (ending_) return reply(LogInPage(503, "The server is ending.", request.body));
  const bool started = logInThreads_.Start(CountedAddress(request.address),
                                           [this, request, reply] { reply(CheckLogIn(request)); });
  if (!started) reply(LogInPage(503, kTooMany, request.body));
}

WebAnswer WebSite::CheckLogIn(const WebRequest& request) {
  try {
    if (users_.IsEmpty()) return LogInPage(403, kNoUsers, request.body);
    const auto until = std::chrono::steady_clock::now() + settings_.logIn;
    const std::string name = FormField("user", request.body);
    const std::optional<LoggedIn> found =
        desk_.LogIn(name, FormField("password", request.body), FormField("account", request.body),
                    request.address, [&] { return ending_ || std::chrono::steady_clock::now() >= until; });
    const std::optional<User> user = users_.Find(found ? found->user : name);
    if (!found || !user) {
      // What isn't the name of a user may be a password typed into the wrong field.
      LogEventOfMany("refused log-ins", fmt::format("log-in from {} refused: {}", request.from,
                                                    user ? "user " + user->name : "no such user"));
      return LogInPage(403, kRefused, request.body);
    }
    LogEvent(fmt::format("log-in from {}: user {}", request.from, found->user));
    const std::lock_guard lock(logInsMutex_);
    const std::string token =
        logIns_.Add({0, found->user, found->account, user->passwordHash}, std::chrono::steady_clock::now());
    return SeePage(CookieHeader(token, request));
  } catch (const std::exception& failure) {
    LogEvent(fmt::format("log-in from {} failed: {}", request.from, failure.what()));
    return LogInPage(503, "The log-in can't be checked; the server's log tells why.", request.body);
  }
}

void WebSite::LogOut(const WebRequest& request, const Reply& reply) {
  if (!MayPost(request)) return reply(Refusal(403, "A log-out must come from this server's own page."));
  for (const std::string_view token : CookiesNamed(kCookie, request.cookies)) {
    std::int64_t logIn = 0;
    {
      const std::lock_guard lock(logInsMutex_);
      logIn = logIns_.Remove(token);
    }
    if (logIn == 0) continue;
    LogEvent(fmt::format("log-out from {}", request.from));
    sessions_.LogOut(logIn);
  }
  reply(SeePage(CookieHeader("", request) + "; Max-Age=0"));
}

std::optional<WebLogIn> WebSite::FindLogIn(const WebRequest& request) {
  const std::lock_guard lock(logInsMutex_);
  for (const std::string_view token : CookiesNamed(kCookie, request.cookies)) {
    if (std::optional<WebLogIn> logIn = logIns_.Find(token, std::chrono::steady_clock::now())) return logIn;
  }
  return std::nullopt;
}

std::optional<WebLogIn> WebSite::AdmitPage(const WebRequest& request, WebAnswer& refusal) {
  if (request.path != "/session") {
    refusal = Refusal(404, "There is no such page here.");
  } else if (!IsOurHost(request) || !request.origin || !IsOurOrigin(request)) {
    LogEventOfMany("refused pages",
                   fmt::format("page from {} refused: it isn't of this server", request.from));
    refusal = Refusal(403, "A session must be asked for by this server's own page.");
  } else if (std::optional<WebLogIn> logIn = FindLogIn(request)) {
    return logIn;
  } else {
    refusal = Refusal(403, "Log in first.");
  }
  return std::nullopt;
}

// --- Whom to trust ---

// A foreign name that somebody has pointed at this machine would make a foreign page one of ours.
bool WebSite::IsOurHost(const WebRequest& request) const {
  const std::optional<WebHost> host = ReadWebHost(request.host);
  if (!host) return false;
  if (FindName(host->name) != nullptr) return true;
  if (!settings_.isLoopback && settings_.names.empty()) return true;
  const std::string_view usualPort = settings_.isTls ? "443" : "80";
  return std::find(std::begin(kThisMachine), std::end(kThisMachine), host->name) != std::end(kThisMachine) &&
         (host->port.empty() ? usualPort : std::string_view(host->port)) == settings_.port;
}

bool WebSite::IsOurOrigin(const WebRequest& request) const {
  std::string_view origin = *request.origin;
  const bool isSafe = origin.starts_with(kSafe);
  if (!isSafe && !origin.starts_with("http://")) return false;
  origin.remove_prefix(origin.find("//") + 2);
  const std::optional<WebHost> host = ReadWebHost(request.host);
  const std::optional<WebHost> its = ReadWebHost(origin);
  if (!host || !its || host->name != its->name) return false;
  const std::string usualPort = isSafe ? "443" : "80";
  if ((host->port.empty() ? usualPort : host->port) != (its->port.empty() ? usualPort : its->port))
    return false;
  // Under a name that was given, somebody else may speak TLS for this server.
  const WebName* name = FindName(host->name);
  if (name != nullptr && name->isSafe) return isSafe;
  return isSafe == settings_.isTls || (isSafe && name != nullptr);
}

const WebName* WebSite::FindName(std::string_view name) const {
  const auto found = std::find_if(settings_.names.begin(), settings_.names.end(),
                                  [name](const WebName& given) { return given.name == name; });
  return found == settings_.names.end() ? nullptr : &*found;
}

// Browsers send the origin "null" with a form of a page that gives no referrer, as ours; the cookie of the
// log-in page and that of the log-in are sent with forms of this site alone. Most tell, too, whose page a
// form is of; "none" is the user's own doing, as a form that is sent again.
bool WebSite::MayPost(const WebRequest& request) const {
  if (request.fetchSite && request.fetchSite != "same-origin" && request.fetchSite != "none") return false;
  if (!request.origin) return true;
  if (*request.origin != "null") return IsOurOrigin(request);
  return !CookiesNamed(kFormCookie, request.cookies).empty() ||
         !CookiesNamed(kCookie, request.cookies).empty();
}

}  // namespace nvadmin::host
