#pragma once
// Change notification.
//
// A Notifier keeps the notifiees registered with it and calls them, on the
// calling thread, in registration order. Each round walks a snapshot of the
// list: notifiees registered during the round are first called in the next
// one, and a notifiee unregistered during the round is not called after it
// left. Whatever a handler throws is caught around that one call and handed
// to the notifiee's exception hook; the other notifiees are still called.
//
// The list is intrusive (each notifiee holds its links), so registering and
// unregistering cost the same however many notifiees there are.

#include <cstddef>
#include <cstdint>
#include <exception>

#include "Zet/String8.h"

namespace Zet {

class Notifier;

class NotifieeBase {
 public:
  NotifieeBase() = default;
  // A catch-all notifiee is not called through its notifier's interface:
  // every notification of the notifier reaches onAnyNotification instead.
  explicit NotifieeBase(bool catchAll) : registration_(catchAll ? uintptr_t(kCatchAll) : 0) {}
  NotifieeBase(NotifieeBase const&) = delete;
  NotifieeBase& operator=(NotifieeBase const&) = delete;

  // While off, the notifiee receives nothing.
  bool hasNotificationActive() const { return !(registration_ & kInactive); }
  virtual void hasNotificationActiveIs(bool active) {
    registration_ = active ? registration_ & ~kInactive : registration_ | kInactive;
  }

  // Receives what one of this notifiee's handlers threw during a notification
  // (something not derived from std::exception arrives as a Zet::Exception
  // saying so). The default traces it (facility "Notifiee", level 0).
  virtual void onNotificationException(std::exception const& e);

 protected:
  // What a catch-all notifiee receives for each notification: the name of
  // the collection member added or removed, or null for anything else.
  virtual void onAnyNotification(Name const* /*member*/) {}

  // Leaves the notifier it is still registered with.
  virtual ~NotifieeBase();

 private:
  friend class Notifier;
  // The notifier whose list holds this one (null: none), with the two flags
  // in the low bits of its address, which are zero: a notifiee is four words.
  enum : uintptr_t { kInactive = 1, kCatchAll = 2, kFlags = 3 };
  Notifier const* registeredWith() const { return reinterpret_cast<Notifier const*>(registration_ & ~kFlags); }
  void registeredWithIs(Notifier const* n) { registration_ = reinterpret_cast<uintptr_t>(n) | (registration_ & kFlags); }
  bool catchAll() const { return registration_ & kCatchAll; }

  uintptr_t registration_ = 0;
  NotifieeBase* prev_ = nullptr;  // links of that list; the first one's prev_ is the last one
  NotifieeBase* next_ = nullptr;
};

class Notifier {
 public:
  Notifier() = default;
  Notifier(Notifier const&) = delete;
  Notifier& operator=(Notifier const&) = delete;

  // Walks the list: for tests and audits.
  size_t notifieeCount() const;

  // Appends a notifiee (after taking it off any other notifier); registering
  // it again, or removing an absent one, is a no-op.
  void notifieeAdd(NotifieeBase* n) const;
  void notifieeRemove(NotifieeBase* n) const;

 protected:
  ~Notifier();

  // Calls handler(notifiee) for each active registered notifiee, as a
  // snapshot round (see above). N is the notifiee interface of the caller's
  // type; only notifiees of that interface (and catch-all ones) can have
  // registered. `member` names the collection member the notification is
  // about, for catch-all notifiees.
  template <class N, class Handler>
  void notify(Handler&& handler, Name const* member = nullptr) const {
    if (!head_) return;
    Round round(*this);
    while (NotifieeBase* n = round.take()) {
      if (!n->hasNotificationActive()) continue;
      try {
        if (n->catchAll())
          n->onAnyNotification(member);
        else
          handler(*static_cast<N*>(n));
      } catch (std::exception const& e) {
        deliverException(n, e);
      } catch (...) {
        deliverUnknownException(n);
      }
    }
  }

 private:
  // A round in progress: the next notifiee to call and the last one that
  // was registered when the round began. Rounds nest (a handler may cause
  // another round, of this notifier or another); removals move the cursors
  // of every round of their notifier in progress. The rounds in progress
  // are kept per thread, not per notifier: few are in progress at any time,
  // and every entity would otherwise carry a word for them.
  //
  // Each round takes itself off the thread's list in its destructor, which
  // the compiler's dangling-pointer analysis cannot see through.
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdangling-pointer"
#endif
  struct Round {
    explicit Round(Notifier const& n) : notifier(n), next(n.head_), last(n.tail()), outer(innermost) {
      innermost = this;
    }
    ~Round() { innermost = outer; }
    NotifieeBase* take() {
      NotifieeBase* n = next;
      if (n) next = n == last ? nullptr : n->next_;
      return n;
    }
    Notifier const& notifier;
    NotifieeBase* next;
    NotifieeBase* last;
    Round* outer;
    // The thread's innermost round in progress, of any notifier.
    [[gnu::tls_model("initial-exec")]] static thread_local Round* innermost;
  };
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic pop
#endif
  static void deliverException(NotifieeBase* n, std::exception const& e) noexcept;
  static void deliverUnknownException(NotifieeBase* n) noexcept;

  NotifieeBase* tail() const { return head_ ? head_->prev_ : nullptr; }

  // The first registered notifiee, whose prev_ is the last one: one word
  // holds the list, for every entity has one.
  mutable NotifieeBase* head_ = nullptr;
};

static_assert(alignof(Notifier) >= 4, "a notifier's address leaves two low bits free for a notifiee's flags");

}  // namespace Zet
