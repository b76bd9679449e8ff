// Small blocks: sizes share nothing, freed blocks serve again, and threads
// that come and go (as host-name lookups do) do not each leave memory behind.
// Large arrays: zeroed, and handed back to the system.

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "Zet/BlockPool.h"
#include "Zet/String8.h"
#include "tests/sanitized_build.h"

namespace Zet {
namespace {

long residentKiB() {
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);)
    if (line.rfind("VmRSS:", 0) == 0) return std::stol(line.substr(6));
  return -1;
}

TEST(BlockPool, BlocksAreAlignedDistinctAndServeAgain) {
  std::vector<std::pair<void*, size_t>> blocks;
  std::set<void*> distinct;
  for (size_t size : {1, 8, 12, 16, 24, 40, 64, 136, 384, 512, 513, 4096})
    for (int i = 0; i < 100; ++i) {
      void* block = BlockPool::allocate(size);
      std::memset(block, 0xab, size);
      size_t alignment = size % 16 == 0 ? 16 : size % 8 == 0 ? 8 : 4;
      EXPECT_EQ(reinterpret_cast<uintptr_t>(block) % std::min<size_t>(alignment, 16), 0u) << size;
      EXPECT_TRUE(distinct.insert(block).second) << "a block handed out twice";
      blocks.emplace_back(block, size);
    }
  for (auto [block, size] : blocks) BlockPool::deallocate(block, size);
#ifndef ZET_SANITIZED_BUILD
  void* again = BlockPool::allocate(384);
  EXPECT_EQ(again, blocks[100 * 8 + 99].first) << "the last block freed of a size is the next one handed out";
  BlockPool::deallocate(again, 384);
#endif
}

// Arrays start zeroed on either side of the size from which they are mapped
// on their own, and a large one goes back to the system when freed, so that
// a hash map that grew and shrank does not keep its largest index.
TEST(BlockPool, ArraysAreZeroedAndLargeOnesAreReturned) {
  for (size_t bytes : {size_t(64), BlockPool::kLargeArrayBytes - 8, BlockPool::kLargeArrayBytes, size_t(16) << 20}) {
    auto* array = static_cast<unsigned char*>(BlockPool::allocateArray(bytes));
    EXPECT_TRUE(std::all_of(array, array + bytes, [](unsigned char c) { return c == 0; })) << bytes;
    std::memset(array, 0xcd, bytes);
    BlockPool::deallocateArray(array, bytes);
  }
#ifndef ZET_SANITIZED_BUILD
  long before = residentKiB();
  for (int i = 0; i < 8; ++i) {
    size_t bytes = size_t(64) << 20;
    void* array = BlockPool::allocateArray(bytes);
    std::memset(array, 1, bytes);
    BlockPool::deallocateArray(array, bytes);
  }
  EXPECT_LT(residentKiB() - before, 16 * 1024) << "freed arrays stayed resident";
#endif
}

TEST(BlockPool, ThreadsThatComeAndGoReuseWhatTheirPredecessorsHeld) {
#ifdef ZET_SANITIZED_BUILD
  GTEST_SKIP() << "the sanitizer's allocator keeps freed memory aside";
#endif
  auto oneThread = [] {
    std::thread([] {
      std::vector<String8> made;
      for (int i = 0; i < 100; ++i) made.emplace_back("a name made on a short-lived thread " + std::to_string(i));
    }).join();
  };
  for (int i = 0; i < 10; ++i) oneThread();
  long before = residentKiB();
  for (int i = 0; i < 500; ++i) oneThread();
  EXPECT_LT(residentKiB() - before, 4096) << "500 threads kept " << residentKiB() - before << " KiB";
}

}  // namespace
}  // namespace Zet
