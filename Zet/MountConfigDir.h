#pragma once
// MountConfigDir: the mount facility's configs, keyed by name and owned
// here. Whoever wants an entity mounted adds a config; removing it ends the
// mount. Not thread-safe: used on the activity-loop thread.

#include "Zet/MemberCollection.h"
#include "Zet/MountConfig.h"

namespace Zet {

class MountConfigDir : public Entity {
 public:
  class NotifieeConst : public TypedNotifiee<MountConfigDir> {
   public:
    // A config of that name was added or removed.
    virtual void onMountConfig(Name const&) {}
  };

  ~MountConfigDir() override;

  Ptr<MountConfig> mountConfig(Name const& name) const { return configs_.member(name); }
  size_t mountConfigCount() const { return configs_.size(); }
  HashMap<Ptr<MountConfig>> const& mountConfigs() const { return configs_.members(); }

  // The config of that name; a new one made with these sources (notifying
  // onMountConfig) when there is none. The sources of a config are fixed:
  // asking again with other sources is the NameInUseException of
  // constructorParameterCheck for "_source0" or "_source1".
  Ptr<MountConfig> mountConfigIs(Name const& name, EntityUri const& source0, EntityUri const& source1);
  // Removes the config (notifying onMountConfig); absent names are ignored.
  void mountConfigDel(Name const& name);
  void mountConfigDelAll();

  ZET_ENTITY_TYPE();

 private:
  friend Ptr<MountConfigDir> mountConfigDirFactory(Name const&, Entity*);
  MountConfigDir(Name name, Entity* parent) : Entity(std::move(name), parent) {}

  // Notifies the change of one member.
  void memberChanged(Name const& name);

  MemberCollection<MountConfig> configs_;
};

// A new, empty directory of that name in `parent` (which may be null).
Ptr<MountConfigDir> mountConfigDirFactory(Name const& name, Entity* parent = nullptr);

}  // namespace Zet
