#include "Zet/Reactor.h"

#include "Zet/Exception.h"

namespace Zet {

Reactor::~Reactor() {
  if (token_) token_->reactor = nullptr;
}

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
  if (!token_) token_ = new Token(this);
  activity_->loop()->deferredCallIs([token = token_] {
    if (token->reactor) token->reactor->deliverQueued();
  });
  queued_ = true;
}

void Reactor::deliverQueued() {
  queued_ = false;
  // Deactivated meanwhile, or the code was taken by a direct call.
  if (active_ && hasPending_) handleNotification(activity_.ptr());
}

}  // namespace Zet
