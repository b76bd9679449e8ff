#include "Zet/Notifiee.h"

#include <algorithm>

#include "Zet/Exception.h"
#include "Zet/Trace.h"

namespace Zet {

void NotifieeBase::onNotificationException(std::exception const& e) {
  ZET_TRACE_AT("Notifiee", 0) << "notifiee threw: " << e.what();
}

void Notifier::notifieeAdd(NotifieeBase* n) const {
  if (std::find(notifiees_.begin(), notifiees_.end(), n) != notifiees_.end()) return;
  notifiees_.push_back(n);
  ++count_;
}

void Notifier::notifieeRemove(NotifieeBase* n) const {
  auto at = std::find(notifiees_.begin(), notifiees_.end(), n);
  if (at == notifiees_.end()) return;
  --count_;
  if (walking_ > 0) {
    *at = nullptr;
    hasHoles_ = true;
  } else {
    notifiees_.erase(at);
  }
}

void Notifier::closeHoles() const {
  std::erase(notifiees_, nullptr);
  hasHoles_ = false;
}

void Notifier::deliverException(NotifieeBase* n, std::exception const& e) noexcept {
  try {
    Expect expected;
    n->onNotificationException(e);
  } catch (...) {
    // A hook that throws in turn has nowhere left to report to.
  }
}

}  // namespace Zet
