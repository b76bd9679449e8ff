#pragma once
// BlockPool: small blocks for the objects a process makes by the hundred
// thousand (entities and other reference-counted records, string buffers).
//
// Blocks of one size are carved one after another from 64 KiB slabs, so a
// block carries no allocator header and lies beside the blocks made just
// before it. A freed block goes to the front of its size's free list and is
// the next one of that size handed out. Slabs are cut from regions whose
// pages are backed a few at a time as slabs reach them (one call to the
// system rather than a page fault per page; the next ones are backed ahead,
// on a thread of their own), and stay with the process: memory a size once
// needed serves that size again, it is not returned to the system.
// Blocks above kMaxBlock bytes come from the global allocator.
//
// Each thread keeps its own free lists, so no lock is taken; a block freed on
// another thread than the one that made it serves that thread next. What a
// thread holds when it ends goes to the next thread that starts allocating.
// Under AddressSanitizer every block comes from the global allocator, so that
// the sanitizer still sees each object's bounds and lifetime.
//
// A class takes its objects from here by deriving from BlockAllocated (the
// size given to operator delete is the object's own, as the destructor of
// the most derived class passes it).

#include <cstddef>
#include <new>

namespace Zet {

class BlockPool {
 public:
  static constexpr size_t kMaxBlock = 512;

  // A block of at least `size` bytes, aligned for any object of that size
  // (to the largest power of two dividing the size); throws
  // std::bad_alloc when memory runs out.
  static void* allocate(size_t size);
  // Gives back a block `allocate(size)` handed out, with the same size.
  static void deallocate(void* block, size_t size) noexcept;

  // An array of `bytes` zero bytes, for the large arrays a process reads at
  // random (the indexes and member storage of big hash maps). From
  // kLargeArrayBytes on it is mapped on its own, on huge pages where the
  // system grants them, so that a random read does not also miss the
  // address translation cache, and it goes back to the system when freed.
  // Throws std::bad_alloc when memory runs out.
  static constexpr size_t kLargeArrayBytes = size_t(2) << 20;
  static void* allocateArray(size_t bytes);
  // Gives back an array `allocateArray(bytes)` handed out, with the same size.
  static void deallocateArray(void* array, size_t bytes) noexcept;
};

// A standard allocator over allocateArray, for a vector that may hold a
// million elements: a large one lies on huge pages, backed ahead of use
// rather than page by page as it fills.
template <class T>
struct ArrayAllocator {
  using value_type = T;
  ArrayAllocator() = default;
  template <class U>
  ArrayAllocator(ArrayAllocator<U> const&) noexcept {}
  T* allocate(size_t count) {
    if (count > size_t(-1) / sizeof(T)) throw std::bad_array_new_length();
    return static_cast<T*>(BlockPool::allocateArray(count * sizeof(T)));
  }
  void deallocate(T* array, size_t count) noexcept { BlockPool::deallocateArray(array, count * sizeof(T)); }
  friend bool operator==(ArrayAllocator const&, ArrayAllocator const&) { return true; }
};

class BlockAllocated {
 public:
  static void* operator new(size_t size) { return BlockPool::allocate(size); }
  static void operator delete(void* block, size_t size) noexcept { BlockPool::deallocate(block, size); }
};

}  // namespace Zet
