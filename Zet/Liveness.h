#pragma once
// Liveness: lets a callback that may run after its owner is gone (a deferred
// call, a timer) find out whether the owner is still there. The owner keeps a
// Liveness as a member and wraps each such callback with guarded(); a guarded
// callback does nothing once the owner, and so its Liveness, is destroyed.
//
//   loop.deferredCallIs(liveness_.guarded([this] { flush(); }));
//
// The token the callbacks share is made on the first guarded() call, so an
// owner that never defers anything pays one null pointer. Not thread-safe:
// guard, destroy and run on the loop's thread.

#include <utility>

#include "Zet/Ptr.h"

namespace Zet {

class Liveness {
 public:
  Liveness() = default;
  ~Liveness() {
    if (token_) token_->alive = false;
  }
  Liveness(Liveness const&) = delete;
  Liveness& operator=(Liveness const&) = delete;

  template <class F>
  auto guarded(F fn) {
    if (!token_) token_ = Ptr<Token>(new Token);
    return [token = token_, fn = std::move(fn)]() mutable {
      if (token->alive) fn();
    };
  }

 private:
  struct Token : PtrInterface {
    bool alive = true;
  };
  Ptr<Token> token_;
};

}  // namespace Zet
