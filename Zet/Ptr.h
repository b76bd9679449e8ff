#pragma once
// Intrusive reference counting.
//
// PtrInterface is the base of every reference-counted object of the framework.
// Counts are atomic, so a Ptr may be copied and dropped on any thread; the
// object itself is not made thread-safe by this.

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <type_traits>
#include <utility>

#include "Zet/BlockPool.h"

namespace Zet {

class PtrInterface : public BlockAllocated {
 public:
  PtrInterface() = default;
  PtrInterface(PtrInterface const&) = delete;
  PtrInterface& operator=(PtrInterface const&) = delete;

  long references() const { return references_.load(std::memory_order_relaxed); }
  void newRef() const { references_.fetch_add(1, std::memory_order_relaxed); }
  // Drops one reference; the object is destroyed when the last one goes.
  void deleteRef() const {
    if (references_.fetch_sub(1, std::memory_order_acq_rel) == 1) onZeroReferences();
  }

 protected:
  virtual ~PtrInterface() = default;
  // Called once the count reaches zero. The default destroys the object.
  virtual void onZeroReferences() const { delete this; }

 private:
  // Four bytes: a derived class may keep a small field in the rest of the
  // word (more than 2^32 references would take 32 GiB of pointers).
  mutable std::atomic<uint32_t> references_{0};
};

// An owning pointer to a PtrInterface-derived object. Ptr<T const> is the
// read-only form: it can observe the object but not change it.
template <class T>
class Ptr {
 public:
  Ptr() noexcept = default;
  Ptr(std::nullptr_t) noexcept {}
  Ptr(T* p) noexcept : p_(p) { acquire(); }
  Ptr(Ptr const& o) noexcept : p_(o.p_) { acquire(); }
  Ptr(Ptr&& o) noexcept : p_(std::exchange(o.p_, nullptr)) {}
  // From a pointer to a type whose pointers convert to T* (a derived type,
  // or the same type made const); never from const to non-const.
  template <class U>
    requires std::is_convertible_v<U*, T*>
  Ptr(Ptr<U> const& o) noexcept : p_(o.ptr()) { acquire(); }
  ~Ptr() { release(); }

  Ptr& operator=(Ptr o) noexcept {
    std::swap(p_, o.p_);
    return *this;
  }

  T* ptr() const noexcept { return p_; }
  T* operator->() const noexcept { return p_; }
  T& operator*() const noexcept { return *p_; }
  explicit operator bool() const noexcept { return p_ != nullptr; }

  friend bool operator==(Ptr const& a, std::nullptr_t) noexcept { return a.p_ == nullptr; }

 private:
  void acquire() const noexcept {
    if (p_) p_->newRef();
  }
  void release() noexcept {
    if (p_) std::exchange(p_, nullptr)->deleteRef();
  }
  T* p_ = nullptr;
};

// Pointers compare by identity, across const and base/derived forms.
template <class T, class U>
bool operator==(Ptr<T> const& a, Ptr<U> const& b) noexcept {
  return a.ptr() == b.ptr();
}
template <class T, class U>
bool operator==(Ptr<T> const& a, U* b) noexcept {
  return a.ptr() == b;
}

// Converts to a derived type; null when the object is of another type.
template <class To, class From>
Ptr<To> ptr_cast(Ptr<From> const& p) {
  return Ptr<To>(dynamic_cast<To*>(p.ptr()));
}

}  // namespace Zet

template <class T>
struct std::hash<Zet::Ptr<T>> {
  size_t operator()(Zet::Ptr<T> const& p) const noexcept { return std::hash<T*>()(p.ptr()); }
};
