// The mount facility's records and the attribute-log connection directory as
// their users meet them: asking for a mount, watching its status, choosing
// where to listen, and reading all of it generically.

#include <gtest/gtest.h>
#include <cstdlib>

#include <string>
#include <vector>

#include "Zet/Dir.h"
#include "Zet/MountFacility.h"
#include "Zet/NboAttrLog.h"
#include "Zet/TypeMap.h"

namespace Zet {
namespace {

class ConfigLog : public MountConfig::NotifieeConst {
 public:
  std::vector<std::string> lines;
  void onSourcePre0() override { lines.push_back("sourcePre0"); }
  void onSourceName() override { lines.push_back("sourceName"); }
  void onTargetName() override { lines.push_back("targetName"); }
  void onNextRound() override { lines.push_back("nextRound"); }
  void onUnmountType() override { lines.push_back("unmountType"); }
};

class StatusLog : public MountStatus::NotifieeConst {
 public:
  std::vector<std::string> lines;
  void onState() override { lines.push_back("state " + stringValue(notifier()->state()).str()); }
  void onCode() override { lines.push_back("code " + stringValue(notifier()->code()).str()); }
  void onRound() override { lines.push_back("round"); }
  void onMountedEntity() override { lines.push_back("mountedEntity"); }
};

class StatusDirLog : public MountStatusDir::NotifieeConst {
 public:
  std::vector<std::string> lines;
  void onMountStatus(Name const& n) override {
    lines.push_back(n.str() + (notifier()->mountStatus(n) ? " added" : " removed"));
  }
};

TEST(MountRecords, ARequesterAsksForAMountAndFollowsItsStatus) {
  Ptr<MountConfigDir> configs = MountFacility::mountConfigDir();
  Ptr<MountStatusDir> statuses = MountFacility::mountStatusDir();
  EXPECT_EQ(MountFacility::mountConfigDir(), configs);
  EXPECT_EQ(globalDir()->entityRef("/MountFacility/MountConfigDir"), configs);
  EXPECT_EQ(statuses->fullName(), "/MountFacility/MountStatusDir");
  StatusDirLog statusDirLog;
  statusDirLog.notifierIs(statuses);

  EntityUri const source0(String8("tcp://primary:4000/agent/state"));
  EntityUri const source1(String8("tcp://backup:4000/agent/state"));
  Ptr<MountConfig> config = configs->mountConfigIs("state", source0, source1);
  EXPECT_EQ(config->source0(), source0);
  EXPECT_EQ(config->parent(), configs.ptr());
  EXPECT_EQ(config->nextRound(), 0u);
  EXPECT_EQ(config->initTimeoutPeriod(), 600.0);
  EXPECT_EQ(config->unmountType(), MountConfig::statePreserving);
  EXPECT_FALSE(config->aggMount());
  EXPECT_TRUE(config->targetName().isEmpty());

  // The facility pairs a status with the config at once.
  EXPECT_EQ(statusDirLog.lines, std::vector<std::string>{"state added"});
  Ptr<MountStatus> status = statuses->mountStatus("state");
  ASSERT_NE(status, nullptr);
  EXPECT_EQ(status->state(), MountStatus::notMounted);
  EXPECT_EQ(status->code(), MountStatus::ok);
  EXPECT_EQ(status->mountedEntity(), nullptr);

  // The same request again is the same config; other sources are refused.
  EXPECT_EQ(configs->mountConfigIs("state", source0, source1), config);
  try {
    configs->mountConfigIs("state", source1, source1);
    ADD_FAILURE() << "other sources were accepted";
  } catch (NameInUseException const& e) {
    EXPECT_NE(e.text().view().find("constructor parameter attribute _source0 has a different value of"),
              std::string_view::npos);
  }

  // Only real changes notify.
  ConfigLog configLog;
  configLog.notifierIs(config);
  config->sourcePre0Is(EntityUri(String8("tcp://primary:4000/agent")));
  config->sourceNameIs(EntityUri(String8("state")));
  config->targetNameIs(EntityUriPath("/remote/state"));
  config->targetNameIs(EntityUriPath("/remote/state"));
  config->nextRoundIs(1);
  config->attributeValueIs(0x10a, "stateRemoving");
  EXPECT_EQ(configLog.lines,
            (std::vector<std::string>{"sourcePre0", "sourceName", "targetName", "nextRound", "unmountType"}));
  EXPECT_EQ(config->attributeValue(0x107), "/remote/state");

  // The facility reports the round; the requester reads it as text too.
  StatusLog statusLog;
  statusLog.notifierIs(status);
  Ptr<Dir> remote = globalDir()->dirIs("remote");
  status->stateIs(MountStatus::inProgress);
  status->mountedEntityIs(remote);
  status->roundIs(1);
  status->stateIs(MountStatus::complete);
  status->stateIs(MountStatus::complete);
  EXPECT_EQ(statusLog.lines,
            (std::vector<std::string>{"state inProgress", "mountedEntity", "round", "state complete"}));
  EXPECT_EQ(status->attributeValue(0x106), "/remote");
  status->attributeValueIs(0x103, "timedOut");
  EXPECT_EQ(status->code(), MountStatus::timedOut);
  EXPECT_THROW(status->attributeValueIs(0x106, "/remote"), RangeException);  // pointers are not written as text
  EXPECT_TRUE(configs->zetAuditErrors().empty());
  EXPECT_TRUE(statuses->zetAuditErrors().empty());

  // Ending the mount takes the status away with the config.
  configs->mountConfigDel("state");
  EXPECT_EQ(statuses->mountStatus("state"), nullptr);
  EXPECT_EQ(statusDirLog.lines.back(), "state removed");
  EXPECT_EQ(config->parent(), nullptr);
  EXPECT_EQ(status->parent(), nullptr);
  globalDir()->entryDel("remote");
}

TEST(MountRecords, MountCodesKeepTheirNumbers) {
  // The state machines translate these numbers; 3 and 5 must not swap.
  EXPECT_EQ(stringValue(static_cast<MountStatus::Code>(3)), "disconnected");
  EXPECT_EQ(stringValue(static_cast<MountStatus::Code>(5)), "protocolVersionMismatch");
  EXPECT_EQ(stringValue(static_cast<MountStatus::Code>(8)), "MountStatus::Code(8)");
  EXPECT_THROW(strepToValue<MountStatus::State>("completed"), RangeException);
}

TEST(MountRecords, TheConnectionDirectoryRecordsWhereToListen) {
  Ptr<NboAttrLog::ConnectionDir> connections = NboAttrLog::connectionDir();
  EXPECT_EQ(NboAttrLog::connectionDir(), connections);
  EXPECT_EQ(globalDir()->entityRef("/NboAttrLog/ConnectionDir"), connections);
  EXPECT_EQ(connections->listenPort(), 0);
  EXPECT_TRUE(connections->listenDomainSock().isEmpty());

  struct Log : NboAttrLog::ConnectionDir::NotifieeConst {
    std::vector<std::string> lines;
    void onListenPort() override { lines.push_back("port " + std::to_string(notifier()->listenPort())); }
    void onListenDomainSock() override { lines.push_back("sock " + notifier()->listenDomainSock().str()); }
  } log;
  log.notifierIs(connections);
  // The service really listens: a socket of this test's own, loopback ports.
  char dir[] = "/tmp/zetrecordsXXXXXX";
  std::string socket = std::string(::mkdtemp(dir)) + "/agent.sock";
  connections->listenPortIs(4000);
  connections->listenPortIs(4000);
  connections->listenDomainSockIs(String8(socket));
  connections->attributeValueIs(0x102, "4464");
  EXPECT_EQ(log.lines, (std::vector<std::string>{"port 4000", "sock " + socket, "port 4464"}));
  EXPECT_EQ(connections->attributeValue(0x103).view(), socket);
  connections->listenPortIs(0);
  connections->listenDomainSockIs("");
}

TEST(MountRecords, EveryTypeCanBeMadeByName) {
  Ptr<Dir> dir = ptr_cast<Dir>(dirFactory("made", nullptr));
  for (char const* type : {"Zet::Dir", "Zet::MountConfig", "Zet::MountConfigDir", "Zet::MountStatus",
                           "Zet::MountStatusDir", "Zet::NboAttrLog::ConnectionDir"}) {
    Ptr<Entity> made = dir->entityIs(Name(type), type);
    EXPECT_EQ(made->fwkType().name, type);
    EXPECT_EQ(made->parent(), dir.ptr());
  }
}

}  // namespace
}  // namespace Zet
