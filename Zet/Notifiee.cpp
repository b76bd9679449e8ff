#include "Zet/Notifiee.h"

#include "Zet/Exception.h"
#include "Zet/Trace.h"

namespace Zet {

NotifieeBase::~NotifieeBase() {
  if (Notifier const* n = registeredWith()) n->notifieeRemove(this);
}

void NotifieeBase::onNotificationException(std::exception const& e) {
  ZET_TRACE_AT("Notifiee", 0) << "notifiee threw: " << e.what();
}

Notifier::~Notifier() {
  while (head_) notifieeRemove(head_);
}

thread_local Notifier::Round* Notifier::Round::innermost = nullptr;

size_t Notifier::notifieeCount() const {
  size_t count = 0;
  for (NotifieeBase* n = head_; n; n = n->next_) ++count;
  return count;
}

void Notifier::notifieeAdd(NotifieeBase* n) const {
  if (n->registeredWith() == this) return;
  if (Notifier const* before = n->registeredWith()) before->notifieeRemove(n);
  n->registeredWithIs(this);
  n->next_ = nullptr;
  if (head_) {
    n->prev_ = head_->prev_;
    head_->prev_->next_ = n;
  } else {
    head_ = n;
  }
  head_->prev_ = n;
}

void Notifier::notifieeRemove(NotifieeBase* n) const {
  if (n->registeredWith() != this) return;
  NotifieeBase* before = n == head_ ? nullptr : n->prev_;
  for (Round* r = Round::innermost; r; r = r->outer) {
    if (&r->notifier != this) continue;
    if (r->next == n) r->next = n == r->last ? nullptr : n->next_;
    if (r->last == n) r->last = before;
  }
  if (n->next_)
    n->next_->prev_ = n->prev_;
  else if (before)
    head_->prev_ = before;
  (before ? before->next_ : head_) = n->next_;
  n->prev_ = n->next_ = nullptr;
  n->registeredWithIs(nullptr);
}

void Notifier::deliverException(NotifieeBase* n, std::exception const& e) noexcept {
  try {
    Expect expected;
    n->onNotificationException(e);
  } catch (...) {
    // A hook that throws in turn has nowhere left to report to.
  }
}

void Notifier::deliverUnknownException(NotifieeBase* n) noexcept {
  try {
    deliverException(n, Exception("notifiee threw something that is not a std::exception"));
  } catch (...) {
    // Making the report failed (no memory): nothing is left to tell.
  }
}

}  // namespace Zet
