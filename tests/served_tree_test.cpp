// Many peers subscribed to one entity of a serving process (attrlog_peer),
// each spoken to directly: every subscription gets the whole tree under its
// own number and every change, whoever else comes and goes, and the server
// keeps the tree once for all of them.

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "Zet/attrlog/AttrLogProtocol.h"
#include "Zet/attrlog/Socket.h"
#include "tests/peer/PeerProcess.h"
#include "tests/sanitized_build.h"

namespace Zet {
namespace {

using NboAttrLog::Kind;

// A frame as received, its texts copied.
struct Frame {
  Kind kind;
  uint32_t subscription;
  uint32_t id;
  uint32_t parent;
  std::string name;
  std::vector<std::string> attributes;
};

// A peer subscribed to one path, speaking the protocol itself.
class Subscriber {
 public:
  Subscriber(std::string const& socket, uint32_t subscription, std::string const& path)
      : fd_(::socket(AF_UNIX, SOCK_STREAM, 0)), subscription_(subscription) {
    sockaddr_un addr{};
    addr.sun_family = AF_UNIX;
    std::strcpy(addr.sun_path, socket.c_str());
    EXPECT_EQ(::connect(fd_.get(), reinterpret_cast<sockaddr*>(&addr), sizeof addr), 0);
    std::string frames;
    NboAttrLog::FrameWriter writer(frames);
    writer.hello();
    writer.subscribe(subscription, path);
    send(frames);
  }

  void unsubscribe() {
    std::string frames;
    NboAttrLog::FrameWriter(frames).unsubscribe(subscription_);
    send(frames);
  }

  // The frames received until one of `kind` came (or 10 s passed). Every
  // frame must carry this peer's subscription.
  std::vector<Frame> until(Kind kind) {
    std::vector<Frame> frames;
    for (int waits = 0; waits < 1000 && (frames.empty() || frames.back().kind != kind);) {
      if (decodeOne(frames)) continue;
      pollfd ready{fd_.get(), POLLIN, 0};
      if (::poll(&ready, 1, 10) == 1)
        receive();
      else
        ++waits;
    }
    for (Frame const& f : frames) EXPECT_EQ(f.subscription, subscription_);
    return frames;
  }

 private:
  void send(std::string const& frames) {
    ASSERT_EQ(::write(fd_.get(), frames.data(), frames.size()), ssize_t(frames.size()));
  }
  void receive() {
    char buffer[65536];
    ssize_t n = ::read(fd_.get(), buffer, sizeof buffer);
    if (n > 0) in_.append(buffer, size_t(n));
  }
  bool decodeOne(std::vector<Frame>& out) {
    NboAttrLog::Message m;
    size_t used = 0;
    std::string error;
    if (NboAttrLog::decodeFrame(in_, m, used, error) != NboAttrLog::Decoded::frame) return false;
    if (m.kind != Kind::hello) {
      Frame f{m.kind, m.subscription, m.id, m.parent, std::string(m.name), {}};
      for (auto const& a : m.attributes) f.attributes.emplace_back(a.text);
      out.push_back(std::move(f));
    }
    in_.erase(0, used);
    return true;
  }

  SocketFd fd_;
  uint32_t subscription_;
  std::string in_;
};

std::string socketPath() {
  char pattern[] = "/tmp/zetservedXXXXXX";
  return std::string(::mkdtemp(pattern)) + "/s.sock";
}

// The id of each entity of a snapshot, by name.
std::map<std::string, uint32_t> idsOf(std::vector<Frame> const& snapshot) {
  std::map<std::string, uint32_t> ids;
  for (Frame const& f : snapshot)
    if (f.kind == Kind::entity) ids[f.name] = f.id;
  return ids;
}

bool carries(Frame const& f, std::string const& value) {
  return std::find(f.attributes.begin(), f.attributes.end(), value) != f.attributes.end();
}

TEST(ServedTree, EverySubscriberOfOneEntityGetsTheTreeAndEachChangeWhoeverComesAndGoes) {
  ::Test::PeerProcess peer;
  std::string socket = socketPath();
  ASSERT_EQ(peer("listen-sock " + socket), "ok");
  ASSERT_EQ(peer("fill /fan 50"), "ok");

  Subscriber a(socket, 7, "/fan"), b(socket, 9, "/fan");
  auto snapshotA = a.until(Kind::snapshotEnd), snapshotB = b.until(Kind::snapshotEnd);
  ASSERT_EQ(snapshotA.size(), 52u) << "the directory, 50 gauges and the end";
  auto ids = idsOf(snapshotA);
  EXPECT_EQ(ids, idsOf(snapshotB));

  // A change reaches both, under each one's own subscription.
  ASSERT_EQ(peer("gauge /fan/g3 42"), "ok");
  for (Subscriber* s : {&a, &b}) {
    auto update = s->until(Kind::update);
    ASSERT_FALSE(update.empty());
    EXPECT_EQ(update.back().id, ids["g3"]);
    EXPECT_TRUE(carries(update.back(), "42"));
  }

  // One leaves; the other still gets what changes.
  a.unsubscribe();
  ASSERT_EQ(peer("gauge /fan/g3 43"), "ok");
  auto update = b.until(Kind::update);
  ASSERT_FALSE(update.empty());
  EXPECT_TRUE(carries(update.back(), "43"));

  // One who comes late gets the values of now, and then what changes.
  Subscriber c(socket, 11, "/fan");
  auto snapshotC = c.until(Kind::snapshotEnd);
  ASSERT_EQ(snapshotC.size(), 52u);
  auto g3 = std::find_if(snapshotC.begin(), snapshotC.end(), [](Frame const& f) { return f.name == "g3"; });
  ASSERT_NE(g3, snapshotC.end());
  EXPECT_TRUE(carries(*g3, "43"));
  ASSERT_EQ(peer("del /fan/g4"), "ok");
  for (Subscriber* s : {&b, &c}) {
    auto removed = s->until(Kind::remove);
    ASSERT_FALSE(removed.empty());
    EXPECT_EQ(removed.back().id, ids["g4"]);
  }

  // The entity goes: each is told; a subscription to what comes back at
  // the same path serves the new entity, not the old tree.
  ASSERT_EQ(peer("del /fan"), "ok");
  for (Subscriber* s : {&b, &c}) {
    auto removed = s->until(Kind::remove);
    ASSERT_FALSE(removed.empty());
    EXPECT_EQ(removed.back().id, ids["fan"]);
  }
  ASSERT_EQ(peer("fill /fan 3"), "ok");
  Subscriber d(socket, 13, "/fan");
  EXPECT_EQ(d.until(Kind::snapshotEnd).size(), 5u) << "the new directory, 3 gauges and the end";
}

TEST(ServedTree, TheServerKeepsATreeOnceHoweverManySubscribeToIt) {
  ::Test::PeerProcess peer;
  std::string socket = socketPath();
  ASSERT_EQ(peer("listen-sock " + socket), "ok");
  ASSERT_EQ(peer("fill /fan 2000"), "ok");
  auto rssKb = [&] {
    std::string u = peer("usage");
    return std::stol(u.substr(u.find("rss ") + 4));
  };
  Subscriber first(socket, 1, "/fan");
  first.until(Kind::snapshotEnd);
  [[maybe_unused]] long withOne = rssKb();
  std::vector<std::unique_ptr<Subscriber>> others;
  for (uint32_t i = 0; i < 100; ++i) {
    others.push_back(std::make_unique<Subscriber>(socket, i, "/fan"));
    ASSERT_EQ(others.back()->until(Kind::snapshotEnd).size(), 2002u);
  }
#ifndef ZET_SANITIZED_BUILD
  // A copy of the tree per subscriber would take about 60 MB here.
  EXPECT_LT(rssKb() - withOne, 8 * 1024) << "KiB for 100 more subscribers of 2001 entities";
#endif
}

}  // namespace
}  // namespace Zet
