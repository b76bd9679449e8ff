// The environment records as their users meet them: filling a config
// directory, watching the changes, nesting configs in aggregates, reading and
// writing attributes generically, and auditing.

#include <gtest/gtest.h>

#include <type_traits>

#include <string>
#include <vector>

#include "AgentEnv/AgentEnv.h"

namespace Zet {
namespace {

// Records every notification of a config as a line.
class ConfigLog : public AgentEnvConfig::NotifieeConst {
 public:
  std::vector<std::string> lines;
  void onSource0() override { lines.push_back("source0"); }
  void onTarget() override { lines.push_back("target"); }
  void onDependency() override { lines.push_back("dependency"); }
  void onTimeoutPeriod() override { lines.push_back("timeoutPeriod"); }
  void onAggConfig() override { lines.push_back("aggConfig"); }
  void onNestedConfig(Name const& n) override { lines.push_back("nestedConfig " + n.str()); }
  void onNextRound() override { lines.push_back("nextRound"); }
};

class DirLog : public AgentEnvConfigDir::NotifieeConst {
 public:
  std::vector<std::string> lines;
  void onAgentEnvConfig(Name const& n) override {
    lines.push_back(n.str() + (notifier()->agentEnvConfig(n) ? " added" : " removed"));
  }
};

TEST(Records, NewConfigHasItsDefaultsAndNotifiesOnlyRealChanges) {
  Ptr<AgentEnvConfigDir> dir = agentEnvConfigDirFactory("configs");
  DirLog dirLog;
  dirLog.notifierIs(dir);

  Ptr<AgentEnvConfig> c = dir->agentEnvConfigIs("store");
  EXPECT_EQ(dir->agentEnvConfigIs("store"), c) << "an existing config is returned as it is";
  EXPECT_EQ(dirLog.lines, std::vector<std::string>{"store added"});
  EXPECT_EQ(c->dir(), dir.ptr());
  EXPECT_EQ(c->timeoutPeriod(), 600.0);
  EXPECT_EQ(c->unmountType(), AgentEnvConfig::statePreserving);
  EXPECT_EQ(c->dependency(), "_NOT READY_");
  EXPECT_EQ(c->dependency(), AgentEnvConfig::notReady());
  EXPECT_EQ(c->nextRound(), 0u);
  EXPECT_TRUE(c->source0().isEmpty());
  EXPECT_TRUE(c->target().isEmpty());

  ConfigLog log;
  log.notifierIs(c);
  c->source0Is(EntityUri("tcp://db:4000/store"));
  c->source0Is(EntityUri("tcp://db:4000/store"));
  c->timeoutPeriodIs(600.0);
  c->timeoutPeriodIs(2.5);
  c->dependencyIs("base");
  c->nextRoundInc(3);
  EXPECT_EQ(c->nextRound(), 3u);
  EXPECT_EQ(log.lines, (std::vector<std::string>{"source0", "timeoutPeriod", "dependency", "nextRound"}));

  dir->agentEnvConfigDel("store");
  dir->agentEnvConfigDel("store");
  EXPECT_EQ(dirLog.lines.back(), "store removed");
  EXPECT_EQ(dirLog.lines.size(), 2u);
  EXPECT_EQ(c->dir(), nullptr) << "a removed config no longer points at its directory";
}

TEST(Records, MovingBetweenAggregatesKeepsTheInverseAndNotifiesLast) {
  Ptr<AgentEnvConfigDir> dir = agentEnvConfigDirFactory("configs");
  Ptr<AgentEnvConfig> a = dir->agentEnvConfigIs("a");
  Ptr<AgentEnvConfig> b = dir->agentEnvConfigIs("b");
  Ptr<AgentEnvConfig> child = dir->agentEnvConfigIs("child");

  // One shared log shows the order across the three configs.
  std::vector<std::string> order;
  struct Tap : ConfigLog {
    std::vector<std::string>* out;
    std::string who;
    void onAggConfig() override { out->push_back(who + " aggConfig"); }
    void onNestedConfig(Name const& n) override {
      out->push_back(who + (notifier()->nestedConfig(n) ? " +" : " -") + n.str());
    }
  } tapA, tapB, tapChild;
  tapA.out = tapB.out = tapChild.out = &order;
  tapA.who = "a", tapB.who = "b", tapChild.who = "child";
  tapA.notifierIs(a), tapB.notifierIs(b), tapChild.notifierIs(child);

  child->aggConfigIs(a);
  child->aggConfigIs(a);
  EXPECT_EQ(a->nestedConfig("child"), child.ptr());
  child->aggConfigIs(b);
  EXPECT_EQ(a->nestedConfig("child"), nullptr);
  EXPECT_EQ(b->nestedConfig("child"), child.ptr());
  EXPECT_EQ(order, (std::vector<std::string>{"a +child", "child aggConfig", "a -child", "b +child", "child aggConfig"}));

  // Deleting a member takes it out of its aggregate.
  dir->agentEnvConfigDel("child");
  EXPECT_EQ(b->nestedConfigs().size(), 0u);
  EXPECT_TRUE(a->zetAuditErrors().empty());

  EXPECT_THROW(
      {
        try {
          a->nestedConfigIs(nullptr);
        } catch (RangeException const& e) {
          EXPECT_STREQ(e.what(),
                       "null _nestedConfig parameter to mutator for Zet::AgentEnvConfig::nestedConfig not allowed\"");
          throw;
        }
      },
      RangeException);
}

TEST(Records, AuditsNameTheRulesThatFail) {
  Ptr<AgentEnvConfigDir> dir = agentEnvConfigDirFactory("configs");
  Ptr<AgentEnvConfig> a = dir->agentEnvConfigIs("a");
  Ptr<AgentEnvConfig> b = dir->agentEnvConfigIs("b");
  EXPECT_TRUE(dir->zetAuditErrors().empty());

  a->aggConfigIs(a);
  b->nestedConfigIs(a.ptr());  // a claims to be nested in b, but its aggConfig is a
  EXPECT_EQ(a->zetAuditErrors(), std::vector<String8>{"aggConfig!=this"});
  EXPECT_EQ(b->zetAuditErrors(), std::vector<String8>{"nestedConfig-inverse-aggConfig"});
  b->nestedConfigDel("a");
  a->aggConfigIs(nullptr);

  EXPECT_TRUE(a->zetAuditErrors().empty());
  Ptr<AgentEnvStatusDir> statuses = agentEnvStatusDirFactory("statuses");
  statuses->agentEnvStatusIs("a");
  EXPECT_TRUE(statuses->zetAuditErrors().empty());
}

TEST(Records, DirectoryThatMakesNoMemberRefusesWithNullValidPtr) {
  struct Barren : AgentEnvStatusDir {
    Barren() : AgentEnvStatusDir("barren") {}
    Ptr<AgentEnvStatus> newAgentEnvStatus(Name const&) override { return nullptr; }
  };
  Ptr<AgentEnvStatusDir> dir(new Barren);
  try {
    dir->agentEnvStatusIs("x");
    FAIL();
  } catch (RangeException const& e) {
    EXPECT_STREQ(e.what(), "null ValidPtr");
  }
  EXPECT_EQ(dir->agentEnvStatusCount(), 0u);
}

TEST(Records, EnumerationsHaveTextFormsBothWays) {
  EXPECT_EQ(stringValue(AgentEnvStatus::unsupported), "unsupported");
  EXPECT_EQ(stringValue(AgentEnvStatus::grandparent), "grandparent");
  EXPECT_EQ(int(AgentEnvStatus::grandparent), 14);
  EXPECT_EQ(int(AgentEnvStatus::circularDependencyWithAggConfig), 24);
  EXPECT_EQ(stringValue(AgentEnvStatus::StatusCode(25)), "AgentEnvStatus::StatusCode(25)");
  EXPECT_EQ(stringValue(AgentEnvStatus::Status(6)), "AgentEnvStatus::Status(6)");
  EXPECT_EQ(stringValue(AgentEnvConfig::UnmountType(2)), "AgentEnvConfig::UnmountType(2)");
  std::ostringstream out;
  out << AgentEnvStatus::inProgress << ' ' << AgentEnvConfig::stateRemoving;
  EXPECT_EQ(out.str(), "inProgress stateRemoving");

  for (unsigned code = 0; code <= 24; ++code) {
    auto c = AgentEnvStatus::StatusCode(code);
    EXPECT_EQ(strepToValue<AgentEnvStatus::StatusCode>(stringValue(c)), c);
  }
  AgentEnvStatus::Status s;
  strepToValue("error", &s);
  EXPECT_EQ(s, AgentEnvStatus::error);
  try {
    strepToValue<AgentEnvStatus::Status>("initializedX");
    FAIL();
  } catch (RangeException const& e) {
    EXPECT_STREQ(e.what(), "junk at column 11 deserializing initializedX");
  }
  EXPECT_THROW(strepToValue<AgentEnvConfig::UnmountType>("sometimes"), RangeException);
}

TEST(Records, GenericAccessByIdentifierAndConstHandles) {
  Ptr<AgentEnvConfigDir> dir = agentEnvConfigDirFactory("configs");
  Ptr<AgentEnvConfig> c = dir->agentEnvConfigIs("e1");
  EXPECT_EQ(c->attributeString(0x102), "source0");
  EXPECT_EQ(c->attributeString(0x10f), "nextRound");
  EXPECT_EQ(c->attributeString(0x100), "name");
  EXPECT_EQ(c->attributeString(0x200), "unknown");
  EXPECT_EQ(c->attributeValue(0x108), "_NOT READY_");

  // Handles are made from pointers of the entity's own type: write access
  // follows constness, and a const pointer never passes for a mutable one.
  static_assert(!std::is_convertible_v<Ptr<AgentEnvConfig const>, Ptr<Entity>>);
  static_assert(!std::is_convertible_v<Ptr<Entity>, Ptr<AgentEnvConfig>>);
  static_assert(std::is_convertible_v<Ptr<AgentEnvConfig>, Ptr<Entity const>>);
  EntityHandle writable(c);
  writable.attributeValueIs(0x10a, "30");
  writable.attributeValueIs(0x10d, "stateRemoving");
  EXPECT_EQ(c->timeoutPeriod(), 30.0);
  EXPECT_EQ(c->unmountType(), AgentEnvConfig::stateRemoving);
  EXPECT_EQ(c->attributeValue(0x103), "configs");

  EntityHandle readOnly{Ptr<AgentEnvConfig const>(c)};
  EXPECT_EQ(readOnly.attributeValue(0x10a), "30");
  try {
    readOnly.attributeValueIs(0x10a, "1");
    FAIL();
  } catch (PermissionException const& e) {
    EXPECT_STREQ(e.what(), "attempting to modify a const instance");
  }
  EXPECT_EQ(c->timeoutPeriod(), 30.0);
  EXPECT_THROW(writable.attributeValueIs(0x108, "x"), RangeException) << "constants are not writable";

  Ptr<Entity> asEntity(dir.ptr());
  EXPECT_EQ(entityCast<AgentEnvConfigDir>(asEntity), dir);
  try {
    entityCast<AgentEnvStatusDir>(asEntity);
    FAIL();
  } catch (RangeException const& e) {
    EXPECT_STREQ(e.what(), "Entity is the wrong type");
  }
}

TEST(Records, TypesAreRegisteredByName) {
  for (char const* name : {"Zet::AgentEnvConfig", "Zet::AgentEnvConfigDir", "Zet::AgentEnvStatus", "Zet::AgentEnvStatusDir"}) {
    TypeDescriptor const* t = TypeMap::instance().type(name);
    ASSERT_NE(t, nullptr) << name;
    Ptr<Entity> made = t->factory("made", nullptr);
    EXPECT_EQ(made->fwkType().name, name);
  }
}

TEST(Records, ReinstantiatingWithAnotherConstructorParameterIsRefused) {
  Ptr<AgentEnvStatusDir> dir = agentEnvStatusDirFactory("statuses");
  Ptr<AgentEnvStatus> current = dir->agentEnvStatusIs("e1");
  Ptr<AgentEnvStatus> same = dir->agentEnvStatusIs("e1");
  EXPECT_NO_THROW(constructorParameterCheck("_status", current, same));
  Ptr<AgentEnvStatusDir> other = agentEnvStatusDirFactory("other");
  try {
    constructorParameterCheck("_status", current, other->agentEnvStatusIs("e1"));
    FAIL();
  } catch (NameInUseException const& e) {
    EXPECT_STREQ(e.what(),
                 "Reinstantiating the pointer interface where constructor parameter attribute _status has a "
                 "different value of other/e1 than the current value of statuses/e1 not allowed");
  }
}

TEST(Records, StatusDefaultsAndNotifications) {
  Ptr<AgentEnvStatusDir> dir = agentEnvStatusDirFactory("statuses");
  Ptr<AgentEnvStatus> s = dir->agentEnvStatusIs("e1");
  EXPECT_EQ(s->individualStatus(), AgentEnvStatus::notApplicable);
  EXPECT_EQ(s->groupStatus(), AgentEnvStatus::notApplicable);
  EXPECT_EQ(s->statusCode(), AgentEnvStatus::none);
  EXPECT_EQ(s->round(), 0u);
  EXPECT_EQ(s->entity(), nullptr);

  struct Watch : AgentEnvStatus::NotifieeConst {
    std::vector<std::string> seen;
    void onStatusCode() override { seen.push_back(stringValue(notifier()->statusCode()).str()); }
    void onIndividualStatus() override { seen.push_back(stringValue(notifier()->individualStatus()).str()); }
  } watch;
  watch.notifierIs(s);
  s->statusCodeIs(AgentEnvStatus::switchedModes);
  s->individualStatusIs(AgentEnvStatus::unsupported);
  s->individualStatusIs(AgentEnvStatus::unsupported);
  EXPECT_EQ(watch.seen, (std::vector<std::string>{"switchedModes", "unsupported"}));
  EXPECT_EQ(s->attributeValue(0x104), "unsupported");
}

}  // namespace
}  // namespace Zet
