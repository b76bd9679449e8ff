#include "Zet/mount/MountMachinery.h"

#include "Zet/Activity.h"

namespace Zet {

MountMachinery::MountMachinery(Ptr<MountConfigDir> const& configs, Ptr<MountStatusDir> statuses)
    : configs_(configs), statuses_(std::move(statuses)) {
  activeIs(true);
}

void MountMachinery::activeIs(bool active) {
  if (active == bool(notifier())) return;
  notifierIs(active ? configs_ : nullptr);
  if (active) {
    for (auto const& member : configs_->mountConfigs()) onMountConfig(Name(member.key()));
    return;
  }
  while (!mounts_.empty()) endMount(mounts_.begin()->first);
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

void MountMachinery::endMount(std::string const& name) {
  auto found = mounts_.find(name);
  if (found == mounts_.end()) return;
  // Ended now, destroyed once whatever called us is over: the call may come
  // from within the mount's own work.
  found->second->stop();
  ActivityFacility::loop().deferredCallIs([ended = std::shared_ptr<Mount>(std::move(found->second))] {});
  mounts_.erase(found);
}

void MountMachinery::onMountConfig(Name const& name) {
  std::string key(name.view());
  endMount(key);
  if (Ptr<MountConfig> config = configs_->mountConfig(name))
    mounts_.emplace(key, std::make_unique<Mount>(*this, config, statuses_->mountStatusIs(name)));
}

}  // namespace Zet
