#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "Zet/Dir.h"
#include "Zet/TypeMap.h"

namespace Zet {
namespace {

// A plain entity type registered by the test itself.
class Gadget : public Entity {
 public:
  Gadget(Name const& name, Entity* parent) : Entity(name, parent) {}
  ZET_ENTITY_TYPE();
};
Ptr<Entity> gadgetFactory(Name const& name, Entity* parent) { return new Gadget(name, parent); }
TypeDescriptor const gadgetType{"Test::Gadget", gadgetFactory, {}, {}};
ZET_DEFINE_TYPE(Gadget, gadgetType);

struct DirLog : Dir::NotifieeConst {
  void onEntry(Name const& name) override { names.push_back(name.str()); }
  std::vector<std::string> names;
};

struct EntryLog : Dir::Entry::NotifieeConst {
  void onStatus() override { events.push_back("status " + stringValue(notifier()->status()).str()); }
  void onEntity() override { events.push_back(notifier()->entity() ? "entity" : "no entity"); }
  std::vector<std::string> events;
};

Ptr<Dir> scratchDir(char const* name) { return ptr_cast<Dir>(dirFactory(name, nullptr)); }

TEST(Dir, AnAgentBuildsItsTreeByTypeNameAndWalksIt) {
  Ptr<Dir> agentEnv = globalDir()->dirIs("AgentEnv");
  EXPECT_EQ(globalDir()->dirIs("AgentEnv"), agentEnv);
  DirLog log;
  log.notifierIs(agentEnv);

  Ptr<Entity> config = agentEnv->entityIs("AgentEnvConfigDir", "Test::Gadget");
  EXPECT_EQ(log.names, std::vector<std::string>{"AgentEnvConfigDir"});
  EXPECT_EQ(config->fullName(), "/AgentEnv/AgentEnvConfigDir");
  EXPECT_EQ(config->parent(), agentEnv.ptr());
  EXPECT_EQ(agentEnv->entry("AgentEnvConfigDir")->status(), Dir::Entry::Status::current);
  EXPECT_EQ(agentEnv->entityRef(Name("AgentEnvConfigDir")), config);

  // Paths: absolute ones from the root whichever directory walks them.
  Ptr<Dir> deep = agentEnv->dirIs("a")->dirIs("b");
  EXPECT_EQ(deep->fullName(), "/AgentEnv/a/b");
  EXPECT_EQ(deep->fullName("c"), "/AgentEnv/a/b/c");
  EXPECT_EQ(globalDir()->fullName("c"), "/c");
  for (Ptr<Entity> const& at : {Ptr<Entity>(deep), Ptr<Entity>(globalDir())})
    for (std::string_view child : {"", "c"}) EXPECT_EQ(at->fullNameSize(child), at->fullName(child).size());
  EXPECT_EQ(deep->entityRef("/AgentEnv/AgentEnvConfigDir"), config);
  EXPECT_EQ(globalDir()->entityRef("AgentEnv//AgentEnvConfigDir/"), config);
  EXPECT_EQ(deep->entityRef(EntityUriPath("/AgentEnv/AgentEnvConfigDir")), config);
  EXPECT_EQ(globalDir()->entityRef("/AgentEnv/a/b"), deep);
  EXPECT_EQ(deep->entityRef(""), deep);
  EXPECT_EQ(deep->entityRef("/"), globalDir());
  EXPECT_EQ(globalDir()->entityRef("/AgentEnv/AgentEnvConfigDir/x"), nullptr);  // through a non-directory
  EXPECT_EQ(globalDir()->entityRef("/AgentEnv/missing/x"), nullptr);
  // Asking ahead for an entry's slot goes wherever the parents lead, or nowhere.
  for (char const* path : {"/AgentEnv/a/b/c", "/AgentEnv/AgentEnvConfigDir/x", "/AgentEnv/missing/x", "/", "", "b"})
    deep->prefetchEntry(EntityUriPath(path));

  // Names are taken once, whatever would go there.
  EXPECT_THROW(agentEnv->dirIs("AgentEnvConfigDir"), NameInUseException);
  EXPECT_THROW(agentEnv->entityIs("a", "Test::Gadget"), NameInUseException);
  EXPECT_THROW(agentEnv->entryIs("a", config), NameInUseException);
  EXPECT_THROW(agentEnv->entityIs("x/y", "Test::Gadget"), RangeException);
  EXPECT_THROW(agentEnv->entityIs("unknown", "Test::NoSuchType"), UnknownTypeException);
  EXPECT_EQ(agentEnv->entry("unknown"), nullptr);
  EXPECT_EQ(agentEnv->entryCount(), 2u);
  String8 keys = agentEnv->attributeValue(0x102);
  EXPECT_TRUE(keys == "AgentEnvConfigDir, a" || keys == "a, AgentEnvConfigDir") << keys;
  EXPECT_TRUE(agentEnv->zetAuditErrors().empty());
  EXPECT_EQ(log.names.size(), 2u);  // the config and "a"

  agentEnv->entryDel("AgentEnvConfigDir");
  EXPECT_EQ(log.names.back(), "AgentEnvConfigDir");
  EXPECT_EQ(config->parent(), nullptr);
  EXPECT_EQ(globalDir()->entityRef("/AgentEnv/AgentEnvConfigDir"), nullptr);
  globalDir()->entryDel("AgentEnv");
}

TEST(Dir, AWalkerWaitsForAnEntryToBecomeCurrent) {
  Ptr<Dir> root = scratchDir("root");
  DirLog dirLog;
  dirLog.notifierIs(root);
  Ptr<Dir::Entry> mnt = root->entryIs("mnt");
  EXPECT_EQ(root->entryIs("mnt"), mnt);
  EXPECT_EQ(mnt->status(), Dir::Entry::Status::notCurrent);
  EXPECT_EQ(root->entityRef(Name("mnt")), nullptr);
  EXPECT_THROW(root->entityIs("mnt", "Test::Gadget"), NameInUseException);

  EntryLog entryLog;
  entryLog.notifierIs(mnt);
  Ptr<Dir> arrived = scratchDir("mnt");
  Ptr<Entity> inside = arrived->entityIs("inside", "Test::Gadget");
  root->entryIs("mnt", arrived);
  EXPECT_EQ(entryLog.events, (std::vector<std::string>{"entity", "status current"}));
  EXPECT_EQ(arrived->parent(), root.ptr());  // adopted: it had no parent
  EXPECT_EQ(root->entityRef("/mnt/inside"), inside);
  EXPECT_EQ(inside->fullName(), "root/mnt/inside");
  EXPECT_EQ(root->fullName("mnt"), "root/mnt");
  EXPECT_EQ(inside->fullNameSize(), inside->fullName().size());
  EXPECT_EQ(root->fullNameSize(), root->fullName().size());
  // A link up the tree is walked like any entry but never adopted: the
  // parent links stay a tree.
  arrived->entryIs("up", root);
  EXPECT_EQ(root->parent(), nullptr);
  EXPECT_EQ(root->entityRef("mnt/up/mnt/up/mnt/inside"), inside);
  EXPECT_EQ(arrived->entityRef("/mnt/up/mnt/inside"), inside);
  arrived->entryDel("up");

  root->entryIs("mnt", arrived);  // already there: nothing happens
  EXPECT_THROW(root->entryIs("mnt", inside), NameInUseException);
  EXPECT_EQ(entryLog.events.size(), 2u);

  root->entryDel("mnt");
  EXPECT_EQ(entryLog.events, (std::vector<std::string>{"entity", "status current", "no entity", "status deleted"}));
  EXPECT_EQ(mnt->entity(), nullptr);
  EXPECT_EQ(arrived->parent(), nullptr);
  EXPECT_EQ(dirLog.names, (std::vector<std::string>{"mnt", "mnt", "mnt"}));

  EXPECT_EQ(stringValue(Dir::Entry::Status::notCurrent), "notCurrent");
  EXPECT_EQ(strepToValue<Dir::Entry::Status>("deleted"), Dir::Entry::Status::deleted);
  EXPECT_EQ(stringValue(static_cast<Dir::Entry::Status>(7)), "Dir::Entry::Status(7)");
}

TEST(Dir, EntitiesOutliveTheirDirectoryWithoutADanglingParent) {
  Ptr<Dir> dir = scratchDir("short-lived");
  Ptr<Entity> kept = dir->entityIs("kept", "Test::Gadget");
  EntryLog entryLog;
  entryLog.notifierIs(dir->entry("kept"));
  dir = nullptr;
  EXPECT_EQ(kept->parent(), nullptr);
  EXPECT_EQ(kept->fullName(), "kept");
  EXPECT_EQ(entryLog.events.back(), "status deleted");
}

// A watcher told that an entry of a dying directory went resolves an
// absolute path from a sibling: the dying directory must be out of reach
// (once, the climb wrapped it in a new reference and it was destroyed twice).
TEST(Dir, ADyingDirectoryIsOutOfReachOfItsWatchers) {
  struct Resolver : Dir::Entry::NotifieeConst {
    Ptr<Dir> sibling;
    std::vector<bool> found;
    void onStatus() override { found.push_back(sibling->entityRef("/a") != nullptr); }
  };
  Ptr<Entity> root = dirFactory("r", nullptr);
  auto* r = static_cast<Dir*>(root.ptr());
  r->dirIs("a");
  Resolver resolver;
  resolver.sibling = r->dirIs("b");
  resolver.notifierIs(r->entry("a"));
  root = nullptr;
  EXPECT_EQ(resolver.found, std::vector<bool>{false});
  EXPECT_EQ(resolver.sibling->parent(), nullptr);
  EXPECT_EQ(resolver.notifier()->status(), Dir::Entry::Status::deleted);
}

// Naming and destroying a tree take neither recursion nor time beyond its size.
TEST(Dir, ATreeAMillionDeepIsNamedAndTornDown) {
  constexpr int kDepth = 1000000;
  Ptr<Dir> root = ptr_cast<Dir>(dirFactory("deep", nullptr));
  Ptr<Dir> at = root;
  for (int i = 0; i < kDepth; ++i) at = at->dirIs("d");
  String8 name = at->fullName();
  EXPECT_EQ(name.size(), 4 + 2u * kDepth);
  EXPECT_EQ(name.view().substr(0, 8), "deep/d/d");
  EXPECT_EQ(root->entityRef(EntityUriPath(String8(name.view().substr(5)))), at);
  at = nullptr;
  root = nullptr;  // every level goes without a stack frame of its own
}

TEST(Dir, LocalInstantiationCanBeSwitchedOff) {
  Ptr<Dir> dir = scratchDir("switch");
  Dir::localInstantiationIs(false);
  try {
    dir->entityIs("x", "Test::Gadget");
    ADD_FAILURE() << "instantiation was not refused";
  } catch (DirInstantiationException const& e) {
    EXPECT_EQ(e.text(), "directory instantiation is not enabled for type 'Test::Gadget'");
  }
  EXPECT_EQ(dir->entry("x"), nullptr);
  EXPECT_NE(dir->dirIs("still"), nullptr);  // directories are structure, not instantiation
  Dir::localInstantiationIs(true);
  EXPECT_NE(dir->entityIs("x", "Test::Gadget"), nullptr);
}

}  // namespace
}  // namespace Zet
