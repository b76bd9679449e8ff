#include "Zet/Dir.h"

#include <atomic>
#include <vector>

#include "Zet/Format.h"
#include "Zet/TypeMap.h"

namespace Zet {
namespace {

std::atomic<bool> localInstantiationEnabled{true};

bool entriesCounted(Entity const& e) { return static_cast<Dir const&>(e).entries().isConsistent(); }

TypeDescriptor const descriptor{
    "Zet::Dir",
    dirFactory,
    {{0x102, "entry", readKeys<&Dir::entries>, nullptr}},
    {{"count is members count", entriesCounted}},
};

}  // namespace

void Dir::Entry::NotifieeConst::notifierIs(Ptr<Entry const> entry) {
  if (entry == notifier_) return;
  if (notifier_) notifier_->notifieeRemove(this);
  notifier_ = std::move(entry);
  if (notifier_) notifier_->notifieeAdd(this);
}

void Dir::Entry::entityIs(Ptr<Entity> entity) {
  if (entity == entity_) return;
  entity_ = std::move(entity);
  notify<NotifieeConst>([](NotifieeConst& n) { n.onEntity(); });
}

void Dir::Entry::statusIs(Status status) {
  if (status == status_) return;
  status_ = status;
  notify<NotifieeConst>([](NotifieeConst& n) { n.onStatus(); });
}

// Destroying a directory destroys the directories it alone held, and so on
// down: done by recursion, a deep tree would overflow the stack. The
// outermost destructor keeps a worklist that nested ones add their entities
// to, and lets them go one after another.
namespace {
thread_local std::vector<Ptr<Entity>>* dyingEntities = nullptr;
}

Dir::~Dir() {
  // Unreachable before anyone hears of it: no child climbs back up here.
  for (auto& member : entries())
    if (Entity* child = member.value()->entity().ptr(); child && child->parent() == this) child->parentIs(nullptr);
  std::vector<Ptr<Entity>> worklist;
  bool outermost = dyingEntities == nullptr;
  if (outermost) dyingEntities = &worklist;
  for (auto& member : entries()) {
    dyingEntities->push_back(member.value()->entity());
    release(*member.value());
  }
  if (!outermost) return;
  while (!worklist.empty()) {
    Ptr<Entity> last = std::move(worklist.back());
    worklist.pop_back();
    last = nullptr;  // may add the entities of a directory it held
  }
  dyingEntities = nullptr;
}

ZET_DEFINE_TYPE(Dir, descriptor);

Dir::Entries const& Dir::entries() const {
  static Entries const none;
  return entries_ ? *entries_ : none;
}

Ptr<Dir::Entry> Dir::entry(Name const& name) const { return entries().value(name); }

Ptr<Entity> Dir::entityRef(Name const& name) const {
  Ptr<Entry> const* e = entries().find(name);
  return e ? (*e)->entity() : nullptr;
}

Entity const* Dir::walk(EntityUriPath const& path, EntityUriPath::NameTexts names) const {
  Entity const* at = path.isAbsolute() ? &root() : this;
  for (std::string_view name : names) {
    auto const* dir = dynamic_cast<Dir const*>(at);
    auto const* e = dir ? dir->entries().memberByText(name) : nullptr;
    at = e ? e->value()->entity().ptr() : nullptr;
    if (!at) break;
  }
  return at;
}

// Only what the walk finds is handed out, as entityRef(Name) does for a
// child; for a path without names that is the directory it starts from.
Ptr<Entity> Dir::entityRef(EntityUriPath const& path) const {
  return Ptr<Entity>(const_cast<Entity*>(walk(path, path.nameTexts())));
}

void Dir::prefetchEntry(EntityUriPath const& path) const {
  if (!path.hasNames()) return;
  if (auto const* dir = dynamic_cast<Dir const*>(walk(path, path.parentNameTexts())))
    dir->entries().prefetchText(path.lastNameText());
}

Ptr<Dir> Dir::dirIs(Name const& name) {
  if (Ptr<Entry> existing = entry(name)) {
    if (auto dir = ptr_cast<Dir>(existing->entity())) return dir;
    throwNameInUse(name);
  }
  checkName(name);
  Ptr<Dir> dir = ptr_cast<Dir>(dirFactory(name, this));
  makeCurrent(newEntry(name), dir);
  return dir;
}

Ptr<Entity> Dir::entityIs(Name const& name, std::string_view typeName) {
  if (!localInstantiation())
    throw DirInstantiationException(
        format("directory instantiation is not enabled for type '%s'", String8(typeName).charPtr()));
  checkName(name);
  if (entries().find(name)) throwNameInUse(name);
  TypeDescriptor const& type = TypeMap::instance().typeResolved(typeName);
  Ptr<Entity> entity = type.factory ? type.factory(name, this) : nullptr;
  if (!entity) throwRangeException("null ValidPtr");
  makeCurrent(newEntry(name), entity);
  return entity;
}

Ptr<Dir::Entry> Dir::entryIs(Name const& name) {
  if (Ptr<Entry> existing = entry(name)) return existing;
  checkName(name);
  Ptr<Entry> e = newEntry(name);
  notifyEntry(name);
  return e;
}

Ptr<Dir::Entry> Dir::entryIs(Name const& name, Ptr<Entity> entity) {
  if (!entity) throwRangeException(format("null entity for entry '%s'", name.charPtr()));
  Ptr<Entry> e = entry(name);
  if (e && e->entity() == entity) return e;
  if (e && e->status() != Entry::Status::notCurrent) throwNameInUse(name);
  if (!e) {
    checkName(name);
    e = newEntry(name);
  }
  makeCurrent(e, std::move(entity));
  return e;
}

void Dir::entryDel(Name const& name) {
  Ptr<Entry> e = entry(name);
  if (!e) return;
  checkWritable();
  MirrorWriteScope::Suspended outside(isMirror());
  entries_->erase(name);
  release(*e);
  notifyEntry(name);
}

bool Dir::localInstantiation() { return localInstantiationEnabled.load(std::memory_order_relaxed); }

void Dir::localInstantiationIs(bool enabled) { localInstantiationEnabled.store(enabled, std::memory_order_relaxed); }

void Dir::checkName(Name const& name) {
  if (name.isEmpty() || name.view().find('/') != std::string_view::npos)
    throwRangeException(format("invalid entry name '%s'", name.charPtr()));
}

void Dir::throwNameInUse(Name const& name) const {
  throw NameInUseException(format("name '%s' is in use in %s", name.charPtr(), fullName().charPtr()));
}

Ptr<Dir::Entry> Dir::newEntry(Name const& name) {
  checkWritable();
  if (!entries_) entries_ = std::make_unique<Entries>();
  auto [slot, inserted] = entries_->insertMade(name, [&name] { return Ptr<Entry>(new Entry(name)); });
  if (!inserted) throwNameInUse(name);
  return *slot;
}

void Dir::makeCurrent(Ptr<Entry> const& e, Ptr<Entity> entity) {
  checkWritable();
  MirrorWriteScope::Suspended outside(isMirror());
  if (!entity->parent() && !isWithin(*entity)) entity->parentIs(this);
  e->entityIs(std::move(entity));
  e->statusIs(Entry::Status::current);
  notifyEntry(e->name());
}

void Dir::release(Entry& e) {
  if (e.entity() && e.entity()->parent() == this) e.entity()->parentIs(nullptr);
  e.entityIs(nullptr);
  e.statusIs(Entry::Status::deleted);
}

void Dir::notifyEntry(Name const& name) const {
  notify<NotifieeConst>([&name](NotifieeConst& n) { n.onEntry(name); });
}

bool Dir::isWithin(Entity const& entity) const {
  for (Entity const* at = this; at; at = at->parent())
    if (at == &entity) return true;
  return false;
}

Dir const& Dir::root() const {
  Dir const* dir = this;
  while (auto const* up = dynamic_cast<Dir const*>(dir->parent())) dir = up;
  return *dir;
}

Ptr<Entity> dirFactory(Name const& name, Entity* parent) { return new Dir(name, parent); }

Ptr<Dir> globalDir() {
  static Ptr<Dir> const* root = new Ptr<Dir>(ptr_cast<Dir>(dirFactory("/", nullptr)));
  return *root;
}

}  // namespace Zet
