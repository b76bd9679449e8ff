// Mounts over TLS between real processes, with certificates the openssl
// command makes for this run: attrlog_peer serves (or mounts) with the
// identity each case gives it, this process mounts as agent-b. Every
// refusal is checked where it shows: the mount's state, code and reason on
// the mounting side, a trace line on the serving side.

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

#include "Zet/Zet.h"
#include "Zet/attrlog/AttrLogProtocol.h"
#include "Zet/attrlog/TlsChannel.h"
#include "Zet/attrlog/TlsIdentity.h"
#include "tests/peer/ChildProcess.h"
#include "tests/peer/Gauge.h"
#include "tests/peer/Loopback.h"
#include "tests/peer/PeerProcess.h"

namespace Zet {
namespace {

using Test::ChildProcess;
using Test::freePort;
using Test::PeerProcess;

// The certificates of this run, made before anything reads the settings;
// this process is agent-b.
std::string const certs = [] {
  char pattern[] = "/tmp/zettlsXXXXXX";
  std::string dir = ::mkdtemp(pattern);
  if (ChildProcess({"/bin/bash", MAKE_CERTS, "--refused", dir, "agent-a", "agent-b"}).wait() != 0) std::abort();
  ::setenv("ZET_ATTRLOG_TLS_CERT", (dir + "/agent-b.crt").c_str(), 1);
  ::setenv("ZET_ATTRLOG_TLS_KEY", (dir + "/agent-b.key").c_str(), 1);
  ::setenv("ZET_ATTRLOG_TLS_CA", (dir + "/ca.crt").c_str(), 1);
  return dir;
}();

// The settings of a process without TLS (children inherit this process's).
std::vector<std::string> const plain = {"ZET_ATTRLOG_TLS_CERT=", "ZET_ATTRLOG_TLS_KEY=", "ZET_ATTRLOG_TLS_CA="};

// The settings of a process whose certificate is `name`'s, trusting `ca`.
std::vector<std::string> identity(std::string const& name, std::string const& ca = "ca") {
  return {"ZET_ATTRLOG_TLS_CERT=" + certs + "/" + name + ".crt", "ZET_ATTRLOG_TLS_KEY=" + certs + "/" + name + ".key",
          "ZET_ATTRLOG_TLS_CA=" + certs + "/" + ca + ".crt", "ZET_TRACE=NboAttrLog/0"};
}

// A peer serving /shared/g over TLS as `name`, to the clients listed.
struct Server {
  explicit Server(std::string const& name, std::vector<std::string> more = {}) : peer(withMore(name, more)) {
    EXPECT_EQ(peer("listen-port " + std::to_string(port)), "ok");
    EXPECT_EQ(peer("gauge /shared/g 5"), "ok");
  }
  static std::vector<std::string> withMore(std::string const& name, std::vector<std::string> const& more) {
    auto settings = identity(name);
    settings.insert(settings.end(), more.begin(), more.end());
    return settings;
  }
  std::string source(std::string const& host = "127.0.0.1", std::string const& scheme = "tls") const {
    return scheme + "://" + host + ":" + std::to_string(port) + "/shared/g";
  }
  // The trace line in which the server refuses or drops a peer.
  std::string refusal() {
    return peer.errLine([](std::string const& line) {
      return line.find("refusing TCP peer") != std::string::npos || line.find("dropping TCP peer") != std::string::npos;
    });
  }

  uint16_t port = freePort();
  PeerProcess peer;
};

bool waitFor(std::function<bool()> const& done, double seconds = 10) {
  return ActivityFacility::loop().runUntil(done, seconds);
}

Ptr<MountStatus> mount(std::string const& name, std::string const& source0, std::string const& source1 = "") {
  auto config = MountFacility::mountConfigDir()->mountConfigIs(Name(String8(name)), EntityUri(String8(source0)),
                                                               EntityUri(String8(source1)));
  config->targetNameIs(EntityUriPath(String8("/tls/" + name)));
  return MountFacility::mountStatusDir()->mountStatus(Name(String8(name)));
}

// What a mount in this process came to: "STATE CODE: REASON".
std::string outcome(Ptr<MountStatus> const& status) {
  waitFor([&] { return status->state() == MountStatus::complete || status->state() == MountStatus::error; });
  return std::string(EnumTexts<MountStatus::State>::texts[status->state()]) + " " +
         std::string(EnumTexts<MountStatus::Code>::texts[status->code()]) + ": " + status->reason().str();
}

// What a mount by another process, with its own settings, came to.
std::string outcomeElsewhere(std::vector<std::string> const& settings, std::string const& source) {
  std::vector<std::string> environment = plain;
  environment.insert(environment.end(), settings.begin(), settings.end());
  PeerProcess client(environment);
  EXPECT_EQ(client("mount m " + source), "ok");
  std::string state;
  for (int tries = 0; tries < 500; ++tries, ::usleep(20000)) {
    state = client("mount-state m");
    if (state.rfind("complete", 0) == 0 || state.rfind("error", 0) == 0) break;
  }
  return state;
}

Ptr<Test::Gauge> gaugeAt(std::string const& path) {
  return ptr_cast<Test::Gauge>(globalDir()->entityRef(std::string_view(path)));
}

// A TCP connection to the server on which `bytes` were sent (closed when
// they could not be).
SocketFd connectRaw(uint16_t port, std::string const& bytes) {
  uint16_t unused = 0;
  SocketFd fd = Test::boundLoopbackSocket(unused);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = htons(port);
  if (::connect(fd.get(), reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
      ::send(fd.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL) != ssize_t(bytes.size()))
    fd.reset();
  return fd;
}

// The same, and what came back before the server closed (or `seconds`
// passed).
std::string exchangeRaw(uint16_t port, std::string const& bytes, double seconds = 1) {
  SocketFd fd = connectRaw(port, bytes);
  if (!fd.isOpen()) return "no connection";
  std::string received;
  pollfd p{fd.get(), POLLIN, 0};
  char buffer[4096];
  while (::poll(&p, 1, int(seconds * 1000)) == 1) {
    ssize_t n = ::recv(fd.get(), buffer, sizeof buffer, 0);
    if (n <= 0) return received + (n == 0 ? "<closed>" : "<reset>");
    received.append(buffer, size_t(n));
  }
  return received + "<open>";
}

bool contains(std::string const& text, std::string const& part) { return text.find(part) != std::string::npos; }

TEST(Tls, MutualAuthenticationMountsAndTheMirrorFollows) {
  Server a("agent-a", {"ZET_ATTRLOG_TLS_PEERS=agent-c, agent-b"});
  // By address and by name: the server's certificate carries both.
  Ptr<MountStatus> byAddress = mount("byAddress", a.source());
  Ptr<MountStatus> byName = mount("byName", a.source("localhost"));
  EXPECT_EQ(outcome(byAddress), "complete ok: ");
  EXPECT_EQ(outcome(byName), "complete ok: ");
  ASSERT_TRUE(gaugeAt("/tls/byAddress"));
  EXPECT_EQ(gaugeAt("/tls/byAddress")->value(), 5u);
  EXPECT_EQ(a.peer("gauge /shared/g 6"), "ok");
  EXPECT_TRUE(waitFor([] { return gaugeAt("/tls/byName")->value() == 6; }));

  // A plain client hears, in its own protocol, why it is refused.
  std::string hello;
  NboAttrLog::FrameWriter(hello).hello();
  std::string answer = exchangeRaw(a.port, hello);
  NboAttrLog::Message message;
  size_t used = 0;
  std::string error;
  ASSERT_EQ(NboAttrLog::decodeFrame(answer, message, used, error), NboAttrLog::Decoded::frame) << error;
  EXPECT_EQ(message.kind, NboAttrLog::Kind::refused);
  EXPECT_EQ(message.name, "it does not speak TLS");
  EXPECT_EQ(answer.substr(used), "<closed>");
  EXPECT_TRUE(contains(a.refusal(), ": it does not speak TLS"));
  // ... and so does this process's own plain mount.
  EXPECT_EQ(outcome(mount("plain", a.source("127.0.0.1", "tcp"))),
            "error permissionDenied: 127.0.0.1 port " + std::to_string(a.port) + " refused us: it does not speak TLS");
  EXPECT_EQ(a.peer("figures"), "sessions 2 pending 0");
}

TEST(Tls, TheServerRefusesClientsItCannotTrustAndEachSideSaysWhy) {
  Server a("agent-a", {"ZET_ATTRLOG_TLS_PEERS=agent-b"});
  std::string const denied = "error permissionDenied: ";
  struct Case {
    std::vector<std::string> client;
    std::string clientSays, serverSays;
  } cases[] = {
      {identity("stranger", "ca"), "the peer refused us: tlsv1 alert unknown ca",
       "the client's certificate is not accepted: unable to get local issuer certificate"},
      {identity("expired"), "the peer refused us: sslv3 alert certificate expired",
       "the client's certificate is not accepted: certificate has expired"},
      {identity("elsewhere"),
       "refused us: its certificate (/CN=elsewhere) names none of the peers of ZET_ATTRLOG_TLS_PEERS",
       "its certificate (/CN=elsewhere) names none of the peers of ZET_ATTRLOG_TLS_PEERS"},
  };
  for (Case const& c : cases) {
    std::string said = outcomeElsewhere(c.client, a.source());
    EXPECT_EQ(said.rfind(denied, 0), 0u) << said;
    EXPECT_TRUE(contains(said, c.clientSays)) << said;
    std::string traced = a.refusal();
    EXPECT_TRUE(contains(traced, c.serverSays)) << traced;
  }
  // A client without a certificate at all.
  ChildProcess anonymous({"/usr/bin/openssl", "s_client", "-quiet", "-connect", "127.0.0.1:" + std::to_string(a.port),
                          "-CAfile", certs + "/ca.crt"});
  EXPECT_TRUE(contains(a.refusal(), "peer did not return a certificate"));
  // Settings this process cannot use are said before anything is tried.
  EXPECT_EQ(outcomeElsewhere({"ZET_ATTRLOG_TLS_CERT=" + certs + "/agent-b.crt"}, a.source()),
            denied + "cannot mount from 127.0.0.1 port " + std::to_string(a.port) +
                " over TLS: TLS needs all of ZET_ATTRLOG_TLS_CERT, ZET_ATTRLOG_TLS_KEY and ZET_ATTRLOG_TLS_CA");
  EXPECT_TRUE(contains(outcomeElsewhere({}, a.source()), "this process has no certificate"));
  EXPECT_EQ(a.peer("figures"), "sessions 0 pending 0");
}

TEST(Tls, TheClientRefusesServersItCannotTrust) {
  Server stranger("stranger"), expired("expired"), elsewhere("elsewhere");
  auto says = [](Server const& server, std::string const& host, std::string const& cause) {
    return "error permissionDenied: TLS with " + host + " port " + std::to_string(server.port) +
           " failed: the server's certificate is not accepted: " + cause;
  };
  EXPECT_EQ(outcome(mount("stranger", stranger.source())),
            says(stranger, "127.0.0.1", "unable to get local issuer certificate"));
  EXPECT_EQ(outcome(mount("expired", expired.source())), says(expired, "127.0.0.1", "certificate has expired"));
  EXPECT_EQ(outcome(mount("elsewhereByName", elsewhere.source("localhost"))),
            says(elsewhere, "localhost", "hostname mismatch"));
  EXPECT_EQ(outcome(mount("elsewhereByAddress", elsewhere.source())),
            says(elsewhere, "127.0.0.1", "IP address mismatch"));

  // A plain server: the TLS mount fails at once, it does not wait.
  PeerProcess plainServer(plain);
  uint16_t port = freePort();
  ASSERT_EQ(plainServer("listen-port " + std::to_string(port)), "ok");
  std::string said = outcome(mount("plainServer", "tls://127.0.0.1:" + std::to_string(port) + "/shared"));
  EXPECT_EQ(said.rfind("error permissionDenied: TLS with 127.0.0.1 port " + std::to_string(port) + " failed: ", 0), 0u)
      << said;
}

TEST(Tls, AStalledHandshakeIsDroppedAndGarbageAfterItClosesThatConnectionOnly) {
  Server a("agent-a", {"ZET_ATTRLOG_TLS_HANDSHAKE_SECONDS=0.3"});
  Ptr<MountStatus> good = mount("beside", a.source());
  ASSERT_EQ(outcome(good), "complete ok: ");
  // The first byte of a handshake record, then nothing.
  EXPECT_EQ(exchangeRaw(a.port, "\x16", 3), "<closed>");
  EXPECT_TRUE(contains(a.refusal(), ": the TLS handshake was not done within 0.3 s"));
  // A record that is not one, where a handshake should be.
  EXPECT_EQ(exchangeRaw(a.port, std::string("\x16\x03\x01\x00\x05hello", 10), 3).substr(0, 1), "\x15");
  EXPECT_TRUE(contains(a.refusal(), "refusing TCP peer"));
  // Handshakes under way at once are bounded: each holds buffers.
  std::vector<SocketFd> stalled;
  for (int i = 0; i < 256; ++i) stalled.push_back(connectRaw(a.port, "\x16"));
  std::string dropped = exchangeRaw(a.port, "\x16", 3);
  EXPECT_TRUE(dropped == "<closed>" || dropped == "<reset>") << dropped;  // unread bytes reset it
  EXPECT_TRUE(contains(a.refusal(), ": 256 TLS handshakes are under way already"));
  // The mount beside them all goes on.
  EXPECT_EQ(a.peer("gauge /shared/g 7"), "ok");
  EXPECT_TRUE(waitFor([] { return gaugeAt("/tls/beside")->value() == 7; }));
  std::string figures;
  for (int tries = 0; tries < 100 && figures != "sessions 1 pending 0"; ++tries, ::usleep(20000))
    figures = a.peer("figures");
  EXPECT_EQ(figures, "sessions 1 pending 0");
}

// CPU milliseconds the peer has used so far.
long cpuMs(PeerProcess& peer) {
  std::string usage = peer("usage");
  return std::stol(usage.substr(usage.find("cpu ") + 4));
}

TEST(Tls, APartialRecordAfterTheHandshakeCostsTheServerNothingWhileItWaits) {
  Server a("agent-a");
  SocketFd fd = connectRaw(a.port, "");
  ASSERT_TRUE(fd.isOpen());
  auto client =
      NboAttrLog::TlsChannel::client(NboAttrLog::TlsIdentity::process().clientContext(), fd.get(), "127.0.0.1");
  NboAttrLog::TlsChannel::Io io;
  while ((io = client->handshake()) == NboAttrLog::TlsChannel::Io::wantRead) {
    pollfd p{fd.get(), POLLIN, 0};
    ::poll(&p, 1, 1000);
  }
  ASSERT_EQ(io, NboAttrLog::TlsChannel::Io::done);
  // The header of an application record of 32 bytes, and 8 of them.
  ASSERT_EQ(::send(fd.get(),
                   "\x17\x03\x03\x00\x20"
                   "12345678",
                   13, MSG_NOSIGNAL),
            13);
  long before = cpuMs(a.peer);
  ::usleep(500000);
  EXPECT_LT(cpuMs(a.peer) - before, 100);
  EXPECT_EQ(a.peer("figures"), "sessions 1 pending 0");
}

TEST(Tls, AMountMovesFromATlsSourceToItsTlsBackupAndBack) {
  auto first = std::make_unique<Server>("agent-a");
  Server second("agent-a");
  Ptr<MountStatus> status = mount("failover", first->source(), second.source());
  ASSERT_EQ(outcome(status), "complete ok: ");
  EXPECT_EQ(status->currentSource().text().view(), first->source());
  first->peer.kill();
  EXPECT_TRUE(waitFor([&] {
    return status->state() == MountStatus::complete && status->currentSource().text().view() == second.source();
  }));
  EXPECT_EQ(second.peer("gauge /shared/g 8"), "ok");
  EXPECT_TRUE(waitFor([] { return gaugeAt("/tls/failover")->value() == 8; }));
}

}  // namespace
}  // namespace Zet
