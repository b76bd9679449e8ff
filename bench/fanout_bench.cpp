// Many peers mounting one tree: an attrlog_peer process serves a directory
// of 10,000 gauges over TCP loopback, and this process opens 1, 100 and
// 1,000 connections that each subscribe to it, speaking the protocol
// directly (a full mount per connection would measure this process, not
// the server). Each count gets a server of its own, and reports:
//   first               what the server's resident memory grew by for the
//                       first connection, once its snapshot was sent
//   each further        what it grew by for the others, per connection
//   propagation         one write at the server until every connection
//                       has its update, median of 20 writes
// Run from the build tree: build/release/bench/fanout_bench

#include <poll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "Zet/attrlog/AttrLogProtocol.h"
#include "tests/peer/Loopback.h"
#include "tests/peer/PeerProcess.h"

namespace {

using namespace Zet::NboAttrLog;
using Clock = std::chrono::steady_clock;

constexpr int kEntities = 10000;
constexpr int kWrites = 20;

// One subscribing connection: reads frames and counts what it waits for.
struct Subscriber {
  Zet::SocketFd fd;
  std::string received;
  bool snapshotDone = false;
  size_t updates = 0;
  bool closed = false;

  // Reads what is there; false when the connection closed.
  bool readSome() {
    char buffer[1 << 16];
    for (;;) {
      ssize_t n = ::recv(fd.get(), buffer, sizeof buffer, MSG_DONTWAIT);
      if (n > 0) {
        received.append(buffer, size_t(n));
        continue;
      }
      if (n == 0 || (errno != EAGAIN && errno != EWOULDBLOCK && errno != EINTR)) closed = true;
      break;
    }
    Message message;
    size_t used = 0, at = 0;
    std::string error;
    while (decodeFrame(std::string_view(received).substr(at), message, used, error) == Decoded::frame) {
      at += used;
      snapshotDone = snapshotDone || message.kind == Kind::snapshotEnd;
      updates += message.kind == Kind::update;
    }
    received.erase(0, at);
    return !closed;
  }
};

Zet::SocketFd subscribe(uint16_t port) {
  Zet::SocketFd fd(::socket(AF_INET, SOCK_STREAM, 0));
  sockaddr_in addr{};
  addr.sin_family = AF_INET;
  addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  addr.sin_port = htons(port);
  if (::connect(fd.get(), reinterpret_cast<sockaddr*>(&addr), sizeof addr) != 0) std::abort();
  std::string frames;
  FrameWriter writer(frames);
  writer.hello();
  writer.subscribe(1, "/fan");
  if (::send(fd.get(), frames.data(), frames.size(), MSG_NOSIGNAL) != ssize_t(frames.size())) std::abort();
  return fd;
}

// Reads from every subscriber until done() holds; false after 120 s.
template <class Done>
bool readUntil(std::vector<Subscriber>& subscribers, Done done) {
  auto deadline = Clock::now() + std::chrono::seconds(120);
  std::vector<pollfd> fds;
  while (!done()) {
    if (Clock::now() > deadline) return false;
    fds.clear();
    for (auto& s : subscribers)
      if (s.fd.isOpen() && !s.closed) fds.push_back({s.fd.get(), POLLIN, 0});
    if (fds.empty()) return false;
    ::poll(fds.data(), fds.size(), 100);
    for (auto& s : subscribers)
      if (s.fd.isOpen()) s.readSome();
  }
  return true;
}

long residentKb(Test::PeerProcess& peer) {
  std::string usage = peer("usage");  // "cpu MS rss KB"
  size_t at = usage.find("rss ");
  return at == std::string::npos ? 0 : std::atol(usage.c_str() + at + 4);
}

template <class Each>
bool allOf(std::vector<Subscriber> const& subscribers, Each each) {
  return std::all_of(subscribers.begin(), subscribers.end(), each);
}

void measure(uint16_t port, int connections) {
  // Every connection may have the whole snapshot waiting at once.
  Test::PeerProcess peer({"ZET_ATTRLOG_MAX_PENDING=67108864"});
  peer("max-files 4096");
  peer("listen-port " + std::to_string(port));
  peer("fill /fan " + std::to_string(kEntities));
  long before = residentKb(peer);
  std::vector<Subscriber> subscribers(static_cast<size_t>(connections));
  auto snapshotsIn = [&] {
    return allOf(subscribers, [](Subscriber const& s) { return s.snapshotDone || !s.fd.isOpen(); });
  };
  subscribers[0].fd = subscribe(port);
  bool complete = readUntil(subscribers, snapshotsIn);
  long first = residentKb(peer);
  for (auto& s : subscribers)
    if (!s.fd.isOpen()) s.fd = subscribe(port);
  if (!complete || !readUntil(subscribers, snapshotsIn)) {
    std::printf("%5d connections: the snapshots did not all arrive\n", connections);
    return;
  }
  long all = residentKb(peer);
  std::vector<double> micros;
  for (int w = 1; w <= kWrites; ++w) {
    for (auto& s : subscribers) s.updates = 0;
    auto start = Clock::now();
    peer("gauge /fan/g0 " + std::to_string(w));
    if (!readUntil(subscribers, [&] { return allOf(subscribers, [](Subscriber const& s) { return s.updates > 0; }); }))
      break;
    micros.push_back(std::chrono::duration<double, std::micro>(Clock::now() - start).count());
  }
  std::sort(micros.begin(), micros.end());
  double median = micros.empty() ? 0 : micros[micros.size() / 2];
  std::printf("%5d connections: first %6.0f kB, each further %8.0f bytes; one write reaches all in %6.0f us\n",
              connections, double(first - before),
              connections > 1 ? double(all - first) * 1024 / (connections - 1) : 0.0, median);
}

}  // namespace

int main() {
  rlimit files{};
  ::getrlimit(RLIMIT_NOFILE, &files);
  files.rlim_cur = std::min<rlim_t>(files.rlim_max, 4096);
  ::setrlimit(RLIMIT_NOFILE, &files);
  std::printf("a tree of %d gauges served over TCP loopback\n", kEntities);
  for (int connections : {1, 100, 1000}) measure(Test::freePort(), connections);
}
