#include "Zet/mount/MountMirror.h"

#include <vector>

#include "Zet/EntityChildren.h"
#include "Zet/Format.h"
#include "Zet/Trace.h"
#include "Zet/TypeMap.h"

namespace Zet {

MountMirror::~MountMirror() = default;

void MountMirror::roundBegin() {
  for (auto& [id, entity] : byId_) previous_.emplace(entity.ptr(), entity);
  byId_.clear();
  idOf_.clear();
}

void MountMirror::roundEnd() {
  // Attributes that name another entity of the snapshot that came later.
  auto retries = std::move(retries_);
  retries_.clear();
  for (auto const& r : retries) {
    Entity::MirrorWriteScope scope;
    try {
      r.attribute->write(*r.entity, r.text);
    } catch (std::exception const& e) {
      ZET_TRACE_AT("MountFacility", 1) << r.entity->fullName() << ": attribute " << r.attribute->name
                                       << " cannot take '" << r.text << "': " << e.what();
    }
  }
  auto leftovers = std::move(previous_);
  previous_.clear();
  for (auto& [raw, entity] : leftovers) {
    if (entity == root_) root_ = nullptr;
    takeOut(*entity);
  }
}

Entity* MountMirror::byId(uint32_t id) const {
  auto found = byId_.find(id);
  if (found == byId_.end())
    throw AttrLogRecordException(format("frame names entity %u, which the mount does not have", unsigned(id)));
  return found->second.ptr();
}

void MountMirror::entityIs(NboAttrLog::Message const& frame, EntityUriPath const& target) {
  if (byId_.count(frame.id))
    throw AttrLogRecordException(format("frame gives id %u to a second entity", unsigned(frame.id)));
  Ptr<Entity> entity;
  if (frame.parent == 0) {
    if (!target.hasNames()) throwRangeException("the mount target names no entry");
    Ptr<Dir> dir = globalDir();
    for (std::string_view parent : target.parentNameTexts()) dir = dir->dirIs(Name(parent));
    Name name(target.lastNameText());
    entity = reusable(*dir, name, frame.type);
    if (!entity) entity = make(*dir, name, frame.type);
    root_ = entity;
  } else {
    Entity* parent = byId(frame.parent);
    Name name{String8(frame.name)};
    if (auto* dir = dynamic_cast<Dir*>(parent)) {
      entity = reusable(*dir, name, frame.type);
      if (!entity) entity = make(*dir, name, frame.type);
    } else if (MemberAccess const* members = parent->fwkType().members) {
      entity = memberOf(*parent, *members, name, frame.type);
    } else {
      throw AttrLogRecordException(
          format("entity %u is neither a directory nor an owner of members", unsigned(frame.parent)));
    }
  }
  remember(frame.id, entity);
  applyAttributes(*entity, frame);
}

void MountMirror::update(NboAttrLog::Message const& frame) { applyAttributes(*byId(frame.id), frame); }

bool MountMirror::remove(uint32_t id) {
  Ptr<Entity> entity(byId(id));
  takeOut(*entity);
  forgetSubtree(*entity);
  if (entity != root_) return false;
  root_ = nullptr;
  return true;
}

void MountMirror::removeAll() {
  roundBegin();
  roundEnd();
  root_ = nullptr;
}

void MountMirror::release() {
  for (auto& [id, entity] : byId_) entity->mirrorIs(false);
  for (auto& [raw, entity] : previous_) entity->mirrorIs(false);
  byId_.clear();
  idOf_.clear();
  previous_.clear();
  root_ = nullptr;
}

void MountMirror::adopt(Ptr<Entity> const& root) {
  std::vector<Ptr<Entity>> pending{root};
  while (!pending.empty()) {
    Ptr<Entity> entity = std::move(pending.back());
    pending.pop_back();
    if (!previous_.emplace(entity.ptr(), entity).second) continue;  // a link met twice
    entity->mirrorIs(true);
    forEachChild(*entity, [&](Entity* child) { pending.emplace_back(child); });
  }
  root_ = root;
}

Ptr<Entity> MountMirror::reusable(Dir const& dir, Name const& name, std::string_view type) const {
  Ptr<Dir::Entry> entry = dir.entry(name);
  Entity* held = entry ? entry->entity().ptr() : nullptr;
  if (!held || held->fwkType().name != type) return nullptr;
  auto found = previous_.find(held);
  if (found == previous_.end()) return nullptr;
  Ptr<Entity> entity = found->second;
  const_cast<MountMirror*>(this)->previous_.erase(found);
  return entity;
}

Ptr<Entity> MountMirror::make(Dir& dir, Name const& name, std::string_view type) {
  if (Ptr<Dir::Entry> entry = dir.entry(name)) {
    Entity* held = entry->entity().ptr();
    // What this mount put there in an earlier round, of another type now,
    // makes room; anything else keeps its place.
    if (held && previous_.count(held)) {
      Ptr<Entity> old = previous_.at(held);
      previous_.erase(held);
      takeOut(*old);
    }
  }
  TypeDescriptor const& descriptor = TypeMap::instance().typeResolved(type);
  Ptr<Entity> entity = descriptor.factory ? descriptor.factory(name, &dir) : nullptr;
  if (!entity) throwRangeException("null ValidPtr");
  entity->mirrorIs(true);
  Entity::MirrorWriteScope scope;
  dir.entryIs(name, entity);
  return entity;
}

Ptr<Entity> MountMirror::memberOf(Entity& owner, MemberAccess const& members, Name const& name, std::string_view type) {
  Entity::MirrorWriteScope scope;
  Ptr<Entity> held = members.member(owner, name);
  if (held && held->fwkType().name == type && previous_.erase(held.ptr())) return held;
  if (held) takeOut(*held);
  Ptr<Entity> entity = members.make(owner, name);
  if (!entity || entity->fwkType().name != type)
    throw AttrLogRecordException(format("%s makes no member of type %.*s", owner.fwkType().name.data(),
                                        int(type.size()), type.data()));
  entity->mirrorIs(true);
  return entity;
}

void MountMirror::applyAttributes(Entity& entity, NboAttrLog::Message const& frame) {
  TypeDescriptor const& type = entity.fwkType();
  Entity::MirrorWriteScope scope;
  for (auto const& a : frame.attributes) {
    auto const* attribute = type.attribute(a.id);
    if (!attribute || !attribute->write) continue;
    try {
      attribute->write(entity, a.text);
    } catch (std::exception const&) {
      // Tried again when the snapshot is complete: it may name an entity
      // that comes later in it.
      retries_.push_back({Ptr<Entity>(&entity), attribute, std::string(a.text)});
    }
  }
}

void MountMirror::remember(uint32_t id, Ptr<Entity> const& entity) {
  byId_[id] = entity;
  idOf_[entity.ptr()] = id;
}

void MountMirror::forgetSubtree(Entity& top) {
  std::vector<Ptr<Entity>> pending{Ptr<Entity>(&top)};
  while (!pending.empty()) {
    Ptr<Entity> entity = std::move(pending.back());
    pending.pop_back();
    auto found = idOf_.find(entity.ptr());
    if (found == idOf_.end()) continue;
    forEachChild(*entity, [&](Entity* child) {
      if (idOf_.count(child)) pending.emplace_back(child);
    });
    byId_.erase(found->second);
    idOf_.erase(found);
  }
}

void MountMirror::takeOut(Entity& entity) {
  Entity* parent = entity.parent();
  if (!parent) return;
  Entity::MirrorWriteScope scope;
  if (auto* dir = dynamic_cast<Dir*>(parent)) {
    Ptr<Dir::Entry> entry = dir->entry(entity.name());
    if (entry && entry->entity().ptr() == &entity) dir->entryDel(entity.name());
  } else if (MemberAccess const* members = parent->fwkType().members) {
    if (members->member(*parent, entity.name()).ptr() == &entity) members->remove(*parent, entity.name());
  }
}

}  // namespace Zet
