#include "Zet/PageBacker.h"

#include <pthread.h>
#include <sys/mman.h>

#include <algorithm>
#include <array>
#include <condition_variable>
#include <mutex>
#include <new>
#include <thread>

namespace Zet::PageBacker {
namespace {

// Backed in one call, between two looks at what is waiting: the longest a
// forget() waits for.
constexpr size_t kChunkBytes = size_t(2) << 20;
constexpr size_t kMostWaiting = 64;

struct Range {
  char* begin = nullptr;
  char* end = nullptr;

  bool overlaps(Range other) const { return begin < other.end && other.begin < end; }
};

struct Backer {
  std::mutex mutex;
  std::condition_variable work;  // a range was asked for
  std::condition_variable idle;  // a chunk was backed
  std::array<Range, kMostWaiting> waiting;
  size_t waitingCount = 0;
  Range inFlight;  // being backed by the thread, without the lock
  bool started = false;
  bool unavailable = false;  // the thread could not be started

  void run();
  // The next chunk to back, taken off the front of what waits.
  Range takeChunk();
  void drop(size_t index) {
    std::move(waiting.begin() + index + 1, waiting.begin() + waitingCount, waiting.begin() + index);
    --waitingCount;
  }
};

// A child has only the thread that forked: the backer's thread is gone, and
// its lock may have been held at the fork.
bool forkedChild = false;

// Never destroyed: the thread waits on it while the process exits. A fork
// is watched for from before the lock is first taken, so that no child
// finds it held and unmarked.
Backer& backer() {
  static Backer& made = []() -> Backer& {
    ::pthread_atfork(nullptr, nullptr, [] { forkedChild = true; });
    return *new Backer;
  }();
  return made;
}

Range Backer::takeChunk() {
  Range& first = waiting[0];
  Range chunk{first.begin, first.begin + std::min(kChunkBytes, size_t(first.end - first.begin))};
  first.begin = chunk.end;
  if (first.begin == first.end) drop(0);
  return chunk;
}

void Backer::run() {
  std::unique_lock<std::mutex> lock(mutex);
  for (;;) {
    work.wait(lock, [this] { return waitingCount > 0; });
    inFlight = takeChunk();
    lock.unlock();
#ifdef MADV_POPULATE_WRITE
    ::madvise(inFlight.begin, size_t(inFlight.end - inFlight.begin), MADV_POPULATE_WRITE);
#endif
    lock.lock();
    inFlight = Range{};
    idle.notify_all();
  }
}

}  // namespace

bool backSoon(void* begin, size_t bytes) noexcept {
  if (forkedChild || bytes == 0) return false;
  Backer& b = backer();
  std::lock_guard<std::mutex> lock(b.mutex);
  if (b.unavailable || b.waitingCount == kMostWaiting) return false;
  if (!b.started) {
    b.started = true;
    try {
      std::thread([&b] { b.run(); }).detach();
    } catch (...) {
      b.unavailable = true;
      return false;
    }
  }
  char* first = static_cast<char*>(begin);
  b.waiting[b.waitingCount++] = Range{first, first + bytes};
  b.work.notify_one();
  return true;
}

void forget(void* begin, size_t bytes) noexcept {
  if (forkedChild) return;
  Backer& b = backer();
  Range gone{static_cast<char*>(begin), static_cast<char*>(begin) + bytes};
  std::unique_lock<std::mutex> lock(b.mutex);
  for (size_t i = b.waitingCount; i-- > 0;)
    if (b.waiting[i].overlaps(gone)) b.drop(i);
  b.idle.wait(lock, [&] { return !b.inFlight.overlaps(gone); });
}

}  // namespace Zet::PageBacker
