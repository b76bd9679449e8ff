#pragma once
// Sockets for the attribute-log service and the mount machinery: listening
// and connecting on TCP and on local domain sockets, always non-blocking and
// close-on-exec, and the peer credentials of a domain-socket connection.
//
// Failures are thrown as Exception with a text that says what was attempted
// and why it failed ("cannot listen on TCP port 4000: Address already in
// use"); a listener that cannot open throws ListenException. Descriptors are
// owned by SocketFd, which closes on destruction.

#include <sys/socket.h>
#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <utility>

#include "Zet/EntityUri.h"
#include "Zet/String8.h"

namespace Zet {

class SocketFd {
 public:
  SocketFd() = default;
  explicit SocketFd(int fd) : fd_(fd) {}
  SocketFd(SocketFd&& o) noexcept : fd_(std::exchange(o.fd_, -1)) {}
  SocketFd& operator=(SocketFd&& o) noexcept;
  ~SocketFd() { reset(); }

  int get() const { return fd_; }
  bool isOpen() const { return fd_ >= 0; }
  void reset();

 private:
  int fd_ = -1;
};

namespace Socket {

// The address TCP listeners bind to: ZET_ATTRLOG_BIND when set (an IPv4 or
// IPv6 literal, "0.0.0.0" or "::" for every interface), else 127.0.0.1.
String8 tcpBindAddress();

// A listening TCP socket on the bind address and port.
SocketFd listenTcp(uint16_t port);
// A listening domain socket at path, readable and writable by the owner
// only. A file left there by a listener that has died is replaced; one a
// live listener answers on is never taken, nor is anything that is not a
// socket.
SocketFd listenDomain(String8 const& path);

// A connection under way: `connecting` is true when the socket must become
// writable before use (then finishConnect tells the outcome).
struct Connecting {
  SocketFd fd;
  bool connecting = false;
};
// To a TCP address (see HostResolution), or to a domain socket.
Connecting connectTo(sockaddr const* address, socklen_t size, String8 const& what);
Connecting connectToDomain(String8 const& path);
// The outcome of a connect that was under way: 0 or the errno.
int finishConnect(int fd);

// An accepted connection, or a closed SocketFd when none is waiting or
// accept failed (errno says which).
SocketFd acceptFrom(int listenFd);

// The address and port of the other end of a TCP connection
// ("192.0.2.7:40312", "[2001:db8::1]:40312"); "unknown address" when the
// system cannot tell.
String8 peerAddress(int fd);

// The user id of the process at the other end of a domain socket.
std::optional<uid_t> peerUid(int fd);

}  // namespace Socket
}  // namespace Zet
