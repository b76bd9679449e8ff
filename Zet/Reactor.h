#pragma once
// Reactor: the part of a notifiee that hands its deliveries to an activity
// loop.
//
// A state machine does not react to another entry inside that entry's
// notification. Its notifiee records what happened as a pending notification
// code, and the reactor queues one call of handleNotification on its
// activity's loop. Codes deferred before that call runs replace the pending
// one, so a burst of changes costs one call, and a long chain of reactors each
// waking the next settles one call after another on the loop instead of by
// recursion as deep as the chain. With a null activity the delivery happens at
// once, on the caller's stack.
//
// A reactor delivers only while active; it starts inactive so that its owner
// can finish setting up first. Destroying a reactor with a queued call is
// safe: the call finds it gone and does nothing. Not thread-safe: a reactor is
// used on its loop's thread.

#include <optional>
#include <utility>

#include "Zet/Activity.h"
#include "Zet/Liveness.h"
#include "Zet/Ptr.h"

namespace Zet {

class Reactor {
 public:
  explicit Reactor(Ptr<ActivityConfig> activity) : activity_(std::move(activity)) {}
  virtual ~Reactor();
  Reactor(Reactor const&) = delete;
  Reactor& operator=(Reactor const&) = delete;

  // Where deliveries run; null means at once.
  Ptr<ActivityConfig> const& activityConfig() const { return activity_; }
  // Later deliveries go to the new activity; a call already queued still runs
  // on the loop it was queued on.
  void activityConfigIs(Ptr<ActivityConfig> activity) { activity_ = std::move(activity); }

  bool isActive() const { return active_; }
  // Starts delivery, delivering a notification left pending meanwhile.
  // Throws RangeException "entity reactor is already active" when active.
  void activate();
  // Stops delivery; a pending code waits for the next activate().
  void deactivate() { active_ = false; }

  // The code waiting for delivery, if any.
  std::optional<int> pendingNotification() const {
    return hasPending_ ? std::optional<int>(pendingCode_) : std::nullopt;
  }
  // Makes code the pending notification and, while active, sees that one
  // delivery is on its way: queued on the activity's loop unless one already
  // is, or made at once when there is no activity (its exceptions then reach
  // the caller).
  void notificationDefer(int code);
  // The delivery, called with the reactor's activity. The default takes the
  // pending code and dispatches it to onNotification; with nothing pending it
  // does nothing.
  virtual void handleNotification(ActivityConfig* activity);

  bool isZombie() const { return zombie_; }
  // Marks the reactor as a zombie (its notifier has gone and its owner is to
  // clean it up) or as live. A call with the current value does nothing; a
  // change runs onZombie. Delivery goes on either way: it is the owner's
  // business to stop it.
  void zetDoZombieReactors(bool zombie);

 protected:
  // Takes the pending code, leaving none.
  std::optional<int> notificationTake() {
    std::optional<int> code = pendingNotification();
    hasPending_ = false;
    return code;
  }
  // Dispatches one delivered code.
  virtual void onNotification(int code) = 0;
  // Runs after isZombie() changed.
  virtual void onZombie(bool) {}

 private:
  void deliveryRequest();
  void deliverQueued();

  Ptr<ActivityConfig> activity_;  // where deliveries run; null: at once
  Liveness liveness_;             // a queued delivery reaches the reactor only while it lives
  int pendingCode_ = 0;           // the code awaiting delivery, when hasPending_
  bool hasPending_ = false;
  bool queued_ = false;  // a delivery call is queued on a loop
  bool active_ = false;  // deliveries are made
  bool zombie_ = false;  // marked by zetDoZombieReactors
};

}  // namespace Zet
