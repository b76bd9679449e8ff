#include "Zet/MountMachinery.h"

#include "Zet/Activity.h"

namespace Zet {

MountMachinery::MountMachinery(Ptr<MountConfigDir> const& configs, Ptr<MountStatusDir> statuses)
    : statuses_(std::move(statuses)) {
  notifierIs(configs);
  for (auto const& member : configs->mountConfigs()) onMountConfig(Name(member.key()));
}

MountMachinery::~MountMachinery() {
  for (auto& [name, mount] : mounts_) mount->stop();
}

Ptr<MountLink> MountMachinery::link(EntityUri const& source) {
  std::string key(MountLink::endpointKey(source).view());
  if (auto found = links_.find(key); found != links_.end()) return found->second;
  Ptr<MountLink> made(new MountLink(source, [this, key](MountLink* gone) {
    if (auto found = links_.find(key); found != links_.end() && found->second == gone) links_.erase(found);
  }));
  links_.emplace(key, made.ptr());
  return made;
}

void MountMachinery::onMountConfig(Name const& name) {
  std::string key(name.view());
  auto found = mounts_.find(key);
  if (found != mounts_.end()) {
    // Ended now, destroyed once whatever called us is over: the call may
    // come from within the mount's own work.
    found->second->stop();
    ActivityFacility::loop().deferredCallIs([ended = std::shared_ptr<Mount>(std::move(found->second))] {});
    mounts_.erase(found);
  }
  if (Ptr<MountConfig> config = notifier()->mountConfig(name))
    mounts_.emplace(key, std::make_unique<Mount>(*this, config, statuses_->mountStatusIs(name)));
}

}  // namespace Zet
