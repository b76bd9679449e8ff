#include "Zet/attrlog/TlsChannel.h"

#include <arpa/inet.h>
#include <openssl/err.h>
#include <openssl/ssl.h>
#include <openssl/x509v3.h>
#include <sys/socket.h>

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstring>

#include "Zet/Exception.h"
#include "Zet/Format.h"
#include "Zet/attrlog/TlsIdentity.h"

namespace Zet {
namespace NboAttrLog {
namespace {

// The first byte of every TLS connection: a handshake record.
constexpr unsigned char kHandshakeRecord = 0x16;

std::atomic<size_t> serverHandshakesUnderWay{0};

int fdOf(BIO* bio) { return int(reinterpret_cast<intptr_t>(BIO_get_data(bio))); }

int socketWrite(BIO* bio, char const* bytes, size_t size, size_t* written) {
  BIO_clear_retry_flags(bio);
  ssize_t n;
  do n = ::send(fdOf(bio), bytes, size, MSG_NOSIGNAL | MSG_DONTWAIT);
  while (n < 0 && errno == EINTR);
  if (n >= 0) {
    *written = size_t(n);
    return 1;
  }
  if (errno == EAGAIN || errno == EWOULDBLOCK) BIO_set_retry_write(bio);
  return 0;
}

int socketRead(BIO* bio, char* bytes, size_t size, size_t* readBytes) {
  BIO_clear_retry_flags(bio);
  ssize_t n;
  do n = ::recv(fdOf(bio), bytes, size, MSG_DONTWAIT);
  while (n < 0 && errno == EINTR);
  if (n > 0) {
    *readBytes = size_t(n);
    return 1;
  }
  if (n == 0) errno = 0;  // the end of the stream, not an error
  if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) BIO_set_retry_read(bio);
  return 0;
}

long socketControl(BIO*, int command, long, void*) { return command == BIO_CTRL_FLUSH ? 1 : 0; }

int socketCreate(BIO* bio) {
  BIO_set_init(bio, 1);
  return 1;
}

// A BIO on a socket the stream owns: it never closes it, and writes with
// MSG_NOSIGNAL.
BIO_METHOD const* socketMethod() {
  static BIO_METHOD* const method = [] {
    BIO_METHOD* m = BIO_meth_new(BIO_get_new_index() | BIO_TYPE_SOURCE_SINK, "zet socket");
    BIO_meth_set_write_ex(m, socketWrite);
    BIO_meth_set_read_ex(m, socketRead);
    BIO_meth_set_ctrl(m, socketControl);
    BIO_meth_set_create(m, socketCreate);
    return m;
  }();
  return method;
}

bool isIpAddress(String8 const& host) {
  unsigned char address[16];
  return ::inet_pton(AF_INET, host.charPtr(), address) == 1 || ::inet_pton(AF_INET6, host.charPtr(), address) == 1;
}

}  // namespace

TlsChannel::TlsChannel(ssl_ctx_st* context, int fd, bool server) : fd_(fd), server_(server) {
  ssl_ = SSL_new(context);
  BIO* bio = ssl_ ? BIO_new(socketMethod()) : nullptr;
  if (!bio) {
    SSL_free(ssl_);
    throw Exception(format("cannot start TLS: %s", openSslError().charPtr()));
  }
  BIO_set_data(bio, reinterpret_cast<void*>(intptr_t(fd)));
  SSL_set_bio(ssl_, bio, bio);
  if (server)
    SSL_set_accept_state(ssl_);
  else
    SSL_set_connect_state(ssl_);
}

std::unique_ptr<TlsChannel> TlsChannel::client(ssl_ctx_st* context, int fd, String8 const& host) {
  std::unique_ptr<TlsChannel> channel(new TlsChannel(context, fd, false));
  SSL* ssl = channel->ssl_;
  bool named = isIpAddress(host)
                   ? X509_VERIFY_PARAM_set1_ip_asc(SSL_get0_param(ssl), host.charPtr()) == 1
                   : SSL_set1_host(ssl, host.charPtr()) == 1 && SSL_set_tlsext_host_name(ssl, host.charPtr()) == 1;
  if (!named)
    throw Exception(format("cannot verify the name '%s' with TLS: %s", host.charPtr(), openSslError().charPtr()));
  return channel;
}

std::unique_ptr<TlsChannel> TlsChannel::server(ssl_ctx_st* context, int fd) {
  std::unique_ptr<TlsChannel> channel(new TlsChannel(context, fd, true));
  channel->handshaking_ = true;
  ++serverHandshakesUnderWay;
  return channel;
}

size_t TlsChannel::serverHandshakes() { return serverHandshakesUnderWay; }

TlsChannel::~TlsChannel() {
  handshakeEnded();
  SSL_free(ssl_);
}

void TlsChannel::handshakeEnded() {
  if (handshaking_) --serverHandshakesUnderWay;
  handshaking_ = false;
}

TlsChannel::Io TlsChannel::handshake() {
  if (established_) return Io::done;
  if (server_ && !tlsSeen_) {
    unsigned char first = 0;
    ssize_t n = ::recv(fd_, &first, 1, MSG_PEEK | MSG_DONTWAIT);
    if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR)) return Io::wantRead;
    broken_ = n <= 0 || first != kHandshakeRecord;
    if (n < 0) problem_ = std::strerror(errno);
    if (n <= 0) return n == 0 ? Io::closed : Io::failed;
    if (first != kHandshakeRecord) {
      problem_ = "it does not speak TLS";
      return Io::plainPeer;
    }
    tlsSeen_ = true;
  }
  ERR_clear_error();
  int result = SSL_do_handshake(ssl_);
  if (result != 1) return outcome(result);
  established_ = true;
  handshakeEnded();
  return server_ ? checkPeer() : Io::done;
}

// A server serves only the client certificates its identity allows; the
// refusal goes to the client over TLS, in the protocol's own words.
TlsChannel::Io TlsChannel::checkPeer() {
  problem_ = TlsIdentity::process().refusalOf(SSL_get0_peer_certificate(ssl_));
  return problem_.isEmpty() ? Io::done : Io::refused;
}

TlsChannel::Io TlsChannel::read(char* bytes, size_t capacity, size_t& n) {
  ERR_clear_error();
  if (SSL_read_ex(ssl_, bytes, capacity, &n) != 1) return outcome(0);
  dataReceived_ = true;
  return Io::done;
}

TlsChannel::Io TlsChannel::write(char const* bytes, size_t size, size_t& n) {
  ERR_clear_error();
  return SSL_write_ex(ssl_, bytes, size, &n) == 1 ? Io::done : outcome(0);
}

bool TlsChannel::hasPending() const { return SSL_has_pending(ssl_) == 1; }

void TlsChannel::shutdown() {
  if (broken_ || !established_) return;
  broken_ = true;
  ERR_clear_error();
  SSL_shutdown(ssl_);
  ERR_clear_error();
}

TlsChannel::Io TlsChannel::outcome(int result) {
  int error = errno;
  switch (SSL_get_error(ssl_, result)) {
    case SSL_ERROR_WANT_READ:
      return Io::wantRead;
    case SSL_ERROR_WANT_WRITE:
      return Io::wantWrite;
    case SSL_ERROR_ZERO_RETURN:
      return Io::closed;
    case SSL_ERROR_SYSCALL:
      broken_ = true;
      if (error == 0) return Io::closed;
      problem_ = std::strerror(error);
      return Io::failed;
    default:
      broken_ = true;
      if (ERR_GET_REASON(ERR_peek_error()) == SSL_R_UNEXPECTED_EOF_WHILE_READING) {
        ERR_clear_error();
        return Io::closed;
      }
      // Before any data came, the peer (or this end) turned the other down:
      // a certificate, a protocol, a peer that does not speak TLS.
      problem_ = describeError();
      return dataReceived_ ? Io::failed : Io::refused;
  }
}

String8 TlsChannel::describeError() {
  unsigned long error = ERR_peek_error();
  long verified = SSL_get_verify_result(ssl_);
  int reason = ERR_GET_REASON(error);
  if (reason == SSL_R_CERTIFICATE_VERIFY_FAILED && verified != X509_V_OK) {
    ERR_clear_error();
    return format("%s certificate is not accepted: %s", server_ ? "the client's" : "the server's",
                  X509_verify_cert_error_string(verified));
  }
  // Alerts the peer sent have reasons from SSL_AD_REASON_OFFSET on.
  if (ERR_GET_LIB(error) == ERR_LIB_SSL && reason >= SSL_AD_REASON_OFFSET)
    return "the peer refused us: " + openSslError();
  return openSslError();
}

String8 TlsChannel::openSslError() {
  unsigned long error = ERR_get_error();
  ERR_clear_error();
  if (error == 0) return "unknown error";
  if (char const* reason = ERR_reason_error_string(error)) return reason;
  char text[256];
  ERR_error_string_n(error, text, sizeof text);
  return text;
}

}  // namespace NboAttrLog
}  // namespace Zet
