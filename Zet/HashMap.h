#pragma once
// HashMap: a hash map from a string key (by default a Name) to a value.
// With KeyedByName for the key, the values are pointers to named objects,
// each found by its object's name(): the map keeps no key of its own.
//
// Members live in storage of their own, in the order they were inserted
// (a freed place is taken again by a later insertion), and never move: a
// pointer to a member or its value stays good until that member is erased.
// An index of open-addressed slots, each with a position and 32 bits of the
// key's hash, finds them: a lookup reads one slot line and the member it
// names, and a walk reads the members in insertion order, the order in which
// a bulk of them (and usually what they point to) were made.
//
// Iterators are bookmarks: an iterator standing on a member that is erased
// moves on to the next member instead of dangling, so a walk may erase the
// member it stands on (or any other). Members inserted during a walk may or
// may not be visited by it. Not thread-safe.

#include <algorithm>
#include <bit>
#include <cassert>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <new>
#include <stdexcept>
#include <string_view>
#include <type_traits>
#include <utility>

#include "Zet/BlockPool.h"
#include "Zet/String8.h"

namespace Zet {

// Folds the high bits in, so hashes differing only high up use different slots.
inline size_t spreadHash(uint64_t h) { return static_cast<size_t>(h ^ (h >> 29) ^ (h >> 47)); }

// The key parameter of a map of pointers to objects that carry their own
// name: a member is the pointer alone, and its key is the object's name(),
// which must not change while the object is in the map. The map hands its
// values out read-only, so that none is emptied or swapped for an object of
// another name in place.
struct KeyedByName {};

template <class Value, class KeyParam = Name>
class HashMap {
  static constexpr bool kKeyedByName = std::is_same_v<KeyParam, KeyedByName>;

 public:
  using Key = std::conditional_t<kKeyedByName, Name, KeyParam>;
  static_assert(std::is_base_of_v<String8, Key>, "keys are strings: they carry their hash");
  // What the map hands out of a value: read-only when the value names its key.
  using Stored = std::conditional_t<kKeyedByName, Value const, Value>;

  class Member {
   public:
    Key const& key() const {
      if constexpr (kKeyedByName)
        return value_->name();
      else
        return key_;
    }
    Stored& value() { return value_; }
    Value const& value() const { return value_; }

   private:
    friend class HashMap;
    struct NoKey {
      explicit NoKey(Key const&) {}
    };
    Member(Key const& k, Value v) : key_(k), value_(std::move(v)) {}
    [[no_unique_address]] std::conditional_t<kKeyedByName, NoKey, Key> key_;
    Value value_;
  };

  class Iterator;

  HashMap() = default;
  HashMap(HashMap const&) = delete;
  HashMap& operator=(HashMap const&) = delete;
  ~HashMap() {
    clear();
    for (Iterator* b = bookmarks_; b; b = b->nextBookmark_) b->map_ = nullptr;
  }

  size_t size() const { return size_; }
  bool empty() const { return size_ == 0; }

  // The member with this key, or null.
  Member* member(Key const& key) const { return memberAt(findKey(hashOf(key), key)); }
  // The member whose key has this text, or null, without making a key first.
  Member* memberByText(std::string_view text) const {
    return memberAt(
        findSlot(spreadHash(String8::hashOf(text)), [text](Member const& m) { return m.key().view() == text; }));
  }
  // Starts reading the index slot where a lookup of key begins. In a map
  // far larger than the cache each lookup waits for memory: a caller about
  // to look up in several such maps asks for their slots first, so that the
  // waits overlap.
  void prefetch(Key const& key) const { prefetchSlot(hashOf(key)); }
  // The same for the key with this text, not made yet.
  void prefetchText(std::string_view text) const { prefetchSlot(spreadHash(String8::hashOf(text))); }
  // A pointer to the value for key, or null.
  Stored* find(Key const& key) const {
    Member* m = member(key);
    return m ? &m->value_ : nullptr;
  }
  // The value for key, or a default-made value when absent.
  Value value(Key const& key) const {
    Stored* v = find(key);
    return v ? *v : Value();
  }

  // Inserts key with value unless key is present. Returns the member's value
  // and whether it was inserted. A value that names its key must not be
  // null and must bear that name.
  std::pair<Stored*, bool> insert(Key const& key, Value value) {
    return insertMade(key, [&value] { return std::move(value); });
  }
  // The same with the value `make()` returns, called only when key is
  // absent: one lookup for a value that is costly to make. When make throws,
  // nothing is inserted; when make itself inserted key, its value stays and
  // the one made is dropped.
  template <class Make>
  std::pair<Stored*, bool> insertMade(Key const& key, Make&& make) {
    size_t h = hashOf(key);
    if (Member* m = memberAt(findKey(h, key))) return {&m->value_, false};
    size_t sizeBefore = size_;
    Value value = make();
    if (size_ != sizeBefore)
      if (Member* m = memberAt(findKey(h, key))) return {&m->value_, false};
    return {&add(h, key, std::move(value))->value_, true};
  }
  // Sets the value for key, inserting it when absent.
  Stored& assign(Key const& key, Value value) {
    size_t h = hashOf(key);
    Member* m = memberAt(findKey(h, key));
    if (!m) return add(h, key, std::move(value))->value_;
    checkNames(key, value);
    return m->value_ = std::move(value);
  }

  // Sizes the index for `members` members at once: inserting up to that
  // many grows it no further. A caller about to insert a known number of
  // members saves the doublings on the way, each a new array and a pass
  // over every slot.
  void reserve(size_t members) {
    members = std::min<size_t>(members, kMaxPlaces);
    if (members == 0 || fits(members, indexSize())) return;
    unsigned log = std::max<unsigned>(indexLog_, kMinIndexLog);
    while (!fits(members, size_t(1) << log)) ++log;
    resizeIndex(log);
  }

  // Removes the member with this key; returns whether there was one.
  bool erase(Key const& key) {
    size_t slot = findKey(hashOf(key), key);
    if (slot == kNone) return false;
    uint32_t position = index_[slot].position - 1;
    moveBookmarksOff(position);
    removeSlot(slot);
    free(position);
    return true;
  }

  void clear() {
    for (Iterator* b = bookmarks_; b; b = b->nextBookmark_) b->position_ = kEnd;
    for (uint32_t p = 0; p < used_; ++p)
      if (place(p).live()) place(p).member()->~Member();
    for (size_t c = 0; c < chunkCount(used_); ++c)
      BlockPool::deallocateArray(chunks_[c], chunkPlaces(c) * sizeof(Place));
    chunks_.reset();
    if (index_) BlockPool::deallocateArray(std::exchange(index_, nullptr), indexBytes(indexLog_));
    indexLog_ = 0;
    size_ = used_ = 0;
    freed_ = kNoPosition;
  }

  // A bookmark walking the members in the order of their places.
  class Iterator {
   public:
    Iterator() = default;
    Iterator(Iterator const& o) { attach(o.map_, o.position_); }
    Iterator& operator=(Iterator const& o) {
      if (this != &o) {
        detach();
        attach(o.map_, o.position_);
      }
      return *this;
    }
    ~Iterator() { detach(); }

    Member& operator*() const { return *map_->place(position_).member(); }
    Member* operator->() const { return map_->place(position_).member(); }
    explicit operator bool() const { return position_ != kEnd; }
    // The member `distance` places on, or null when that place is past the
    // end or freed. A walk through a map far larger than the cache asks for
    // what it will read a few members on, so that the waits overlap.
    Member const* ahead(size_t distance) const {
      if (position_ == kEnd || distance >= map_->used_ - position_) return nullptr;
      Place& at = map_->place(static_cast<uint32_t>(position_ + distance));
      return at.live() ? at.member() : nullptr;
    }
    Iterator& operator++() {
      advance();
      return *this;
    }
    friend bool operator==(Iterator const& a, Iterator const& b) {
      return a.position_ == b.position_ && (a.position_ == kEnd || a.map_ == b.map_);
    }

   private:
    friend class HashMap;
// The map keeps a list of the bookmarks standing in it; each one leaves the
// list in its destructor, which the compiler's dangling-pointer analysis
// cannot see through.
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdangling-pointer"
#endif
    // A bookmark standing on no member (an end, or the begin of an empty
    // map) is not registered and keeps no pointer to the map, so it may
    // outlive the map like every other bookmark.
    void attach(HashMap const* map, uint32_t position) {
      position_ = map ? position : kEnd;
      map_ = position_ != kEnd ? const_cast<HashMap*>(map) : nullptr;
      if (!map_) return;
      nextBookmark_ = map_->bookmarks_;
      if (nextBookmark_) nextBookmark_->prevBookmark_ = this;
      map_->bookmarks_ = this;
    }
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic pop
#endif
    void detach() {
      if (map_ && (prevBookmark_ || map_->bookmarks_ == this)) {
        (prevBookmark_ ? prevBookmark_->nextBookmark_ : map_->bookmarks_) = nextBookmark_;
        if (nextBookmark_) nextBookmark_->prevBookmark_ = prevBookmark_;
      }
      prevBookmark_ = nextBookmark_ = nullptr;
      map_ = nullptr;
    }
    // Steps to the next member; at the end the bookmark detaches itself.
    void advance() {
      if (position_ == kEnd) return;
      position_ = map_->liveFrom(position_ + 1);
      if (position_ == kEnd) detach();
    }

    HashMap* map_ = nullptr;
    uint32_t position_ = kEnd;
    Iterator* prevBookmark_ = nullptr;
    Iterator* nextBookmark_ = nullptr;
  };

  Iterator begin() const {
    Iterator it;
    it.attach(this, liveFrom(0));
    return it;
  }
  Iterator end() const { return Iterator(); }

  // True when every member is found through the index at its place and the
  // count holds; for audits.
  bool isConsistent() const {
    size_t live = 0;
    for (uint32_t p = 0; p < used_; ++p) {
      if (!place(p).live()) continue;
      ++live;
      if (member(place(p).member()->key()) != place(p).member()) return false;
    }
    return live == size_;
  }

 private:
  static constexpr uint32_t kEnd = UINT32_MAX;
  static constexpr uint32_t kNoPosition = UINT32_MAX;
  static constexpr size_t kNone = SIZE_MAX;
  static constexpr uint32_t kMaxPlaces = uint32_t(1) << 31;
  static constexpr unsigned kFirstChunkLog = 3;  // the first chunk holds 8 places, each next one twice the last
  static constexpr unsigned kMinIndexLog = 3;

  // Where a member lives: its storage while live, the next freed place once
  // erased. A live place starts with a pointer, which is even: the key's
  // buffer, or the value when the value names its key (a member has no base
  // and no virtual function, so its first field lies at its start). An erased
  // place holds an odd word instead: the next freed place, shifted up, with
  // the low bit set. No flag beside the member: a place of a map of pointers
  // takes 16 bytes, or 8 keyed by name.
  static_assert(sizeof(Member) >= sizeof(uint64_t));
  static_assert(kKeyedByName ? sizeof(Value) == sizeof(uintptr_t) : sizeof(Key) == sizeof(uintptr_t),
                "a place starts with one pointer");
  struct Place {
    alignas(Member) unsigned char storage[sizeof(Member)];
    Member* member() { return std::launder(reinterpret_cast<Member*>(storage)); }
    uint64_t first() const {
      uint64_t word;
      std::memcpy(&word, storage, sizeof word);
      return word;
    }
    bool live() const { return (first() & 1) == 0; }
    void freedIs(uint32_t nextFreed) {
      uint64_t word = uint64_t(nextFreed) << 1 | 1;
      std::memcpy(storage, &word, sizeof word);
    }
    uint32_t nextFreed() const { return static_cast<uint32_t>(first() >> 1); }
  };
  // A slot of the index: the place of a member, plus one (0: empty), and
  // the low 32 bits of its key's hash.
  struct Slot {
    uint32_t position;
    uint32_t hash;
  };

  static size_t hashOf(Key const& key) { return spreadHash(key.hash()); }

  // Places are kept in chunks of 8, 8, 16, 32, ... so that they never move:
  // chunk c holds the places from 8 * 2^(c-1) (0 for the first) on.
  static size_t chunkOf(uint32_t position) { return std::bit_width(uint64_t(position) >> kFirstChunkLog); }
  static size_t chunkStart(size_t chunk) { return chunk == 0 ? 0 : size_t(1) << (chunk + kFirstChunkLog - 1); }
  static size_t chunkPlaces(size_t chunk) { return chunk == 0 ? size_t(1) << kFirstChunkLog : chunkStart(chunk); }
  static size_t chunkCount(uint32_t used) { return used == 0 ? 0 : chunkOf(used - 1) + 1; }
  Place& place(uint32_t position) const {
    size_t chunk = chunkOf(position);
    return chunks_[chunk][position - chunkStart(chunk)];
  }

  size_t indexSize() const { return index_ ? size_t(1) << indexLog_ : 0; }
  void prefetchSlot(size_t h) const {
    if (index_) __builtin_prefetch(&index_[h & (indexSize() - 1)]);
  }

  size_t findKey(size_t h, Key const& key) const {
    return findSlot(h, [&key](Member const& m) { return m.key() == key; });
  }
  Member* memberAt(size_t slot) const { return slot == kNone ? nullptr : place(index_[slot].position - 1).member(); }

  // The index slot of the member with hash h that `matches`, or kNone.
  template <class Matches>
  size_t findSlot(size_t h, Matches&& matches) const {
    if (!index_) return kNone;
    size_t mask = indexSize() - 1;
    for (size_t s = h & mask;; s = (s + 1) & mask) {
      Slot const& slot = index_[s];
      if (slot.position == 0) return kNone;
      if (slot.hash == uint32_t(h) && matches(*place(slot.position - 1).member())) return s;
    }
  }

  static void checkNames([[maybe_unused]] Key const& key, [[maybe_unused]] Value const& value) {
    if constexpr (kKeyedByName) {
      if (!value) throw std::invalid_argument("a HashMap keyed by name holds no null value");
      assert(value->name() == key);
    }
  }

  Member* add(size_t h, Key const& key, Value value) {
    checkNames(key, value);
    if (!fits(size_ + 1, indexSize())) resizeIndex(index_ ? indexLog_ + 1 : kMinIndexLog);
    uint32_t position = takePlace();
    Place& at = place(position);
    try {
      new (at.storage) Member(key, std::move(value));
    } catch (...) {
      at.freedIs(freed_);
      freed_ = position;
      throw;
    }
    ++size_;
    linkSlot(position, h);
    return at.member();
  }

  uint32_t takePlace() {
    if (freed_ != kNoPosition) {
      uint32_t position = freed_;
      freed_ = place(position).nextFreed();
      return position;
    }
    // At most 2^31 places, so that the index needs at most 2^32 slots.
    if (used_ == kMaxPlaces) throw std::length_error("a HashMap holds at most 2^31 members");
    size_t chunk = chunkOf(used_);
    if (used_ == chunkStart(chunk)) newChunk(chunk);
    return used_++;
  }

  void newChunk(size_t chunk) {
    if ((chunk & (chunk - 1)) == 0) {  // the chunk table is full at 1, 2, 4, ... chunks
      auto grown = std::make_unique<Place*[]>(chunk ? 2 * chunk : 1);
      for (size_t c = 0; c < chunk; ++c) grown[c] = chunks_[c];
      chunks_ = std::move(grown);
    }
    chunks_[chunk] = static_cast<Place*>(BlockPool::allocateArray(chunkPlaces(chunk) * sizeof(Place)));
  }

  void free(uint32_t position) {
    Place& at = place(position);
    at.member()->~Member();
    at.freedIs(freed_);
    freed_ = position;
    --size_;
  }

  void linkSlot(uint32_t position, size_t h) { placeSlot({position + 1, uint32_t(h)}); }
  void placeSlot(Slot slot) {
    size_t mask = indexSize() - 1;
    size_t s = slot.hash & mask;
    while (index_[s].position != 0) s = (s + 1) & mask;
    index_[s] = slot;
  }

  // Empties a slot and moves later slots of its run back, so that every
  // member stays reachable from its home slot without tombstones.
  void removeSlot(size_t hole) {
    size_t mask = indexSize() - 1;
    for (size_t s = (hole + 1) & mask; index_[s].position != 0; s = (s + 1) & mask) {
      size_t home = index_[s].hash & mask;
      // The member at s may fill the hole when its home is not in (hole, s].
      if (((s - home) & mask) >= ((s - hole) & mask)) {
        index_[hole] = index_[s];
        hole = s;
      }
    }
    index_[hole] = {0, 0};
  }

  // Whether an index of `slots` slots holds `members` members: at most
  // three quarters of it are taken.
  static bool fits(size_t members, size_t slots) { return members * 4 <= slots * 3; }

  // An index of 2^log slots; the slots move by the hash bits they keep (the
  // index never has more than 2^32 slots, so those bits are enough).
  void resizeIndex(unsigned log) {
    size_t oldSize = indexSize();
    unsigned oldLog = indexLog_;
    Slot* old = std::exchange(index_, static_cast<Slot*>(BlockPool::allocateArray(indexBytes(log))));
    indexLog_ = static_cast<uint8_t>(log);
    for (size_t s = 0; s < oldSize; ++s)
      if (old[s].position != 0) placeSlot(old[s]);
    if (old) BlockPool::deallocateArray(old, indexBytes(oldLog));
  }
  static size_t indexBytes(unsigned log) { return sizeof(Slot) << log; }

  // The first live place from `position` on, or kEnd.
  uint32_t liveFrom(uint32_t position) const {
    for (; position < used_; ++position)
      if (place(position).live()) return position;
    return kEnd;
  }

  void moveBookmarksOff(uint32_t position) {
    for (Iterator* b = bookmarks_; b;) {
      Iterator* next = b->nextBookmark_;
      if (b->position_ == position) b->advance();
      b = next;
    }
  }

  Slot* index_ = nullptr;  // indexSize() slots, from BlockPool::allocateArray
  std::unique_ptr<Place*[]> chunks_;
  Iterator* bookmarks_ = nullptr;
  uint32_t size_ = 0;
  uint32_t used_ = 0;             // places handed out so far, live or freed
  uint32_t freed_ = kNoPosition;  // the last place freed, the first to take again
  uint8_t indexLog_ = 0;
};

}  // namespace Zet
