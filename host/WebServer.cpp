// The connections of the web server: HTTP and WebSocket over plain text or TLS, each with its limits of time
// and size. The one place that uses the network library. What is said over them is WebSite's and
// WebSession's.
//
// All handlers run on the thread of Run. A connection lives as long as an operation or the session holds it.
#include "host/WebServer.h"

#include <openssl/ssl.h>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/ssl/context.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/beast/core.hpp>
#include <boost/beast/http.hpp>
#include <boost/beast/ssl.hpp>
#include <boost/beast/websocket.hpp>
#include <boost/beast/websocket/ssl.hpp>
#include <boost/optional.hpp>

#include <algorithm>
#include <exception>
#include <list>
#include <map>
#include <optional>
#include <set>

#include <fmt/format.h>

#include "engine/CodePage.h"
#include "host/ClientAddress.h"
#include "host/Connection.h"
#include "host/Listeners.h"
#include "host/ServerLog.h"
#include "host/WebSession.h"
#include "host/WebSite.h"

namespace nvadmin::host {

namespace {

namespace net = boost::asio;
namespace beast = boost::beast;
namespace http = beast::http;
namespace websocket = beast::websocket;
using tcp = net::ip::tcp;
using Failure = boost::system::error_code;
using Clock = std::chrono::steady_clock;

constexpr std::size_t kHeaderBytes = std::size_t{16} << 10;
constexpr std::size_t kBodyBytes = std::size_t{16} << 10;
constexpr std::size_t kMessageOverhead = 32;  // of a line's message beside the line
constexpr std::size_t kPieceBytes = std::size_t{64} << 10;
constexpr std::size_t kReadBytes = 4096;
constexpr std::size_t kKeptCapacity = std::size_t{64} << 10;
constexpr std::size_t kConnectionsPerSession = 4;
constexpr std::chrono::seconds kRequestTime{30};
constexpr std::chrono::seconds kKeepAlive{30};
constexpr std::chrono::seconds kFarewell{2};
constexpr std::chrono::seconds kSilence{60};     // of a page; half way it is asked for a sign of life
constexpr std::chrono::seconds kSignOfLife{20};  // for a page to which nothing else goes out
constexpr std::size_t kRefusalsAtOnce = 64;      // of connections that are too many
constexpr std::chrono::seconds kAcceptPause{1};
constexpr std::chrono::seconds kLook{1};
constexpr std::chrono::milliseconds kLastLook{20};
constexpr std::chrono::seconds kLastPatience{1};

using PlainStream = beast::tcp_stream;
using TlsStream = beast::ssl_stream<beast::tcp_stream>;

struct Client {
  std::string address;
  std::string from;  // with the port
};

// A connection of either kind, as the server knows it.
class OpenConnection {
 public:
  virtual ~OpenConnection() = default;
  virtual bool HasSession() const { return false; }
  // Looked at each second.
  virtual void Look(Clock::time_point /*now*/) {}
  // Closes it at once.
  virtual void Break() noexcept = 0;
};

}  // namespace

struct WebServer::State {
  State(engine::Home& home, Users& users, LogInDesk& desk, ServerSessions& served, WebServerSettings given)
      : settings(std::move(given)),
        sessions({home, users, settings.limits, settings.trace}, served),
        timer(io) {
    if (!settings.certificate.empty()) {
      tls.emplace(settings.certificate, settings.key);
      SSL_CTX_up_ref(tls->NativeContext());
      tlsContext.emplace(tls->NativeContext());
    }
    std::vector<Descriptor> listeners = Listen(settings.host, settings.port);
    const Endpoint first = LocalEndpoint(listeners.front().Number());
    for (Descriptor& listener : listeners) {
      const bool isV6 = LocalEndpoint(listener.Number()).host.find(':') != std::string::npos;
      acceptors.emplace_back(io, isV6 ? tcp::v6() : tcp::v4(), listener.Number());
      listener.Release();
    }
    url = fmt::format("{}://{}/", tls ? "https" : "http", first.Text());
    site.emplace(home, users, desk, sessions,
                 WebSiteSettings{tls.has_value(), IsLoopback(settings.host), first.port, settings.names,
                                 settings.logIn, settings.loggedIn});
  }
  ~State() {
    if (site) site->EndSoon();
  }

  void Accept(tcp::acceptor& acceptor);
  void Open(tcp::socket socket);
  void Look();
  void AwaitLook(std::chrono::milliseconds pause);
  std::size_t MostConnections() const { return settings.sessionLimits.all * kConnectionsPerSession; }
  bool HasPlaceFor(const std::string& address) const;

  WebServerSettings settings;
  WebSessions sessions;
  std::set<OpenConnection*> connections;
  std::map<std::string, std::size_t> perAddress;
  std::optional<TlsServer> tls;
  std::optional<net::ssl::context> tlsContext;
  std::string url;
  bool stops = false;
  std::optional<Clock::time_point> finishUntil;
  net::io_context io{1};
  std::list<tcp::acceptor> acceptors;
  net::steady_timer timer;
  std::optional<WebSite> site;  // first to go: what it runs uses all else
};

namespace {

// Counts a connection for as long as it is there.
class Place {
 public:
  Place(std::set<OpenConnection*>& connections, std::map<std::string, std::size_t>& perAddress,
        OpenConnection* connection, std::string address)
      : connections_(connections),
        perAddress_(perAddress),
        connection_(connection),
        address_(std::move(address)) {
    connections_.insert(connection_);
    ++perAddress_[address_];
  }
  ~Place() {
    connections_.erase(connection_);
    if (--perAddress_[address_] == 0) perAddress_.erase(address_);
  }
  Place(const Place&) = delete;
  Place& operator=(const Place&) = delete;

 private:
  std::set<OpenConnection*>& connections_;
  std::map<std::string, std::size_t>& perAddress_;
  OpenConnection* connection_;
  std::string address_;
};

// What connections need of the server; lent.
struct Serving {
  net::io_context& io;
  WebSite& site;
  WebSessions& sessions;
  const WebLimits& limits;
  std::set<OpenConnection*>& connections;
  std::map<std::string, std::size_t>& perAddress;
};

// --- A page's connection to its session ---

template <typename Stream>
class PageConnection final : public OpenConnection,
                             public WebChannel,
                             public std::enable_shared_from_this<PageConnection<Stream>> {
 public:
  PageConnection(const Serving& serving, Stream stream, Client client, WebLogIn logIn)
      : serving_(serving),
        socket_(std::move(stream)),
        client_(std::move(client)),
        logIn_(std::move(logIn)),
        place_(serving.connections, serving.perAddress, this, CountedAddress(client_.address)) {}

  void Start(const http::request<http::string_body>& request) {
    beast::get_lowest_layer(socket_).expires_never();
    socket_.set_option(websocket::stream_base::timeout{kRequestTime, kSilence, /*keep_alive_pings=*/true});
    socket_.read_message_max(serving_.limits.lineBytes + kMessageOverhead);
    socket_.auto_fragment(false);
    socket_.text(true);
    socket_.async_accept(request, [self = this->shared_from_this()](Failure failure) {
      if (!failure) self->Read();
    });
  }

  void OutputWaits() noexcept override {
    Post([](PageConnection& self) { self.Write(); });
  }
  void Moved() noexcept override {
    Post([](PageConnection& self) { self.SayLast("Xmoved"); });
  }

  bool HasSession() const override { return session_ != nullptr; }
  void Look(Clock::time_point now) override {
    if (isWriting_ && now - writingSince_ > serving_.limits.stall) {
      LogEvent(fmt::format("page from {} cut off: it took nothing of what was sent to it", client_.from));
      return Break();
    }
    if (session_ != nullptr && !isWriting_ && now - writingSince_ >= kSignOfLife)
      return Write(kSignOfLifeText);
    if (session_ != nullptr || isClosing_ || last_ != nullptr || isLast_ || now - openedAt_ <= kRequestTime)
      return;
    LogEventOfMany("silent pages",
                   fmt::format("page from {} cut off: it asked for no session", client_.from));
    SayLast("Xthe page asked for no session in time");
  }
  void Break() noexcept override {
    const auto self = this->shared_from_this();  // the session may be the last to hold it
    Leave();
    beast::get_lowest_layer(socket_).close();
  }

 private:
  template <typename Action>
  void Post(Action action) noexcept {
    net::post(serving_.io, [weak = this->weak_from_this(), action] {
      if (const auto self = weak.lock()) action(*self);
    });
  }

  void Read() {
    socket_.async_read(received_, [self = this->shared_from_this()](Failure failure, std::size_t) {
      if (failure) return self->LoseInput(failure);
      self->TakeReceived();
    });
  }

  // What the page sent as no page of ours does was answered with a closing code already.
  void LoseInput(const Failure& failure) {
    if (!isClosing_ && failure == websocket::error::message_too_big) {
      LogCut(fmt::format("its line is longer than {} bytes", serving_.limits.lineBytes));
    } else if (!isClosing_ && failure == websocket::condition::protocol_violation) {
      LogCut(kBroken);
    } else if (!isClosing_ && failure == beast::error::timeout) {
      LogCut("it gave no sign of life");
    }
    Leave();
  }

  void LogCut(std::string_view why) const {
    LogEventOfMany("broken pages", fmt::format("page from {} cut off: {}", client_.from, why));
  }

  void TakeReceived() {
    const std::string_view message(static_cast<const char*>(received_.data().data()), received_.size());
    if (!socket_.got_text()) {
      Close(websocket::close_code::unknown_data);
    } else if (!isClosing_ && last_ == nullptr) {
      session_ == nullptr ? Begin(message) : Take(message);
    }
    received_.clear();
    if (received_.capacity() > kKeptCapacity) received_.shrink_to_fit();
    Read();
  }

  void Begin(std::string_view message) {
    WebSessions::Begun begun =
        serving_.sessions.Begin(message, logIn_, client_.address, client_.from, this->shared_from_this());
    session_ = std::move(begun.session);
    if (session_) return;
    begun.refusal.empty() ? Close(websocket::close_code::protocol_error)
                          : SayLast("X" + engine::ToUtf8(begun.refusal));
  }

  void Take(std::string_view message) {
    switch (session_->Take(message)) {
      case WebSession::Verdict::kFine:
        break;
      case WebSession::Verdict::kLater:
        Close(websocket::close_code::try_again_later);
        break;
      case WebSession::Verdict::kBroken:
        LogCut(kBroken);
        Close(websocket::close_code::protocol_error);
        break;
    }
  }

  // Sends what waits, a piece at a time, so that each piece shows that the page still reads.
  void Write(WebMessage otherwise = nullptr) {
    if (isWriting_ || isClosing_) return;
    if (message_ == nullptr && !NextMessage()) message_ = std::move(otherwise);
    if (message_ == nullptr) return;
    const std::size_t length = std::min(kPieceBytes, message_->size() - sent_);
    const bool isWhole = sent_ + length == message_->size();
    isWriting_ = true;
    writingSince_ = Clock::now();
    socket_.async_write_some(isWhole, net::buffer(message_->data() + sent_, length),
                             [self = this->shared_from_this(), length](Failure failure, std::size_t) {
                               self->isWriting_ = false;
                               if (failure) return self->Leave();
                               self->NoteSent(length);
                             });
  }

  bool NextMessage() {
    sent_ = 0;
    if (last_ != nullptr) {
      message_ = std::move(last_);
      isLast_ = true;
    } else if (session_ != nullptr) {
      message_ = session_->Port().NextOutput(*this, isLast_);
    }
    return message_ != nullptr;
  }

  void NoteSent(std::size_t length) {
    sent_ += length;
    if (sent_ == message_->size()) {
      message_ = nullptr;
      if (isLast_) return Close(websocket::close_code::normal);
    }
    Write();
  }

  // Sends this behind the message that is under way, and closes.
  void SayLast(std::string text) {
    if (isLast_) return;
    last_ = std::make_shared<const std::string>(std::move(text));
    Write();
  }

  void Close(websocket::close_code code) {
    if (isClosing_) return;
    isClosing_ = true;
    Leave();
    socket_.async_close(code, [self = this->shared_from_this()](Failure) {});
  }

  // The session goes on without this page.
  void Leave() noexcept {
    if (session_ != nullptr) session_->Port().Detach(*this);
  }

  static constexpr std::string_view kBroken = "it doesn't keep to the protocol";
  static inline const WebMessage kSignOfLifeText = std::make_shared<const std::string>("P");

  Serving serving_;
  websocket::stream<Stream> socket_;
  Client client_;
  WebLogIn logIn_;
  Place place_;
  beast::flat_buffer received_;
  std::shared_ptr<WebSession> session_;
  const Clock::time_point openedAt_ = Clock::now();
  WebMessage message_;  // under way
  std::size_t sent_ = 0;
  WebMessage last_;  // to be sent when it is through
  bool isLast_ = false;
  bool isWriting_ = false;
  Clock::time_point writingSince_ = Clock::now();  // the last piece
  bool isClosing_ = false;
};

// --- Requests ---

void Secure(PlainStream& /*stream*/, const std::function<void(Failure)>& done) { done({}); }
void Secure(TlsStream& stream, std::function<void(Failure)> done) {
  stream.async_handshake(net::ssl::stream_base::server, std::move(done));
}

// Tells the other side that nothing more is sent.
void EndOutput(PlainStream& stream, const std::function<void()>& done) {
  Failure ignored;
  stream.socket().shutdown(tcp::socket::shutdown_send, ignored);
  done();
}
void EndOutput(TlsStream& stream, const std::function<void()>& done) {
  stream.async_shutdown([done](Failure) { done(); });
}

template <typename Stream>
class RequestConnection final : public OpenConnection,
                                public std::enable_shared_from_this<RequestConnection<Stream>> {
 public:
  RequestConnection(const Serving& serving, Stream stream, Client client)
      : serving_(serving),
        stream_(std::move(stream)),
        client_(std::move(client)),
        place_(serving.connections, serving.perAddress, this, CountedAddress(client_.address)) {}

  void Start() {
    ExpireAfter(kRequestTime);
    Secure(stream_, [self = this->shared_from_this()](Failure failure) {
      if (!failure) return self->AwaitRequest();
      if (failure == beast::error::timeout) self->LogRefused("no TLS handshake in time");
    });
  }
  // Instead of Start.
  void Refuse(std::string_view why) { Send(serving_.site.Refusal(503, why)); }

  void Look(Clock::time_point now) override {
    if (!readingSince_ || now - *readingSince_ <= kRequestTime) return;
    isLate_ = true;
    beast::get_lowest_layer(stream_).cancel();
  }
  void Break() noexcept override { beast::get_lowest_layer(stream_).close(); }

 private:
  using Request = http::request<http::string_body>;
  using Response = http::response<http::span_body<const char>>;
  static constexpr char kFetchSite[] = "Sec-Fetch-Site";

  void ExpireAfter(std::chrono::seconds time) { beast::get_lowest_layer(stream_).expires_after(time); }

  void AwaitRequest() {
    if (received_.size() > 0) return ReadRequest();
    ExpireAfter(kKeepAlive);
    stream_.async_read_some(received_.prepare(kReadBytes),
                            [self = this->shared_from_this()](Failure failure, std::size_t length) {
                              if (failure) return;
                              self->received_.commit(length);
                              self->ReadRequest();
                            });
  }

  void ReadRequest() {
    parser_.emplace();
    parser_->header_limit(kHeaderBytes);
    parser_->body_limit(kBodyBytes);
    // Its time is looked at from outside: a stream whose own time is up can't be answered any more.
    beast::get_lowest_layer(stream_).expires_never();
    readingSince_ = Clock::now();
    isLate_ = false;
    http::async_read(stream_, received_, *parser_,
                     [self = this->shared_from_this()](Failure failure, std::size_t) {
                       self->readingSince_.reset();
                       failure ? self->RefuseBroken(failure) : self->Serve(self->parser_->release());
                     });
  }

  void LogRefused(std::string_view why) const {
    LogEventOfMany("refused requests", fmt::format("request from {} refused: {}", client_.from, why));
  }

  void RefuseBroken(Failure failure) {
    keepsAlive_ = isHead_ = false;
    if (isLate_) {
      RefuseRequest(408, "The request didn't come whole in time.");
    } else if (failure == http::error::header_limit) {
      RefuseRequest(431, "The request's header is too long.");
    } else if (failure == http::error::body_limit) {
      RefuseRequest(413, "The request is too long.");
    } else if (failure.category() == http::make_error_code(http::error::bad_line_ending).category() &&
               failure != http::error::end_of_stream && failure != http::error::partial_message) {
      RefuseRequest(400, "This is no request that can be understood.");
    }
  }

  void RefuseRequest(int status, std::string_view why) {
    LogRefused(why);
    Send(serving_.site.Refusal(status, why));
  }

  void Serve(Request&& request) {
    keepsAlive_ = request.keep_alive();
    isHead_ = request.method() == http::verb::head;
    const WebRequest asked = Read(request);
    // From here on the answer has its own time.
    beast::get_lowest_layer(stream_).expires_never();
    if (websocket::is_upgrade(request)) return Upgrade(request, asked);
    serving_.site.Answer(asked, [self = this->shared_from_this()](WebAnswer answer) mutable {
      // The last hold on a connection must go on the server's thread.
      net::io_context& io = self->serving_.io;
      net::post(io, [self = std::move(self), answer = std::move(answer)]() mutable {
        self->Send(std::move(answer));
      });
    });
  }

  WebRequest Read(const Request& request) const {
    WebRequest asked;
    const auto text = [](beast::string_view view) { return std::string(view.data(), view.size()); };
    asked.method = text(request.method_string());
    asked.path = text(request.target());
    const std::size_t end = std::min(asked.path.find('?'), asked.path.size());
    asked.query = asked.path.substr(std::min(end + 1, asked.path.size()));
    asked.path.resize(end);
    if (request.count(http::field::host) == 1) asked.host = text(request[http::field::host]);
    if (request.count(http::field::origin) > 0) asked.origin = text(request[http::field::origin]);
    if (request.count(kFetchSite) > 0) asked.fetchSite = text(request[kFetchSite]);
    for (auto [at, last] = request.equal_range(http::field::cookie); at != last; ++at)
      asked.cookies += (asked.cookies.empty() ? "" : "; ") + text(at->value());
    asked.contentType = text(request[http::field::content_type]);
    asked.body = request.body();
    asked.address = client_.address;
    asked.from = client_.from;
    return asked;
  }

  void Upgrade(const Request& request, const WebRequest& asked) {
    WebAnswer refusal;
    std::optional<WebLogIn> logIn = serving_.site.AdmitPage(asked, refusal);
    if (!logIn) return Send(std::move(refusal));
    std::make_shared<PageConnection<Stream>>(serving_, std::move(stream_), client_, std::move(*logIn))
        ->Start(request);
  }

  void Send(WebAnswer answer) {
    answer_ = std::move(answer);
    const std::string_view body = answer_.Body();
    response_.emplace(static_cast<http::status>(answer_.status), /*version=*/11u);
    for (const auto& [name, value] : answer_.headers) response_->insert(name, value);
    response_->body() = beast::span<const char>(body.data(), body.size());
    response_->content_length(body.size());
    response_->keep_alive(keepsAlive_);
    serializer_.emplace(*response_);
    serializer_->split(isHead_);
    WriteSome();
  }

  // Each piece that the other side takes renews the time for the next.
  void WriteSome() {
    ExpireAfter(serving_.limits.stall);
    http::async_write_some(
        stream_, *serializer_, [self = this->shared_from_this()](Failure failure, std::size_t) {
          if (failure == beast::error::timeout)
            LogEventOfMany(
                "stalled answers",
                fmt::format("answer to {} cut off: nothing of it was taken any more", self->client_.from));
          if (failure) return;
          const bool isWhole =
              self->isHead_ ? self->serializer_->is_header_done() : self->serializer_->is_done();
          if (!isWhole) return self->WriteSome();
          self->answer_ = {};
          self->keepsAlive_ ? self->AwaitRequest() : self->End();
        });
  }

  // With bytes unread the answer could be lost on its way: they are taken in for a moment.
  void End() {
    ExpireAfter(kFarewell);
    EndOutput(stream_, [self = this->shared_from_this()] { self->Drain(); });
  }

  void Drain() {
    received_.clear();
    auto& socket = beast::get_lowest_layer(stream_);
    socket.async_read_some(received_.prepare(kReadBytes),
                           [self = this->shared_from_this()](Failure failure, std::size_t) {
                             if (!failure) self->Drain();
                           });
  }

  Serving serving_;
  Stream stream_;
  Client client_;
  Place place_;
  beast::flat_buffer received_{kHeaderBytes + kBodyBytes};
  boost::optional<http::request_parser<http::string_body>> parser_;
  std::optional<Clock::time_point> readingSince_;  // a request that has begun
  bool isLate_ = false;
  WebAnswer answer_;
  boost::optional<Response> response_;
  boost::optional<http::serializer<false, http::span_body<const char>>> serializer_;
  bool keepsAlive_ = false;
  bool isHead_ = false;
};

}  // namespace

void WebServer::State::Accept(tcp::acceptor& acceptor) {
  acceptor.async_accept([this, &acceptor](Failure failure, tcp::socket socket) {
    if (stops) return;
    if (!failure) {
      Open(std::move(socket));
      return Accept(acceptor);
    }
    if (failure == net::error::connection_aborted || failure == net::error::interrupted)
      return Accept(acceptor);
    LogEvent(fmt::format("no connection can be taken for a moment: {}", failure.message()));
    const auto pause = std::make_shared<net::steady_timer>(io, kAcceptPause);
    pause->async_wait([this, pause, &acceptor](Failure) {
      if (!stops) Accept(acceptor);
    });
  });
}

bool WebServer::State::HasPlaceFor(const std::string& address) const {
  const auto here = perAddress.find(CountedAddress(address));
  const std::size_t count = here == perAddress.end() ? 0 : here->second;
  return connections.size() < MostConnections() &&
         count < settings.sessionLimits.perAddress * kConnectionsPerSession;
}

void WebServer::State::Open(tcp::socket socket) {
  Failure failure;
  const tcp::endpoint endpoint = socket.remote_endpoint(failure);
  if (failure) return;
  const Endpoint its = ReadEndpoint(endpoint.data(), static_cast<socklen_t>(endpoint.size()));
  const Client client{its.host, its.Text()};
  const Serving serving{io, *site, sessions, settings.limits, connections, perAddress};
  socket.set_option(tcp::no_delay(true), failure);
  if (!HasPlaceFor(client.address)) {
    LogEventOfMany("refused connections",
                   fmt::format("connection from {} refused: there are too many", client.from));
    // Under TLS it would have to make its handshake first to be told.
    if (tls || connections.size() >= MostConnections() + kRefusalsAtOnce) return;
    return std::make_shared<RequestConnection<PlainStream>>(serving, PlainStream(std::move(socket)), client)
        ->Refuse("There are too many connections: try again in a moment.");
  }
  if (tls) {
    std::make_shared<RequestConnection<TlsStream>>(serving, TlsStream(std::move(socket), *tlsContext), client)
        ->Start();
  } else {
    std::make_shared<RequestConnection<PlainStream>>(serving, PlainStream(std::move(socket)), client)
        ->Start();
  }
}

void WebServer::State::AwaitLook(std::chrono::milliseconds pause) {
  timer.expires_after(pause);
  timer.async_wait([this](Failure failure) {
    if (!failure) Look();
  });
}

void WebServer::State::Look() {
  const Clock::time_point now = Clock::now();
  // A look may end a connection, and with it its entry.
  const std::vector<OpenConnection*> all(connections.begin(), connections.end());
  const bool hasPages = std::any_of(
      all.begin(), all.end(), [](const OpenConnection* connection) { return connection->HasSession(); });
  const bool isOver = finishUntil && (!hasPages || now >= *finishUntil);
  for (OpenConnection* connection : all) isOver ? connection->Break() : connection->Look(now);
  if (isOver) {
    timer.cancel();
    return;
  }
  sessions.Look(now);
  AwaitLook(finishUntil ? kLastLook : std::chrono::milliseconds(kLook));
}

WebServer::WebServer(engine::Home& home, Users& users, LogInDesk& desk, ServerSessions& sessions,
                     WebServerSettings settings)
    : state_(std::make_unique<State>(home, users, desk, sessions, std::move(settings))) {}

WebServer::~WebServer() = default;

const std::string& WebServer::Address() const { return state_->url; }

void WebServer::Run() {
  for (tcp::acceptor& acceptor : state_->acceptors) state_->Accept(acceptor);
  state_->AwaitLook(kLook);
  for (;;) {
    try {
      state_->io.run();
      return;
    } catch (const std::exception& failure) {
      LogEvent(fmt::format("a connection failed: {}", failure.what()));
    }
  }
}

void WebServer::Stop() noexcept {
  state_->site->EndSoon();
  state_->sessions.EndSoon();
  net::post(state_->io, [state = state_.get()] {
    state->stops = true;
    Failure ignored;
    for (tcp::acceptor& acceptor : state->acceptors) acceptor.close(ignored);
  });
}

void WebServer::Finish() noexcept {
  net::post(state_->io, [state = state_.get()] {
    state->finishUntil = Clock::now() + kLastPatience;
    state->Look();
  });
}

}  // namespace nvadmin::host
