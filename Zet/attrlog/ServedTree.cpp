#include "Zet/attrlog/ServedTree.h"

#include <vector>

#include "Zet/EntityChildren.h"

namespace Zet {
namespace NboAttrLog {



class ServedTree::AttributeWatch : public Entity::ChangeNotifiee {
 public:
  AttributeWatch(ServedTree& tree, Node& node, Entity const& entity) : tree_(tree), node_(node) {
    notifierIs(Ptr<Entity const>(&entity));
  }
  void onChange(Name const* member) override {
    if (member)
      tree_.memberChanged(node_, *member);
    else
      tree_.markChanged(node_);
  }

 private:
  ServedTree& tree_;
  Node& node_;
};

class ServedTree::DirWatch : public Dir::NotifieeConst {
 public:
  DirWatch(ServedTree& tree, Node& node, Dir const& dir) : tree_(tree), node_(node) {
    notifierIs(Ptr<Dir const>(&dir));
  }
  void onEntry(Name const& name) override { tree_.entryChanged(node_, name); }

 private:
  ServedTree& tree_;
  Node& node_;
};

// Watches the entry that holds the served entity, to tell the peer when it
// goes.
class ServedTree::RootWatch : public Dir::Entry::NotifieeConst {
 public:
  RootWatch(ServedTree& tree, Ptr<Dir::Entry const> entry) : tree_(tree) { notifierIs(std::move(entry)); }
  void onStatus() override { tree_.rootEntryChanged(); }
  void onEntity() override { tree_.rootEntryChanged(); }

 private:
  ServedTree& tree_;
};

struct ServedTree::Node {
  uint32_t id;
  Node* parent;
  Ptr<Entity> entity;
  std::unique_ptr<DirWatch> entries;           // a directory is watched for its entries,
  std::unique_ptr<AttributeWatch> attributes;  // anything else for its attributes
  std::unordered_map<std::string_view, Node*> children;  // of a directory, by name
  Node* changedPrev = nullptr;
  Node* changedNext = nullptr;
  bool changed = false;
};

ServedTree::ServedTree(Outlet& outlet, uint32_t subscription, size_t& watched)
    : outlet_(outlet), subscription_(subscription), watched_(watched) {}

ServedTree::~ServedTree() { watched_ -= nodes_.size(); }

void ServedTree::serve(std::string_view path) {
  Ptr<Entity> root = globalDir()->entityRef(path);
  if (!root || root->isMirror()) {
    FrameWriter(outlet_.frames()).notFound(subscription_);
    return;
  }
  if (auto* dir = dynamic_cast<Dir*>(root->parent()))
    if (auto entry = dir->entry(root->name()); entry && entry->entity() == root) rootWatch_ = std::make_unique<RootWatch>(*this, entry);
  addSubtree(root.ptr(), nullptr);
  root_ = nodes_.at(root.ptr()).get();
  FrameWriter(outlet_.frames()).snapshotEnd(subscription_);
}

ServedTree::Node& ServedTree::newNode(Entity* entity, Node* parent) {
  auto owned = std::make_unique<Node>(Node{++lastId_, parent, Ptr<Entity>(entity), nullptr, nullptr, {}});
  Node& node = *owned;
  nodes_.emplace(entity, std::move(owned));
  ++watched_;
  if (parent) parent->children.emplace(entity->name().view(), &node);
  if (auto* dir = dynamic_cast<Dir*>(entity))
    node.entries = std::make_unique<DirWatch>(*this, node, *dir);
  else
    node.attributes = std::make_unique<AttributeWatch>(*this, node, *entity);
  return node;
}

void ServedTree::addSubtree(Entity* top, Node* parent) {
  std::vector<std::pair<Entity*, Node*>> pending{{top, parent}};
  while (!pending.empty()) {
    auto [entity, above] = pending.back();
    pending.pop_back();
    if (nodes_.count(entity) || entity->isMirror()) continue;
    Node& node = newNode(entity, above);
    writeEntity(node);
    forEachChild(*entity, [&](Entity* child) { pending.emplace_back(child, &node); });
  }
}

void ServedTree::removeSubtree(Node& top) {
  FrameWriter(outlet_.frames()).remove(subscription_, top.id);
  if (top.parent) top.parent->children.erase(top.entity->name().view());
  std::vector<Node*> pending{&top};
  while (!pending.empty()) {
    Node* node = pending.back();
    pending.pop_back();
    for (auto const& [name, child] : node->children) pending.push_back(child);
    unlinkChanged(*node);
    if (node == root_) root_ = nullptr;
    nodes_.erase(node->entity.ptr());
    --watched_;
  }
}

void ServedTree::entryChanged(Node& dirNode, Name const& name) {
  auto const& dir = static_cast<Dir const&>(*dirNode.entity);
  Ptr<Dir::Entry> entry = dir.entry(name);
  childChanged(dirNode, name, entry && entry->status() == Dir::Entry::Status::current ? entry->entity() : nullptr);
}

void ServedTree::memberChanged(Node& owner, Name const& name) {
  childChanged(owner, name, owner.entity->fwkType().members->member(*owner.entity, name));
}

void ServedTree::childChanged(Node& parent, Name const& name, Ptr<Entity> const& now) {
  auto found = parent.children.find(name.view());
  Node* was = found == parent.children.end() ? nullptr : found->second;
  if (was && was->entity == now) return;
  if (was) removeSubtree(*was);
  if (now) addSubtree(now.ptr(), &parent);
  outlet_.framesAdded();
}

void ServedTree::rootEntryChanged() {
  auto const* entry = rootWatch_->notifier().ptr();
  if (!root_ || (entry->status() == Dir::Entry::Status::current && entry->entity() == root_->entity)) return;
  removeSubtree(*root_);
  outlet_.framesAdded();
}

void ServedTree::markChanged(Node& node) {
  if (node.changed) return;
  node.changed = true;
  node.changedPrev = changedTail_;
  (changedTail_ ? changedTail_->changedNext : changedHead_) = &node;
  changedTail_ = &node;
  outlet_.changesWaiting();
}

void ServedTree::unlinkChanged(Node& node) {
  if (!node.changed) return;
  (node.changedPrev ? node.changedPrev->changedNext : changedHead_) = node.changedNext;
  (node.changedNext ? node.changedNext->changedPrev : changedTail_) = node.changedPrev;
  node.changedPrev = node.changedNext = nullptr;
  node.changed = false;
}

void ServedTree::writeChanges(size_t limit) {
  std::string& out = outlet_.frames();
  FrameWriter writer(out);
  while (changedHead_ && out.size() < limit) {
    Node& node = *changedHead_;
    unlinkChanged(node);
    writer.updateOpen(subscription_, node.id);
    writeAttributes(writer, *node.entity);
    writer.close();
  }
}

void ServedTree::writeEntity(Node const& node) {
  FrameWriter writer(outlet_.frames());
  Entity const& e = *node.entity;
  writer.entityOpen(subscription_, node.id, node.parent ? node.parent->id : 0, e.name().view(), e.fwkType().name);
  writeAttributes(writer, e);
  writer.close();
}

void ServedTree::writeAttributes(FrameWriter& writer, Entity const& entity) {
  for (auto const& a : entity.fwkType().attributes)
    if (a.write) writer.attribute(a.id, a.read(entity).view());
}

}  // namespace NboAttrLog
}  // namespace Zet
