#pragma once
// MemberDir: an entity that owns members of one type, keyed by name, and
// tells its notifiees when one is added or removed. The directories of
// records (the configs and statuses of agent entries and of mounts) are made
// of it; each keeps only its named accessors, how it makes a member, and the
// call its NotifieeConst receives (memberChanged).
//
// A directory removes its members in its own destructor (memberDelAll),
// while memberChanged can still reach its notifiees. Not thread-safe: used
// on the activity-loop thread.

#include <string_view>
#include <type_traits>
#include <utility>

#include "Zet/MemberCollection.h"

namespace Zet {

template <class Member>
class MemberDir : public Entity {
 protected:
  using Entity::Entity;

  Ptr<Member> member(Name const& name) const { return members_.member(name); }
  size_t memberCount() const { return members_.size(); }
  HashMap<Ptr<Member>, KeyedByName> const& members() const { return members_.members(); }
  void memberReserve(size_t members) { members_.reserve(members); }
  // The member of that name; when absent, make(name) creates it (null is
  // RangeException "null ValidPtr"), it goes in and memberChanged runs.
  template <class Make>
  Ptr<Member> memberIs(Name const& name, Make&& make) {
    return members_.memberIs(name, std::forward<Make>(make), changed());
  }
  // Takes the member out (memberChanged, then it loses its link here);
  // absent names are ignored.
  void memberDel(Name const& name) { members_.memberDel(name, changed()); }
  void memberDelAll() { members_.memberDelAll(changed()); }

  // Tells the notifiees that the member of that name was added or removed.
  virtual void memberChanged(Name const& name) = 0;

 private:
  auto changed() {
    return [this](Name const& name) { memberChanged(name); };
  }

  MemberCollection<Member> members_;
};

// The descriptor of a member directory: its members' keys as attribute 0x102
// (`memberName`), audits that every member points back to it (`inverseLabel`)
// and that the count holds, and, when MemberIs(name) and MemberDel(name) are
// given, generic access to the members.
template <auto Members, auto MemberIs = nullptr, auto MemberDel = nullptr>
TypeDescriptor memberDirDescriptor(std::string_view typeName, TypeDescriptor::Factory factory,
                                   std::string_view memberName, std::string_view inverseLabel) {
  MemberAccess const* access = nullptr;
  if constexpr (!std::is_null_pointer_v<decltype(MemberIs)>) access = memberAccess<Members, MemberIs, MemberDel>();
  return TypeDescriptor{
      typeName,
      factory,
      {{0x102, memberName, readKeys<Members>, nullptr}},
      {{inverseLabel, membersPointBack<Members>}, {"count is members count", membersCounted<Members>}},
      access};
}

}  // namespace Zet
