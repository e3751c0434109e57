// The connections under TLS.
#include <fcntl.h>
#include <fmt/format.h>
#include <openssl/err.h>
#include <openssl/ssl.h>
#include <poll.h>

#include <algorithm>
#include <limits>
#include <system_error>

#include "engine/CodePage.h"
#include "host/Connection.h"
#include "session/EngineCallBack.h"

namespace nvadmin::host {

namespace {

// Why the last call failed; `otherwise` where the library doesn't tell.
std::string TlsReason(std::string_view otherwise) {
  const unsigned long error = ERR_get_error();
  ERR_clear_error();
  if (ERR_SYSTEM_ERROR(error)) return std::generic_category().message(ERR_GET_REASON(error));
  const char* reason = ERR_reason_error_string(error);
  return std::string(reason != nullptr ? reason : otherwise);
}

class TlsConnection final : public Connection {
 public:
  TlsConnection(int socket, SSL_CTX* context) : Connection(socket), tls_(SSL_new(context)) {
    if (tls_ == nullptr) throw EngineFailure("there is no memory for a TLS connection");
    fcntl(socket, F_SETFL, fcntl(socket, F_GETFL) | O_NONBLOCK);
    SSL_set_fd(tls_, socket);
    SSL_set_accept_state(tls_);
  }
  ~TlsConnection() override { SSL_free(tls_); }

  bool Open(TimePoint until, std::string& error) override {
    const Transfer handshake = Run([this] { return SSL_accept(tls_); }, until).transfer;
    if (handshake == Transfer::kMoved) return true;
    error = "no TLS handshake: " +
            (handshake == Transfer::kLate ? "it took too long" : TlsReason("the client hung up"));
    return false;
  }
  Moved Receive(char* to, std::size_t most, TimePoint until) override {
    return Run([&] { return SSL_read(tls_, to, static_cast<int>(std::min(most, kMost))); }, until);
  }
  Moved Send(std::string_view bytes, TimePoint until) override {
    return Run([&] { return SSL_write(tls_, bytes.data(), static_cast<int>(std::min(bytes.size(), kMost))); },
               until);
  }
  void EndOutput() noexcept override {
    SSL_shutdown(tls_);
    Connection::EndOutput();
  }

 private:
  static constexpr std::size_t kMost = std::numeric_limits<int>::max();

  // Repeats a call, waiting between for what it asks for.
  template <typename Call>
  Moved Run(const Call& call, TimePoint until) {
    for (;;) {
      ERR_clear_error();
      const int result = call();
      if (result > 0) return {Transfer::kMoved, static_cast<std::size_t>(result)};
      const int reason = SSL_get_error(tls_, result);
      if (reason != SSL_ERROR_WANT_READ && reason != SSL_ERROR_WANT_WRITE) return {};
      if (!Wait(reason == SSL_ERROR_WANT_READ ? POLLIN : POLLOUT, until)) return {Transfer::kLate, 0};
    }
  }

  SSL* tls_;
};

}  // namespace

struct TlsServer::Context {
  SSL_CTX* tls = SSL_CTX_new(TLS_server_method());
  ~Context() { SSL_CTX_free(tls); }
};

TlsServer::TlsServer(const std::string& certificateFile, const std::string& keyFile)
    : context_(std::make_unique<Context>()) {
  SSL_CTX* tls = context_->tls;
  if (tls == nullptr) throw EngineFailure(fmt::format("TLS can't be used: {}", TlsReason("unknown")));
  SSL_CTX_set_min_proto_version(tls, TLS1_2_VERSION);
  // What was taken of a text may be sent again from another place; buffers of idle connections are given
  // back.
  SSL_CTX_set_mode(
      tls, SSL_MODE_ENABLE_PARTIAL_WRITE | SSL_MODE_ACCEPT_MOVING_WRITE_BUFFER | SSL_MODE_RELEASE_BUFFERS);
  // Each request has an end mark of its own, so an end of input without ceremony cuts nothing off. Resuming
  // would save little beside the log-in.
  SSL_CTX_set_options(tls, SSL_OP_NO_RENEGOTIATION | SSL_OP_IGNORE_UNEXPECTED_EOF | SSL_OP_NO_TICKET);
  SSL_CTX_set_num_tickets(tls, 0);
  SSL_CTX_set_session_cache_mode(tls, SSL_SESS_CACHE_OFF);
  SSL_CTX_set_read_ahead(tls, 1);
  if (SSL_CTX_use_certificate_chain_file(tls, certificateFile.c_str()) != 1) {
    throw EngineFailure(fmt::format("the certificate {} can't be used: {}",
                                    engine::ForeignText(certificateFile), TlsReason("unknown")));
  }
  if (SSL_CTX_use_PrivateKey_file(tls, keyFile.c_str(), SSL_FILETYPE_PEM) != 1 ||
      SSL_CTX_check_private_key(tls) != 1) {
    throw EngineFailure(
        fmt::format("the key {} can't be used: {}", engine::ForeignText(keyFile), TlsReason("unknown")));
  }
}

TlsServer::~TlsServer() = default;

std::unique_ptr<Connection> TlsServer::Accept(int socket) const {
  return std::make_unique<TlsConnection>(socket, context_->tls);
}

ssl_ctx_st* TlsServer::NativeContext() const { return context_->tls; }

}  // namespace nvadmin::host
