// Entries that export and entries that mount: the status of a mount entry
// follows the framework's mount status, written by hand (the facility's
// machinery off) and by real mounts from a serving process; export entries
// make the process listen where their target says.

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <cstring>

#include "tests/agent_env_support.h"
#include "tests/peer/Loopback.h"
#include "tests/peer/PeerProcess.h"

namespace Zet::testing {
namespace {

using St = AgentEnvStatus;

class AgentEnvMountTest : public AgentEnvFixture {
 protected:
  static Ptr<MountConfig> mountConfig(std::string const& name) {
    return MountFacility::mountConfigDir()->mountConfig(Name(name));
  }
  static Ptr<MountStatus> mountStatus(std::string const& name) {
    return MountFacility::mountStatusDir()->mountStatus(Name(name));
  }
};

// Plays the facility's part: the machinery is off for the scope.
struct HandDrivenMounts {
  HandDrivenMounts() { MountFacility::machineryActiveIs(false); }
  ~HandDrivenMounts() { MountFacility::machineryActiveIs(true); }
};

TEST_F(AgentEnvMountTest, TheStatusFollowsEveryStateAndCodeOfTheMount) {
  HandDrivenMounts hand;
  TraceCapture traces;
  std::string source0 = "tcp://db:4000/agents/store", source1 = "tcp://backup:4000/agents/store";
  entry("store", {.source0 = source0, .source1 = source1, .target = path("remote/store")});
  configs->agentEnvConfig(Name("store"))->timeoutPeriodIs(2.5);
  EXPECT_EQ(sm("store")->mode(), AgentEnvSm::mount);
  EXPECT_TRUE(traces.has("2 store: Trying to mount."));
  EXPECT_TRUE(traces.has("2 store: Calling mountConfigIs(\"store\",\n\t\"" + source0 + "\",\n\t\"" + source1 + "\")"));
  Ptr<MountConfig> mc = mountConfig("store");
  ASSERT_TRUE(mc);
  EXPECT_EQ(mc->sourcePre0().text().view(), source0);
  EXPECT_EQ(mc->sourcePre1().text().view(), source1);
  EXPECT_EQ(mc->sourceName().text().view(), source0);
  EXPECT_EQ(mc->targetName().text().view(), path("remote/store"));
  EXPECT_EQ(mc->initTimeoutPeriod(), 2.5);
  EXPECT_FALSE(mc->aggMount());
  EXPECT_EQ(individual("store"), St::notApplicable);

  Ptr<MountStatus> ms = mountStatus("store");
  ms->currentSourceIs(EntityUri(String8(source0)));
  ms->stateIs(MountStatus::inProgress);
  settle();
  EXPECT_EQ(individual("store"), St::inProgress);
  EXPECT_EQ(status("store")->currentSource().text().view(), source0);
  EXPECT_TRUE(traces.has("2 store: Got source from MountStatus \"" + source0 + "\""));

  Ptr<Entity> mirror = globalDir()->dirIs("mirrors")->dirIs("store");
  ms->mountedEntityIs(mirror);
  ms->roundIs(4);
  ms->stateIs(MountStatus::complete);
  settle();
  EXPECT_EQ(individual("store"), St::initialized);
  EXPECT_EQ(status("store")->entity(), mirror);
  EXPECT_EQ(status("store")->round(), 4u);

  // Failures and errors by the facility's code; 3 and 5 are not swapped.
  struct Case {
    MountStatus::State state;
    unsigned code;
    St::StatusCode expected;
    St::Status individual;
  };
  for (Case c : {Case{MountStatus::failed, 3, St::disconnected, St::fail},
                 Case{MountStatus::failed, 4, St::timedOut, St::fail},
                 Case{MountStatus::failed, 1, St::mountEntityNotFound, St::fail},
                 Case{MountStatus::error, 5, St::mountProtocolVersionMismatch, St::error},
                 Case{MountStatus::error, 6, St::mountPermissionDenied, St::error},
                 Case{MountStatus::error, 2, St::mountException, St::error},
                 Case{MountStatus::error, 7, St::mountGroupCode, St::error}}) {
    ms->codeIs(static_cast<MountStatus::Code>(c.code));
    ms->stateIs(c.state);
    settle();
    EXPECT_EQ(code("store"), c.expected) << c.code;
    EXPECT_EQ(individual("store"), c.individual) << c.code;
    ms->stateIs(MountStatus::inProgress);
    settle();
  }
  EXPECT_TRUE(traces.has("0 store: Fail: Mount failure"));
  EXPECT_TRUE(traces.has("0 store: Error: Mount error"));
  ms->codeIs(MountStatus::disconnected);
  ms->stateIs(MountStatus::failed);
  settle();
  EXPECT_EQ(message("store"), "disconnected");
  ms->codeIs(MountStatus::entityNotFound);
  settle();
  EXPECT_EQ(message("store"), "entity not found on server: " + source0);

  ms->codeIs(static_cast<MountStatus::Code>(8));
  settle();
  EXPECT_TRUE(traces.has("0 store: Got bad mount status code 8"));
  EXPECT_EQ(code("store"), St::none);

  // The round asked for reaches the mount; deleting the entry ends the mount.
  configs->agentEnvConfig(Name("store"))->nextRoundIs(5);
  EXPECT_EQ(mc->nextRound(), 5u);
  configs->agentEnvConfigDel(Name("store"));
  EXPECT_TRUE(traces.has("2 store: Deleting mountConfig"));
  EXPECT_FALSE(mountConfig("store"));
}

TEST_F(AgentEnvMountTest, MembersAreDeliveredByTheirAggregatesMount) {
  HandDrivenMounts hand;
  entry("agg", {.source0 = "tcp://db:4000/agg", .target = path("agg"), .dependency = "_NOT READY_"});
  entry("one", {.pathSuffix = "/one", .aggConfig = "agg"});
  // A suffix is a path below the aggregate's source, with or without its '/'.
  entry("two", {.pathSuffix = "two", .aggConfig = "agg"});
  configs->agentEnvConfig(Name("agg"))->dependencyIs(Name(""));
  settle();
  Ptr<MountConfig> mc = mountConfig("agg");
  ASSERT_TRUE(mc);
  EXPECT_TRUE(mc->aggMount());
  EXPECT_FALSE(mountConfig("one"));
  EXPECT_EQ(sm("one")->mode(), AgentEnvSm::mount);

  // The aggregate's mount brings "one" but not "two".
  Ptr<MountStatus> ms = mountStatus("agg");
  Ptr<Dir> mirror = globalDir()->dirIs(Name(String8(root.substr(1))))->dirIs("agg");
  mirror->dirIs("one");
  ms->currentSourceIs(EntityUri(String8("tcp://db:4000/agg")));
  ms->mountedEntityIs(mirror);
  ms->stateIs(MountStatus::complete);
  settle();
  EXPECT_EQ(individual("agg"), St::initialized);
  EXPECT_EQ(individual("one"), St::initialized);
  EXPECT_EQ(status("one")->entity(), at(path("agg/one")));
  EXPECT_EQ(status("one")->currentSource().text(), "tcp://db:4000/agg/one");
  EXPECT_EQ(individual("two"), St::fail);
  EXPECT_EQ(code("two"), St::mountEntityNotFound);
  EXPECT_EQ(message("two"), "entity not found on server: tcp://db:4000/agg/two");
  EXPECT_EQ(group("agg"), St::fail);

  // When the aggregate's mount fails, its members fail with it.
  ms->codeIs(MountStatus::disconnected);
  ms->stateIs(MountStatus::failed);
  settle();
  EXPECT_EQ(code("one"), St::disconnected);
  EXPECT_EQ(individual("one"), St::fail);
}

TEST_F(AgentEnvMountTest, ARealMountFromAnotherProcess) {
  ::Test::PeerProcess peer;
  uint16_t port = ::Test::freePort();
  ASSERT_EQ(peer("listen-port " + std::to_string(port)), "ok");
  ASSERT_EQ(peer("gauge /shared/load 3"), "ok");
  entry("load", {.source0 = ::Test::tcpSource(port, "/shared/load"), .target = path("remote/load")});
  ASSERT_TRUE(ActivityFacility::loop().runUntil([&] { return individual("load") == St::initialized; }, 10));
  EXPECT_EQ(status("load")->entity(), at(path("remote/load")));
  EXPECT_EQ(status("load")->entity()->fwkType().name, "Test::Gauge");

  // Removed (statePreserving) and added back, as a reload and its rollback
  // do: the mirror left in place is taken over again, the same entity.
  Ptr<Entity> mirror = at(path("remote/load"));
  configs->agentEnvConfigDel(Name("load"));
  settle();
  EXPECT_EQ(at(path("remote/load")), mirror);
  EXPECT_FALSE(mirror->isMirror());
  entry("load", {.source0 = ::Test::tcpSource(port, "/shared/load"), .target = path("remote/load")});
  ASSERT_TRUE(ActivityFacility::loop().runUntil([&] { return individual("load") != St::notApplicable && individual("load") != St::inProgress; }, 10));
  EXPECT_EQ(individual("load"), St::initialized) << stringValue(code("load"));
  EXPECT_EQ(status("load")->entity(), mirror);
  EXPECT_TRUE(mirror->isMirror());

  peer.kill();
  ASSERT_TRUE(ActivityFacility::loop().runUntil([&] { return individual("load") == St::fail; }, 10));
  EXPECT_EQ(code("load"), St::disconnected);
  EXPECT_NE(status("load")->reason().view().find("127.0.0.1 port " + std::to_string(port)), std::string::npos)
      << status("load")->reason();

  // Each cause of a failed mount reaches the entry in words.
  entry("nowhere", {.source0 = "unix://%2Fnonexistent%2Fs.sock/x", .target = path("remote/nowhere")});
  ASSERT_TRUE(ActivityFacility::loop().runUntil([&] { return individual("nowhere") == St::fail; }, 10));
  EXPECT_EQ(status("nowhere")->reason(),
            "cannot connect to domain socket '/nonexistent/s.sock': No such file or directory");
}

TEST_F(AgentEnvMountTest, StatusAndConfigDirectoriesAreMountedMemberByMember) {
  char dir[] = "/tmp/zetstatusXXXXXX";
  std::string socket = std::string(::mkdtemp(dir)) + "/agent.sock";
  Ptr<Dir> served = globalDir()->dirIs(Name(String8(root.substr(1))))->dirIs("served");
  served->entryIs("statuses", statuses);
  served->entryIs("configs", configs);
  NboAttrLog::connectionDir()->listenDomainSockIs(String8(socket));
  entry("local", {.target = path("local"), .typeName = "Zet::Dir"});
  entry("waiting", {.target = path("waiting"), .typeName = "Zet::Dir", .dependency = "_NOT READY_"});
  for (auto what : {"statuses", "configs"}) {
    auto mc = MountFacility::mountConfigDir()->mountConfigIs(
        Name(String8(std::string("remote-") + what)),
        EntityUri(String8(::Test::domainSource(socket, path("served/") + what))), EntityUri());
    mc->targetNameIs(EntityUriPath(String8(path("remote/") + what)));
  }
  auto remote = [&] { return ptr_cast<AgentEnvStatusDir>(at(path("remote/statuses"))); };
  ASSERT_TRUE(ActivityFacility::loop().runUntil([&] { return remote() && remote()->agentEnvStatusCount() == 2; }, 10));
  EXPECT_EQ(remote()->agentEnvStatus(Name("local"))->individualStatus(), St::initialized);
  auto remoteConfigs = ptr_cast<AgentEnvConfigDir>(at(path("remote/configs")));
  ASSERT_TRUE(remoteConfigs);
  EXPECT_EQ(remoteConfigs->agentEnvConfig(Name("waiting"))->typeName(), "Zet::Dir");

  // Changes, new members and members that go follow.
  configs->agentEnvConfig(Name("waiting"))->dependencyIs(Name(""));
  entry("later", {.target = path("later"), .typeName = "Zet::Dir"});
  configs->agentEnvConfigDel(Name("local"));
  ASSERT_TRUE(ActivityFacility::loop().runUntil(
      [&] {
        auto w = remote()->agentEnvStatus(Name("waiting"));
        return w && w->individualStatus() == St::initialized && remote()->agentEnvStatus(Name("later")) &&
               !remote()->agentEnvStatus(Name("local"));
      },
      10));
  EXPECT_THROW(remote()->agentEnvStatus(Name("later"))->individualStatusIs(St::fail), PermissionException);
  for (auto name : {"remote-statuses", "remote-configs"}) MountFacility::mountConfigDir()->mountConfigDel(Name(name));
  NboAttrLog::connectionDir()->listenDomainSockIs("");
  served->entryDel("statuses");
  served->entryDel("configs");
}

TEST_F(AgentEnvMountTest, ExportEntriesListenWhereTheirTargetSays) {
  TraceCapture traces;
  auto connections = NboAttrLog::connectionDir();
  uint16_t port = ::Test::freePort();
  entry("tcp", {.source0 = "*", .target = std::to_string(port) + "abc"});
  EXPECT_EQ(individual("tcp"), St::initialized);
  EXPECT_EQ(status("tcp")->currentSource().text(), "*");
  EXPECT_EQ(connections->listenPort(), port);
  EXPECT_TRUE(traces.has("2 tcp: Exported on port " + std::to_string(port)));
  uint16_t bound = 0;
  SocketFd client = ::Test::boundLoopbackSocket(bound);
  sockaddr_in addr{};
  addr.sin_family = AF_INET;
  addr.sin_port = htons(port);
  addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  EXPECT_EQ(::connect(client.get(), reinterpret_cast<sockaddr*>(&addr), sizeof addr), 0);

  char dir[] = "/tmp/zetexportXXXXXX";
  std::string socket = std::string(::mkdtemp(dir)) + "/agent.sock";
  entry("sock", {.source0 = "*", .target = socket});
  EXPECT_EQ(individual("sock"), St::initialized);
  SocketFd domain(::socket(AF_UNIX, SOCK_STREAM, 0));
  sockaddr_un un{};
  un.sun_family = AF_UNIX;
  std::strcpy(un.sun_path, socket.c_str());
  EXPECT_EQ(::connect(domain.get(), reinterpret_cast<sockaddr*>(&un), sizeof un), 0);

  // 65535 asks for no particular port once one is set: nothing changes, but
  // the mode is taken; 70000 is cut to 16 bits; "0" is a socket path.
  entry("any", {.source0 = "*", .target = "65535"});
  EXPECT_EQ(individual("any"), St::notApplicable);
  EXPECT_EQ(sm("any")->mode(), AgentEnvSm::exp);
  EXPECT_EQ(connections->listenPort(), port);
  entry("wrapped", {.source0 = "*", .target = "70000"});
  EXPECT_EQ(connections->listenPort(), 4464);
  entry("zero", {.source0 = "*", .target = "0"});
  EXPECT_EQ(connections->listenDomainSock(), "0");
  EXPECT_TRUE(traces.has("2 zero: Exporting on domain socket 0"));

  connections->listenPortIs(0);
  connections->listenDomainSockIs("");
}

TEST_F(AgentEnvMountTest, AnExportThatCannotListenFailsWithTheReasonAndTakesTheEndpointOnceFree) {
  TraceCapture traces;
  auto connections = NboAttrLog::connectionDir();
  ::Test::PeerProcess holder;
  uint16_t port = ::Test::freePort();
  ASSERT_EQ(holder("listen-port " + std::to_string(port)), "ok");
  entry("tcp", {.source0 = "*", .target = std::to_string(port)});
  std::string why = "cannot listen on TCP port " + std::to_string(port) + " at 127.0.0.1: Address already in use";
  EXPECT_EQ(individual("tcp"), St::fail);
  EXPECT_EQ(code("tcp"), St::none);
  EXPECT_EQ(status("tcp")->reason().view(), why);
  EXPECT_EQ(message("tcp"), "none");
  EXPECT_EQ(connections->listenPort(), 0);
  EXPECT_TRUE(traces.has("0 tcp: Fail: Export failed: " + why));

  char dir[] = "/tmp/zetexportXXXXXX";
  std::string folder = std::string(::mkdtemp(dir)) + "/later";
  entry("sock", {.source0 = "*", .target = folder + "/agent.sock"});
  EXPECT_EQ(individual("sock"), St::fail);
  EXPECT_EQ(status("sock")->reason().view(),
            "cannot listen on domain socket '" + folder + "/agent.sock': No such file or directory");

  // The port comes free and the folder is made: the next tries take them.
  ASSERT_EQ(holder("listen-port 0"), "ok");
  ASSERT_EQ(::mkdir(folder.c_str(), 0700), 0);
  ASSERT_TRUE(ActivityFacility::loop().runUntil(
      [&] { return individual("tcp") == St::initialized && individual("sock") == St::initialized; }, 10));
  EXPECT_EQ(connections->listenPort(), port);
  EXPECT_EQ(status("tcp")->reason(), "");
  connections->listenPortIs(0);
  connections->listenDomainSockIs("");
}

TEST_F(AgentEnvMountTest, AnExportWhoseEndpointAnotherExportTookSaysSoUntilItIsBack) {
  auto connections = NboAttrLog::connectionDir();
  char dir[] = "/tmp/zetexportXXXXXX";
  std::string first = std::string(::mkdtemp(dir)) + "/first.sock", second = std::string(dir) + "/second.sock";
  entry("first", {.source0 = "*", .target = first});
  entry("second", {.source0 = "*", .target = second});
  settle();
  EXPECT_EQ(individual("second"), St::initialized);
  EXPECT_EQ(individual("first"), St::error);
  EXPECT_EQ(status("first")->reason().view(),
            "replaced by another export: this process listens on one domain socket only, now domain socket '" +
                second + "'");
  // The other entry moves to the first one's place: both listen there.
  configs->agentEnvConfig(Name("second"))->targetIs(EntityUriPath(String8(first)));
  settle();
  EXPECT_EQ(connections->listenDomainSock().view(), first);
  EXPECT_EQ(individual("first"), St::initialized);
  EXPECT_EQ(status("first")->reason(), "");
  EXPECT_EQ(individual("second"), St::initialized);
  connections->listenDomainSockIs("");
}

}  // namespace
}  // namespace Zet::testing
