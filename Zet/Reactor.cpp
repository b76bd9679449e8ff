#include "Zet/Reactor.h"

#include "Zet/Exception.h"

namespace Zet {

Reactor::~Reactor() = default;

void Reactor::activate() {
  if (active_) throwRangeException("entity reactor is already active");
  active_ = true;
  deliveryRequest();
}

void Reactor::notificationDefer(int code) {
  pendingCode_ = code;
  hasPending_ = true;
  deliveryRequest();
}

void Reactor::handleNotification(ActivityConfig*) {
  if (std::optional<int> code = notificationTake()) onNotification(*code);
}

void Reactor::zetDoZombieReactors(bool zombie) {
  if (zombie == zombie_) return;
  zombie_ = zombie;
  onZombie(zombie);
}

void Reactor::deliveryRequest() {
  if (!active_ || !hasPending_ || queued_) return;
  if (!activity_) {
    handleNotification(nullptr);
    return;
  }
  activity_->loop()->deferredCallIs(liveness_.guarded([this] { deliverQueued(); }));
  queued_ = true;
}

void Reactor::deliverQueued() {
  queued_ = false;
  // Deactivated meanwhile, or the code was taken by a direct call.
  if (active_ && hasPending_) handleNotification(activity_.ptr());
}

}  // namespace Zet
