// The status monitor: one line on standard error per failure of an entry's
// own outcome, in its exact form, and nothing else.

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "AgentEnv/AgentEnv.h"

namespace Zet {
namespace {

using St = AgentEnvStatus;

class AgentEnvMonitorTest : public ::testing::Test {
 protected:
  AgentEnvMonitorTest() { ::unsetenv("AGENT_NAME"); }
  ~AgentEnvMonitorTest() override { ::unsetenv("AGENT_NAME"); }

  Ptr<AgentEnvStatus> entry(std::string const& name) {
    configs->agentEnvConfigIs(Name(name));
    return statuses->agentEnvStatusIs(Name(name));
  }
  // What the monitor wrote while its reactions ran.
  static std::string reported() {
    ::testing::internal::CaptureStderr();
    ActivityFacility::loop().runUntilIdle();
    return ::testing::internal::GetCapturedStderr();
  }
  static void outcome(Ptr<AgentEnvStatus> const& s, St::StatusCode code, St::Status status) {
    s->statusCodeIs(code);
    s->individualStatusIs(status);
  }

  Ptr<AgentEnvConfigDir> configs = agentEnvConfigDirFactory("monitoredConfigs");
  Ptr<AgentEnvStatusDir> statuses = agentEnvStatusDirFactory("monitoredStatuses");
  Ptr<ActivityConfig> activity = ActivityFacility::activityManagerConfig()->activityConfigIs("monitorTest", 10);
};

TEST_F(AgentEnvMonitorTest, EachNewFailureIsOneLine) {
  Ptr<AgentEnvStatus> e1 = entry("e1");
  auto monitor = agentEnvMonitorDirSmFactory(activity, statuses, configs);
  EXPECT_EQ(agentEnvMonitorDirSmFactory(activity, statuses, configs), monitor);
  EXPECT_TRUE(monitor->statusSm("e1"));
  EXPECT_TRUE(ActivityFacility::activityManagerConfig()->activityConfig("e1Monitor"));
  EXPECT_EQ(reported(), "");

  outcome(e1, St::none, St::initialized);
  EXPECT_EQ(reported(), "");
  outcome(e1, St::disconnected, St::fail);
  EXPECT_EQ(reported(), "e1: fail: disconnected\n");
  e1->statusCodeIs(St::timedOut);  // the same individual status: nothing new
  EXPECT_EQ(reported(), "");

  ::setenv("AGENT_NAME", "agentA", 1);
  configs->agentEnvConfig(Name("e1"))->configFileIs("/etc/agent.conf");
  outcome(e1, St::targetPathNotAbsolute, St::error);
  EXPECT_EQ(reported(), "agentA (host:" + System::hostname().str() + "): /etc/agent.conf: e1: error: " +
                            std::string(AgentEnv::statusMessage(e1, configs->agentEnvConfig(Name("e1"))).view()) +
                            "\n");
  ::setenv("AGENT_NAME", "", 1);
  outcome(e1, St::switchedModes, St::unsupported);
  EXPECT_EQ(reported().rfind("/etc/agent.conf: e1: unsupported: ", 0), 0u);

  outcome(e1, St::none, static_cast<St::Status>(9));
  std::string line = reported();
  EXPECT_EQ(line.rfind("/etc/agent.conf: e1: e1: monitor received unknown status " +
                           stringValue(static_cast<St::Status>(9)).str() + "\n", 0),
            0u)
      << line;
}

TEST_F(AgentEnvMonitorTest, OnlyStatusesWithAConfigAreWatched) {
  statuses->agentEnvStatusIs(Name("orphan"));
  Ptr<AgentEnvStatus> kept = entry("kept");
  auto monitor = agentEnvMonitorDirSmFactory(activity, statuses, configs);
  EXPECT_FALSE(monitor->statusSm("orphan"));
  EXPECT_EQ(monitor->statusSmCount(), 1u);

  // A config added after its status: the monitor comes with the next word
  // from the status directory.
  configs->agentEnvConfigIs(Name("orphan"));
  EXPECT_FALSE(monitor->statusSm("orphan"));
  statuses->agentEnvStatusDel(Name("orphan"));
  statuses->agentEnvStatusIs(Name("orphan"));
  EXPECT_TRUE(monitor->statusSm("orphan"));

  statuses->agentEnvStatusDel(Name("kept"));
  EXPECT_FALSE(monitor->statusSm("kept"));
  outcome(kept, St::disconnected, St::fail);
  EXPECT_EQ(reported(), "");

  Ptr<AgentEnvConfigDir> other = agentEnvConfigDirFactory("otherConfigs");
  EXPECT_THROW(agentEnvMonitorDirSmFactory(activity, statuses, other), NameInUseException);
  EXPECT_THROW(monitor->statusSmIs(activity, Name("orphan"), statuses->agentEnvStatus(Name("orphan")),
                                   other->agentEnvConfigIs(Name("orphan"))),
               NameInUseException);
}

}  // namespace
}  // namespace Zet
