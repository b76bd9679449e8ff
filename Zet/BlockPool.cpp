#include "Zet/BlockPool.h"

#include <sys/mman.h>

#include <algorithm>
#include <new>

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

struct FreeBlock {
  FreeBlock* next;
};

// The blocks of one size on one thread: those freed, then the untouched
// rest of the slab being carved.
struct BlockSize {
  FreeBlock* freed = nullptr;
  char* rest = nullptr;
  char* end = nullptr;
};

// Trivially constructible, so a thread's lists cost no construction guard.
thread_local BlockSize blockSizes[kSizes];
// The rest of the region slabs are cut from on this thread, and the size of
// the next region.
thread_local char* regionRest = nullptr;
thread_local char* regionEnd = nullptr;
thread_local size_t nextRegionBytes = kFirstRegionBytes;

// A new region, its pages backed at once: one call to the system instead of
// a page fault for each 4 KiB (the system may not support that; then the
// pages are backed as they are touched).
[[maybe_unused]] void newRegion() {
  size_t bytes = nextRegionBytes;
  void* region = ::mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (region == MAP_FAILED) throw std::bad_alloc();
#ifdef MADV_POPULATE_WRITE
  ::madvise(region, bytes, MADV_POPULATE_WRITE);
#endif
  regionRest = static_cast<char*>(region);
  regionEnd = regionRest + bytes;
  nextRegionBytes = std::min(2 * bytes, kMaxRegionBytes);
}

[[maybe_unused]] char* newSlab() {
  if (regionRest == regionEnd) newRegion();
  char* slab = regionRest;
  regionRest += kSlabBytes;
  return slab;
}

size_t sizeIndex(size_t size) { return size == 0 ? 0 : (size - 1) / kGrain; }

[[maybe_unused]] void* carve(BlockSize& blocks, size_t blockBytes) {
  if (size_t(blocks.end - blocks.rest) < blockBytes) {
    blocks.rest = newSlab();
    blocks.end = blocks.rest + kSlabBytes - kSlabBytes % blockBytes;
  }
  void* block = blocks.rest;
  blocks.rest += blockBytes;
  return block;
}

}  // namespace

#if defined(ZET_BLOCKS_FROM_GLOBAL_ALLOCATOR)

void* BlockPool::allocate(size_t size) { return ::operator new(size); }
void BlockPool::deallocate(void* block, size_t) noexcept { ::operator delete(block); }

#else

void* BlockPool::allocate(size_t size) {
  if (size > kMaxBlock) return ::operator new(size);
  size_t index = sizeIndex(size);
  BlockSize& blocks = blockSizes[index];
  if (FreeBlock* block = blocks.freed) {
    blocks.freed = block->next;
    return block;
  }
  return carve(blocks, (index + 1) * kGrain);
}

void BlockPool::deallocate(void* block, size_t size) noexcept {
  if (!block) return;
  if (size > kMaxBlock) return ::operator delete(block);
  BlockSize& blocks = blockSizes[sizeIndex(size)];
  blocks.freed = new (block) FreeBlock{blocks.freed};
}

#endif

}  // namespace Zet
