// The connections under TLS.
#include <fmt/format.h>
#include <openssl/err.h>
#include <openssl/ssl.h>

#include <algorithm>
#include <limits>

#include "engine/CodePage.h"
#include "host/Connection.h"
#include "session/EngineCallBack.h"

namespace nvadmin::host {

namespace {

class TlsConnection final : public Connection {
 public:
  TlsConnection(int socket, SSL_CTX* context) : Connection(socket), tls_(SSL_new(context)) {
    if (tls_ == nullptr) throw EngineFailure("there is no memory for a TLS connection");
    SSL_set_fd(tls_, socket);
    SSL_set_accept_state(tls_);
  }
  ~TlsConnection() override {
    SSL_shutdown(tls_);
    SSL_free(tls_);
    ERR_clear_error();
  }

  Moved Receive(char* to, std::size_t most) override {
    return Outcome(SSL_read(tls_, to, static_cast<int>(std::min(most, kMost))));
  }
  Moved Send(std::string_view bytes) override {
    return Outcome(SSL_write(tls_, bytes.data(), static_cast<int>(std::min(bytes.size(), kMost))));
  }

 private:
  static constexpr std::size_t kMost = std::numeric_limits<int>::max();

  Moved Outcome(int result) {
    if (result > 0) return {Transfer::kMoved, static_cast<std::size_t>(result)};
    const int reason = SSL_get_error(tls_, result);
    ERR_clear_error();
    if (reason == SSL_ERROR_WANT_READ) return {Transfer::kNeedsInput, 0};
    if (reason == SSL_ERROR_WANT_WRITE) return {Transfer::kNeedsRoom, 0};
    return {};
  }

  SSL* tls_;
};

std::string TlsReason() {
  char text[256] = "unknown";
  ERR_error_string_n(ERR_get_error(), text, sizeof text);
  ERR_clear_error();
  return text;
}

}  // namespace

struct TlsServer::Context {
  SSL_CTX* tls = SSL_CTX_new(TLS_server_method());
  ~Context() { SSL_CTX_free(tls); }
};

TlsServer::TlsServer(const std::string& certificateFile, const std::string& keyFile)
    : context_(std::make_unique<Context>()) {
  SSL_CTX* tls = context_->tls;
  if (tls == nullptr) throw EngineFailure(fmt::format("TLS can't be used: {}", TlsReason()));
  SSL_CTX_set_min_proto_version(tls, TLS1_2_VERSION);
  // What was taken of a text may be sent again from another place; buffers of idle connections are given
  // back.
  SSL_CTX_set_mode(
      tls, SSL_MODE_ENABLE_PARTIAL_WRITE | SSL_MODE_ACCEPT_MOVING_WRITE_BUFFER | SSL_MODE_RELEASE_BUFFERS);
  SSL_CTX_set_options(tls, SSL_OP_NO_RENEGOTIATION);
  if (SSL_CTX_use_certificate_chain_file(tls, certificateFile.c_str()) != 1) {
    throw EngineFailure(fmt::format("the certificate {} can't be used: {}",
                                    engine::ForeignText(certificateFile), TlsReason()));
  }
  if (SSL_CTX_use_PrivateKey_file(tls, keyFile.c_str(), SSL_FILETYPE_PEM) != 1 ||
      SSL_CTX_check_private_key(tls) != 1) {
    throw EngineFailure(
        fmt::format("the key {} can't be used: {}", engine::ForeignText(keyFile), TlsReason()));
  }
}

TlsServer::~TlsServer() = default;

std::unique_ptr<Connection> TlsServer::Accept(int socket) const {
  return std::make_unique<TlsConnection>(socket, context_->tls);
}

}  // namespace nvadmin::host
