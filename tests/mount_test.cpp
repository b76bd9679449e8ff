// Mounts between real processes: attrlog_peer serves its tree on real
// sockets, this process mounts from it through the mount facility, and every
// state and code of the mount status comes from a real cause.

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>

#include "Zet/Zet.h"
#include "Zet/attrlog/AttrLogProtocol.h"
#include "Zet/attrlog/Socket.h"
#include "tests/peer/Gauge.h"
#include "tests/peer/Loopback.h"
#include "tests/peer/PeerProcess.h"
#include "tests/sanitized_build.h"

namespace Zet {
namespace {

using Test::Gauge;
using Test::PeerProcess;

using Test::domainSource;
using Test::freePort;
using Test::tcpSource;

// A fresh directory for socket files, short enough for a socket path.
std::string socketDir() {
  char pattern[] = "/tmp/zetmountXXXXXX";
  return ::mkdtemp(pattern);
}

bool waitFor(std::function<bool()> const& done, double seconds = 10) {
  return ActivityFacility::loop().runUntil(done, seconds);
}

// For what happens in another process only: polls without running the loop.
bool eventually(std::function<bool()> const& done) {
  for (int tries = 0; tries < 1000; ++tries, ::usleep(10000))
    if (done()) return true;
  return false;
}

Ptr<MountConfig> mount(std::string const& name, std::string const& source0, std::string const& target,
                       std::string const& source1 = "") {
  auto config = MountFacility::mountConfigDir()->mountConfigIs(Name(String8(name)), EntityUri(String8(source0)),
                                                                EntityUri(String8(source1)));
  config->targetNameIs(EntityUriPath(String8(target)));
  return config;
}

Ptr<MountStatus> statusOf(std::string const& name) {
  return MountFacility::mountStatusDir()->mountStatus(Name(String8(name)));
}

bool reaches(std::string const& name, MountStatus::State state, double seconds = 10) {
  return waitFor([&] { return statusOf(name) && statusOf(name)->state() == state; }, seconds);
}

void unmount(std::string const& name) {
  MountFacility::mountConfigDir()->mountConfigDel(Name(String8(name)));
  ActivityFacility::loop().runUntilIdle();
}

Ptr<Gauge> gaugeAt(std::string const& path) { return ptr_cast<Gauge>(globalDir()->entityRef(std::string_view(path))); }

struct ValueLog : Gauge::NotifieeConst {
  std::vector<uint64_t> seen;
  void onValue() override { seen.push_back(notifier()->value()); }
};

TEST(Mount, OverTcpAndDomainSocketTheMirrorFollowsTheSource) {
  PeerProcess peer;
  uint16_t port = freePort();
  std::string socket = socketDir() + "/peer.sock";
  ASSERT_EQ(peer("listen-port " + std::to_string(port)), "ok");
  ASSERT_EQ(peer("listen-sock " + socket), "ok");
  ASSERT_EQ(peer("gauge /shared/load 7"), "ok");
  ASSERT_EQ(peer("gauge /shared/sub/deep 8"), "ok");

  // A host name is resolved off the loop.
  mount("overTcp", "tcp://localhost:" + std::to_string(port) + "/shared", "/mnt/tcp/shared");
  mount("overSocket", domainSource(socket, "/shared/load"), "/mnt/unix/load");
  ASSERT_TRUE(reaches("overTcp", MountStatus::complete));
  ASSERT_TRUE(reaches("overSocket", MountStatus::complete));

  EXPECT_EQ(statusOf("overTcp")->currentSource().text().view(), "tcp://localhost:" + std::to_string(port) + "/shared");
  EXPECT_EQ(statusOf("overTcp")->code(), MountStatus::ok);
  EXPECT_EQ(statusOf("overTcp")->mountedEntity(), globalDir()->entityRef("/mnt/tcp/shared"));
  EXPECT_EQ(gaugeAt("/mnt/tcp/shared/load")->value(), 7u);
  EXPECT_EQ(gaugeAt("/mnt/tcp/shared/sub/deep")->value(), 8u);
  Ptr<Gauge> overSocket = gaugeAt("/mnt/unix/load");
  ASSERT_TRUE(overSocket);
  EXPECT_EQ(statusOf("overSocket")->mountedEntity(), overSocket);

  // A change at the source fires the mirror's own notification.
  ValueLog log;
  log.notifierIs(overSocket);
  ASSERT_EQ(peer("gauge /shared/load 9"), "ok");
  ASSERT_TRUE(waitFor([&] { return !log.seen.empty(); }));
  EXPECT_EQ(log.seen, std::vector<uint64_t>{9});
  EXPECT_TRUE(waitFor([&] { return gaugeAt("/mnt/tcp/shared/load")->value() == 9; }));

  // Entities added and removed at the source come and go in the mirror.
  ASSERT_EQ(peer("gauge /shared/sub/fresh 1"), "ok");
  ASSERT_EQ(peer("del /shared/sub/deep"), "ok");
  EXPECT_TRUE(waitFor([&] { return gaugeAt("/mnt/tcp/shared/sub/fresh") && !gaugeAt("/mnt/tcp/shared/sub/deep"); }));

  // The mirror belongs to its source.
  EXPECT_THROW(overSocket->valueIs(1), PermissionException);
  EXPECT_THROW(ptr_cast<Dir>(globalDir()->entityRef("/mnt/tcp/shared"))->entryDel("load"), PermissionException);
  EXPECT_EQ(overSocket->value(), 9u);

  // A new round is a new snapshot into the same mirror entities.
  MountFacility::mountConfigDir()->mountConfig("overSocket")->nextRoundIs(3);
  EXPECT_TRUE(waitFor([&] { return statusOf("overSocket")->round() == 3; }));
  EXPECT_EQ(gaugeAt("/mnt/unix/load"), overSocket);

  // Unmounting removes or leaves the mirror, as the unmount type says; what
  // is left is an ordinary local entity again.
  MountFacility::mountConfigDir()->mountConfig("overTcp")->unmountTypeIs(MountConfig::stateRemoving);
  unmount("overTcp");
  unmount("overSocket");
  EXPECT_FALSE(globalDir()->entityRef("/mnt/tcp/shared"));
  EXPECT_NO_THROW(overSocket->valueIs(10));
}

TEST(Mount, AnEntityNotThereYetIsMountedWhenItAppears) {
  PeerProcess peer;
  uint16_t port = freePort();
  ASSERT_EQ(peer("listen-port " + std::to_string(port)), "ok");
  mount("later", tcpSource(port, "/later/gauge"), "/mnt/later");
  ASSERT_TRUE(reaches("later", MountStatus::failed));
  EXPECT_EQ(statusOf("later")->code(), MountStatus::entityNotFound);

  ASSERT_EQ(peer("gauge /later/gauge 5"), "ok");
  ASSERT_TRUE(reaches("later", MountStatus::complete));
  EXPECT_EQ(gaugeAt("/mnt/later")->value(), 5u);

  // And when it leaves the source, the mount fails the same way again.
  ASSERT_EQ(peer("del /later/gauge"), "ok");
  ASSERT_TRUE(reaches("later", MountStatus::failed));
  EXPECT_EQ(statusOf("later")->code(), MountStatus::entityNotFound);
  unmount("later");
}

TEST(Mount, ALostSourceIsDisconnectedAndTheBackupTakesOverAndBack) {
  uint16_t mainPort = freePort(), backupPort = freePort();
  auto main = std::make_unique<PeerProcess>();
  PeerProcess backup;
  ASSERT_EQ((*main)("listen-port " + std::to_string(mainPort)), "ok");
  ASSERT_EQ(backup("listen-port " + std::to_string(backupPort)), "ok");
  ASSERT_EQ((*main)("gauge /g 1"), "ok");
  ASSERT_EQ(backup("gauge /g 2"), "ok");
  std::string mainSource = tcpSource(mainPort, "/g"), backupSource = tcpSource(backupPort, "/g");

  // Without a backup the mirror stays, stale, or goes, as the unmount type says.
  mount("kept", mainSource, "/mnt/kept");
  auto removing = mount("removed", mainSource, "/mnt/removed");
  removing->unmountTypeIs(MountConfig::stateRemoving);
  auto failing = mount("failing", mainSource, "/mnt/failing", backupSource);
  ASSERT_TRUE(reaches("kept", MountStatus::complete) && reaches("removed", MountStatus::complete) &&
              reaches("failing", MountStatus::complete));
  EXPECT_EQ(statusOf("failing")->currentSource().text().view(), mainSource);

  main->kill();
  ASSERT_TRUE(reaches("kept", MountStatus::failed));
  EXPECT_EQ(statusOf("kept")->code(), MountStatus::disconnected);
  EXPECT_EQ(gaugeAt("/mnt/kept")->value(), 1u);
  ASSERT_TRUE(reaches("removed", MountStatus::failed));
  EXPECT_FALSE(globalDir()->entityRef("/mnt/removed"));
  EXPECT_FALSE(statusOf("removed")->mountedEntity());

  // The mount with a backup moves over to it...
  ASSERT_TRUE(waitFor([&] {
    return statusOf("failing")->state() == MountStatus::complete &&
           statusOf("failing")->currentSource().text().view() == backupSource;
  }));
  EXPECT_EQ(gaugeAt("/mnt/failing")->value(), 2u);

  // ...and back when the backup goes and the main source is there again.
  main = std::make_unique<PeerProcess>();
  ASSERT_EQ((*main)("listen-port " + std::to_string(mainPort)), "ok");
  ASSERT_EQ((*main)("gauge /g 3"), "ok");
  backup.kill();
  ASSERT_TRUE(waitFor([&] {
    return statusOf("failing")->state() == MountStatus::complete &&
           statusOf("failing")->currentSource().text().view() == mainSource;
  }));
  EXPECT_EQ(gaugeAt("/mnt/failing")->value(), 3u);
  // The mount without a backup comes back by itself, into its stale mirror.
  ASSERT_TRUE(reaches("kept", MountStatus::complete));
  EXPECT_EQ(gaugeAt("/mnt/kept")->value(), 3u);
  for (auto name : {"kept", "removed", "failing"}) unmount(name);
}

TEST(Mount, ASourceSplitIntoPrefixAndNameIsLookedForBelowEachPrefix) {
  uint16_t mainPort = freePort(), backupPort = freePort();
  PeerProcess main, backup;
  ASSERT_EQ(main("listen-port " + std::to_string(mainPort)), "ok");
  ASSERT_EQ(backup("listen-port " + std::to_string(backupPort)), "ok");
  ASSERT_EQ(main("gauge /shared/load 1"), "ok");
  ASSERT_EQ(backup("gauge /copy/load 2"), "ok");
  auto config = mount("split", tcpSource(mainPort, "/elsewhere"), "/mnt/split");
  config->sourcePre0Is(EntityUri(String8(tcpSource(mainPort, "/shared"))));
  config->sourcePre1Is(EntityUri(String8(tcpSource(backupPort, "/copy/"))));
  config->sourceNameIs(EntityUri(String8(tcpSource(mainPort, "/shared/load"))));
  ASSERT_TRUE(reaches("split", MountStatus::complete));
  EXPECT_EQ(statusOf("split")->currentSource().text().view(), tcpSource(mainPort, "/shared/load"));
  EXPECT_EQ(gaugeAt("/mnt/split")->value(), 1u);

  main.kill();
  ASSERT_TRUE(waitFor([&] {
    return statusOf("split")->state() == MountStatus::complete &&
           statusOf("split")->currentSource().text().view() == tcpSource(backupPort, "/copy/load");
  }));
  EXPECT_EQ(gaugeAt("/mnt/split")->value(), 2u);

  // A bare name is the path below each prefix; the new name is a new attempt.
  struct StateLog : MountStatus::NotifieeConst {
    std::vector<MountStatus::State> states;
    void onState() override { states.push_back(notifier()->state()); }
  } log;
  log.notifierIs(statusOf("split"));
  config->sourceNameIs(EntityUri(String8("load")));
  ASSERT_TRUE(waitFor([&] { return log.states.size() == 2; }));
  EXPECT_EQ(log.states, (std::vector<MountStatus::State>{MountStatus::inProgress, MountStatus::complete}));
  EXPECT_EQ(statusOf("split")->currentSource().text().view(), tcpSource(backupPort, "/copy/load"));
  unmount("split");
}

// A server made by hand: it accepts and then does what `answer` says.
struct HandMadeServer {
  explicit HandMadeServer(std::function<void(int)> answer) : onAccept(std::move(answer)) {
    listener = Test::boundLoopbackSocket(port, SOCK_NONBLOCK);
    ::listen(listener.get(), 8);
    ActivityFacility::loop().fdWatcherIs(listener.get(), ActivityLoop::kReadable, [this](unsigned) {
      int fd = ::accept(listener.get(), nullptr, nullptr);
      if (fd < 0) return;
      accepted.emplace_back(fd);
      onAccept(fd);
    });
  }
  ~HandMadeServer() { ActivityFacility::loop().fdWatcherDel(listener.get()); }
  SocketFd listener;
  uint16_t port = 0;
  std::vector<SocketFd> accepted;
  std::function<void(int)> onAccept;
};

TEST(Mount, ASourceThatNeverAnswersTimesOut) {
  HandMadeServer silent([](int) {});
  auto config = mount("silent", tcpSource(silent.port, "/x"), "/mnt/silent");
  config->initTimeoutPeriodIs(0.2);
  ASSERT_TRUE(reaches("silent", MountStatus::inProgress));
  ASSERT_TRUE(reaches("silent", MountStatus::failed));
  EXPECT_EQ(statusOf("silent")->code(), MountStatus::timedOut);
  unmount("silent");
}

TEST(Mount, AnotherProtocolVersionIsAnErrorAndGarbageEndsTheConnection) {
  HandMadeServer future([](int fd) {
    std::string hello("\0\0\0\x07\x01ZATL\0\x02", 11);
    EXPECT_EQ(::write(fd, hello.data(), hello.size()), 11);
  });
  mount("future", tcpSource(future.port, "/x"), "/mnt/future");
  ASSERT_TRUE(reaches("future", MountStatus::error));
  EXPECT_EQ(statusOf("future")->code(), MountStatus::protocolVersionMismatch);
  unmount("future");

  // Bytes that are not frames end that connection, with a trace line, and
  // the mount tries again; nothing else is touched.
  std::vector<std::string> lines;
  Trace::configIs("NboAttrLog/0");
  auto previous = Trace::sinkIs([&](std::string_view, int, std::string_view line) { lines.emplace_back(line); });
  HandMadeServer garbage([](int fd) { EXPECT_EQ(::write(fd, "HTTP/1.1 200 OK\r\n", 17), 17); });
  mount("garbage", tcpSource(garbage.port, "/x"), "/mnt/garbage");
  bool failed = reaches("garbage", MountStatus::failed);
  Trace::sinkIs(previous);
  Trace::configIs("");
  ASSERT_TRUE(failed);
  EXPECT_EQ(statusOf("garbage")->code(), MountStatus::disconnected);
  ASSERT_FALSE(lines.empty());
  EXPECT_EQ(lines[0].rfind("malformed frame from 127.0.0.1 port " + std::to_string(garbage.port) + ": frame size", 0), 0u)
      << lines[0];
  unmount("garbage");
}

TEST(Mount, APeerOfAnotherUserIsRefused) {
  PeerProcess peer({"ZET_ATTRLOG_PEER_UIDS=4000000"});
  std::string socket = socketDir() + "/strict.sock";
  ASSERT_EQ(peer("listen-sock " + socket), "ok");
  ASSERT_EQ(peer("gauge /g 1"), "ok");
  mount("refused", domainSource(socket, "/g"), "/mnt/refused");
  ASSERT_TRUE(reaches("refused", MountStatus::error));
  EXPECT_EQ(statusOf("refused")->code(), MountStatus::permissionDenied);
  EXPECT_FALSE(globalDir()->entityRef("/mnt/refused"));
  unmount("refused");

  // A server that refuses and closes before our greeting has gone out: the
  // greeting's write fails, and the refusal waiting in the socket is still
  // what the mount reports, at once, never a disconnection first.
  std::string early = socketDir() + "/early.sock";
  SocketFd listener = Socket::listenDomain(String8(early));
  struct StateLog : MountStatus::NotifieeConst {
    std::vector<MountStatus::State> seen;
    void onState() override { seen.push_back(notifier()->state()); }
  } log;
  mount("early", domainSource(early, "/g"), "/mnt/early");
  log.notifierIs(statusOf("early"));
  // Runs after the attempt has connected and before its greeting is sent.
  ActivityFacility::loop().deferredCallIs([&] {
    SocketFd peer(::accept(listener.get(), nullptr, nullptr));
    ASSERT_TRUE(peer.isOpen());
    std::string frame;
    NboAttrLog::FrameWriter(frame).refused("user 1000 may not mount from this process");
    ASSERT_EQ(::write(peer.get(), frame.data(), frame.size()), ssize_t(frame.size()));
  });
  ASSERT_TRUE(reaches("early", MountStatus::error));
  EXPECT_EQ(statusOf("early")->code(), MountStatus::permissionDenied);
  EXPECT_EQ(log.seen, (std::vector<MountStatus::State>{MountStatus::inProgress, MountStatus::error}));
  unmount("early");
}

TEST(Mount, ATypeThisProcessCannotMakeIsAnExceptionOrFailsItsGroup) {
  PeerProcess peer;
  uint16_t port = freePort();
  ASSERT_EQ(peer("listen-port " + std::to_string(port)), "ok");
  ASSERT_EQ(peer("secret /alone"), "ok");
  ASSERT_EQ(peer("gauge /group/known 1"), "ok");
  ASSERT_EQ(peer("secret /group/unknown"), "ok");
  mount("alone", tcpSource(port, "/alone"), "/mnt/alone");
  auto group = mount("group", tcpSource(port, "/group"), "/mnt/group");
  group->aggMountIs(true);
  ASSERT_TRUE(reaches("alone", MountStatus::error));
  EXPECT_EQ(statusOf("alone")->code(), MountStatus::exception);
  ASSERT_TRUE(reaches("group", MountStatus::error));
  EXPECT_EQ(statusOf("group")->code(), MountStatus::groupCode);
  unmount("alone");
  unmount("group");
}

// A client connection to a domain socket, made without the loop.
SocketFd connectedTo(std::string const& socket) {
  SocketFd fd(::socket(AF_UNIX, SOCK_STREAM, 0));
  sockaddr_un addr{};
  addr.sun_family = AF_UNIX;
  std::strcpy(addr.sun_path, socket.c_str());
  EXPECT_EQ(::connect(fd.get(), reinterpret_cast<sockaddr*>(&addr), sizeof addr), 0);
  return fd;
}

TEST(Mount, ASlowPeerCostsTheServerNoMoreThanItsBound) {
  PeerProcess peer({"ZET_ATTRLOG_MAX_PENDING=262144"});
  std::string socket = socketDir() + "/slow.sock";
  ASSERT_EQ(peer("listen-sock " + socket), "ok");
  ASSERT_EQ(peer("fill /slow 100"), "ok");

  // A reader that subscribes and then never reads.
  SocketFd reader = connectedTo(socket);
  std::string frames;
  NboAttrLog::FrameWriter writer(frames);
  writer.hello();
  writer.subscribe(1, "/slow");
  ASSERT_EQ(::write(reader.get(), frames.data(), frames.size()), ssize_t(frames.size()));

  // Two million writes to one entity are conflated: the peer stays.
  ASSERT_EQ(peer("spin /slow/g1 2000000"), "ok");
  ASSERT_EQ(peer("figures").rfind("sessions 1 ", 0), 0u);
  auto pending = [&] { return std::stoul(peer("figures").substr(peer("figures").find("pending ") + 8)); };
  EXPECT_LE(pending(), 262144u + 256 * 1024);

  // Entities coming and going cannot be conflated: past the bound the peer
  // is let go.
  ASSERT_EQ(peer("churn /slow 100000"), "ok");
  EXPECT_EQ(peer("figures"), "sessions 0 pending 0");
}

// Subscribes `count` times to path over fd and reads until every snapshot
// is in; false when the server closed the connection first.
bool subscribeAndRead(int fd, uint32_t& lastSubscription, int count, std::string const& path) {
  std::string frames;
  NboAttrLog::FrameWriter writer(frames);
  for (int i = 0; i < count; ++i) writer.subscribe(++lastSubscription, path);
  if (::write(fd, frames.data(), frames.size()) != ssize_t(frames.size())) return false;
  std::string in;
  for (int ends = 0; ends < count;) {
    char buffer[65536];
    ssize_t n = ::read(fd, buffer, sizeof buffer);
    if (n <= 0) return false;
    in.append(buffer, size_t(n));
    NboAttrLog::Message m;
    size_t used = 0, at = 0;
    std::string error;
    while (NboAttrLog::decodeFrame(std::string_view(in).substr(at), m, used, error) == NboAttrLog::Decoded::frame) {
      at += used;
      if (m.kind == NboAttrLog::Kind::snapshotEnd) ++ends;
    }
    in.erase(0, at);
  }
  return true;
}

TEST(Mount, APeerThatSubscribesOverAndOverIsDisconnectedAtItsBound) {
  PeerProcess peer({"ZET_ATTRLOG_MAX_WATCHED=5000"});
  std::string socket = socketDir() + "/paced.sock";
  ASSERT_EQ(peer("listen-sock " + socket), "ok");
  ASSERT_EQ(peer("fill /paced 760"), "ok");
  SocketFd client = connectedTo(socket);
  std::string hello;
  NboAttrLog::FrameWriter(hello).hello();
  ASSERT_EQ(::write(client.get(), hello.data(), hello.size()), ssize_t(hello.size()));
  // Each snapshot read at once: the bytes waiting never reach their bound,
  // but what the subscriptions keep does, at 761 entities each.
  uint32_t subscriptions = 0;
  int rounds = 0;
  while (rounds < 10 && subscribeAndRead(client.get(), subscriptions, 2, "/paced")) ++rounds;
  EXPECT_EQ(rounds, 3) << "6 subscriptions watch 4566 entities; the 7th and 8th pass 5000";
  EXPECT_TRUE(eventually([&] { return peer("figures") == "sessions 0 pending 0"; }));
}

// The tools' control socket mounts whole trees: what its peers watch is not
// bounded, and the bytes that may wait for them are counted beside the
// snapshots their subscriptions were sent. The export's socket keeps both
// bounds.
TEST(Mount, TheToolsSocketServesWholeTreesAndBoundsWhatWaitsBesideThem) {
  PeerProcess peer({"ZET_ATTRLOG_MAX_PENDING=16384", "ZET_ATTRLOG_MAX_WATCHED=1500"});
  std::string exported = socketDir() + "/exported.sock", control = socketDir() + "/control.sock";
  ASSERT_EQ(peer("listen-sock " + exported), "ok");
  ASSERT_EQ(peer("control-sock " + control), "ok");
  ASSERT_EQ(peer("fill /big 1000"), "ok");
  std::string hello;
  NboAttrLog::FrameWriter(hello).hello();
  auto greeted = [&](std::string const& socket) {
    SocketFd fd = connectedTo(socket);
    EXPECT_EQ(::write(fd.get(), hello.data(), hello.size()), ssize_t(hello.size()));
    return fd;
  };
  uint32_t subscriptions = 0;
  SocketFd viaExport = greeted(exported);
  EXPECT_FALSE(subscribeAndRead(viaExport.get(), subscriptions, 1, "/big")) << "1001 entities, past 16384 bytes";
  SocketFd viaControl = greeted(control);
  EXPECT_TRUE(subscribeAndRead(viaControl.get(), subscriptions, 3, "/big")) << "3003 entities";
  // A new round before the last one ends, as a mount asks for one.
  std::string frames;
  NboAttrLog::FrameWriter(frames).unsubscribe(subscriptions);
  EXPECT_TRUE(subscribeAndRead(viaControl.get(), subscriptions, 1, "/big"));
  ASSERT_EQ(::write(viaControl.get(), frames.data(), frames.size()), ssize_t(frames.size()));
  ASSERT_EQ(peer("gauge /big/added 1"), "ok");
  EXPECT_TRUE(eventually([&] { return peer("figures") == "sessions 1 pending 0"; })) << peer("figures");

  // A tool that subscribes and ends the subscription over and over, never
  // reading, is let go: the snapshot of a subscription that ended counts.
  SocketFd churner = greeted(control);
  frames.clear();
  NboAttrLog::FrameWriter writer(frames);
  for (uint32_t s = 1; s <= 100; ++s) {
    writer.subscribe(s, "/big");
    writer.unsubscribe(s);
  }
  ASSERT_EQ(::send(churner.get(), frames.data(), frames.size(), MSG_NOSIGNAL), ssize_t(frames.size()));
  EXPECT_TRUE(eventually([&] { return peer("figures") == "sessions 1 pending 0"; })) << peer("figures");
}

TEST(Mount, IdlePeersCostNoReadBufferAndPartialFramesHaveABoundForAll) {
  PeerProcess peer({"ZET_ATTRLOG_MAX_INPUT=100000"});
  std::string socket = socketDir() + "/idle.sock";
  ASSERT_EQ(peer("listen-sock " + socket), "ok");
  auto rssKb = [&] { std::string u = peer("usage"); return std::stol(u.substr(u.find("rss ") + 4)); };
  long start = rssKb();
  std::vector<SocketFd> clients;
  for (int i = 0; i < 500; ++i) {
    clients.push_back(connectedTo(socket));
    ASSERT_EQ(::write(clients.back().get(), "\0", 1), 1);
  }
  ASSERT_TRUE(eventually([&] { return peer("figures") == "sessions 500 pending 0"; }));
  EXPECT_LT(rssKb() - start, 8 * 1024) << "KiB for 500 peers that each sent a byte";
  clients.clear();
  ASSERT_TRUE(eventually([&] { return peer("figures") == "sessions 0 pending 0"; }));

  // Partial frames of 80,000 bytes: the first peer's is held, the second's
  // would take all peers past 100,000 bytes and ends that peer.
  std::string partial("\0\x01\x38\x80\x06", 5);
  partial.resize(80000, 'x');
  SocketFd first = connectedTo(socket), second = connectedTo(socket);
  for (int fd : {first.get(), second.get()}) ASSERT_EQ(::write(fd, partial.data(), partial.size()), 80000);
  pollfd ended{second.get(), POLLIN, 0};
  char buffer[64];
  ssize_t n = 1;
  while (n > 0 && ::poll(&ended, 1, 5000) == 1) n = ::read(second.get(), buffer, sizeof buffer);
  EXPECT_EQ(n, 0) << "the second peer is disconnected";
  EXPECT_EQ(peer("figures"), "sessions 1 pending 0");
}

TEST(Mount, AServerOutOfDescriptorsRestsUntilOneIsFree) {
#ifdef ZET_SANITIZED_BUILD
  // The sanitizers' checks of a virtual call need a descriptor of their own
  // (they probe memory through a pipe) and fail when none is left.
  GTEST_SKIP() << "a process out of descriptors cannot be checked by the sanitizers";
#endif
  PeerProcess peer;
  std::string socket = socketDir() + "/full.sock";
  ASSERT_EQ(peer("listen-sock " + socket), "ok");
  ASSERT_EQ(peer("max-files 48"), "ok");
  std::vector<SocketFd> clients;
  for (int i = 0; i < 80; ++i) clients.push_back(connectedTo(socket));
  auto cpuMs = [&] { return std::stol(peer("usage").substr(4)); };
  ::usleep(200000);
  long before = cpuMs();
  ::usleep(1000000);
  EXPECT_LT(cpuMs() - before, 200) << "ms of CPU in one second while peers wait for a descriptor";

  // Peers that leave free descriptors, and those that waited are greeted.
  clients.erase(clients.begin(), clients.begin() + 40);
  pollfd last{clients.back().get(), POLLIN, 0};
  EXPECT_EQ(::poll(&last, 1, 5000), 1) << "the last peer to connect is served";
}

TEST(Mount, AWatcherMayEndTheMountThatFeedsIt) {
  PeerProcess peer;
  uint16_t port = freePort();
  ASSERT_EQ(peer("listen-port " + std::to_string(port)), "ok");
  ASSERT_EQ(peer("gauge /watched/g 1"), "ok");
  // The watcher removes the mount config when the value changes, in the
  // middle of the frames that bring the change.
  struct Ender : Gauge::NotifieeConst {
    std::string mountName;
    void onValue() override { MountFacility::mountConfigDir()->mountConfigDel(Name(String8(mountName))); }
  };
  for (auto type : {MountConfig::statePreserving, MountConfig::stateRemoving}) {
    std::string name = type == MountConfig::stateRemoving ? "endRemoving" : "endPreserving";
    mount(name, tcpSource(port, "/watched"), "/mnt/" + name)->unmountTypeIs(type);
    ASSERT_TRUE(reaches(name, MountStatus::complete));
    Ender ender;
    ender.mountName = name;
    ender.notifierIs(gaugeAt("/mnt/" + name + "/g"));
    ASSERT_EQ(peer("gauge /watched/g " + std::to_string(10 + type)), "ok");
    ASSERT_TRUE(waitFor([&] { return !statusOf(name); }));
    ActivityFacility::loop().runUntilIdle();
    EXPECT_EQ(bool(globalDir()->entityRef(std::string_view("/mnt/" + name))), type == MountConfig::statePreserving);
  }

  // A chain of directories far deeper than any stack is served, mirrored and
  // taken away again.
  ASSERT_EQ(peer("chain /deep 100000"), "ok");
  mount("deep", tcpSource(port, "/deep"), "/mnt/deep")->unmountTypeIs(MountConfig::stateRemoving);
  ASSERT_TRUE(reaches("deep", MountStatus::complete, 60));
  unmount("deep");
  EXPECT_FALSE(globalDir()->entityRef("/mnt/deep"));
}

TEST(Mount, AThousandMountsShareOneConnection) {
  PeerProcess peer;
  uint16_t port = freePort();
  ASSERT_EQ(peer("listen-port " + std::to_string(port)), "ok");
  ASSERT_EQ(peer("fill /many 1000"), "ok");
  for (int i = 0; i < 1000; ++i)
    mount("many" + std::to_string(i), tcpSource(port, "/many/g" + std::to_string(i)), "/mnt/many/g" + std::to_string(i));
  ASSERT_TRUE(waitFor([] {
    for (int i = 0; i < 1000; ++i)
      if (statusOf("many" + std::to_string(i))->state() != MountStatus::complete) return false;
    return true;
  }));
  EXPECT_EQ(gaugeAt("/mnt/many/g999")->value(), 999u);
  EXPECT_EQ(peer("figures").rfind("sessions 1 ", 0), 0u);
  for (int i = 0; i < 1000; ++i) unmount("many" + std::to_string(i));
  EXPECT_TRUE(eventually([&] { return peer("figures").rfind("sessions 0 ", 0) == 0; }));
}

TEST(Mount, ListenersReportWhatStopsThemAndNeverStealALiveSocket) {
  PeerProcess peer;
  std::string socket = socketDir() + "/taken.sock";
  ASSERT_EQ(peer("listen-sock " + socket), "ok");
  Ptr<NboAttrLog::ConnectionDir> connections = NboAttrLog::connectionDir();
  auto refusal = [&](std::function<void()> const& set) -> std::string {
    try {
      set();
    } catch (ListenException const& e) {
      return std::string(e.text().view());
    }
    return "no exception";
  };
  EXPECT_EQ(refusal([&] { connections->listenDomainSockIs(String8(socket)); }),
            "cannot listen on domain socket '" + socket + "': another process is listening there");
  EXPECT_EQ(refusal([&] { connections->listenDomainSockIs("/nonexistent-dir/x.sock"); }),
            "cannot listen on domain socket '/nonexistent-dir/x.sock': No such file or directory");
  EXPECT_EQ(connections->listenDomainSock(), "") << "only an open listener is recorded";

  // A port another process holds: the refusal leaves the listener that was
  // open, and its value, as they were.
  uint16_t port = freePort(), taken = freePort();
  ASSERT_EQ(peer("listen-port " + std::to_string(taken)), "ok");
  connections->listenPortIs(port);
  EXPECT_EQ(refusal([&] { connections->listenPortIs(taken); }),
            "cannot listen on TCP port " + std::to_string(taken) + " at 127.0.0.1: Address already in use");
  EXPECT_EQ(connections->listenPort(), port);
  globalDir()->dirIs("still")->entityIs("g", "Test::Gauge");
  mount("still", tcpSource(port, "/still"), "/mnt/still");
  ASSERT_TRUE(reaches("still", MountStatus::complete));
  unmount("still");
  connections->listenPortIs(0);

  // A file left by a listener that died is taken over, owner-only, and
  // removed when the listener closes; this process then mounts from itself.
  peer.kill();
  NboAttrLog::connectionDir()->listenDomainSockIs(String8(socket));
  struct stat st;
  ASSERT_EQ(::stat(socket.c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0600u);
  globalDir()->dirIs("home")->entityIs("g", "Test::Gauge");
  mount("self", domainSource(socket, "/home"), "/home/copy");
  ASSERT_TRUE(reaches("self", MountStatus::complete));
  // The mirror is inside what it mirrors; it is not served back to itself.
  ActivityFacility::loop().runUntil([] { return false; }, 0.1);
  EXPECT_TRUE(gaugeAt("/home/copy/g"));
  EXPECT_FALSE(globalDir()->entityRef("/home/copy/copy"));
  unmount("self");
  NboAttrLog::connectionDir()->listenDomainSockIs("");
  EXPECT_NE(::access(socket.c_str(), F_OK), 0);

  // A file someone else put at the path since is theirs: closing leaves it.
  NboAttrLog::connectionDir()->listenDomainSockIs(String8(socket));
  ASSERT_EQ(::unlink(socket.c_str()), 0);
  SocketFd foreign = Socket::listenDomain(String8(socket));
  NboAttrLog::connectionDir()->listenDomainSockIs("");
  EXPECT_EQ(::access(socket.c_str(), F_OK), 0);
}

}  // namespace
}  // namespace Zet
