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

// Handed out by reference: the state machines ask for it several times per
// entry, and a copy each time would be a pair of atomic counts. The
// facility's own reference is never dropped.
Ptr<ActivityManagerConfig> const& ActivityFacility::activityManagerConfig() {
  static auto const* const manager = new Ptr<ActivityManagerConfig>(new ActivityManagerConfig(&loop()));
  return *manager;
}

}  // namespace Zet
