#pragma once
// MountStatusDir: the mount facility's statuses, keyed by the name of their
// MountConfig and owned here. Not thread-safe: used on the activity-loop
// thread.

#include "Zet/MemberDir.h"
#include "Zet/MountStatus.h"

namespace Zet {

class MountStatusDir : public MemberDir<MountStatus> {
 public:
  class NotifieeConst : public TypedNotifiee<MountStatusDir> {
   public:
    // A status of that name was added or removed.
    virtual void onMountStatus(Name const&) {}
  };

  ~MountStatusDir() override;

  Ptr<MountStatus> mountStatus(Name const& name) const { return member(name); }
  size_t mountStatusCount() const { return memberCount(); }
  HashMap<Ptr<MountStatus>, KeyedByName> const& mountStatuses() const { return members(); }

  // The status of that name; a new one (notifying onMountStatus) when there
  // is none.
  Ptr<MountStatus> mountStatusIs(Name const& name);
  // Removes the status (notifying onMountStatus); absent names are ignored.
  void mountStatusDel(Name const& name) { memberDel(name); }
  void mountStatusDelAll() { memberDelAll(); }

  ZET_ENTITY_TYPE();

 private:
  friend Ptr<MountStatusDir> mountStatusDirFactory(Name const&, Entity*);
  MountStatusDir(Name name, Entity* parent) : MemberDir(std::move(name), parent) {}

  void memberChanged(Name const& name) override;
};

// A new, empty directory of that name in `parent` (which may be null).
Ptr<MountStatusDir> mountStatusDirFactory(Name const& name, Entity* parent = nullptr);

}  // namespace Zet
