#pragma once
// The children of an entity in the tree the attribute-log service serves and
// mounts mirror: the entities of a directory's current entries, or the
// members of an owner of a collection (its type's MemberAccess).

#include "Zet/Dir.h"

namespace Zet {

template <class Visit>
void forEachChild(Entity& entity, Visit&& visit) {
  if (auto* dir = dynamic_cast<Dir*>(&entity)) {
    for (auto const& member : dir->entries())
      if (Entity* child = member.value()->entity().ptr()) visit(child);
  } else if (MemberAccess const* members = entity.fwkType().members) {
    for (Entity* child : members->members(entity)) visit(child);
  }
}

}  // namespace Zet
