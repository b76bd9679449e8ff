#pragma once
// Endpoints for tests and benchmarks that run a serving peer.

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <cstdint>
#include <string>

#include "Zet/attrlog/Socket.h"

namespace Test {

// A TCP socket bound to a loopback port the kernel chose; `port` gets it.
inline Zet::SocketFd boundLoopbackSocket(uint16_t& port, int flags = 0) {
  Zet::SocketFd fd(::socket(AF_INET, SOCK_STREAM | flags, 0));
  sockaddr_in addr{};
  addr.sin_family = AF_INET;
  addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof addr;
  ::bind(fd.get(), reinterpret_cast<sockaddr*>(&addr), size);
  ::getsockname(fd.get(), reinterpret_cast<sockaddr*>(&addr), &size);
  port = ntohs(addr.sin_port);
  return fd;
}

// A TCP port nobody listens on right now.
inline uint16_t freePort() {
  uint16_t port = 0;
  boundLoopbackSocket(port);
  return port;
}

inline std::string tcpSource(uint16_t port, std::string const& path) {
  return "tcp://127.0.0.1:" + std::to_string(port) + path;
}

// unix://<the socket path, percent-encoded><path>
inline std::string domainSource(std::string const& socket, std::string const& path) {
  std::string out = "unix://";
  for (char c : socket) out += c == '/' ? std::string("%2F") : std::string(1, c);
  return out + path;
}

}  // namespace Test
