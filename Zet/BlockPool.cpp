#include "Zet/BlockPool.h"

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
constexpr std::align_val_t kSlabAlignment{64};

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

size_t sizeIndex(size_t size) { return size == 0 ? 0 : (size - 1) / kGrain; }

[[maybe_unused]] void* carve(BlockSize& blocks, size_t blockBytes) {
  if (size_t(blocks.end - blocks.rest) < blockBytes) {
    blocks.rest = static_cast<char*>(::operator new(kSlabBytes, kSlabAlignment));
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
