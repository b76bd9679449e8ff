#pragma once
// SharedTree: an entity of this process and everything below it, watched
// once for every subscription that serves it.
//
// Many peers mounting the same entity share one tree: the record of each
// entity below it (its id in the frames, its watch, its children) is kept
// once, and a subscriber costs its place in the list and the bytes waiting
// for it. The tree is made for the first subscriber of its root entity and
// goes with the last one.
//
// The snapshot writes an entity frame for each entity, parents before
// children; below an entity are the entities of a directory's current
// entries, or the members of a collection owner (MemberAccess). Later, an
// entity added below a watched directory is written at once to every
// subscriber (with everything below it), one that leaves is written as
// removed, and an entity whose attributes change is marked changed: its
// frame is written to each subscriber when that subscriber's connection has
// room, with the values it has then, so a burst of writes to one entity
// costs one update however long the burst (changes are conflated). An
// entity met a second time through a link in the tree is written once.
// Mirrors of entities mounted from elsewhere are not served again (a peer
// mounts them from their source): a process that mounts its own tree below
// itself, or two that mount each other's, would otherwise feed their
// mirrors back to themselves without end.
//
// Each subscriber keeps the entities changed since it last wrote them, once
// each, in the order of their first change: what it waits for, never the
// tree. A subscriber that joins a tree whose entities have moved in ways
// the tree was not told of (an entity reached through a second link, a
// mirror released) gets a new tree, made from what is there now.
//
// Attributes go out as their text, generically, from the type descriptor;
// those the type cannot take back from text (pointers, collections) are not
// sent, as the mounting side could not apply them.

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "Zet/Dir.h"
#include "Zet/attrlog/AttrLogProtocol.h"

namespace Zet {
namespace NboAttrLog {

class SharedTree : public std::enable_shared_from_this<SharedTree> {
 public:
  // What a subscriber writes to and tells about changes waiting.
  class Outlet {
   public:
    virtual std::string& frames() = 0;
    // Frames were appended to frames() outside a snapshot.
    virtual void framesAdded() = 0;
    // Some entity changed; writeChanges has work.
    virtual void changesWaiting() = 0;

   protected:
    ~Outlet() = default;
  };

  struct Node;
  struct Subscriber {
    Subscriber(Outlet& o, uint32_t s, size_t& w) : outlet(o), subscription(s), watched(w) {}
    Outlet& outlet;
    uint32_t subscription;
    size_t& watched;  // entities watched by its connection's subscriptions

   private:
    friend class SharedTree;
    size_t index = 0;                   // in subscribers_
    std::vector<Node*> changed;         // in the order of their first change,
    size_t nextChanged = 0;             // from this one on;
    std::unordered_set<Node*> waiting;  // those of them not written since
  };

  // The tree served at root (not a mirror), shared with the subscribers
  // it already has.
  static std::shared_ptr<SharedTree> of(Entity& root);
  ~SharedTree();
  SharedTree(SharedTree const&) = delete;
  SharedTree& operator=(SharedTree const&) = delete;

  // Writes the snapshot to the subscriber, counts the entities into its
  // watched count, and keeps it informed until unsubscribe.
  void subscribe(Subscriber& subscriber);
  void unsubscribe(Subscriber& subscriber);
  // Writes update frames for the entities changed since the subscriber
  // last wrote them, oldest change first, until none is left or its frames
  // hold at least limit bytes.
  void writeChanges(Subscriber& subscriber, size_t limit);

 private:
  class AttributeWatch;
  class DirWatch;
  class RootWatch;
  explicit SharedTree(Entity& root);
  // Stops being the tree that new subscriptions of its root get.
  void leaveShared();
  // Adds top and everything below it under parent (null for the root),
  // appending the new nodes, parents first, to `added`; iterative, so depth
  // costs no stack.
  void addSubtree(Entity* top, Node* parent, std::vector<Node*>& added);
  Node& newNode(Entity* entity, Node* parent);
  // Forgets node and everything below it, writing one remove frame.
  void removeSubtree(Node& node);
  // A directory's entry, or a collection owner's member, of that name
  // changed: what it holds now replaces what was served.
  void entryChanged(Node& dir, Name const& name);
  void memberChanged(Node& owner, Name const& name);
  void childChanged(Node& parent, Name const& name, Ptr<Entity> const& now);
  void rootEntryChanged();
  // Whether walking the entities below the root now meets exactly those
  // of the tree.
  bool showsEntitiesNow() const;
  void markChanged(Node& node);
  // Takes the node out of what its subscribers wait for.
  void forgetChange(Node& node);
  // Sends the frames of scratch_ to every subscriber, under its own
  // subscription, with the change in the number of entities watched.
  void publish(long watchedDelta);
  void writeEntity(std::string& out, uint32_t subscription, Node const& node) const;
  static void writeAttributes(FrameWriter& writer, Entity const& entity);

  Entity* const rootEntity_;  // the key of the tree among the shared ones
  uint32_t lastId_ = 0;
  std::unordered_map<Entity const*, std::unique_ptr<Node>> nodes_;
  Node* root_ = nullptr;
  std::unique_ptr<RootWatch> rootWatch_;
  std::vector<Subscriber*> subscribers_;
  std::string scratch_;  // frames being published
  mutable uint32_t lastWalk_ = 0;
};

}  // namespace NboAttrLog
}  // namespace Zet
