// Group statuses over aggregates, the aggregate's status sets, version
// numbers between an aggregate and its members, and the status messages.

#include <gtest/gtest.h>

#include "tests/agent_env_support.h"

namespace Zet::testing {
namespace {

using St = AgentEnvStatus;

class AgentEnvStatusTest : public AgentEnvFixture {
 protected:
  // An aggregate waiting on "gate" with members m1..m3.
  void aggregateWithMembers() {
    entry("gate", {.dependency = "_NOT READY_"});
    entry("agg", {.target = path("agg"), .typeName = "Zet::Dir", .dependency = "gate"});
    for (char const* m : {"m1", "m2", "m3"})
      entry(m, {.typeName = "Zet::Dir", .pathSuffix = m, .aggConfig = "agg"});
    settle();
  }
  // Which of the aggregate's sets hold a member's status.
  std::vector<St::Status> setsHolding(std::string const& member) const {
    std::vector<St::Status> in;
    for (unsigned s = St::notApplicable; s <= St::unsupported; ++s)
      if (sm("agg")->statusSetMember(St::Status(s), Name(member))) in.push_back(St::Status(s));
    return in;
  }
};

TEST_F(AgentEnvStatusTest, MembersWaitForTheirAggregateAndAreMadeUnderIt) {
  aggregateWithMembers();
  for (char const* waiting : {"agg", "m1", "m2", "m3"}) EXPECT_EQ(individual(waiting), St::notApplicable) << waiting;
  EXPECT_EQ(setsHolding("m1"), std::vector<St::Status>{St::notApplicable});

  entry("gate", {.target = path("gate"), .typeName = "Zet::Dir"});
  settle();
  EXPECT_EQ(individual("agg"), St::initialized);
  for (char const* m : {"m1", "m2", "m3"}) {
    EXPECT_EQ(individual(m), St::initialized) << m;
    EXPECT_EQ(setsHolding(m), std::vector<St::Status>{St::initialized}) << m;
    EXPECT_TRUE(at(path("agg/") + m)) << m;
  }
  EXPECT_EQ(group("agg"), St::initialized);
  // Members follow the aggregate's version number, never going down.
  EXPECT_EQ(sm("m1")->versionNum(), sm("agg")->versionNum());
  sm("m1")->versionNumIs(sm("agg")->versionNum() + 5);
  sm("m1")->handleParentVersionNumber();
  EXPECT_EQ(sm("m1")->versionNum(), sm("agg")->versionNum() + 5);
}

// Members of members are made below their aggregate, each level asking the
// one above to act from the loop rather than by recursion.
TEST_F(AgentEnvStatusTest, AggregatesNestedInAggregatesComposeTheirPaths) {
  constexpr int kDepth = 3000;
  entry("n0", {.target = path("deep"), .typeName = "Zet::Dir", .dependency = "_NOT READY_"});
  for (int i = 1; i < kDepth; ++i)
    entry(numbered("n", i), {.typeName = "Zet::Dir", .pathSuffix = "n", .aggConfig = numbered("n", i - 1)});
  configs->agentEnvConfig(Name("n0"))->dependencyIs(Name(""));
  settle();
  EXPECT_EQ(individual(numbered("n", kDepth - 1)), St::initialized);
  EXPECT_EQ(group("n0"), St::initialized);
  EXPECT_EQ(sm("n2")->configTarget().text().view(), path("deep/n/n"));
  EXPECT_TRUE(at(path("deep/n/n")));
}

TEST_F(AgentEnvStatusTest, TheGroupStatusFollowsTheRulesInTheirOrder) {
  aggregateWithMembers();
  entry("gate", {.target = path("gate"), .typeName = "Zet::Dir"});
  settle();
  ASSERT_EQ(group("agg"), St::initialized);
  auto set = [&](char const* m, St::Status s) { status(m)->individualStatusIs(s); };

  set("m3", St::inProgress);
  EXPECT_EQ(group("agg"), St::inProgress);
  EXPECT_EQ(group("m3"), St::inProgress);
  set("m2", St::notApplicable);  // one member not applicable outranks progress
  EXPECT_EQ(group("agg"), St::notApplicable);
  set("m2", St::fail);
  EXPECT_EQ(group("agg"), St::fail);
  EXPECT_EQ(setsHolding("m2"), std::vector<St::Status>{St::fail});
  set("m3", St::error);  // error outranks fail
  EXPECT_EQ(group("agg"), St::error);
  set("m1", St::unsupported);  // and unsupported outranks both
  EXPECT_EQ(group("agg"), St::unsupported);
  for (char const* m : {"m1", "m2", "m3"}) set(m, St::initialized);
  EXPECT_EQ(group("agg"), St::initialized);
  EXPECT_EQ(setsHolding("m2"), std::vector<St::Status>{St::initialized});
  // The aggregate's own status counts as well.
  set("agg", St::fail);
  EXPECT_EQ(group("agg"), St::fail);
  set("agg", St::notApplicable);
  EXPECT_EQ(group("agg"), St::initialized);  // with members, notApplicable alone is not rule 4

  // A member that leaves takes its status out of the sets at once.
  set("agg", St::initialized);
  set("m1", St::error);
  ASSERT_EQ(group("agg"), St::error);
  configs->agentEnvConfigDel(Name("m1"));
  EXPECT_TRUE(setsHolding("m1").empty());
  EXPECT_EQ(group("agg"), St::initialized);
  configs->agentEnvConfig(Name("m2"))->aggConfigIs(nullptr);
  EXPECT_TRUE(setsHolding("m2").empty());
  EXPECT_EQ(sm("m2")->aggAgentSm(), nullptr);
  EXPECT_EQ(group("agg"), St::initialized);
}

TEST_F(AgentEnvStatusTest, StatusSetsRefuseNullWithTheirOwnMessage) {
  entry("agg", {.dependency = "_NOT READY_"});
  for (unsigned s = St::notApplicable; s <= St::unsupported; ++s) {
    String8 set = stringValue(St::Status(s));
    try {
      sm("agg")->statusSetMemberIs(St::Status(s), nullptr);
      ADD_FAILURE() << "no exception for " << set;
    } catch (RangeException const& e) {
      EXPECT_EQ(std::string(e.text().view()), "null _" + std::string(set.view()) +
                                                  " parameter to mutator for Zet::AgentEnvSm::" +
                                                  std::string(set.view()) + " not allowed\"");
    }
  }
  EXPECT_EQ(stringValue(AgentEnvSm::Mode(4)), "AgentEnvSm::Mode(4)");
  EXPECT_EQ(stringValue(AgentEnvSm::Consistency(2)), "AgentEnvSm::Consistency(2)");
}

// The codes the scenarios elsewhere do not reach; those give their own
// messages where they happen.
TEST_F(AgentEnvStatusTest, CodesWithoutAScenarioHaveTheirMessagesToo) {
  Ptr<AgentEnvConfig> c = entry("e", {.target = "rel/path", .typeName = "T::X", .dependency = "dep"});
  Ptr<AgentEnvStatus> s = status("e");
  s->currentSourceIs(EntityUri(String8("tcp://db:4000/store")));
  std::vector<std::pair<unsigned, std::string>> const expected = {
      {0, "none"},
      {1, "entity not found on server: tcp://db:4000/store"},
      {2, "mount exception"},
      {3, "protocol version mismatch"},
      {4, "mount permission denied"},
      {5, "mountGroupCode"},
      {6, "disconnected"},
      {7, "timedOut"},
      {11, "switchedModes"},
      {15, "last component of 'source0' does not match the last component of 'source1'"},
      {16, "flags for 'source0' do not match the flags for 'source1'"},
      {25, "AgentEnvStatus::StatusCode(25)"},
  };
  for (auto const& [number, text] : expected) {
    s->statusCodeIs(St::StatusCode(number));
    EXPECT_EQ(message("e"), text) << number;
  }
  s->statusCodeIs(St::libraryLoadError);
  EXPECT_EQ(message("e"), "library for type 'T::X' failed to load: \n");
  EXPECT_EQ(AgentEnv::statusMessage(nullptr, c), String8());
}

TEST_F(AgentEnvStatusTest, ReinstantiatingWithAnotherStatusIsRefused) {
  entry("e", {.dependency = "_NOT READY_"});
  Ptr<AgentEnvStatus> other = statuses->agentEnvStatusIs(Name("other"));
  Ptr<ActivityConfig> activity = ActivityFacility::activityManagerConfig()->activityConfigIs(Name("e"), 10);
  EXPECT_EQ(dirSm->agentEnvSmIs(activity, configs->agentEnvConfig(Name("e")), status("e")), sm("e"));
  try {
    dirSm->agentEnvSmIs(activity, configs->agentEnvConfig(Name("e")), other);
    ADD_FAILURE() << "no exception";
  } catch (NameInUseException const& e) {
    EXPECT_EQ(std::string(e.text().view()),
              "Reinstantiating the pointer interface where constructor parameter attribute _status has a different "
              "value of statuses/other than the current value of statuses/e not allowed");
  }
  EXPECT_THROW(dirSm->agentEnvSmIs(activity, nullptr, other), RangeException);
}

TEST(AgentEnvRoot, DirBuildsTheEnvironmentOnceAndHandlesItsConfigs) {
  Ptr<Dir> env = AgentEnv::dir();
  EXPECT_EQ(env, AgentEnv::dir());
  EXPECT_EQ(env->fullName(), "/AgentEnv");
  EXPECT_EQ(env->entryCount(), 3u);
  auto wrapper = ptr_cast<AgentEnvDirSmWrapper>(env->entityRef(Name("AgentEnvDirSm")));
  ASSERT_TRUE(wrapper && wrapper->adsm());
  EXPECT_EQ(wrapper->attributeString(0x102), "adsm");
  EXPECT_EQ(wrapper->attributeString(0x103), "unknown");
  EXPECT_EQ(wrapper->adsmIs(AgentEnv::agentEnvConfigDir(), AgentEnv::agentEnvStatusDir()), wrapper->adsm());

  Ptr<AgentEnvConfig> c = AgentEnv::agentEnvConfigDir()->agentEnvConfigIs(Name("root-test"));
  c->typeNameIs("Zet::Dir");
  c->targetIs(EntityUriPath(String8("/root-test/made")));
  c->dependencyIs(Name(""));
  Ptr<AgentEnvStatus> s = AgentEnv::agentEnvStatusDir()->agentEnvStatus(Name("root-test"));
  ASSERT_TRUE(s);
  EXPECT_EQ(s->individualStatus(), St::initialized);
  EXPECT_TRUE(globalDir()->entityRef(std::string_view("/root-test/made")));

  AgentEnv::agentEnvConfigDir()->agentEnvConfigDel(Name("root-test"));
  EXPECT_FALSE(AgentEnv::agentEnvStatusDir()->agentEnvStatus(Name("root-test")));
  Ptr<AgentEnvDirSm> removed = wrapper->adsmDel();
  EXPECT_TRUE(removed);
  EXPECT_FALSE(wrapper->adsm());
  wrapper->adsmIs(AgentEnv::agentEnvConfigDir(), AgentEnv::agentEnvStatusDir());
}

}  // namespace
}  // namespace Zet::testing
