#pragma once
// TlsChannel: TLS on a non-blocking socket, for AttrLogStream. Every call
// returns at once and says what it needs to go on: the socket readable or
// writable (the stream watches for that and calls again), or that the
// channel is over, and why.
//
// A server channel first looks at the peer's first byte: a peer that does
// not open with a TLS record is `plainPeer`, so that it can be told in its
// own protocol why it is refused. Once the handshake is done, a server
// refuses a client certificate the process's TlsIdentity does not allow.
//
// Bytes go through send/recv with MSG_NOSIGNAL: a peer that has gone never
// raises SIGPIPE in the process.

#include <cstddef>
#include <memory>

#include "Zet/String8.h"

struct ssl_st;
struct ssl_ctx_st;

namespace Zet {
namespace NboAttrLog {

class TlsChannel {
 public:
  enum class Io {
    done,
    wantRead,
    wantWrite,
    closed,     // the peer ended the connection
    failed,     // the connection broke (problem() says how)
    refused,    // one end refused the other (problem() says why)
    plainPeer,  // a server's peer does not speak TLS
  };

  // A client channel verifies that the server's certificate names `host`
  // (a DNS name or an IP address); a server channel ignores it.
  static std::unique_ptr<TlsChannel> client(ssl_ctx_st* context, int fd, String8 const& host);
  static std::unique_ptr<TlsChannel> server(ssl_ctx_st* context, int fd);
  ~TlsChannel();

  bool isServer() const { return server_; }
  bool established() const { return established_; }
  // Advances the handshake; `done` once established.
  Io handshake();
  // Reads up to `capacity` bytes of application data into `bytes`; `done`
  // with `n` set when some came.
  Io read(char* bytes, size_t capacity, size_t& n);
  // Writes some of `bytes`; `done` with `n` set when some went.
  Io write(char const* bytes, size_t size, size_t& n);
  // Whether bytes already read from the socket wait in the channel: the
  // loop would not say the socket is readable for them.
  bool hasPending() const;
  // Tells the peer, without waiting, that nothing more comes.
  void shutdown();
  // Why the channel failed or was refused.
  String8 const& problem() const { return problem_; }

  // Server handshakes under way in the process. Each holds buffers for
  // what its peer announced (up to a few hundred KB), so the service
  // counts them before it accepts another TLS peer.
  static size_t serverHandshakes();

  // The reason of the oldest error OpenSSL has queued on this thread
  // (the queue is cleared), or "unknown error".
  static String8 openSslError();

 private:
  TlsChannel(ssl_ctx_st* context, int fd, bool server);
  Io outcome(int result);
  void handshakeEnded();
  Io checkPeer();
  String8 describeError();

  ssl_st* ssl_ = nullptr;
  int fd_;
  bool server_;
  bool tlsSeen_ = false;  // a server has seen the peer open with TLS
  bool established_ = false;
  bool handshaking_ = false;  // counted in serverHandshakes()
  bool dataReceived_ = false;
  bool broken_ = false;  // no shutdown may be sent any more
  String8 problem_;
};

}  // namespace NboAttrLog
}  // namespace Zet
