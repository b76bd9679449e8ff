#include "Zet/String8.h"

#include <sys/random.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <new>
#include <ostream>
#include <stdexcept>

#include "Zet/BlockPool.h"

namespace Zet {
namespace {

uint64_t load64(char const* p) {
  uint64_t v;
  std::memcpy(&v, p, 8);
  return v;
}

uint64_t mix(uint64_t a, uint64_t b) {
  __uint128_t r = static_cast<__uint128_t>(a) * b;
  return static_cast<uint64_t>(r) ^ static_cast<uint64_t>(r >> 64);
}

constexpr uint64_t kMul = 0xbf58476d1ce4e5b9ull;

// Drawn from the kernel once per process, so that names chosen by a peer
// cannot be made to pile into one bucket of every process's maps.
uint64_t drawSeed() noexcept {
  uint64_t seed = 0;
  if (getrandom(&seed, sizeof seed, 0) != sizeof seed)
    seed = static_cast<uint64_t>(std::chrono::steady_clock::now().time_since_epoch().count()) ^ uint64_t(getpid());
  return seed | 1;
}

}  // namespace

uint64_t String8::hashSeed() noexcept {
  static uint64_t const seed = drawSeed();
  return seed;
}

uint64_t String8::hashOf(std::string_view text) noexcept { return hashOf(text, hashSeed()); }

// Eight bytes at a time folded through a 64x64->128 multiply; the tail is
// read as a zero-padded word. Good spread for short keys, a few ns per name.
uint64_t String8::hashOf(std::string_view text, uint64_t seed) noexcept {
  char const* p = text.data();
  size_t n = text.size();
  uint64_t h = seed ^ (n * kMul);
  while (n >= 8) {
    h = mix(h ^ load64(p), kMul);
    p += 8;
    n -= 8;
  }
  if (n > 0) {
    uint64_t tail = 0;
    std::memcpy(&tail, p, n);
    h = mix(h ^ tail, kMul);
  }
  return mix(h, seed);
}

uint64_t String8::emptyHash() noexcept {
  static uint64_t const h = hashOf({});
  return h;
}

String8::String8(std::string_view text) {
  if (text.empty()) return;
  if (text.size() > kMaxSize) throw std::length_error("a String8 holds at most 2^32 - 1 bytes");
  void* mem = BlockPool::allocate(repBytes(text.size()));
  rep_ = static_cast<Rep*>(mem);
  new (&rep_->references) std::atomic<uint32_t>(1);
  rep_->size = static_cast<uint32_t>(text.size());
  rep_->hash = hashOf(text);
  std::memcpy(rep_->data, text.data(), text.size());
  rep_->data[text.size()] = '\0';
}

String8& String8::operator=(String8 const& o) noexcept {
  o.acquire();
  release();
  rep_ = o.rep_;
  return *this;
}

String8& String8::operator=(String8&& o) noexcept {
  if (this != &o) {
    release();
    rep_ = o.rep_;
    o.rep_ = nullptr;
  }
  return *this;
}

void String8::release() noexcept {
  if (rep_ && rep_->references.fetch_sub(1, std::memory_order_acq_rel) == 1)
    BlockPool::deallocate(rep_, repBytes(rep_->size));
  rep_ = nullptr;
}

String8 operator+(String8 const& a, std::string_view b) {
  std::string joined;
  joined.reserve(a.size() + b.size());
  joined.append(a.view()).append(b);
  return String8(joined);
}

std::ostream& operator<<(std::ostream& out, String8 const& s) { return out << s.view(); }

}  // namespace Zet
