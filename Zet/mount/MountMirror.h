#pragma once
// MountMirror: the entities one mount has brought into this process, kept
// in step with the frames of its subscription.
//
// The root entity is placed at the target path (directories on the way are
// made); every other entity in the mirror directory its parent id names, or,
// when the parent owns a collection, made as its member by name.
// Entities are made through the type map and their attributes set from
// their text through the type descriptor, so a mirror fires the ordinary
// notifications of its type. Mirrored entities are marked as mirrors: only
// the mount machinery, inside a MirrorWriteScope, changes them.
//
// An attribute whose text the entity refuses during a snapshot (one that
// names an entity coming later in it, say) is written again when the
// snapshot is complete, and left as it is if refused again.
//
// A new round (a new snapshot over a new or the same connection) reuses the
// entities of the last one where the snapshot has an entity of the same type
// at the same place, so watchers of a mirrored entity keep watching it
// across reconnections; what the new snapshot does not have goes when the
// round ends.

#include <cstdint>
#include <string>
#include <unordered_map>
#include <vector>

#include "Zet/Dir.h"
#include "Zet/attrlog/AttrLogProtocol.h"

namespace Zet {

class MountMirror {
 public:
  MountMirror() = default;
  ~MountMirror();
  MountMirror(MountMirror const&) = delete;
  MountMirror& operator=(MountMirror const&) = delete;

  // The mirrored root, null when there is none.
  Ptr<Entity> const& root() const { return root_; }

  // The entities mirrored so far become candidates for reuse.
  void roundBegin();
  // Entities of the last round the new one did not reuse leave the tree.
  void roundEnd();

  // Applies one frame. Throws the type map's exceptions for a type this
  // process cannot make, NameInUseException when the place is held by an
  // entity that is not this mount's, and AttrLogRecordException for a frame
  // that names an id the mirror does not have.
  void entityIs(NboAttrLog::Message const& frame, EntityUriPath const& target);
  void update(NboAttrLog::Message const& frame);
  // Removes the entity and all below it; returns whether it was the root.
  bool remove(uint32_t id);

  // Takes every mirrored entity out of the tree.
  void removeAll();
  // Leaves the entities in place as ordinary local ones and forgets them.
  void release();
  // Takes over `root` and everything below it, left in place by an earlier
  // mount of the same name, as if mirrored in the last round: the next
  // snapshot reuses what it still has and removes the rest.
  void adopt(Ptr<Entity> const& root);

 private:
  Entity* byId(uint32_t id) const;
  // The entity of that name and type below dir that this mount made in an
  // earlier round, if any.
  Ptr<Entity> reusable(Dir const& dir, Name const& name, std::string_view type) const;
  Ptr<Entity> make(Dir& dir, Name const& name, std::string_view type);
  // The member of that name of a collection owner, made through the owner
  // (or reused from the last round when it has the type).
  Ptr<Entity> memberOf(Entity& owner, MemberAccess const& members, Name const& name, std::string_view type);
  void placeRoot(Ptr<Entity> const& entity, EntityUriPath const& target);
  void applyAttributes(Entity& entity, NboAttrLog::Message const& frame);
  void remember(uint32_t id, Ptr<Entity> const& entity);
  // Forgets entity and every mirrored entity below it.
  void forgetSubtree(Entity& entity);
  static void takeOut(Entity& entity);

  std::unordered_map<uint32_t, Ptr<Entity>> byId_;
  std::unordered_map<Entity const*, uint32_t> idOf_;
  std::unordered_map<Entity const*, Ptr<Entity>> previous_;  // last round's, not reused yet
  struct Retry {
    Ptr<Entity> entity;
    AttributeDescriptor const* attribute;
    std::string text;
  };
  std::vector<Retry> retries_;  // attribute writes refused before the round ended
  Ptr<Entity> root_;
};

}  // namespace Zet
