#include "Zet/Activity.h"

namespace Zet {

Ptr<ActivityConfig> ActivityManagerConfig::activityConfigIs(Name const& name, unsigned priorityHint) {
  return *configs_.insertMade(name, [&] { return Ptr<ActivityConfig>(new ActivityConfig(name, priorityHint, loop_)); })
              .first;
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
