#include "Zet/LeftBehind.h"

#include <algorithm>

namespace Zet {

void LeftBehind::leftIs(Name const& owner, Ptr<Dir::Entry> const& entry) {
  if (!entry || entry->status() != Dir::Entry::Status::current) return;
  left_.assign(owner, entry);
  if (left_.size() >= sweepAt_) sweep();
}

Ptr<Entity> LeftBehind::taken(Name const& owner, Ptr<Dir::Entry> const& here, std::string_view type) {
  Ptr<Dir::Entry> left = left_.value(owner);
  if (!left) return nullptr;
  left_.erase(owner);
  if (left != here || left->status() != Dir::Entry::Status::current) return nullptr;
  Ptr<Entity> const& entity = left->entity();
  if (!type.empty() && entity->fwkType().name != type) return nullptr;
  return entity;
}

Ptr<Dir::Entry> LeftBehind::entryAt(EntityUriPath const& path) {
  if (!path.isAbsolute() || !path.hasNames()) return nullptr;
  Ptr<Dir> dir = globalDir();
  for (std::string_view name : path.parentNameTexts())
    if (dir) dir = ptr_cast<Dir>(dir->entityRef(Name(name)));
  Ptr<Dir::Entry> entry = dir ? dir->entry(Name(path.lastNameText())) : nullptr;
  return entry && entry->status() == Dir::Entry::Status::current ? entry : nullptr;
}

void LeftBehind::sweep() {
  // An iterator on an erased member moves on to the next by itself.
  for (auto it = left_.begin(); it;) {
    if (it->value()->status() == Dir::Entry::Status::current)
      ++it;
    else
      left_.erase(Name(it->key()));
  }
  sweepAt_ = std::max<size_t>(64, 2 * left_.size());
}

}  // namespace Zet
