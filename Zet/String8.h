#pragma once
// String8: an immutable, reference-counted byte string.
//
// Copies share one buffer; the hash is computed once when the text is made, so
// using a String8 as a key costs no rehashing. A text holds at most
// 2^32 - 1 bytes (std::length_error beyond). The buffer always ends in a NUL
// byte, so charPtr() can be handed to C functions. Safe to copy across
// threads (the count is atomic); a given String8 object is not.

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <iosfwd>
#include <string>
#include <string_view>

namespace Zet {

class String8 {
 public:
  String8() noexcept = default;
  String8(char const* text) : String8(std::string_view(text ? text : "")) {}
  String8(std::string_view text);
  String8(std::string const& text) : String8(std::string_view(text)) {}
  String8(char const* data, size_t size) : String8(std::string_view(data, size)) {}
  String8(String8 const& o) noexcept : rep_(o.rep_) { acquire(); }
  String8(String8&& o) noexcept : rep_(o.rep_) { o.rep_ = nullptr; }
  ~String8() { release(); }
  String8& operator=(String8 const& o) noexcept;
  String8& operator=(String8&& o) noexcept;

  // The text, NUL-terminated; "" for the empty string.
  char const* charPtr() const noexcept { return rep_ ? rep_->data : ""; }
  size_t size() const noexcept { return rep_ ? rep_->size : 0; }
  bool isEmpty() const noexcept { return rep_ == nullptr; }
  uint64_t hash() const noexcept { return rep_ ? rep_->hash : emptyHash(); }
  std::string_view view() const noexcept { return {charPtr(), size()}; }
  operator std::string_view() const noexcept { return view(); }
  std::string str() const { return std::string(view()); }

  friend bool operator==(String8 const& a, String8 const& b) noexcept {
    return a.rep_ == b.rep_ || (a.hash() == b.hash() && a.view() == b.view());
  }
  friend bool operator==(String8 const& a, std::string_view b) noexcept { return a.view() == b; }
  friend bool operator==(String8 const& a, char const* b) noexcept {
    return a.view() == std::string_view(b);
  }
  friend auto operator<=>(String8 const& a, String8 const& b) noexcept {
    return a.view() <=> b.view();
  }
  friend String8 operator+(String8 const& a, std::string_view b);

  // The hash function every String8 uses, exposed for callers that hash text
  // they have not made into a String8 yet. It is keyed by a seed drawn at
  // random once per process: the same text hashes differently in another
  // process, so hashes must not be stored or sent.
  static uint64_t hashOf(std::string_view text) noexcept;
  static uint64_t hashOf(std::string_view text, uint64_t seed) noexcept;
  static uint64_t hashSeed() noexcept;

 private:
  // 16 bytes before the text. A count of 32 bits cannot run over: 2^32
  // handles of one text would take 32 GiB of them.
  struct Rep {
    std::atomic<uint32_t> references;
    uint32_t size;
    uint64_t hash;
    char data[1];
  };
  static constexpr size_t kMaxSize = UINT32_MAX;
  static constexpr size_t repBytes(size_t size) { return offsetof(Rep, data) + size + 1; }
  static uint64_t emptyHash() noexcept;
  void acquire() const noexcept {
    if (rep_) rep_->references.fetch_add(1, std::memory_order_relaxed);
  }
  void release() noexcept;

  Rep* rep_ = nullptr;
};

std::ostream& operator<<(std::ostream& out, String8 const& s);

// A String8 used as a key: entity names and collection keys.
class Name : public String8 {
 public:
  using String8::String8;
  Name() noexcept = default;
  explicit Name(String8 const& s) noexcept : String8(s) {}
};

}  // namespace Zet

template <>
struct std::hash<Zet::String8> {
  size_t operator()(Zet::String8 const& s) const noexcept { return s.hash(); }
};
template <>
struct std::hash<Zet::Name> {
  size_t operator()(Zet::Name const& s) const noexcept { return s.hash(); }
};
