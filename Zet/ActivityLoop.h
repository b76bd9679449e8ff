#pragma once
// ActivityLoop: a single-threaded reactor that carries everything
// asynchronous in a process: one-shot timers, file-descriptor readiness and
// deferred calls.
//
// A loop is run by one thread at a time and is not thread-safe: every call,
// including the ones made from its callbacks, comes from the thread that runs
// it. Nothing in the loop sleeps except its wait in epoll, and that wait ends
// as soon as a timer is due or a descriptor is ready.
//
// One turn of the loop runs, in this order: the queued deferred calls, the
// callbacks of ready descriptors, and the due timers. Deferred calls queued by
// any callback run right after that callback returns, before the next one.
// A callback may add or remove any timer, watcher or deferred call, including
// its own. An exception escaping a callback is caught around that callback and
// traced (facility "Activity", level 0); the loop carries on.

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <unordered_map>
#include <utility>

namespace Zet {

class ActivityLoop {
 public:
  using Callback = std::function<void()>;
  // Receives the ready events of the descriptor, as FdEvent bits.
  using FdCallback = std::function<void(unsigned events)>;
  using TimerId = uint64_t;

  enum FdEvent : unsigned {
    kReadable = 1u << 0,  // data (or end of file) can be read
    kWritable = 1u << 1,  // a write will not block
    kError = 1u << 2,     // error or hang-up; always reported, never asked for
  };

  // Timer delays beyond this many seconds (about 31 years) are cut down to it.
  static constexpr double kMaxDelaySeconds = 1e9;

  // Throws Exception when the kernel refuses an epoll instance.
  ActivityLoop();
  // Drops every pending timer, watcher and deferred call without running it.
  // Must not be called from one of this loop's callbacks.
  ~ActivityLoop();
  ActivityLoop(ActivityLoop const&) = delete;
  ActivityLoop& operator=(ActivityLoop const&) = delete;

  // Arms a one-shot timer that calls fn once delaySeconds have passed on the
  // monotonic clock. Negative and NaN delays count as 0. Timers with the same
  // deadline fire in the order they were armed. Returns an id for timerDel.
  // Throws RangeException for an empty fn.
  TimerId timerIs(double delaySeconds, Callback fn);
  // Cancels a timer; returns false when it has already fired or been
  // cancelled (a running timer has already fired).
  bool timerDel(TimerId id);
  size_t timerCount() const { return timers_.size(); }

  // Watches fd for the readiness in events (kReadable and/or kWritable;
  // kError is always reported) and calls fn with what is ready, level-
  // triggered: as long as the condition holds, each turn calls fn again.
  // Replaces any earlier watcher of fd. The loop does not own fd; remove the
  // watcher before closing it. Throws RangeException for an empty fn, a
  // negative fd or a descriptor epoll cannot watch (a regular file, a closed
  // descriptor).
  void fdWatcherIs(int fd, unsigned events, FdCallback fn);
  // Changes what the watcher of fd waits for; 0 parks it (only kError is
  // then reported). Returns false when fd has no watcher.
  bool fdWatcherEventsIs(int fd, unsigned events);
  // Stops watching fd; returns false when it had no watcher.
  bool fdWatcherDel(int fd);
  size_t fdWatcherCount() const { return watchers_.size(); }

  // Queues fn to run on the loop after the current callback, after the calls
  // queued before it. Calls queued while deferred calls run are run in the
  // same drain, one after the other, so a chain of calls each queueing the
  // next settles without recursion; a drain runs at most kDrainBudget calls,
  // so descriptors, timers, deadlines and stop() are attended to however
  // much deferred work keeps coming.
  // Throws RangeException for an empty fn.
  void deferredCallIs(Callback fn);
  static constexpr size_t kDrainBudget = 4096;
  size_t deferredCallCount() const { return deferred_.size(); }

  // Runs turns until stop() is called.
  void run();
  // Makes the running run(), runUntil() or runUntilIdle() return at the end
  // of the current turn. Outside of them it does nothing.
  void stop();
  // Runs turns until done() returns true (checked before the first turn and
  // after each one) or timeoutSeconds have passed or stop() is called.
  // Returns whether done() became true.
  bool runUntil(std::function<bool()> const& done, double timeoutSeconds);
  // Runs turns without waiting until a turn finds nothing to run: no
  // deferred call, no due timer, no ready descriptor. Returns the number of
  // callbacks run. A callback that always makes more work keeps it running.
  size_t runUntilIdle();
  // The run functions above throw RangeException "activity loop is already
  // running" when called from one of this loop's callbacks.

 private:
  using Clock = std::chrono::steady_clock;
  using TimerQueue = std::map<std::pair<Clock::time_point, TimerId>, Callback>;

  struct Watcher {
    int fd;               // the watched descriptor
    unsigned events;      // the readiness asked for, FdEvent bits
    uint32_t generation;  // tells this watcher from earlier ones of the same fd
    FdCallback callback;  // called with the ready FdEvent bits
  };

  class RunScope;

  // One turn; waits for descriptors at most until waitLimit, and not at all
  // once something has run. Returns the number of callbacks run.
  size_t turn(Clock::time_point waitLimit);
  size_t runDeferredCalls();
  size_t runReadyFds(int timeoutMs);
  size_t runDueTimers();
  // Runs one callback of a timer or watcher, then the calls it deferred.
  template <class F>
  size_t runCallback(F const& fn);
  // Milliseconds epoll may wait: until waitLimit or the first timer, -1 for ever.
  int waitMillis(Clock::time_point waitLimit) const;
  // epoll_ctl for a watcher; returns 0 or the errno.
  int epollControl(int op, int fd, unsigned events, uint32_t generation);

  int epollFd_;                                                   // the epoll instance, owned
  std::deque<Callback> deferred_;                                 // deferred calls, oldest first
  TimerQueue timers_;                                             // armed timers by (deadline, id)
  std::unordered_map<TimerId, TimerQueue::iterator> timerIndex_;  // armed timers by id
  TimerId lastTimerId_ = 0;                                       // id of the latest timer armed
  std::unordered_map<int, std::shared_ptr<Watcher>> watchers_;    // watchers by descriptor
  uint32_t lastGeneration_ = 0;                                   // generation of the latest watcher
  bool running_ = false;                                          // a run function is on the stack
  bool stopRequested_ = false;                                    // stop() was called while running
};

}  // namespace Zet
