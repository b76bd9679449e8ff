#pragma once
// MountConfigDir: the mount facility's configs, keyed by name and owned
// here. Whoever wants an entity mounted adds a config; removing it ends the
// mount. Not thread-safe: used on the activity-loop thread.

#include "Zet/MemberDir.h"
#include "Zet/MountConfig.h"

namespace Zet {

class MountConfigDir : public MemberDir<MountConfig> {
 public:
  class NotifieeConst : public TypedNotifiee<MountConfigDir> {
   public:
    // A config of that name was added or removed.
    virtual void onMountConfig(Name const&) {}
  };

  ~MountConfigDir() override;

  Ptr<MountConfig> mountConfig(Name const& name) const { return member(name); }
  size_t mountConfigCount() const { return memberCount(); }
  HashMap<Ptr<MountConfig>, KeyedByName> const& mountConfigs() const { return members(); }

  // The config of that name; a new one made with these sources (notifying
  // onMountConfig) when there is none. The sources of a config are fixed:
  // asking again with other sources is the NameInUseException of
  // constructorParameterCheck for "_source0" or "_source1".
  Ptr<MountConfig> mountConfigIs(Name const& name, EntityUri const& source0, EntityUri const& source1);
  // Removes the config (notifying onMountConfig); absent names are ignored.
  void mountConfigDel(Name const& name) { memberDel(name); }
  void mountConfigDelAll() { memberDelAll(); }

  ZET_ENTITY_TYPE();

 private:
  friend Ptr<MountConfigDir> mountConfigDirFactory(Name const&, Entity*);
  MountConfigDir(Name name, Entity* parent) : MemberDir(std::move(name), parent) {}

  void memberChanged(Name const& name) override;
};

// A new, empty directory of that name in `parent` (which may be null).
Ptr<MountConfigDir> mountConfigDirFactory(Name const& name, Entity* parent = nullptr);

}  // namespace Zet
