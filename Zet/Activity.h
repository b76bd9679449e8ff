#pragma once
// Activities: named streams of work, each run on one activity loop.
//
// Every state machine runs under an ActivityConfig and hands its deferred
// reactions and timers to that config's loop. The process's configs are kept
// by its ActivityManagerConfig, reached through ActivityFacility. Like the
// loop they run on, these objects belong to the loop's thread and are not
// thread-safe (only their reference counts may be touched elsewhere).

#include <cstddef>

#include "Zet/ActivityLoop.h"
#include "Zet/HashMap.h"
#include "Zet/Ptr.h"
#include "Zet/String8.h"
#include "Zet/Value.h"

namespace Zet {

class ActivityConfig : public PtrInterface {
 public:
  Name const& name() const { return name_; }
  // The number given when the config was created. The framework keeps it as
  // an ordering hint for tools and does not act on it: a loop runs all its
  // activities' work through one queue, first come first served.
  unsigned priorityHint() const { return priorityHint_; }
  // The loop this activity's work runs on; it outlives the config.
  ActivityLoop* loop() const { return loop_; }

 private:
  friend class ActivityManagerConfig;
  ActivityConfig(Name name, unsigned priorityHint, ActivityLoop* loop)
      : priorityHint_(priorityHint), name_(std::move(name)), loop_(loop) {}

  unsigned priorityHint_;  // as given at creation, see priorityHint(); first, beside the reference count
  Name name_;              // key in the manager
  ActivityLoop* loop_;     // not owned
};

// The activity configs of one loop, by name.
class ActivityManagerConfig : public PtrInterface {
 public:
  // The configs made here run on loop, which must outlive them.
  explicit ActivityManagerConfig(ActivityLoop* loop) : loop_(loop) {}

  ActivityLoop* loop() const { return loop_; }

  // The config of this name, created (running on loop()) when absent. A
  // later call returns the same config and leaves its priorityHint as it was.
  Ptr<ActivityConfig> activityConfigIs(Name const& name, unsigned priorityHint);
  // The config of this name, or null.
  Ptr<ActivityConfig> activityConfig(Name const& name) const { return configs_.value(name); }
  // Forgets the config of this name and returns it (null when absent). Its
  // holders keep it; a later activityConfigIs makes a new one.
  Ptr<ActivityConfig> activityConfigDel(Name const& name);
  size_t activityConfigCount() const { return configs_.size(); }
  HashMap<Ptr<ActivityConfig>, KeyedByName> const& activityConfigs() const { return configs_; }
  // Room for that many configs in all, made at once (see HashMap::reserve).
  void activityConfigReserve(size_t configs) { configs_.reserve(configs); }

 protected:
  ~ActivityManagerConfig() override = default;

 private:
  ActivityLoop* loop_;                    // not owned
  HashMap<Ptr<ActivityConfig>, KeyedByName> configs_;  // by name
};

// The process's activity loop and activity manager, made on first use and
// kept until the process ends (pending work is never torn down at exit).
class ActivityFacility {
 public:
  static ActivityLoop& loop();
  static Ptr<ActivityManagerConfig> const& activityManagerConfig();
};

// Text form of an activity pointer: the config's name, "" for null.
template <>
struct ValueText<Ptr<ActivityConfig>> {
  static String8 text(Ptr<ActivityConfig> const& p) { return p ? String8(p->name()) : String8(); }
};

}  // namespace Zet
