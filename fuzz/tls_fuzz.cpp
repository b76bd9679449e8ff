// Bytes from a peer that has finished its TLS handshake with this process's
// TCP service. Each input is a real handshake over a socket pair (the
// serving session on one end, a client with a certificate of the same CA on
// the other), a greeting, then the input: written raw to the socket, where
// TLS records are expected (the first byte even), or sent as application
// data through TLS (odd). Records that are not TLS, or not this session's,
// end that connection; nothing may crash, leak or hang.

#include <sys/socket.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>

#include "Zet/Zet.h"
#include "Zet/attrlog/AttrLogProtocol.h"
#include "Zet/attrlog/AttrLogSession.h"
#include "Zet/attrlog/TlsChannel.h"
#include "Zet/attrlog/TlsIdentity.h"

namespace {

using namespace Zet;
using NboAttrLog::TlsChannel;

ActivityLoop& loop() { return ActivityFacility::loop(); }

// Runs the session's side and the client's handshake in turns until the
// client is through (or either end gave up).
bool handshake(TlsChannel& client) {
  for (int turn = 0; turn < 100; ++turn) {
    TlsChannel::Io io = client.handshake();
    if (io == TlsChannel::Io::done) return true;
    if (io != TlsChannel::Io::wantRead && io != TlsChannel::Io::wantWrite) return false;
    loop().runUntilIdle();
  }
  return false;
}

void sendAll(TlsChannel& client, std::string_view bytes) {
  for (int turn = 0; turn < 1000 && !bytes.empty(); ++turn) {
    size_t n = 0;
    TlsChannel::Io io = client.write(bytes.data(), bytes.size(), n);
    if (io == TlsChannel::Io::done)
      bytes.remove_prefix(n);
    else if (io != TlsChannel::Io::wantRead && io != TlsChannel::Io::wantWrite)
      return;
    loop().runUntilIdle();
  }
}

void serveAfterHandshake(std::string_view input) {
  auto const& identity = NboAttrLog::TlsIdentity::process();
  int pair[2];
  if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0, pair) != 0) return;
  auto session = std::make_unique<NboAttrLog::AttrLogSession>(
      SocketFd(pair[0]), TlsChannel::server(identity.serverContext(), pair[0]), "fuzz peer", String8(),
      NboAttrLog::AttrLogSession::Bounds{1 << 16, 1 << 12}, [](NboAttrLog::AttrLogSession*) {});
  std::unique_ptr<TlsChannel> client = TlsChannel::client(identity.clientContext(), pair[1], "127.0.0.1");
  if (handshake(*client)) {
    std::string hello;
    NboAttrLog::FrameWriter(hello).hello();
    sendAll(*client, hello);
    if (!input.empty() && (input[0] & 1)) {
      sendAll(*client, input.substr(1));
    } else if (!input.empty()) {
      ssize_t written = ::send(pair[1], input.data() + 1, input.size() - 1, MSG_NOSIGNAL | MSG_DONTWAIT);
      (void)written;
    }
    loop().runUntilIdle();
  }
  session.reset();
  client.reset();
  ::close(pair[1]);
  loop().runUntilIdle();
}

}  // namespace

// Certificates for this run, made by the project's script before anything
// reads the settings; the served tree has a little of everything.
extern "C" int LLVMFuzzerInitialize(int*, char***) {
  char pattern[] = "/tmp/zettlsfuzzXXXXXX";
  std::string dir = ::mkdtemp(pattern);
  std::string command = "bash " MAKE_CERTS " " + dir + " fuzz >/dev/null";
  if (std::system(command.c_str()) != 0) std::abort();
  ::setenv("ZET_ATTRLOG_TLS_CERT", (dir + "/fuzz.crt").c_str(), 1);
  ::setenv("ZET_ATTRLOG_TLS_KEY", (dir + "/fuzz.key").c_str(), 1);
  ::setenv("ZET_ATTRLOG_TLS_CA", (dir + "/ca.crt").c_str(), 1);
  if (!NboAttrLog::TlsIdentity::process().serverContext()) std::abort();
  Ptr<Dir> a = globalDir()->dirIs("fuzz")->dirIs("a");
  a->entityIs("status", "Zet::MountStatus");
  a->dirIs("b")->entityIs("config", "Zet::MountConfig");
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
  serveAfterHandshake(std::string_view(reinterpret_cast<char const*>(data), size));
  return 0;
}
