#pragma once
// MountStatusDir: the mount facility's statuses, keyed by the name of their
// MountConfig and owned here. Not thread-safe: used on the activity-loop
// thread.

#include "Zet/MemberCollection.h"
#include "Zet/MountStatus.h"

namespace Zet {

class MountStatusDir : public Entity {
 public:
  class NotifieeConst : public TypedNotifiee<MountStatusDir> {
   public:
    // A status of that name was added or removed.
    virtual void onMountStatus(Name const&) {}
  };

  ~MountStatusDir() override;

  Ptr<MountStatus> mountStatus(Name const& name) const { return statuses_.member(name); }
  size_t mountStatusCount() const { return statuses_.size(); }
  HashMap<Ptr<MountStatus>> const& mountStatuses() const { return statuses_.members(); }

  // The status of that name; a new one (notifying onMountStatus) when there
  // is none.
  Ptr<MountStatus> mountStatusIs(Name const& name);
  // Removes the status (notifying onMountStatus); absent names are ignored.
  void mountStatusDel(Name const& name);
  void mountStatusDelAll();

  ZET_ENTITY_TYPE();

 private:
  friend Ptr<MountStatusDir> mountStatusDirFactory(Name const&, Entity*);
  MountStatusDir(Name name, Entity* parent) : Entity(std::move(name), parent) {}

  // Notifies the change of one member.
  void memberChanged(Name const& name);

  MemberCollection<MountStatus> statuses_;
};

// A new, empty directory of that name in `parent` (which may be null).
Ptr<MountStatusDir> mountStatusDirFactory(Name const& name, Entity* parent = nullptr);

}  // namespace Zet
