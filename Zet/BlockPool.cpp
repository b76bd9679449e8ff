#include "Zet/BlockPool.h"

#include <sys/mman.h>

#include <algorithm>
#include <cstdlib>
#include <mutex>
#include <new>
#include <utility>

#include "Zet/PageBacker.h"

#if defined(__SANITIZE_ADDRESS__)
#define ZET_BLOCKS_FROM_GLOBAL_ALLOCATOR 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define ZET_BLOCKS_FROM_GLOBAL_ALLOCATOR 1
#endif
#endif

namespace Zet {
namespace {

constexpr size_t kGrain = 8;  // block sizes are multiples of this
constexpr size_t kSizes = BlockPool::kMaxBlock / kGrain;
constexpr size_t kSlabBytes = 64 * 1024;
// Slabs are cut from regions of address space that grow from 256 KiB to
// 32 MiB as the thread needs more.
constexpr size_t kFirstRegionBytes = 4 * kSlabBytes;
constexpr size_t kMaxRegionBytes = 32 * 1024 * 1024;
// A region's pages are backed this much at a time, as slabs reach them; the
// step after the one in use is backed ahead, in the background, so that a
// thread holds at most two steps it has not used.
constexpr size_t kBackedStepBytes = 2 * 1024 * 1024;

struct FreeBlock {
  FreeBlock* next;
};

// The blocks of one size: those freed, then the untouched rest of the slab
// being carved.
struct BlockSize {
  FreeBlock* freed = nullptr;
  char* rest = nullptr;
  char* end = nullptr;
};

// What one thread allocates from: its blocks of every size, and the rest of
// the region its slabs are cut from. When the thread ends, the whole of it
// waits for the next thread to start, so that threads that come and go
// (a lookup of a host name, say) reuse memory instead of each leaving some.
struct ThreadBlocks {
  BlockSize sizes[kSizes];
  char* regionRest = nullptr;
  char* regionBacked = nullptr;  // the pages before this are backed
  char* regionEnd = nullptr;
  bool stepAskedAhead = false;  // the step at regionBacked was asked to be backed
  size_t nextRegionBytes = kFirstRegionBytes;
  ThreadBlocks* nextIdle = nullptr;

  // Out of line, so that taking a freed block saves no registers.
  [[gnu::noinline]] void* carve(BlockSize& blocks, size_t blockBytes);
  char* newSlab();
  void newRegion();
  void backMore();
  void releaseBacked() noexcept;
};

std::mutex idleMutex;
ThreadBlocks* idle = nullptr;  // those of threads that ended, guarded by idleMutex

// Read on every allocation: the initial-exec model reaches it at a fixed
// offset from the thread pointer instead of through a call.
[[gnu::tls_model("initial-exec")]] thread_local ThreadBlocks* mine = nullptr;

// Hands the thread's blocks back when the thread ends.
struct Handback {
  ~Handback() {
    if (!mine) return;
    mine->releaseBacked();
    std::lock_guard<std::mutex> lock(idleMutex);
    mine->nextIdle = idle;
    idle = std::exchange(mine, nullptr);
  }
};
thread_local Handback handback;

// The thread's blocks, taken over from a thread that ended or made; null
// only when memory for them runs out.
[[maybe_unused, gnu::noinline]] ThreadBlocks* adopt() noexcept {
  (void)&handback;  // the first use registers the hand-back at thread exit
  {
    std::lock_guard<std::mutex> lock(idleMutex);
    if (idle) mine = std::exchange(idle, idle->nextIdle);
  }
  if (!mine) mine = new (std::nothrow) ThreadBlocks;
  return mine;
}

[[maybe_unused]] ThreadBlocks* threadBlocks() noexcept { return mine ? mine : adopt(); }

void ThreadBlocks::newRegion() {
  size_t bytes = nextRegionBytes;
  void* region = ::mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (region == MAP_FAILED) throw std::bad_alloc();
  regionRest = regionBacked = static_cast<char*>(region);
  stepAskedAhead = false;
  regionEnd = regionRest + bytes;
  nextRegionBytes = std::min(2 * bytes, kMaxRegionBytes);
}

// Takes the next step of the region as backed. The step after it is asked
// for ahead, in the background, and left to that: a page the background
// has not reached is backed when touched. A step not taken there (the
// first of a region, say) is backed at once, in one call to the system
// instead of a page fault for each 4 KiB (the system may not support that;
// then the pages are backed as they are touched).
void ThreadBlocks::backMore() {
  size_t bytes = std::min(kBackedStepBytes, size_t(regionEnd - regionBacked));
#ifdef MADV_POPULATE_WRITE
  if (!stepAskedAhead) ::madvise(regionBacked, bytes, MADV_POPULATE_WRITE);
#endif
  regionBacked += bytes;
  stepAskedAhead = PageBacker::backSoon(regionBacked, std::min(kBackedStepBytes, size_t(regionEnd - regionBacked)));
}

// Gives the system back the pages backed beyond the slabs cut, so that the
// blocks of a thread that ended hold no memory unused until another thread
// takes them over; that thread backs them again as it cuts slabs.
void ThreadBlocks::releaseBacked() noexcept {
  char* backedEnd = stepAskedAhead ? regionBacked + std::min(kBackedStepBytes, size_t(regionEnd - regionBacked)) : regionBacked;
  if (backedEnd == regionRest) return;
  PageBacker::forget(regionRest, size_t(backedEnd - regionRest));
  ::madvise(regionRest, size_t(backedEnd - regionRest), MADV_DONTNEED);
  regionBacked = regionRest;
  stepAskedAhead = false;
}

char* ThreadBlocks::newSlab() {
  if (regionRest == regionEnd) newRegion();
  if (regionRest == regionBacked) backMore();
  char* slab = regionRest;
  regionRest += kSlabBytes;
  return slab;
}

void* ThreadBlocks::carve(BlockSize& blocks, size_t blockBytes) {
  if (size_t(blocks.end - blocks.rest) < blockBytes) {
    blocks.rest = newSlab();
    blocks.end = blocks.rest + kSlabBytes - kSlabBytes % blockBytes;
  }
  void* block = blocks.rest;
  blocks.rest += blockBytes;
  return block;
}

// An array of `bytes` zero bytes from the global allocator.
void* zeroedFromHeap(size_t bytes) {
  void* array = std::calloc(1, bytes);
  if (!array) throw std::bad_alloc();
  return array;
}

[[maybe_unused]] size_t sizeIndex(size_t size) { return size == 0 ? 0 : (size - 1) / kGrain; }

}  // namespace

#if defined(ZET_BLOCKS_FROM_GLOBAL_ALLOCATOR)

void* BlockPool::allocate(size_t size) { return ::operator new(size); }
void BlockPool::deallocate(void* block, size_t) noexcept { ::operator delete(block); }

void* BlockPool::allocateArray(size_t bytes) { return zeroedFromHeap(bytes); }
void BlockPool::deallocateArray(void* array, size_t) noexcept { std::free(array); }

#else

void* BlockPool::allocate(size_t size) {
  if (size > kMaxBlock) return ::operator new(size);
  ThreadBlocks* thread = threadBlocks();
  if (!thread) throw std::bad_alloc();
  size_t index = sizeIndex(size);
  BlockSize& blocks = thread->sizes[index];
  if (FreeBlock* block = blocks.freed) {
    blocks.freed = block->next;
    return block;
  }
  return thread->carve(blocks, (index + 1) * kGrain);
}

// A block freed when its thread's blocks cannot be had (memory ran out) is
// left unused.
void BlockPool::deallocate(void* block, size_t size) noexcept {
  if (!block) return;
  if (size > kMaxBlock) return ::operator delete(block);
  ThreadBlocks* thread = threadBlocks();
  if (!thread) return;
  BlockSize& blocks = thread->sizes[sizeIndex(size)];
  blocks.freed = new (block) FreeBlock{blocks.freed};
}

// Huge pages are asked for the array alone: the blocks' regions stay on
// small pages, for backing a region of huge pages at once costs more system
// time than the translations it saves. The array is backed in the
// background while its first users touch it.
void* BlockPool::allocateArray(size_t bytes) {
  if (bytes < kLargeArrayBytes) return zeroedFromHeap(bytes);
  void* array = ::mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (array == MAP_FAILED) throw std::bad_alloc();
#ifdef MADV_HUGEPAGE
  ::madvise(array, bytes, MADV_HUGEPAGE);
#endif
  PageBacker::backSoon(array, bytes);
  return array;
}

void BlockPool::deallocateArray(void* array, size_t bytes) noexcept {
  if (!array) return;
  if (bytes < kLargeArrayBytes) return std::free(array);
  PageBacker::forget(array, bytes);
  ::munmap(array, bytes);
}

#endif

}  // namespace Zet
