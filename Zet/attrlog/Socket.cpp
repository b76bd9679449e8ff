#include "Zet/attrlog/Socket.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "Zet/Exception.h"
#include "Zet/Format.h"
#include "Zet/System.h"

namespace Zet {

SocketFd& SocketFd::operator=(SocketFd&& o) noexcept {
  if (this != &o) {
    reset();
    fd_ = std::exchange(o.fd_, -1);
  }
  return *this;
}

void SocketFd::reset() {
  if (fd_ >= 0) ::close(fd_);
  fd_ = -1;
}

namespace Socket {
namespace {

[[noreturn]] void fail(String8 const& what, int error) {
  throw Exception(format("%s: %s", what.charPtr(), std::strerror(error)));
}

[[noreturn]] void failToListen(String8 const& what, std::string_view why) {
  throw ListenException(format("%s: %.*s", what.charPtr(), int(why.size()), why.data()));
}

// A new stream socket; closed (errno saying why) when none can be made.
SocketFd newSocket(int family) { return SocketFd(::socket(family, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0)); }

void noDelay(int fd) {
  int one = 1;
  ::setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
}

// The domain-socket address of path; false when the path does not fit.
bool domainAddress(String8 const& path, sockaddr_un& addr) {
  std::memset(&addr, 0, sizeof addr);
  addr.sun_family = AF_UNIX;
  if (path.isEmpty() || path.size() >= sizeof addr.sun_path) return false;
  std::memcpy(addr.sun_path, path.charPtr(), path.size());
  return true;
}

// Whether a listener answers at the domain socket path.
bool domainListenerAnswers(sockaddr_un const& addr) {
  SocketFd probe(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  if (!probe.isOpen()) return false;
  return ::connect(probe.get(), reinterpret_cast<sockaddr const*>(&addr), sizeof addr) == 0;
}

// Makes room for a listener at path: a socket file nobody answers on is
// removed; a live one, or anything else, is refused.
void clearStaleSocketFile(String8 const& path, sockaddr_un const& addr, String8 const& what) {
  struct stat st;
  if (::lstat(path.charPtr(), &st) != 0) return;
  if (!S_ISSOCK(st.st_mode)) failToListen(what, "the file exists and is not a socket");
  if (domainListenerAnswers(addr)) failToListen(what, "another process is listening there");
  ::unlink(path.charPtr());
}

}  // namespace

String8 tcpBindAddress() {
  String8 chosen = System::getenv("ZET_ATTRLOG_BIND");
  return chosen.isEmpty() ? String8("127.0.0.1") : chosen;
}

SocketFd listenTcp(uint16_t port) {
  String8 address = tcpBindAddress();
  String8 what = format("cannot listen on TCP port %u at %s", unsigned(port), address.charPtr());
  sockaddr_storage storage{};
  socklen_t size;
  int family;
  if (auto* v4 = reinterpret_cast<sockaddr_in*>(&storage);
      ::inet_pton(AF_INET, address.charPtr(), &v4->sin_addr) == 1) {
    family = v4->sin_family = AF_INET;
    v4->sin_port = htons(port);
    size = sizeof *v4;
  } else if (auto* v6 = reinterpret_cast<sockaddr_in6*>(&storage);
             ::inet_pton(AF_INET6, address.charPtr(), &v6->sin6_addr) == 1) {
    family = v6->sin6_family = AF_INET6;
    v6->sin6_port = htons(port);
    size = sizeof *v6;
  } else {
    failToListen(what, "ZET_ATTRLOG_BIND is not an IP address");
  }
  SocketFd fd = newSocket(family);
  if (!fd.isOpen()) failToListen(what, std::strerror(errno));
  int one = 1;
  ::setsockopt(fd.get(), SOL_SOCKET, SO_REUSEADDR, &one, sizeof one);
  if (::bind(fd.get(), reinterpret_cast<sockaddr*>(&storage), size) != 0) failToListen(what, std::strerror(errno));
  if (::listen(fd.get(), SOMAXCONN) != 0) failToListen(what, std::strerror(errno));
  return fd;
}

SocketFd listenDomain(String8 const& path) {
  String8 what = format("cannot listen on domain socket '%s'", path.charPtr());
  sockaddr_un addr;
  if (!domainAddress(path, addr)) failToListen(what, "the path is empty or too long");
  clearStaleSocketFile(path, addr, what);
  SocketFd fd = newSocket(AF_UNIX);
  if (!fd.isOpen()) failToListen(what, std::strerror(errno));
  if (::bind(fd.get(), reinterpret_cast<sockaddr*>(&addr), sizeof addr) != 0) failToListen(what, std::strerror(errno));
  if (::chmod(path.charPtr(), 0600) != 0 || ::listen(fd.get(), SOMAXCONN) != 0) {
    int error = errno;
    ::unlink(path.charPtr());
    failToListen(what, std::strerror(error));
  }
  return fd;
}

Connecting connectTo(sockaddr const* address, socklen_t size, String8 const& what) {
  Connecting result;
  result.fd = newSocket(address->sa_family);
  if (!result.fd.isOpen()) fail(what, errno);
  noDelay(result.fd.get());
  if (::connect(result.fd.get(), address, size) == 0) return result;
  if (errno != EINPROGRESS) fail(what, errno);
  result.connecting = true;
  return result;
}

Connecting connectToDomain(String8 const& path) {
  String8 what = format("cannot connect to domain socket '%s'", path.charPtr());
  sockaddr_un addr;
  if (!domainAddress(path, addr)) throw Exception(format("%s: the path is empty or too long", what.charPtr()));
  Connecting result;
  result.fd = newSocket(AF_UNIX);
  if (!result.fd.isOpen()) fail(what, errno);
  if (::connect(result.fd.get(), reinterpret_cast<sockaddr*>(&addr), sizeof addr) == 0) return result;
  if (errno != EINPROGRESS && errno != EAGAIN) fail(what, errno);
  result.connecting = true;
  return result;
}

int finishConnect(int fd) {
  int error = 0;
  socklen_t size = sizeof error;
  if (::getsockopt(fd, SOL_SOCKET, SO_ERROR, &error, &size) != 0) return errno;
  return error;
}

SocketFd acceptFrom(int listenFd) {
  int fd = ::accept4(listenFd, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
  if (fd >= 0) noDelay(fd);
  return SocketFd(fd);
}

String8 peerAddress(int fd) {
  sockaddr_storage address{};
  socklen_t size = sizeof address;
  char host[INET6_ADDRSTRLEN] = "";
  if (::getpeername(fd, reinterpret_cast<sockaddr*>(&address), &size) != 0) return "unknown address";
  if (address.ss_family == AF_INET) {
    auto const& v4 = reinterpret_cast<sockaddr_in const&>(address);
    ::inet_ntop(AF_INET, &v4.sin_addr, host, sizeof host);
    return format("%s:%u", host, unsigned(ntohs(v4.sin_port)));
  }
  if (address.ss_family != AF_INET6) return "unknown address";
  auto const& v6 = reinterpret_cast<sockaddr_in6 const&>(address);
  ::inet_ntop(AF_INET6, &v6.sin6_addr, host, sizeof host);
  return format("[%s]:%u", host, unsigned(ntohs(v6.sin6_port)));
}

std::optional<uid_t> peerUid(int fd) {
  ucred cred{};
  socklen_t size = sizeof cred;
  if (::getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &cred, &size) != 0) return std::nullopt;
  return cred.uid;
}

}  // namespace Socket
}  // namespace Zet
