#pragma once
// MountMachinery: what carries out the mount facility's configs. It keeps
// one Mount per MountConfig, made when the config appears and ended when it
// goes, and the links to serving processes that the mounts share (one per
// endpoint). Made with the facility's directories; lives as long as they do.

#include <memory>
#include <string>
#include <unordered_map>

#include "Zet/LeftBehind.h"
#include "Zet/MountConfigDir.h"
#include "Zet/MountStatusDir.h"
#include "Zet/mount/Mount.h"

namespace Zet {

class MountMachinery : private MountConfigDir::NotifieeConst {
 public:
  MountMachinery(Ptr<MountConfigDir> const& configs, Ptr<MountStatusDir> statuses);
  ~MountMachinery() override;

  // Off: every mount ends and configs are no longer followed; on: they are
  // followed again, those already there included.
  void activeIs(bool active);

  // The link to the endpoint of source, shared by the mounts that use it.
  Ptr<MountLink> link(EntityUri const& source);
  // Mirrors that statePreserving mounts left in place when their configs
  // went, by mount name: a mount of that name at the same target takes its
  // mirror over again.
  LeftBehind& leftBehind() { return leftBehind_; }

 private:
  void onMountConfig(Name const& name) override;

  void endMount(std::string const& name);

  Ptr<MountConfigDir> configs_;
  Ptr<MountStatusDir> statuses_;
  std::unordered_map<std::string, std::unique_ptr<Mount>> mounts_;
  std::unordered_map<std::string, MountLink*> links_;  // by endpoint; each removes itself when it closes
  LeftBehind leftBehind_;
};

}  // namespace Zet
