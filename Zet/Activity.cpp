#include "Zet/Activity.h"

namespace Zet {

Ptr<ActivityConfig> ActivityManagerConfig::activityConfigIs(Name const& name, unsigned priorityHint) {
  if (Ptr<ActivityConfig>* existing = configs_.find(name)) return *existing;
  Ptr<ActivityConfig> config(new ActivityConfig(name, priorityHint, loop_));
  configs_.insert(name, config);
  return config;
}

Ptr<ActivityConfig> ActivityManagerConfig::activityConfigDel(Name const& name) {
  Ptr<ActivityConfig> removed = configs_.value(name);
  configs_.erase(name);
  return removed;
}

ActivityLoop& ActivityFacility::loop() {
  static ActivityLoop* const loop = new ActivityLoop;
  return *loop;
}

Ptr<ActivityManagerConfig> ActivityFacility::activityManagerConfig() {
  static ActivityManagerConfig* const manager = [] {
    auto* m = new ActivityManagerConfig(&loop());
    m->newRef();  // the facility's own reference, never dropped
    return m;
  }();
  return manager;
}

}  // namespace Zet
