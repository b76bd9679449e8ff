#pragma once
// Change notification.
//
// A Notifier keeps the notifiees registered with it and calls them, on the
// calling thread, in registration order. Each round walks a snapshot of the
// list: notifiees registered during the round are first called in the next
// one, and a notifiee unregistered during the round is not called after it
// left. A handler's exception is caught around that one call and handed to
// the notifiee's exception hook; the other notifiees are still called.

#include <cstddef>
#include <exception>
#include <vector>

namespace Zet {

class NotifieeBase {
 public:
  NotifieeBase() = default;
  NotifieeBase(NotifieeBase const&) = delete;
  NotifieeBase& operator=(NotifieeBase const&) = delete;

  // While off, the notifiee receives nothing.
  bool hasNotificationActive() const { return notificationActive_; }
  virtual void hasNotificationActiveIs(bool active) { notificationActive_ = active; }

  // Receives what one of this notifiee's handlers threw during a notification.
  // The default traces it (facility "Notifiee", level 0).
  virtual void onNotificationException(std::exception const& e);

 protected:
  virtual ~NotifieeBase() = default;

 private:
  bool notificationActive_ = true;
};

class Notifier {
 public:
  Notifier() = default;
  Notifier(Notifier const&) = delete;
  Notifier& operator=(Notifier const&) = delete;

  size_t notifieeCount() const { return count_; }

  // Registration; registering twice or removing an absent notifiee is a no-op.
  void notifieeAdd(NotifieeBase* n) const;
  void notifieeRemove(NotifieeBase* n) const;

 protected:
  ~Notifier() = default;

  // Calls handler(notifiee) for each active registered notifiee, as a
  // snapshot round (see above). N is the notifiee interface of the caller's
  // type; only notifiees of that interface can have registered.
  template <class N, class Handler>
  void notify(Handler&& handler) const {
    Round round(*this);
    for (size_t i = 0; i < round.size; ++i) {
      NotifieeBase* n = notifiees_[i];
      if (!n || !n->hasNotificationActive()) continue;
      try {
        handler(*static_cast<N*>(n));
      } catch (std::exception const& e) {
        deliverException(n, e);
      }
    }
  }

 private:
  // Marks a walk in progress so that removals leave holes instead of shifting
  // members under it; the last walk to finish closes the holes.
  struct Round {
    explicit Round(Notifier const& n) : notifier(n), size(n.notifiees_.size()) { ++n.walking_; }
    ~Round() {
      if (--notifier.walking_ == 0 && notifier.hasHoles_) notifier.closeHoles();
    }
    Notifier const& notifier;
    size_t size;
  };
  static void deliverException(NotifieeBase* n, std::exception const& e) noexcept;
  void closeHoles() const;

  mutable std::vector<NotifieeBase*> notifiees_;
  mutable size_t count_ = 0;
  mutable unsigned walking_ = 0;
  mutable bool hasHoles_ = false;
};

}  // namespace Zet
