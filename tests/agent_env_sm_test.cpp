// The per-entry state machines as a user meets them: entries that act at
// once or wait on their dependency, missing and circular dependencies and
// their repair, instantiation and its failures, config changes accepted and
// refused.

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "tests/agent_env_support.h"

namespace Zet::testing {
namespace {

using St = AgentEnvStatus;

class AgentEnvSmTest : public AgentEnvFixture {};

TEST_F(AgentEnvSmTest, EntriesInstantiateAtOnceOrWhenTheirDependencyIsReady) {
  TraceCapture traces;
  entry("net", {.target = path("env/net"), .typeName = "Zet::Dir"});
  EXPECT_EQ(individual("net"), St::initialized);
  EXPECT_EQ(group("net"), St::initialized);
  EXPECT_EQ(sm("net")->mode(), AgentEnvSm::instantiate);
  Ptr<Entity> made = at(path("env/net"));
  ASSERT_TRUE(made);
  EXPECT_EQ(status("net")->entity(), made);
  EXPECT_EQ(made->fwkType().name, "Zet::Dir");
  EXPECT_TRUE(traces.has("2 net: Parsed target is " + path("env/net")));
  EXPECT_TRUE(traces.has("2 net: Instantiating a Zet::Dir in " + path("env")));
  EXPECT_TRUE(traces.has("2 net: Now " + path("env") + " has Zet::Dir at net"));

  // "gate" is not ready yet: "store" waits on it without a word.
  entry("gate", {.target = path("env/gate"), .typeName = "Zet::Dir", .dependency = "_NOT READY_"});
  entry("store", {.target = path("env/store"), .typeName = "Zet::Dir", .dependency = "gate"});
  entry("cache", {.target = path("env/cache"), .typeName = "Zet::Dir", .dependency = "store"});
  settle();
  EXPECT_TRUE(traces.has("2 gate: Dependency set to notReady, waiting..."));
  EXPECT_TRUE(traces.has("2 store: Depending on gate"));
  for (char const* waiting : {"gate", "store", "cache"}) {
    EXPECT_EQ(individual(waiting), St::notApplicable) << waiting;
    EXPECT_EQ(code(waiting), St::none) << waiting;
    EXPECT_EQ(sm(waiting)->mode(), AgentEnvSm::init) << waiting;
  }
  // A dependency in progress is not ready either.
  status("gate")->individualStatusIs(St::inProgress);
  settle();
  EXPECT_EQ(individual("store"), St::notApplicable);
  status("gate")->individualStatusIs(St::notApplicable);

  configs->agentEnvConfig(Name("gate"))->dependencyIs(Name(""));
  EXPECT_EQ(individual("gate"), St::initialized);
  EXPECT_EQ(individual("store"), St::notApplicable);  // the reaction to another entry runs from the loop
  settle();
  EXPECT_EQ(individual("store"), St::initialized);
  EXPECT_EQ(individual("cache"), St::initialized);
  EXPECT_TRUE(traces.has("2 store: Got dependency status initialized"));
  EXPECT_TRUE(at(path("env/cache")));
}

TEST_F(AgentEnvSmTest, MissingDependencyIsAnErrorUntilItAppears) {
  TraceCapture traces;
  entry("app", {.target = path("app"), .typeName = "Zet::Dir", .dependency = "ghost"});
  EXPECT_EQ(individual("app"), St::error);
  EXPECT_EQ(code("app"), St::dependencyNotFound);
  EXPECT_EQ(message("app"), "dependency 'ghost' not found");
  EXPECT_TRUE(traces.has("0 app: Error: Couldn't find dependency \"ghost\""));

  // The dependency appears (as a later entry of a file would): "app" is told.
  entry("ghost", {.target = path("ghost"), .typeName = "Zet::Dir"});
  EXPECT_EQ(individual("app"), St::error);
  settle();
  EXPECT_EQ(individual("app"), St::initialized);
  EXPECT_EQ(code("app"), St::dependencyNotFound);  // an attempt that succeeds leaves the code
  EXPECT_EQ(dirSm->waitingDependentCount(), 0u);

  // Entries that wait for a name nobody has are remembered once each, for
  // the name they wait for now, and forgotten when they go: reloads that
  // remove and add them again keep nothing behind.
  for (int cycle = 0; cycle < 3; ++cycle) {
    for (int i = 0; i < 10; ++i) entry(numbered("orphan", i), {.typeName = "Zet::Dir", .dependency = "nobody"});
    configs->agentEnvConfig(Name("orphan0"))->dependencyIs(Name("nobody-else"));
    settle();
    EXPECT_EQ(dirSm->waitingDependentCount(), 10u);
    for (int i = 0; i < 10; ++i) configs->agentEnvConfigDel(Name(numbered("orphan", i)));
    EXPECT_EQ(dirSm->waitingDependentCount(), 0u);
  }
}

TEST_F(AgentEnvSmTest, CyclesAreReportedByEveryEntryOnThemAndClearedWhenBroken) {
  TraceCapture traces;
  entry("a", {.target = path("a"), .typeName = "Zet::Dir", .dependency = "_NOT READY_"});
  entry("b", {.target = path("b"), .typeName = "Zet::Dir", .dependency = "a"});
  entry("c", {.target = path("c"), .typeName = "Zet::Dir", .dependency = "b"});  // leads into the cycle
  configs->agentEnvConfig(Name("a"))->dependencyIs(Name("b"));
  settle();
  for (char const* on : {"a", "b"}) {
    EXPECT_EQ(individual(on), St::error) << on;
    EXPECT_EQ(code(on), St::circularDependency) << on;
  }
  EXPECT_TRUE(traces.has("0 a: Error: Circular dependency"));
  EXPECT_TRUE(traces.has("0 b: Error: Circular dependency"));
  EXPECT_EQ(message("a"), "circular dependency with 'b'");
  // "c" is not on the cycle: its walk ends without a report.
  EXPECT_EQ(individual("c"), St::notApplicable);
  EXPECT_EQ(code("c"), St::none);

  // Breaking the cycle at "a": "a" acts (its code stays until an attempt
  // writes another), "b" and "c" are reset on their next check and act too.
  configs->agentEnvConfig(Name("a"))->dependencyIs(Name(""));
  settle();
  EXPECT_EQ(individual("a"), St::initialized);
  EXPECT_EQ(code("a"), St::circularDependency);
  EXPECT_EQ(individual("b"), St::initialized);
  EXPECT_EQ(code("b"), St::none);
  EXPECT_EQ(individual("c"), St::initialized);
}

TEST_F(AgentEnvSmTest, AnEntryMayNotDependOnItsOwnAggregate) {
  entry("agg", {.target = path("agg"), .typeName = "Zet::Dir", .dependency = "_NOT READY_"});
  entry("member", {.typeName = "Zet::Dir", .dependency = "agg", .aggConfig = "agg"});
  EXPECT_EQ(code("member"), St::circularDependencyWithAggConfig);
  EXPECT_EQ(individual("member"), St::error);
  EXPECT_EQ(message("member"), "circular dependency with aggConfig");
}

TEST_F(AgentEnvSmTest, TargetsMustBeAbsoluteAndFreeOfOtherEntities) {
  TraceCapture traces;
  entry("rel", {.target = "env/rel", .typeName = "Zet::Dir"});
  EXPECT_EQ(code("rel"), St::targetPathNotAbsolute);
  EXPECT_EQ(individual("rel"), St::error);
  EXPECT_EQ(message("rel"), "target is not absolute: 'env/rel");
  EXPECT_TRUE(traces.has("0 rel: Error: Target is not absolute:\"env/rel\""));
  // Repairing the target is a change the entry acts on.
  configs->agentEnvConfig(Name("rel"))->targetIs(EntityUriPath(String8(path("env/rel"))));
  EXPECT_EQ(individual("rel"), St::initialized);

  entry("leaf", {.target = path("leaf"), .typeName = "Zet::AgentEnvStatusDir"});
  ASSERT_EQ(individual("leaf"), St::initialized);
  entry("below", {.target = path("leaf/below"), .typeName = "Zet::Dir"});
  EXPECT_EQ(code("below"), St::entityShadowsPath);
  EXPECT_EQ(individual("below"), St::error);
  EXPECT_EQ(message("below"), "an entity already exists at this path: '" + path("leaf/below"));
  EXPECT_TRUE(traces.has("0 below: Error: Could not create path because " + path("leaf") + " shadows path."));
  EXPECT_FALSE(sm("below")->targetDir());

  // The target's own name taken by another entity.
  entry("twice", {.target = path("leaf"), .typeName = "Zet::Dir"});
  EXPECT_EQ(code("twice"), St::entityShadowsPath);

  entry("root", {.target = "/", .typeName = "Zet::Dir"});
  EXPECT_EQ(code("root"), St::badPath);
  EXPECT_EQ(message("root"), "invalid target path: '/");
}

TEST_F(AgentEnvSmTest, AnEntryWaitsForAnEntryOnItsPathToBecomeCurrent) {
  TraceCapture traces;
  Ptr<Dir> base = globalDir()->dirIs(Name(root.substr(1)));
  base->entryIs(Name("mnt"));  // held for an entity on its way
  entry("inside", {.target = path("mnt/inside"), .typeName = "Zet::Dir"});
  EXPECT_EQ(individual("inside"), St::notApplicable);
  EXPECT_TRUE(traces.has("2 inside: Directory entry 'mnt' is not 'current'"));
  ASSERT_TRUE(sm("inside")->dirEntry());

  base->entryIs(Name("mnt"), dirFactory("mnt", nullptr));
  settle();
  EXPECT_EQ(individual("inside"), St::initialized);
  EXPECT_FALSE(sm("inside")->dirEntry());
  EXPECT_TRUE(at(path("mnt/inside")));
}

// A fresh directory of map files, named by ZET_TYPE_MAP_PATH while it lives.
class MapFiles {
 public:
  MapFiles() {
    std::string pattern = (std::filesystem::temp_directory_path() / "zet-sm-maps-XXXXXX").string();
    dir_ = mkdtemp(pattern.data());
    setenv("ZET_TYPE_MAP_PATH", dir_.c_str(), 1);
  }
  ~MapFiles() {
    unsetenv("ZET_TYPE_MAP_PATH");
    std::filesystem::remove_all(dir_);
  }
  void lineIs(std::string const& line) const { std::ofstream(dir_ + "/types.map", std::ios::app) << line << "\n"; }

 private:
  std::string dir_;
};

TEST_F(AgentEnvSmTest, InstantiationFailuresSayWhatWentWrong) {
  MapFiles maps;
  maps.lineIs("Test::Widget " ZET_TEST_WIDGET_PLUGIN);
  maps.lineIs("Test::Missing /nonexistent/libmissing.so");
  maps.lineIs("Test::Nothing " ZET_TEST_EMPTY_PLUGIN);
  TraceCapture traces;

  entry("widget", {.target = path("widget"), .typeName = "Test::Widget"});
  EXPECT_EQ(individual("widget"), St::initialized);
  EXPECT_EQ(at(path("widget"))->fwkType().name, "Test::Widget");

  entry("typo", {.target = path("typo"), .typeName = "Test::Wigdet"});
  EXPECT_EQ(individual("typo"), St::error);
  EXPECT_EQ(code("typo"), St::noMapFileEntry);
  EXPECT_EQ(message("typo"), "library containing type 'Test::Wigdet' was not found");

  entry("missing", {.target = path("missing"), .typeName = "Test::Missing"});
  EXPECT_EQ(code("missing"), St::libraryLoadError);
  EXPECT_EQ(message("missing").rfind("library for type 'Test::Missing' failed to load: \n", 0), 0u);
  EXPECT_NE(message("missing").find("libmissing.so"), std::string::npos);

  entry("nothing", {.target = path("nothing"), .typeName = "Test::Nothing"});
  EXPECT_EQ(code("nothing"), St::noTypeNode);
  EXPECT_EQ(message("nothing"),
            "no type node for type 'Test::Nothing'\npossible reasons for this include:\n"
            "\t1. Typo in type name\n\t2. Missing map file\n\t3. LD_LIBRARY_PATH set incorrectly");

  // The state machine keeps running: fixing the type name makes the entity.
  configs->agentEnvConfig(Name("typo"))->typeNameIs("Test::Widget");
  EXPECT_EQ(individual("typo"), St::initialized);

  Dir::localInstantiationIs(false);
  entry("off", {.target = path("off"), .typeName = "Zet::Dir"});
  Dir::localInstantiationIs(true);
  EXPECT_EQ(code("off"), St::instantiationError);
  EXPECT_EQ(message("off"), "directory instantiation is not enabled for type 'Zet::Dir'");
  EXPECT_TRUE(traces.has("0 off: Error: Instantiation of target threw exception directory instantiation is not "
                         "enabled for type 'Zet::Dir'"));

  AgentEnvSm::localInstantiationSuppressedIs(true);
  entry("suppressed", {.target = path("suppressed"), .typeName = "Zet::Dir"});
  AgentEnvSm::localInstantiationSuppressedIs(false);
  EXPECT_EQ(individual("suppressed"), St::notApplicable);
  EXPECT_EQ(sm("suppressed")->mode(), AgentEnvSm::init);
  EXPECT_FALSE(at(path("suppressed")));
}

TEST_F(AgentEnvSmTest, ModesAreKeptAndChangesThatCannotApplyAreRefused) {
  TraceCapture traces;
  // An attempt of another kind than the first is refused.
  entry("local", {.target = path("local"), .typeName = "Zet::Dir"});
  EXPECT_FALSE(sm("local")->doExportAttempt());
  EXPECT_EQ(code("local"), St::switchedModes);
  EXPECT_EQ(individual("local"), St::unsupported);
  EXPECT_TRUE(traces.has("0 local: Unsupported: Tried to switch modes."));

  entry("exported", {.source0 = "*", .target = "4000"});
  EXPECT_EQ(sm("exported")->mode(), AgentEnvSm::exp);
  sm("exported")->doInstantiationAttempt();
  EXPECT_EQ(code("exported"), St::switchedModes);
  EXPECT_FALSE(at("/4000"));
  EXPECT_TRUE(traces.has("2 exported: Do Export Attempt \"4000\""));
  Ptr<AgentEnvConfig> exported = configs->agentEnvConfig(Name("exported"));
  exported->source0Is(EntityUri(String8("tcp://db:4000/agents/store")));
  EXPECT_EQ(individual("exported"), St::unsupported);
  EXPECT_EQ(code("exported"), St::switchedModes);
  EXPECT_EQ(sm("exported")->consistency(), AgentEnvSm::inconsistent);
  EXPECT_TRUE(traces.has("0 exported: Unsupported: Tried to switch modes"));
  // Inconsistent for good: a change back is refused as well.
  exported->source0Is(EntityUri::exportUri());
  EXPECT_EQ(individual("exported"), St::unsupported);

  entry("mounted", {.source0 = "tcp://db:4000/agents/store", .target = path("store")});
  EXPECT_EQ(sm("mounted")->mode(), AgentEnvSm::mount);
  Ptr<AgentEnvConfig> mounted = configs->agentEnvConfig(Name("mounted"));
  mounted->source0Is(EntityUri(String8("tcp://db:4001/agents/store")));  // same last name: accepted
  EXPECT_EQ(sm("mounted")->consistency(), AgentEnvSm::consistent);
  mounted->source0Is(EntityUri(String8("tcp://db:4001/agents/cache")));
  EXPECT_EQ(code("mounted"), St::sourceNameMismatch);
  EXPECT_EQ(individual("mounted"), St::unsupported);
  EXPECT_TRUE(traces.has("0 mounted: Unsupported: Last component of path in new source0 is \"cache\". Does not "
                         "match last component of old source0: \"store\""));

  entry("bad", {.source0 = "tcp://db:port/x", .target = path("bad")});
  EXPECT_EQ(code("bad"), St::invalidUri);
  EXPECT_EQ(individual("bad"), St::error);
  EXPECT_EQ(message("bad"), "invalid source URI");
  EXPECT_TRUE(traces.has("0 bad: Error: source0 is invalid URI."));

  entry("flags", {.source0 = "tcp://db:1/x?ro=1", .source1 = "tcp://db:2/x?ro=0", .target = path("flags")});
  EXPECT_EQ(code("flags"), St::flagsMismatch);
  entry("names", {.source0 = "tcp://db:1/x", .source1 = "tcp://db:2/y", .target = path("names")});
  EXPECT_EQ(code("names"), St::sourceNameMismatch);
  EXPECT_TRUE(traces.has("0 names: Unsupported: Last component of path in source1 is \"y\". Does not match last "
                         "component of source0: \"x\""));

  entry("deep", {.target = path("g/a/b"), .typeName = "Zet::Dir"});
  ASSERT_EQ(individual("deep"), St::initialized);
  configs->agentEnvConfig(Name("deep"))->targetIs(EntityUriPath(String8(path("g/a"))));
  EXPECT_EQ(code("deep"), St::grandparent);
  EXPECT_EQ(message("deep"), "tried to create a grandparent");
  // An ancestor written with a trailing slash is one all the same; a path
  // as long as the entity's, or longer, is none.
  entry("slash", {.target = path("h/a/b"), .typeName = "Zet::Dir"});
  configs->agentEnvConfig(Name("slash"))->targetIs(EntityUriPath(String8(path("h/a/"))));
  EXPECT_EQ(code("slash"), St::grandparent);
  entry("sibling", {.target = path("i/a/b"), .typeName = "Zet::Dir"});
  configs->agentEnvConfig(Name("sibling"))->targetIs(EntityUriPath(String8(path("i/a/c"))));
  EXPECT_NE(code("sibling"), St::grandparent);
}

TEST_F(AgentEnvSmTest, NestedConfigsMayNotOverrideWhatTheirAggregateProvides) {
  entry("store", {.source0 = "tcp://db:4000/agents/store", .source1 = "tcp://db2:4000/agents/store",
                  .target = path("store"), .dependency = "_NOT READY_"});
  entry("src0", {.source0 = "tcp://other:1/items", .pathSuffix = "items", .aggConfig = "store"});
  EXPECT_EQ(code("src0"), St::overrideSource);
  EXPECT_EQ(message("src0"), "tried to override 'source0' in nested config");
  entry("src1", {.source1 = "tcp://other:1/items", .pathSuffix = "items", .aggConfig = "store"});
  EXPECT_EQ(code("src1"), St::overrideSource);
  entry("tgt", {.target = path("elsewhere"), .pathSuffix = "items", .aggConfig = "store"});
  EXPECT_EQ(code("tgt"), St::overrideTarget);
  EXPECT_EQ(message("tgt"), "tried to override 'target' in nested config");
  entry("fine", {.pathSuffix = "items", .aggConfig = "store"});
  EXPECT_EQ(sm("fine")->consistency(), AgentEnvSm::consistent);
  EXPECT_EQ(sm("fine")->sourceNameUri().text(), "tcp://db:4000/agents/store/items");
  EXPECT_EQ(sm("fine")->configTarget().text().view(), path("store/items"));
  EXPECT_EQ(sm("fine")->rootConfig(), configs->agentEnvConfig(Name("store")));
  EXPECT_EQ(sm("fine")->rootSm(), sm("store").ptr());
  EXPECT_EQ(sm("store")->rootSm(), sm("store").ptr());
}

TEST_F(AgentEnvSmTest, DeletingAConfigRemovesItsStateMachineStatusAndActivity) {
  entry("gone", {.target = path("gone"), .typeName = "Zet::Dir"});
  ASSERT_TRUE(sm("gone"));
  Ptr<AgentEnvStatus> old = status("gone");
  configs->agentEnvConfigDel(Name("gone"));
  EXPECT_FALSE(sm("gone"));
  EXPECT_FALSE(status("gone"));
  EXPECT_FALSE(ActivityFacility::activityManagerConfig()->activityConfig(Name("gone")));

  Ptr<Dir> parent = ptr_cast<Dir>(at(root));
  parent->entryDel(Name("gone"));
  entry("gone", {.target = path("gone"), .typeName = "Zet::Dir"});
  EXPECT_NE(status("gone"), old);
  EXPECT_EQ(individual("gone"), St::initialized);
}

TEST_F(AgentEnvSmTest, AnEntryRemovedAndAddedBackTakesOverWhatItLeftAndNothingElse) {
  entry("keep", {.target = path("keep"), .typeName = "Zet::Dir"});
  entry("drop", {.target = path("drop"), .typeName = "Zet::Dir"});
  configs->agentEnvConfig(Name("drop"))->unmountTypeIs(AgentEnvConfig::stateRemoving);
  Ptr<Entity> kept = at(path("keep"));
  ASSERT_TRUE(kept);
  configs->agentEnvConfigDel(Name("keep"));
  configs->agentEnvConfigDel(Name("drop"));
  EXPECT_EQ(at(path("keep")), kept) << "statePreserving leaves the entity";
  EXPECT_FALSE(at(path("drop"))) << "stateRemoving takes it away";

  // Another entry, or the same entry with another type, may not have it.
  entry("thief", {.target = path("keep"), .typeName = "Zet::Dir"});
  EXPECT_EQ(code("thief"), St::entityShadowsPath);
  configs->agentEnvConfigDel(Name("thief"));

  // The entries come back (a reload rolled back): each is what it was.
  entry("keep", {.target = path("keep"), .typeName = "Zet::Dir"});
  entry("drop", {.target = path("drop"), .typeName = "Zet::Dir"});
  EXPECT_EQ(individual("keep"), St::initialized);
  EXPECT_EQ(status("keep")->entity(), kept);
  EXPECT_EQ(individual("drop"), St::initialized);

  // Taken over once: removed again and someone else's entity put there, the
  // place is not the entry's any more.
  configs->agentEnvConfigDel(Name("keep"));
  Ptr<Dir> parent = ptr_cast<Dir>(at(root));
  parent->entryDel(Name("keep"));
  parent->dirIs(Name("keep"));
  entry("keep", {.target = path("keep"), .typeName = "Zet::Dir"});
  EXPECT_EQ(code("keep"), St::entityShadowsPath);
}

TEST_F(AgentEnvSmTest, SwitchingNotificationOffSilencesEveryStateMachine) {
  entry("quiet", {.target = path("quiet"), .typeName = "Zet::Dir", .dependency = "_NOT READY_"});
  dirSm->hasNotificationActiveIs(false);
  EXPECT_FALSE(sm("quiet")->hasNotificationActive());
  configs->agentEnvConfig(Name("quiet"))->dependencyIs(Name(""));
  EXPECT_EQ(individual("quiet"), St::notApplicable);
  entry("later", {.target = path("later"), .typeName = "Zet::Dir"});
  EXPECT_FALSE(sm("later"));

  dirSm->hasNotificationActiveIs(true);
  EXPECT_TRUE(sm("quiet")->hasNotificationActive());
  configs->agentEnvConfig(Name("quiet"))->targetIs(EntityUriPath(String8(path("quiet2"))));
  EXPECT_EQ(individual("quiet"), St::initialized);
  dirSm->handleConfig();
  EXPECT_EQ(individual("later"), St::initialized);
}

TEST_F(AgentEnvSmTest, ConfigsAlreadyPresentGetTheirStateMachinesPrerequisitesFirst) {
  dirSm = nullptr;
  // Dependents and members before what they need, and a cycle.
  entry("z-member", {.typeName = "Zet::Dir", .pathSuffix = "m"});
  entry("app", {.target = path("app"), .typeName = "Zet::Dir", .dependency = "db"});
  entry("db", {.target = path("db"), .typeName = "Zet::Dir", .dependency = "net"});
  entry("net", {.target = path("net"), .typeName = "Zet::Dir"});
  entry("agg", {.target = path("agg"), .typeName = "Zet::Dir"});
  configs->agentEnvConfig(Name("z-member"))->aggConfigIs(configs->agentEnvConfig(Name("agg")));
  entry("p", {.target = path("p"), .typeName = "Zet::Dir", .dependency = "q"});
  entry("q", {.target = path("q"), .typeName = "Zet::Dir", .dependency = "p"});
  EXPECT_EQ(statuses->agentEnvStatusCount(), 0u);

  dirSm = agentEnvDirSmFactory(configs, statuses);
  settle();
  EXPECT_EQ(dirSm->agentEnvSmCount(), configs->agentEnvConfigCount());
  for (char const* ready : {"app", "db", "net", "agg", "z-member"}) EXPECT_EQ(group(ready), St::initialized) << ready;
  EXPECT_TRUE(at(path("agg/m")));
  EXPECT_EQ(code("p"), St::circularDependency);
  EXPECT_EQ(code("q"), St::circularDependency);
}

TEST_F(AgentEnvSmTest, EntriesReadFromAFileSettleInDependencyOrder) {
  char dirTemplate[] = "/tmp/zet-sm-files-XXXXXX";
  std::string dir = mkdtemp(dirTemplate);
  std::ofstream(dir + "/agent.conf") << "app { typeName = \"Zet::Dir\"; target = \"" << path("app")
                                     << "\"; dependency = \"base\"; }\n"
                                     << "base { typeName = \"Zet::Dir\"; target = \"" << path("base")
                                     << "\"; dependency = \"\";\n"
                                     << "  part { typeName = \"Zet::Dir\"; pathSuffix = \"part\"; dependency = \"\"; }\n}\n";
  Ptr<ConfigFileParser> parser = configFileParserFactory(configs);
  parser->configFileEnq(String8(dir + "/agent.conf"));
  std::filesystem::remove_all(dir);
  settle();
  for (char const* e : {"app", "base", "part"}) EXPECT_EQ(group(e), St::initialized) << e;
  EXPECT_TRUE(at(path("base/part")));
  EXPECT_EQ(configs->agentEnvConfig(Name("part"))->aggConfig(), configs->agentEnvConfig(Name("base")));
}

TEST_F(AgentEnvSmTest, RoundsAndDeferredNotificationsReachTheStateMachine) {
  TraceCapture traces;
  entry("r", {.source0 = "*", .target = "4000", .dependency = "_NOT READY_"});
  Ptr<AgentEnvSm> r = sm("r");
  configs->agentEnvConfig(Name("r"))->nextRoundIs(3);  // no mount configuration: nothing to hand over
  EXPECT_FALSE(r->mountConfig());

  Ptr<MountStatus> mount = mountStatusFactory("r", nullptr);
  r->mountStatusIs(mount);
  mount->roundIs(7);
  settle();
  EXPECT_EQ(status("r")->round(), 7u);
  r->mountStatusIs(nullptr);
  r->handleMountRound();
  EXPECT_EQ(status("r")->round(), 0u);

  // -2 runs the config handlers again; 265 only checks the registration.
  traces.lines.clear();
  r->notificationDefer(-2);
  settle();
  EXPECT_TRUE(traces.has("2 r: Got source0 \"*\""));
  traces.lines.clear();
  r->notificationDefer(265);
  settle();
  EXPECT_TRUE(traces.lines.empty());

  // A zombie no longer hears its config; marked live again, it does.
  r->zetDoZombieReactors(true);
  configs->agentEnvConfig(Name("r"))->targetIs(EntityUriPath(String8("4001")));
  EXPECT_TRUE(traces.lines.empty());
  r->zetDoZombieReactors(false);
  configs->agentEnvConfig(Name("r"))->targetIs(EntityUriPath(String8("4002")));
  EXPECT_TRUE(traces.has("2 r: Got target \"4002\""));
}

TEST_F(AgentEnvSmTest, ALongChainSettlesIterativelyFromTheLoop) {
  constexpr int kChain = 20000;
  entry("e0", {.target = path("e0"), .typeName = "Zet::Dir", .dependency = "_NOT READY_"});
  for (int i = 1; i < kChain; ++i)
    entry(numbered("e", i), {.target = path(numbered("e", i)), .typeName = "Zet::Dir",
                                     .dependency = numbered("e", i - 1)});
  configs->agentEnvConfig(Name("e0"))->dependencyIs(Name(""));
  settle();
  EXPECT_EQ(individual(numbered("e", kChain - 1)), St::initialized);
}

}  // namespace
}  // namespace Zet::testing
