#pragma once
// ServedTree: one subscription of a mounting peer, the entity at a path of
// this process and everything below it, watched for as long as the peer
// keeps the subscription.
//
// The snapshot writes an entity frame for each entity, parents before
// children; below an entity are the entities of a directory's current
// entries, or the members of a collection owner (MemberAccess). Later, an entity added below a watched directory is written at
// once (with everything below it), one that leaves is written as removed,
// and an entity whose attributes change is marked changed: its frame is
// written when the connection has room, with the values it has then, so a
// burst of writes to one entity costs one update however long the burst
// (changes are conflated). An entity met a second time through a link in
// the tree is written once. Mirrors of entities mounted from elsewhere are
// not served again (a peer mounts them from their source): a process that
// mounts its own tree below itself, or two that mount each other's, would
// otherwise feed their mirrors back to themselves without end.
//
// Attributes go out as their text, generically, from the type descriptor;
// those the type cannot take back from text (pointers, collections) are not
// sent, as the mounting side could not apply them.

#include <cstdint>
#include <memory>
#include <string_view>
#include <unordered_map>

#include "Zet/Dir.h"
#include "Zet/attrlog/AttrLogProtocol.h"

namespace Zet {
namespace NboAttrLog {

class ServedTree {
 public:
  // What the tree writes to and tells about changes waiting.
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

  // Counts the entities it watches into `watched` (shared by the trees of
  // one connection), and takes them off again as they go.
  ServedTree(Outlet& outlet, uint32_t subscription, size_t& watched);
  ~ServedTree();
  ServedTree(ServedTree const&) = delete;
  ServedTree& operator=(ServedTree const&) = delete;

  // Writes the snapshot of the entity at path (or notFound) and starts
  // watching it.
  void serve(std::string_view path);
  // Writes update frames for changed entities, oldest change first, until
  // none is left or frames() holds at least limit bytes.
  void writeChanges(size_t limit);

 private:
  struct Node;
  class AttributeWatch;
  class DirWatch;
  class RootWatch;

  // Adds top and everything below it under parent (null for the root),
  // writing their frames; iterative, so depth costs no stack.
  void addSubtree(Entity* top, Node* parent);
  Node& newNode(Entity* entity, Node* parent);
  // Forgets node and everything below it, writing one remove frame.
  void removeSubtree(Node& node);
  // A directory's entry, or a collection owner's member, of that name
  // changed: what it holds now replaces what was served.
  void entryChanged(Node& dir, Name const& name);
  void memberChanged(Node& owner, Name const& name);
  void childChanged(Node& parent, Name const& name, Ptr<Entity> const& now);

  void rootEntryChanged();
  void markChanged(Node& node);
  void unlinkChanged(Node& node);
  void writeEntity(Node const& node);
  void writeAttributes(FrameWriter& writer, Entity const& entity);

  Outlet& outlet_;
  uint32_t subscription_;
  size_t& watched_;
  uint32_t lastId_ = 0;
  std::unordered_map<Entity const*, std::unique_ptr<Node>> nodes_;
  Node* root_ = nullptr;
  std::unique_ptr<RootWatch> rootWatch_;
  Node* changedHead_ = nullptr;  // changed entities, oldest change first
  Node* changedTail_ = nullptr;
};

}  // namespace NboAttrLog
}  // namespace Zet
