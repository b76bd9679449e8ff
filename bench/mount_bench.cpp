// Mounts between two processes, measured: this process mounts from an
// attrlog_peer process (and the peer from this one, for round trips).
//
//   propagation   a gauge raised N times at the source, a few writes per
//                 loop turn: source writes reflected per second at the
//                 mirror, and how many updates it took (conflation)
//   latency       one write in flight: this process writes a gauge, the peer
//                 copies each value it sees to a gauge this process mounts;
//                 the round trip and half of it, p50 and p99, over a domain
//                 socket and over TCP loopback
//   TLS           propagation and latency over TCP loopback with TLS (both
//                 ends with certificates), and their ratios to plain TCP
//   snapshot      a directory of 100k gauges mounted until complete: time,
//                 bytes read per entity, resident bytes per mirrored entity
//
// When redis-server is on the PATH, the same propagation and latency are
// measured for its publish/subscribe over TCP loopback and shown as ratios.
// Run from the build tree: build/release/bench/mount_bench

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

#include "Zet/Zet.h"
#include "Zet/attrlog/Socket.h"
#include "tests/peer/Gauge.h"
#include "tests/peer/Loopback.h"
#include "tests/peer/PeerProcess.h"

namespace {

using namespace Zet;
using Clock = std::chrono::steady_clock;
using Test::Gauge;

double seconds(Clock::duration d) { return std::chrono::duration<double>(d).count(); }

bool waitFor(std::function<bool()> const& done, double limit = 60) {
  return ActivityFacility::loop().runUntil(done, limit);
}

Ptr<MountStatus> mountAt(std::string const& name, std::string const& source, std::string const& target) {
  Name n{String8(name)};
  auto config = MountFacility::mountConfigDir()->mountConfigIs(n, EntityUri(String8(source)), EntityUri());
  config->targetNameIs(EntityUriPath(String8(target)));
  auto status = MountFacility::mountStatusDir()->mountStatus(n);
  if (!waitFor([&] { return status->state() == MountStatus::complete; }))
    std::fprintf(stderr, "mount %s of %s did not complete\n", name.c_str(), source.c_str());
  return status;
}

struct Percentiles {
  double p50, p99;
};
Percentiles percentiles(std::vector<double> v) {
  std::sort(v.begin(), v.end());
  return {v[v.size() / 2], v[std::min(v.size() - 1, v.size() * 99 / 100)]};
}

struct Propagation {
  double writesPerSecond;
  double updatesApplied;
};

struct CountingLog : Gauge::NotifieeConst {
  uint64_t notifications = 0;
  void onValue() override { ++notifications; }
};

Propagation propagation(Test::PeerProcess& peer, std::string const& source, std::string const& name) {
  constexpr uint64_t kWrites = 2'000'000;
  peer("gauge /pump/" + name + " 0");
  auto status = mountAt("pump" + name, source + "/pump/" + name, "/bench/pump/" + name);
  auto mirror = ptr_cast<Gauge>(status->mountedEntity());
  CountingLog log;
  log.notifierIs(mirror);
  auto start = Clock::now();
  peer("pump /pump/" + name + " " + std::to_string(kWrites) + " 64");
  waitFor([&] { return mirror->value() == kWrites; });
  double elapsed = seconds(Clock::now() - start);
  return {kWrites / elapsed, double(log.notifications)};
}

// Round trips of one write through the peer and back.
std::vector<double> roundTrips(Ptr<Gauge> const& ping, Ptr<Gauge> const& pong, int count) {
  std::vector<double> trips;
  for (int i = 0; i < count; ++i) {
    uint64_t value = ping->value() + 1;
    auto start = Clock::now();
    ping->valueIs(value);
    waitFor([&] { return pong->value() == value; }, 5);
    trips.push_back(seconds(Clock::now() - start) * 1e6);
  }
  return trips;
}

Percentiles latency(Test::PeerProcess& peer, std::string const& ownSource, std::string const& peerSource,
                    std::string const& name) {
  Ptr<Dir> home = globalDir()->dirIs("bench")->dirIs("ping");
  auto ping = ptr_cast<Gauge>(home->entityIs(Name(String8(name)), "Test::Gauge"));
  peer("gauge /pong/" + name + " 0");
  peer("reflect " + ownSource + "/bench/ping/" + name + " /pong/" + name);
  auto pong =
      ptr_cast<Gauge>(mountAt("pong" + name, peerSource + "/pong/" + name, "/bench/pong/" + name)->mountedEntity());
  roundTrips(ping, pong, 200);  // warm up: the peer's mount completes, caches fill
  return percentiles(roundTrips(ping, pong, 5000));
}

struct LoopbackFigures {
  Propagation propagation;
  Percentiles trip;
  bool measured;
};

// Propagation and latency over TCP loopback between this process and a
// fresh peer, through sources of `scheme` (tcp, or tls with the
// ZET_ATTRLOG_TLS_* settings of this process, which the peer inherits).
LoopbackFigures loopbackFigures(std::string const& scheme) {
  uint16_t ownPort = Test::freePort(), peerPort = Test::freePort();
  NboAttrLog::connectionDir()->listenPortIs(ownPort);
  Test::PeerProcess peer;
  peer("listen-port " + std::to_string(peerPort));
  std::string own = scheme + "://127.0.0.1:" + std::to_string(ownPort);
  std::string served = scheme + "://127.0.0.1:" + std::to_string(peerPort);
  Propagation propagated = propagation(peer, served, scheme);
  return {propagated, latency(peer, own, served, scheme), true};
}

// The TLS figures come from a child process: a process has one TLS
// identity, which makes its TCP listener speak TLS only, and the plain
// figures need a plain one. Forked before this process starts its loop.
LoopbackFigures tlsFiguresInChild(std::string const& dir) {
  int channel[2];
  if (::pipe(channel) != 0) return {};
  pid_t child = ::fork();
  if (child == 0) {
    ::close(channel[0]);
    LoopbackFigures figures{};
    std::string certs = dir + "/certs";
    if (std::system(("bash " MAKE_CERTS " " + certs + " bench >/dev/null").c_str()) == 0) {
      ::setenv("ZET_ATTRLOG_TLS_CERT", (certs + "/bench.crt").c_str(), 1);
      ::setenv("ZET_ATTRLOG_TLS_KEY", (certs + "/bench.key").c_str(), 1);
      ::setenv("ZET_ATTRLOG_TLS_CA", (certs + "/ca.crt").c_str(), 1);
      figures = loopbackFigures("tls");
    }
    ssize_t written = ::write(channel[1], &figures, sizeof figures);
    ::_exit(written == sizeof figures ? 0 : 1);
  }
  ::close(channel[1]);
  LoopbackFigures figures{};
  if (child < 0 || ::read(channel[0], &figures, sizeof figures) != sizeof figures) figures = {};
  ::close(channel[0]);
  if (child > 0) ::waitpid(child, nullptr, 0);
  return figures;
}

void printTls(LoopbackFigures const& tls, Propagation viaTcp, Percentiles tcpTrip) {
  if (!tls.measured) {
    std::printf("TLS: not measured (the certificates could not be made: is the openssl command installed?)\n");
    return;
  }
  std::printf(
      "propagate TLS loopback:  %.2f M source writes/s reflected (%.0f updates applied for 2M writes); "
      "%.2fx plain TCP\n",
      tls.propagation.writesPerSecond / 1e6, tls.propagation.updatesApplied,
      tls.propagation.writesPerSecond / viaTcp.writesPerSecond);
  std::printf("latency TLS loopback:  round trip p50 %.1f us p99 %.1f us; %.2fx and %.2fx plain TCP\n", tls.trip.p50,
              tls.trip.p99, tls.trip.p50 / tcpTrip.p50, tls.trip.p99 / tcpTrip.p99);
}

size_t residentBytes() {
  std::ifstream statm("/proc/self/statm");
  size_t pages = 0, resident = 0;
  statm >> pages >> resident;
  return resident * size_t(::sysconf(_SC_PAGESIZE));
}

size_t bytesRead() {
  std::ifstream io("/proc/self/io");
  std::string key;
  size_t value = 0;
  while (io >> key >> value)
    if (key == "rchar:") return value;
  return 0;
}

void snapshot(Test::PeerProcess& peer, std::string const& source) {
  constexpr size_t kEntities = 100'000;
  peer("fill /big " + std::to_string(kEntities));
  size_t residentBefore = residentBytes(), readBefore = bytesRead();
  auto start = Clock::now();
  mountAt("big", source + "/big", "/bench/big");
  double elapsed = seconds(Clock::now() - start);
  std::printf(
      "snapshot  %zu entities: complete in %.3f s, %.1f bytes read per entity, %.0f resident bytes per "
      "mirrored entity\n",
      kEntities, elapsed, double(bytesRead() - readBefore) / kEntities,
      double(residentBytes() - residentBefore) / kEntities);
}

// A blocking client of a RESP server, enough for publish and subscribe.
class RespClient {
 public:
  explicit RespClient(uint16_t port) {
    for (int attempt = 0; attempt < 200 && !connected_; ++attempt) {
      fd_ = SocketFd(::socket(AF_INET, SOCK_STREAM, 0));
      sockaddr_in addr{};
      addr.sin_family = AF_INET;
      addr.sin_port = htons(port);
      addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
      connected_ = ::connect(fd_.get(), reinterpret_cast<sockaddr*>(&addr), sizeof addr) == 0;
      if (!connected_) ::usleep(10'000);
    }
    int one = 1;
    ::setsockopt(fd_.get(), IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
  }
  bool connected() const { return connected_; }
  void send(std::string const& bytes) {
    for (size_t sent = 0; sent < bytes.size();) {
      ssize_t n = ::write(fd_.get(), bytes.data() + sent, bytes.size() - sent);
      if (n <= 0) return;
      sent += size_t(n);
    }
  }
  static std::string command(std::vector<std::string> const& words) {
    std::string out("*");
    out.append(std::to_string(words.size())).append("\r\n");
    for (auto const& w : words)
      out.append("$").append(std::to_string(w.size())).append("\r\n").append(w).append("\r\n");
    return out;
  }
  // Reads until `needle` has been seen; returns false at end of stream.
  bool readUntil(std::string const& needle) {
    while (buffer_.find(needle) == std::string::npos) {
      char chunk[65536];
      ssize_t n = ::read(fd_.get(), chunk, sizeof chunk);
      if (n <= 0) return false;
      buffer_.append(chunk, size_t(n));
      if (buffer_.size() > (1 << 20)) buffer_.erase(0, buffer_.size() - needle.size());
    }
    buffer_.erase(0, buffer_.find(needle) + needle.size());
    return true;
  }

 private:
  SocketFd fd_;
  bool connected_ = false;
  std::string buffer_;
};

void redisFigures(Propagation ours, Percentiles oursRoundTrip) {
  if (std::system("command -v redis-server >/dev/null 2>&1") != 0) {
    std::printf("redis       redis-server is not installed (Debian: redis-server): no side-by-side figures\n");
    return;
  }
  uint16_t port = Test::freePort();
  std::fflush(stdout);  // the child must not write what this process has buffered
  pid_t server = ::fork();
  if (server == 0) {
    std::freopen("/dev/null", "w", stdout);
    std::string p = std::to_string(port);
    ::execlp("redis-server", "redis-server", "--port", p.c_str(), "--save", "", "--appendonly", "no", "--loglevel",
             "warning", static_cast<char*>(nullptr));
    ::_exit(127);
  }
  RespClient subscriber(port), publisher(port);
  if (subscriber.connected() && publisher.connected()) {
    subscriber.send(RespClient::command({"SUBSCRIBE", "bench"}));
    subscriber.readUntil(":1\r\n");
    // One in flight: publish, wait for the message.
    std::vector<double> trips;
    for (int i = 0; i < 5200; ++i) {
      std::string value("v");
      value.append(std::to_string(i)).append("\r\n");
      auto start = Clock::now();
      publisher.send(RespClient::command({"PUBLISH", "bench", value.substr(0, value.size() - 2)}));
      subscriber.readUntil(value);
      publisher.readUntil("\r\n");
      if (i >= 200) trips.push_back(seconds(Clock::now() - start) * 1e6);
    }
    auto redis = percentiles(trips);
    // Stream: publishes pipelined in batches, until the last has arrived.
    constexpr int kMessages = 1'000'000;
    auto start = Clock::now();
    std::string batch;
    for (int i = 1; i <= kMessages; ++i) {
      batch += RespClient::command({"PUBLISH", "bench", std::to_string(i)});
      if (i % 1000 == 0) {
        publisher.send(batch);
        batch.clear();
      }
    }
    subscriber.readUntil(std::string("$7\r\n").append(std::to_string(kMessages)).append("\r\n"));
    double rate = kMessages / seconds(Clock::now() - start);
    // Publish to receive crosses two connections and the server, as our
    // round trip crosses two connections and the peer: those are compared.
    std::printf(
        "redis       pub/sub over TCP: %.2f M messages/s, each delivered (ours reflects %.2f M writes/s by "
        "conflating: ratio %.2f)\n",
        rate / 1e6, ours.writesPerSecond / 1e6, ours.writesPerSecond / rate);
    std::printf(
        "redis       one message in flight, publish to receive: p50 %.1f us p99 %.1f us (our round trip: "
        "ratio p50 %.2f, p99 %.2f)\n",
        redis.p50, redis.p99, oursRoundTrip.p50 / redis.p50, oursRoundTrip.p99 / redis.p99);
  }
  ::kill(server, SIGTERM);
  ::waitpid(server, nullptr, 0);
}

}  // namespace

int main() {
  char pattern[] = "/tmp/zetbenchXXXXXX";
  std::string dir = ::mkdtemp(pattern);
  LoopbackFigures tls = tlsFiguresInChild(dir);
  std::string ownSocket = dir + "/bench.sock", peerSocket = dir + "/peer.sock";
  uint16_t ownPort = Test::freePort(), peerPort = Test::freePort();
  NboAttrLog::connectionDir()->listenDomainSockIs(String8(ownSocket));
  NboAttrLog::connectionDir()->listenPortIs(ownPort);
  Test::PeerProcess peer;
  peer("listen-sock " + peerSocket);
  peer("listen-port " + std::to_string(peerPort));
  std::string peerUnix = Test::domainSource(peerSocket, ""), peerTcp = Test::tcpSource(peerPort, "");
  std::string ownUnix = Test::domainSource(ownSocket, ""), ownTcp = Test::tcpSource(ownPort, "");

  Propagation viaUnix = propagation(peer, peerUnix, "unix");
  Propagation viaTcp = propagation(peer, peerTcp, "tcp");
  std::printf("propagate domain socket: %.2f M source writes/s reflected (%.0f updates applied for 2M writes)\n",
              viaUnix.writesPerSecond / 1e6, viaUnix.updatesApplied);
  std::printf("propagate TCP loopback:  %.2f M source writes/s reflected (%.0f updates applied for 2M writes)\n",
              viaTcp.writesPerSecond / 1e6, viaTcp.updatesApplied);
  Percentiles unixTrip = latency(peer, ownUnix, peerUnix, "unix");
  Percentiles tcpTrip = latency(peer, ownTcp, peerTcp, "tcp");
  std::printf("latency domain socket: round trip p50 %.1f us p99 %.1f us; one way (half) p50 %.1f us p99 %.1f us\n",
              unixTrip.p50, unixTrip.p99, unixTrip.p50 / 2, unixTrip.p99 / 2);
  std::printf("latency TCP loopback:  round trip p50 %.1f us p99 %.1f us; one way (half) p50 %.1f us p99 %.1f us\n",
              tcpTrip.p50, tcpTrip.p99, tcpTrip.p50 / 2, tcpTrip.p99 / 2);
  printTls(tls, viaTcp, tcpTrip);
  snapshot(peer, peerUnix);
  redisFigures(viaTcp, tcpTrip);
  NboAttrLog::connectionDir()->listenDomainSockIs("");
  return 0;
}
