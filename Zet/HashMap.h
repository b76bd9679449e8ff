#pragma once
// HashMap: a chained hash map from a key (by default a Name) to a value.
//
// Iterators are bookmarks: an iterator standing on a member that is deleted
// moves on to the next member instead of dangling, so a walk may delete the
// member it stands on (or any other). While a bookmark is alive the table does
// not grow; growth resumes with the first insertion after the last bookmark
// goes. Members inserted during a walk may or may not be visited by it.
// Not thread-safe.

#include <cassert>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string_view>
#include <type_traits>
#include <utility>

#include "Zet/BlockPool.h"
#include "Zet/String8.h"

namespace Zet {

// Folds the high bits in, so hashes differing only high up use different buckets.
inline size_t spreadHash(uint64_t h) { return static_cast<size_t>(h ^ (h >> 29) ^ (h >> 47)); }

namespace detail {
// The hash a member is filed under. String keys carry their hash with their
// text, so members keyed by them store none of their own: a member is then
// three pointers, the smallest block the allocator hands out.
// mayMatch(h) tells cheaply whether a member with hash h may hold the key.
template <class Key, bool = std::is_base_of_v<String8, Key>>
class StoredHash {
 public:
  explicit StoredHash(size_t h) : hash_(h) {}
  size_t storedHash(Key const&) const { return hash_; }
  bool mayMatch(size_t h) const { return hash_ == h; }

 private:
  size_t hash_;
};
// Comparing string keys looks at the shared text first and at the hash kept
// with it next, so the member need not keep the hash again.
template <class Key>
class StoredHash<Key, true> {
 public:
  explicit StoredHash(size_t) {}
  static size_t storedHash(Key const& key) { return spreadHash(key.hash()); }
  static bool mayMatch(size_t) { return true; }
};
}  // namespace detail

template <class Value, class Key = Name>
class HashMap {
 public:
  static constexpr size_t kDefaultBuckets = 8;

  class Member : detail::StoredHash<Key>, public BlockAllocated {
   public:
    Key const& key() const { return key_; }
    Value& value() { return value_; }
    Value const& value() const { return value_; }
    // The next member of the same bucket; null at the end of the chain.
    Member* fwkHmNext() const { return next_; }

   private:
    friend class HashMap;
    Member(Key k, Value v, size_t h) : detail::StoredHash<Key>(h), key_(std::move(k)), value_(std::move(v)) {}
    size_t hash() const { return this->storedHash(key_); }
    bool matches(size_t h, Key const& key) const { return this->mayMatch(h) && key_ == key; }
    Key key_;
    Value value_;
    Member* next_ = nullptr;
  };

  class Iterator;

  explicit HashMap(size_t initialBuckets = kDefaultBuckets) : buckets_(roundUp(initialBuckets)) {}
  HashMap(HashMap const&) = delete;
  HashMap& operator=(HashMap const&) = delete;
  ~HashMap() {
    clear();
    for (Iterator* b = bookmarks_; b; b = b->nextBookmark_) b->map_ = nullptr;
  }

  size_t size() const { return size_; }
  bool empty() const { return size_ == 0; }

  // The member with this key, or null.
  Member* member(Key const& key) const { return chainMember(hashOf(key), key); }
  // The member whose key has this text, or null; for string keys, without
  // making a key first.
  Member* memberByText(std::string_view text) const requires std::is_base_of_v<String8, Key> {
    if (!table_) return nullptr;
    size_t h = spreadHash(String8::hashOf(text));
    for (Member* m = table_[h & (buckets_ - 1)]; m; m = m->next_)
      if (m->hash() == h && m->key_.view() == text) return m;
    return nullptr;
  }
  // A pointer to the value for key, or null.
  Value* find(Key const& key) const {
    Member* m = member(key);
    return m ? &m->value_ : nullptr;
  }
  // The value for key, or a default-made value when absent.
  Value value(Key const& key) const {
    Value* v = find(key);
    return v ? *v : Value();
  }

  // Inserts key with value unless key is present. Returns the member's value
  // and whether it was inserted.
  std::pair<Value*, bool> insert(Key const& key, Value value) {
    return insertMade(key, [&value] { return std::move(value); });
  }
  // The same with the value `make()` returns, called only when key is
  // absent: one lookup for a value that is costly to make. When make throws,
  // nothing is inserted; when make itself inserted key, its value stays and
  // the one made is dropped.
  template <class Make>
  std::pair<Value*, bool> insertMade(Key const& key, Make&& make) {
    size_t h = hashOf(key);
    if (Member* m = chainMember(h, key)) return {&m->value_, false};
    size_t sizeBefore = size_;
    Value value = make();
    if (size_ != sizeBefore)
      if (Member* m = chainMember(h, key)) return {&m->value_, false};
    return {&link(new Member(key, std::move(value), h))->value_, true};
  }
  // Sets the value for key, inserting it when absent.
  Value& assign(Key const& key, Value value) {
    auto [v, inserted] = insert(key, value);
    if (!inserted) *v = std::move(value);
    return *v;
  }

  // Removes the member with this key; returns whether there was one.
  bool erase(Key const& key) {
    if (!table_) return false;
    size_t h = hashOf(key);
    for (Member** at = &table_[h & (buckets_ - 1)]; *at; at = &(*at)->next_) {
      Member* m = *at;
      if (!m->matches(h, key)) continue;
      moveBookmarksOff(m);
      *at = m->next_;
      m->next_ = nullptr;
      assert(m->fwkHmNext() == 0 && "t->fwkHmNext() == 0");
      --size_;
      delete m;
      return true;
    }
    return false;
  }

  void clear() {
    if (!table_) return;
    for (Iterator* b = bookmarks_; b; b = b->nextBookmark_) b->member_ = nullptr, b->bucket_ = buckets_;
    for (size_t i = 0; i < buckets_; ++i) {
      for (Member* m = table_[i]; m;) delete std::exchange(m, m->next_);
      table_[i] = nullptr;
    }
    size_ = 0;
  }

  // A bookmark walking the members in bucket order.
  class Iterator {
   public:
    Iterator() = default;
    Iterator(Iterator const& o) { attach(o.map_, o.bucket_, o.member_); }
    Iterator& operator=(Iterator const& o) {
      if (this != &o) {
        detach();
        attach(o.map_, o.bucket_, o.member_);
      }
      return *this;
    }
    ~Iterator() { detach(); }

    Member& operator*() const { return *member_; }
    Member* operator->() const { return member_; }
    explicit operator bool() const { return member_ != nullptr; }
    Iterator& operator++() {
      advance();
      return *this;
    }
    friend bool operator==(Iterator const& a, Iterator const& b) { return a.member_ == b.member_; }

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
    void attach(HashMap const* map, size_t bucket, Member* member) {
      bucket_ = bucket;
      member_ = map ? member : nullptr;
      map_ = member_ ? const_cast<HashMap*>(map) : nullptr;
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
      if (!member_) return;
      size_t from = bucket_ + 1;
      member_ = member_->next_ ? member_->next_ : map_->firstFrom(from, bucket_);
      if (!member_) detach();
    }

    HashMap* map_ = nullptr;
    size_t bucket_ = 0;
    Member* member_ = nullptr;
    Iterator* prevBookmark_ = nullptr;
    Iterator* nextBookmark_ = nullptr;
  };

  Iterator begin() const {
    Iterator it;
    size_t bucket = 0;
    Member* first = firstFrom(0, bucket);
    it.attach(this, bucket, first);
    return it;
  }
  Iterator end() const { return Iterator(); }

  // True when every chain is consistent with the member count; for audits.
  bool isConsistent() const {
    size_t n = 0;
    for (size_t i = 0; table_ && i < buckets_; ++i)
      for (Member* m = table_[i]; m; m = m->next_) {
        if ((m->hash() & (buckets_ - 1)) != i) return false;
        ++n;
      }
    return n == size_;
  }

 private:
  static size_t roundUp(size_t n) {
    size_t b = 1;
    while (b < n) b <<= 1;
    return b;
  }
  static size_t hashOf(Key const& key) { return spreadHash(std::hash<Key>()(key)); }

  // The member with this key in the chain of hash h, or null.
  Member* chainMember(size_t h, Key const& key) const {
    if (!table_) return nullptr;
    for (Member* m = table_[h & (buckets_ - 1)]; m; m = m->next_)
      if (m->matches(h, key)) return m;
    return nullptr;
  }

  Member* link(Member* m) {
    if (!table_) table_ = std::make_unique<Member*[]>(buckets_);
    if (size_ >= buckets_ && !bookmarks_) grow();
    Member*& head = table_[m->hash() & (buckets_ - 1)];
    m->next_ = head;
    head = m;
    ++size_;
    return m;
  }

  void grow() {
    size_t newBuckets = buckets_ * 2;
    auto newTable = std::make_unique<Member*[]>(newBuckets);
    for (size_t i = 0; i < buckets_; ++i) {
      for (Member* m = table_[i]; m;) {
        Member* next = m->next_;
        Member*& head = newTable[m->hash() & (newBuckets - 1)];
        m->next_ = head;
        head = m;
        m = next;
      }
    }
    table_ = std::move(newTable);
    buckets_ = newBuckets;
  }

  // The first member in buckets from `bucket` on; sets `found` to its bucket.
  Member* firstFrom(size_t bucket, size_t& found) const {
    for (; table_ && bucket < buckets_; ++bucket)
      if (table_[bucket]) {
        found = bucket;
        return table_[bucket];
      }
    found = buckets_;
    return nullptr;
  }

  void moveBookmarksOff(Member* m) {
    for (Iterator* b = bookmarks_; b;) {
      Iterator* next = b->nextBookmark_;
      if (b->member_ == m) b->advance();
      b = next;
    }
  }

  std::unique_ptr<Member*[]> table_;
  size_t buckets_;
  size_t size_ = 0;
  Iterator* bookmarks_ = nullptr;
};

}  // namespace Zet
