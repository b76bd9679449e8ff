#include "Zet/Notifiee.h"

#include "Zet/Exception.h"
#include "Zet/Trace.h"

namespace Zet {

NotifieeBase::~NotifieeBase() {
  if (registeredWith_) registeredWith_->notifieeRemove(this);
}

void NotifieeBase::onNotificationException(std::exception const& e) {
  ZET_TRACE_AT("Notifiee", 0) << "notifiee threw: " << e.what();
}

Notifier::~Notifier() {
  while (head_) notifieeRemove(head_);
}

void Notifier::notifieeAdd(NotifieeBase* n) const {
  if (n->registeredWith_ == this) return;
  if (n->registeredWith_) n->registeredWith_->notifieeRemove(n);
  n->registeredWith_ = this;
  n->prev_ = tail_;
  n->next_ = nullptr;
  (tail_ ? tail_->next_ : head_) = n;
  tail_ = n;
  ++count_;
}

void Notifier::notifieeRemove(NotifieeBase* n) const {
  if (n->registeredWith_ != this) return;
  for (Round* r = rounds_; r; r = r->outer) {
    if (r->next == n) r->next = n == r->last ? nullptr : n->next_;
    if (r->last == n) r->last = n->prev_;
  }
  (n->prev_ ? n->prev_->next_ : head_) = n->next_;
  (n->next_ ? n->next_->prev_ : tail_) = n->prev_;
  n->prev_ = n->next_ = nullptr;
  n->registeredWith_ = nullptr;
  --count_;
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
