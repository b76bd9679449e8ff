#pragma once
// The owned members of a directory-like entity, keyed by name. The owner
// makes each member with itself as parent and, once it has taken a member
// out, clears the member's link back to it, so a member kept alive elsewhere
// never points at a dead owner.

#include <utility>

#include "Zet/Entity.h"
#include "Zet/HashMap.h"

namespace Zet {

// T must have removedFromOwner(), which clears its link back to the owner.
// `changed(name)` is the owner's notification of a member added or removed;
// it runs after the member went in, and before a removed member loses its
// link, so notifiees still see where it was.
template <class T>
class MemberCollection {
 public:
  size_t size() const { return members_.size(); }
  HashMap<Ptr<T>, KeyedByName> const& members() const { return members_; }
  void reserve(size_t members) { members_.reserve(members); }
  Ptr<T> member(Name const& name) const { return members_.value(name); }

  // The member of that name; when absent, make(name) creates it (null is
  // RangeException "null ValidPtr"), it is inserted and changed(name) runs.
  template <class Make, class Changed>
  Ptr<T> memberIs(Name const& name, Make&& make, Changed&& changed) {
    if (Ptr<T> const* existing = members_.find(name)) return *existing;
    Ptr<T> m = make(name);
    if (!m) throwRangeException("null ValidPtr");
    members_.insert(name, m);
    changed(name);
    return m;
  }

  // Takes the member out, if present: changed(name), then the member loses
  // its link to the owner.
  template <class Changed>
  void memberDel(Name const& name, Changed&& changed) {
    Ptr<T> const* found = members_.find(name);
    if (!found) return;
    Ptr<T> m = *found;
    members_.erase(name);
    changed(name);
    m->removedFromOwner();
  }

  // Removes every member in one pass (the bookmark moves on as each goes).
  template <class Changed>
  void memberDelAll(Changed&& changed) {
    for (auto it = members_.begin(); it;) memberDel(Name(it->key()), changed);
  }

 private:
  HashMap<Ptr<T>, KeyedByName> members_;
};

// Audit rules of an owner whose accessor Members returns its member map:
// every member's parent is the owner, and the count is the members held.
template <auto Members>
bool membersPointBack(Entity const& owner) {
  using D = typename detail::MemberTraits<decltype(Members)>::Class;
  for (auto const& m : (static_cast<D const&>(owner).*Members)())
    if (m.value()->parent() != &owner) return false;
  return true;
}
template <auto Members>
bool membersCounted(Entity const& owner) {
  using D = typename detail::MemberTraits<decltype(Members)>::Class;
  return (static_cast<D const&>(owner).*Members)().isConsistent();
}

}  // namespace Zet
