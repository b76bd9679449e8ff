#include "Zet/attrlog/SharedTree.h"

#include <algorithm>

#include "Zet/EntityChildren.h"

namespace Zet {
namespace NboAttrLog {
namespace {

// The trees being served, by root entity. A tree leaves when it goes, or
// when its root does (a new subscription then gets a tree of its own).
std::unordered_map<Entity const*, SharedTree*>& sharedTrees() {
  static auto* trees = new std::unordered_map<Entity const*, SharedTree*>;
  return *trees;
}

// Appends frames written for subscription 0 as those of `subscription`:
// every frame the tree publishes has its subscription right after its size
// and kind.
void appendFor(std::string& out, std::string_view frames, uint32_t subscription) {
  size_t at = out.size();
  out.append(frames);
  unsigned char const stamp[4] = {
      static_cast<unsigned char>(subscription >> 24), static_cast<unsigned char>(subscription >> 16),
      static_cast<unsigned char>(subscription >> 8), static_cast<unsigned char>(subscription)};
  while (at + 9 <= out.size()) {
    auto const* size = reinterpret_cast<unsigned char const*>(out.data() + at);
    uint32_t bytes = uint32_t(size[0]) << 24 | uint32_t(size[1]) << 16 | uint32_t(size[2]) << 8 | size[3];
    std::copy(stamp, stamp + 4, out.begin() + static_cast<std::ptrdiff_t>(at + 5));
    at += 4 + bytes;
  }
}

}  // namespace

class SharedTree::AttributeWatch : public Entity::ChangeNotifiee {
 public:
  AttributeWatch(SharedTree& tree, Node& node, Entity const& entity) : tree_(tree), node_(node) {
    notifierIs(Ptr<Entity const>(&entity));
  }
  void onChange(Name const* member) override {
    if (member)
      tree_.memberChanged(node_, *member);
    else
      tree_.markChanged(node_);
  }

 private:
  SharedTree& tree_;
  Node& node_;
};

class SharedTree::DirWatch : public Dir::NotifieeConst {
 public:
  DirWatch(SharedTree& tree, Node& node, Dir const& dir) : tree_(tree), node_(node) {
    notifierIs(Ptr<Dir const>(&dir));
  }
  void onEntry(Name const& name) override { tree_.entryChanged(node_, name); }

 private:
  SharedTree& tree_;
  Node& node_;
};

// Watches the entry that holds the served entity, to tell the peers when it
// goes.
class SharedTree::RootWatch : public Dir::Entry::NotifieeConst {
 public:
  RootWatch(SharedTree& tree, Ptr<Dir::Entry const> entry) : tree_(tree) { notifierIs(std::move(entry)); }
  void onStatus() override { tree_.rootEntryChanged(); }
  void onEntity() override { tree_.rootEntryChanged(); }

 private:
  SharedTree& tree_;
};

struct SharedTree::Node {
  uint32_t id;
  Node* parent;
  Ptr<Entity> entity;
  std::unique_ptr<DirWatch> entries;                     // a directory is watched for its entries,
  std::unique_ptr<AttributeWatch> attributes;            // anything else for its attributes
  std::unordered_map<std::string_view, Node*> children;  // of a directory, by name
  size_t waitedFor = 0;                                  // by how many subscribers
  uint32_t walk = 0;                                     // the last walk that met it
};

std::shared_ptr<SharedTree> SharedTree::of(Entity& root) {
  auto& trees = sharedTrees();
  auto found = trees.find(&root);
  if (found != trees.end() && found->second->showsEntitiesNow()) return found->second->shared_from_this();
  // The tree it replaces, if any, stays for the subscribers it has.
  std::shared_ptr<SharedTree> made(new SharedTree(root));
  trees[&root] = made.get();
  return made;
}

bool SharedTree::showsEntitiesNow() const {
  if (!root_) return false;
  uint32_t walk = ++lastWalk_;
  size_t met = 0;
  std::vector<Entity*> pending{root_->entity.ptr()};
  while (!pending.empty()) {
    Entity* entity = pending.back();
    pending.pop_back();
    if (entity->isMirror()) continue;
    auto found = nodes_.find(entity);
    if (found == nodes_.end()) return false;
    if (std::exchange(found->second->walk, walk) == walk) continue;
    ++met;
    forEachChild(*entity, [&](Entity* child) { pending.push_back(child); });
  }
  return met == nodes_.size();
}

SharedTree::SharedTree(Entity& root) : rootEntity_(&root) {
  if (auto* dir = dynamic_cast<Dir*>(root.parent()))
    if (auto entry = dir->entry(root.name()); entry && entry->entity() == &root)
      rootWatch_ = std::make_unique<RootWatch>(*this, entry);
  std::vector<Node*> added;
  addSubtree(&root, nullptr, added);
  root_ = added.empty() ? nullptr : added.front();  // nothing for a mirror
}

SharedTree::~SharedTree() { leaveShared(); }

void SharedTree::leaveShared() {
  auto& trees = sharedTrees();
  if (auto found = trees.find(rootEntity_); found != trees.end() && found->second == this) trees.erase(found);
}

void SharedTree::subscribe(Subscriber& subscriber) {
  subscriber.index = subscribers_.size();
  subscribers_.push_back(&subscriber);
  subscriber.watched += nodes_.size();
  // Parents before children: a node is made after its parent, so its id is
  // larger.
  std::vector<Node const*> all;
  all.reserve(nodes_.size());
  for (auto const& [entity, node] : nodes_) all.push_back(node.get());
  std::sort(all.begin(), all.end(), [](Node const* a, Node const* b) { return a->id < b->id; });
  std::string& out = subscriber.outlet.frames();
  for (Node const* node : all) writeEntity(out, subscriber.subscription, *node);
  FrameWriter(out).snapshotEnd(subscriber.subscription);
}

void SharedTree::unsubscribe(Subscriber& subscriber) {
  subscriber.watched -= nodes_.size();
  for (Node* node : subscriber.waiting) --node->waitedFor;
  subscriber.waiting.clear();
  Subscriber* last = subscribers_.back();
  subscribers_[subscriber.index] = last;
  last->index = subscriber.index;
  subscribers_.pop_back();
}

SharedTree::Node& SharedTree::newNode(Entity* entity, Node* parent) {
  auto owned = std::make_unique<Node>(Node{++lastId_, parent, Ptr<Entity>(entity), nullptr, nullptr, {}});
  Node& node = *owned;
  nodes_.emplace(entity, std::move(owned));
  if (parent) parent->children.emplace(entity->name().view(), &node);
  if (auto* dir = dynamic_cast<Dir*>(entity))
    node.entries = std::make_unique<DirWatch>(*this, node, *dir);
  else
    node.attributes = std::make_unique<AttributeWatch>(*this, node, *entity);
  return node;
}

void SharedTree::addSubtree(Entity* top, Node* parent, std::vector<Node*>& added) {
  std::vector<std::pair<Entity*, Node*>> pending{{top, parent}};
  while (!pending.empty()) {
    auto [entity, above] = pending.back();
    pending.pop_back();
    if (nodes_.count(entity) || entity->isMirror()) continue;
    Node& node = newNode(entity, above);
    added.push_back(&node);
    forEachChild(*entity, [&](Entity* child) { pending.emplace_back(child, &node); });
  }
}

void SharedTree::removeSubtree(Node& top) {
  FrameWriter(scratch_).remove(0, top.id);
  if (top.parent) top.parent->children.erase(top.entity->name().view());
  std::vector<Node*> pending{&top};
  long removed = 0;
  while (!pending.empty()) {
    Node* node = pending.back();
    pending.pop_back();
    for (auto const& [name, child] : node->children) pending.push_back(child);
    forgetChange(*node);
    if (node == root_) root_ = nullptr;
    nodes_.erase(node->entity.ptr());
    ++removed;
  }
  // A new subscription to the same root, should it come back, starts anew.
  if (!root_) leaveShared();
  publish(-removed);
}

void SharedTree::entryChanged(Node& dirNode, Name const& name) {
  auto const& dir = static_cast<Dir const&>(*dirNode.entity);
  Ptr<Dir::Entry> entry = dir.entry(name);
  childChanged(dirNode, name, entry && entry->status() == Dir::Entry::Status::current ? entry->entity() : nullptr);
}

void SharedTree::memberChanged(Node& owner, Name const& name) {
  childChanged(owner, name, owner.entity->fwkType().members->member(*owner.entity, name));
}

void SharedTree::childChanged(Node& parent, Name const& name, Ptr<Entity> const& now) {
  auto found = parent.children.find(name.view());
  Node* was = found == parent.children.end() ? nullptr : found->second;
  if (was && was->entity == now) return;
  if (was) removeSubtree(*was);
  if (!now) return;
  std::vector<Node*> added;
  addSubtree(now.ptr(), &parent, added);
  for (Node const* node : added) writeEntity(scratch_, 0, *node);
  publish(static_cast<long>(added.size()));
}

void SharedTree::rootEntryChanged() {
  auto const* entry = rootWatch_->notifier().ptr();
  if (!root_ || (entry->status() == Dir::Entry::Status::current && entry->entity() == root_->entity)) return;
  removeSubtree(*root_);
}

void SharedTree::publish(long watchedDelta) {
  std::string frames = std::exchange(scratch_, std::string());
  // A subscriber told here may end its connection; it stays subscribed
  // until its session is destroyed, later.
  for (Subscriber* s : subscribers_) {
    if (watchedDelta < 0)
      s->watched -= static_cast<size_t>(-watchedDelta);
    else
      s->watched += static_cast<size_t>(watchedDelta);
    appendFor(s->outlet.frames(), frames, s->subscription);
  }
  for (Subscriber* s : std::vector<Subscriber*>(subscribers_)) s->outlet.framesAdded();
}

void SharedTree::markChanged(Node& node) {
  for (Subscriber* s : subscribers_) {
    if (!s->waiting.insert(&node).second) continue;  // conflated with the change waiting
    ++node.waitedFor;
    s->changed.push_back(&node);
    if (s->changed.size() - s->nextChanged == 1) s->outlet.changesWaiting();
  }
}

void SharedTree::forgetChange(Node& node) {
  // Its place in each list is skipped: it is no longer waited for.
  for (size_t i = 0; i < subscribers_.size() && node.waitedFor > 0; ++i)
    if (subscribers_[i]->waiting.erase(&node)) --node.waitedFor;
}

void SharedTree::writeChanges(Subscriber& subscriber, size_t limit) {
  std::string& out = subscriber.outlet.frames();
  FrameWriter writer(out);
  auto& changed = subscriber.changed;
  while (subscriber.nextChanged < changed.size() && out.size() < limit) {
    Node* node = changed[subscriber.nextChanged++];
    if (!subscriber.waiting.erase(node)) continue;
    --node->waitedFor;
    writer.updateOpen(subscriber.subscription, node->id);
    writeAttributes(writer, *node->entity);
    writer.close();
  }
  if (subscriber.nextChanged < changed.size()) return;
  // All written (nothing waits once the list is through): both start again,
  // small.
  constexpr size_t kKept = 64;
  if (changed.capacity() > kKept) std::vector<Node*>().swap(changed);
  if (subscriber.waiting.bucket_count() > kKept) std::unordered_set<Node*>().swap(subscriber.waiting);
  changed.clear();
  subscriber.nextChanged = 0;
}

void SharedTree::writeEntity(std::string& out, uint32_t subscription, Node const& node) const {
  FrameWriter writer(out);
  Entity const& e = *node.entity;
  writer.entityOpen(subscription, node.id, node.parent ? node.parent->id : 0, e.name().view(), e.fwkType().name);
  writeAttributes(writer, e);
  writer.close();
}

void SharedTree::writeAttributes(FrameWriter& writer, Entity const& entity) {
  for (auto const& a : entity.fwkType().attributes)
    if (a.write) writer.attribute(a.id, a.read(entity).view());
}

}  // namespace NboAttrLog
}  // namespace Zet
