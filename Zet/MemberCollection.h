#pragma once
// The owned members of a directory-like entity, keyed by name. The owner
// makes each member with itself as parent and, once it has taken a member
// out, clears the member's link back to it, so a member kept alive elsewhere
// never points at a dead owner.

#include <utility>

#include "Zet/Entity.h"
#include "Zet/HashMap.h"

namespace Zet {

template <class T>
class MemberCollection {
 public:
  size_t size() const { return members_.size(); }
  HashMap<Ptr<T>> const& members() const { return members_; }
  Ptr<T> member(Name const& name) const { return members_.value(name); }

  // The member of that name; when absent, make(name) creates it (null is
  // RangeException "null ValidPtr") and it is inserted. `created` tells which.
  template <class Make>
  Ptr<T> memberIs(Name const& name, Make&& make, bool& created) {
    created = false;
    if (Ptr<T>* existing = members_.find(name)) return *existing;
    Ptr<T> m = make(name);
    if (!m) throwRangeException("null ValidPtr");
    members_.insert(name, m);
    created = true;
    return m;
  }

  // Takes the member out and returns it (null when absent).
  Ptr<T> memberDel(Name const& name) {
    Ptr<T>* found = members_.find(name);
    if (!found) return nullptr;
    Ptr<T> m = std::move(*found);
    members_.erase(name);
    return m;
  }


 private:
  HashMap<Ptr<T>> members_;
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
