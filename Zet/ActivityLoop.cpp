#include "Zet/ActivityLoop.h"

#include <sys/epoll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>

#include "Zet/Exception.h"
#include "Zet/Format.h"
#include "Zet/Trace.h"

namespace Zet {
namespace {

constexpr int kMaxReadyPerWait = 64;
constexpr unsigned kAskable = ActivityLoop::kReadable | ActivityLoop::kWritable;

uint32_t epollEvents(unsigned events) {
  return ((events & ActivityLoop::kReadable) ? EPOLLIN : 0u) | ((events & ActivityLoop::kWritable) ? EPOLLOUT : 0u);
}

unsigned fdEvents(uint32_t epoll) {
  return ((epoll & (EPOLLIN | EPOLLPRI)) ? ActivityLoop::kReadable : 0u) |
         ((epoll & EPOLLOUT) ? ActivityLoop::kWritable : 0u) |
         ((epoll & (EPOLLERR | EPOLLHUP)) ? ActivityLoop::kError : 0u);
}

// The descriptor and the watcher generation travel together in the epoll
// data, so an event meant for a watcher that has since been replaced is
// recognised as stale.
uint64_t epollData(int fd, uint32_t generation) {
  return (static_cast<uint64_t>(generation) << 32) | static_cast<uint32_t>(fd);
}

std::chrono::steady_clock::duration delayOf(double seconds) {
  if (!(seconds > 0)) return {};  // negative and NaN
  std::chrono::duration<double> capped(std::min(seconds, ActivityLoop::kMaxDelaySeconds));
  return std::chrono::duration_cast<std::chrono::steady_clock::duration>(capped);
}

void requireCallback(bool present) {
  if (!present) throwRangeException("null activity loop callback");
}

template <class F>
void callGuarded(F const& fn) {
  try {
    fn();
  } catch (std::exception const& e) {
    ZET_TRACE_AT("Activity", 0) << "callback threw: " << e.what();
  } catch (...) {
    ZET_TRACE_AT("Activity", 0) << "callback threw an exception of unknown type";
  }
}

}  // namespace

// Marks the loop as running for the lifetime of one run function.
class ActivityLoop::RunScope {
 public:
  explicit RunScope(ActivityLoop& loop) : loop_(loop) {
    if (loop_.running_) throwRangeException("activity loop is already running");
    loop_.running_ = true;
  }
  ~RunScope() {
    loop_.running_ = false;
    loop_.stopRequested_ = false;
  }
  RunScope(RunScope const&) = delete;
  RunScope& operator=(RunScope const&) = delete;

 private:
  ActivityLoop& loop_;
};

ActivityLoop::ActivityLoop() : epollFd_(epoll_create1(EPOLL_CLOEXEC)) {
  if (epollFd_ < 0) throw Exception(format("cannot create an activity loop: %s", std::strerror(errno)));
}

ActivityLoop::~ActivityLoop() {
  // Dropping a callback may destroy objects that call back into the loop (to
  // cancel their timers, say), so the containers are emptied while the loop
  // is still whole, until nothing new arrives.
  while (!deferred_.empty() || !timers_.empty() || !watchers_.empty()) {
    std::deque<Callback> deferred;
    deferred.swap(deferred_);
    TimerQueue timers;
    timers.swap(timers_);
    timerIndex_.clear();
    std::unordered_map<int, std::shared_ptr<Watcher>> watchers;
    watchers.swap(watchers_);
  }
  close(epollFd_);
}

// ---- timers -------------------------------------------------------------------

ActivityLoop::TimerId ActivityLoop::timerIs(double delaySeconds, Callback fn) {
  requireCallback(bool(fn));
  TimerId id = ++lastTimerId_;
  Clock::time_point deadline = Clock::now() + delayOf(delaySeconds);
  auto at = timers_.emplace(std::make_pair(deadline, id), std::move(fn)).first;
  timerIndex_.emplace(id, at);
  return id;
}

bool ActivityLoop::timerDel(TimerId id) {
  auto found = timerIndex_.find(id);
  if (found == timerIndex_.end()) return false;
  // Moved out first: the callback's destructor may call back into the loop.
  auto node = timers_.extract(found->second);
  timerIndex_.erase(found);
  return true;
}

size_t ActivityLoop::runDueTimers() {
  Clock::time_point now = Clock::now();
  // Timers armed by the callbacks below wait for the next turn, so a timer
  // re-arming itself at no delay cannot hold this turn for ever. They sort
  // after every timer already due, so stopping at the first one is enough.
  TimerId lastArmed = lastTimerId_;
  size_t ran = 0;
  while (!timers_.empty()) {
    auto first = timers_.begin();
    auto [deadline, id] = first->first;
    if (deadline > now || id > lastArmed) break;
    auto node = timers_.extract(first);
    timerIndex_.erase(id);
    ran += runCallback(node.mapped());
  }
  return ran;
}

// ---- descriptors ----------------------------------------------------------------

int ActivityLoop::epollControl(int op, int fd, unsigned events, uint32_t generation) {
  epoll_event ev{};
  ev.events = epollEvents(events);
  ev.data.u64 = epollData(fd, generation);
  return epoll_ctl(epollFd_, op, fd, &ev) == 0 ? 0 : errno;
}

void ActivityLoop::fdWatcherIs(int fd, unsigned events, FdCallback fn) {
  requireCallback(bool(fn));
  if (fd < 0) throwRangeException(format("cannot watch fd %d: negative descriptor", fd));
  events &= kAskable;
  uint32_t generation = ++lastGeneration_;
  auto found = watchers_.find(fd);
  int err = found == watchers_.end() ? ENOENT : epollControl(EPOLL_CTL_MOD, fd, events, generation);
  // ENOENT on a known fd: it was closed and its number reused without removal.
  if (err == ENOENT) err = epollControl(EPOLL_CTL_ADD, fd, events, generation);
  if (err) throwRangeException(format("cannot watch fd %d: %s", fd, std::strerror(err)));
  // The replaced watcher, if running, is kept alive by runReadyFds.
  watchers_[fd] = std::make_shared<Watcher>(Watcher{fd, events, generation, std::move(fn)});
}

bool ActivityLoop::fdWatcherEventsIs(int fd, unsigned events) {
  auto found = watchers_.find(fd);
  if (found == watchers_.end()) return false;
  Watcher& w = *found->second;
  events &= kAskable;
  if (events == w.events) return true;
  if (int err = epollControl(EPOLL_CTL_MOD, fd, events, w.generation))
    throwRangeException(format("cannot watch fd %d: %s", fd, std::strerror(err)));
  w.events = events;
  return true;
}

bool ActivityLoop::fdWatcherDel(int fd) {
  auto found = watchers_.find(fd);
  if (found == watchers_.end()) return false;
  std::shared_ptr<Watcher> removed = std::move(found->second);
  watchers_.erase(found);
  // Fails harmlessly when fd has already been closed: epoll dropped it then.
  epoll_ctl(epollFd_, EPOLL_CTL_DEL, fd, nullptr);
  return true;
}

size_t ActivityLoop::runReadyFds(int timeoutMs) {
  if (watchers_.empty() && timeoutMs == 0) return 0;
  epoll_event ready[kMaxReadyPerWait];
  int n = epoll_wait(epollFd_, ready, kMaxReadyPerWait, timeoutMs);
  if (n < 0) {
    if (errno != EINTR) {
      ZET_TRACE_AT("Activity", 0) << "epoll_wait failed: " << std::strerror(errno);
    }
    return 0;
  }
  size_t ran = 0;
  for (int i = 0; i < n; ++i) {
    int fd = static_cast<int>(static_cast<uint32_t>(ready[i].data.u64));
    uint32_t generation = static_cast<uint32_t>(ready[i].data.u64 >> 32);
    auto found = watchers_.find(fd);
    // Removed or replaced by an earlier callback of this turn.
    if (found == watchers_.end() || found->second->generation != generation) continue;
    std::shared_ptr<Watcher> watcher = found->second;  // survives its own removal
    unsigned events = fdEvents(ready[i].events) & (watcher->events | kError);
    if (events) ran += runCallback([&] { watcher->callback(events); });
  }
  return ran;
}

// ---- deferred calls ---------------------------------------------------------------

void ActivityLoop::deferredCallIs(Callback fn) {
  requireCallback(bool(fn));
  deferred_.push_back(std::move(fn));
}

size_t ActivityLoop::runDeferredCalls() {
  size_t ran = 0;
  while (!deferred_.empty() && ran < kDrainBudget) {
    Callback fn = std::move(deferred_.front());
    deferred_.pop_front();
    callGuarded(fn);
    ++ran;
  }
  return ran;
}

template <class F>
size_t ActivityLoop::runCallback(F const& fn) {
  callGuarded(fn);
  return 1 + runDeferredCalls();
}

// ---- running ---------------------------------------------------------------------

int ActivityLoop::waitMillis(Clock::time_point waitLimit) const {
  if (!timers_.empty()) waitLimit = std::min(waitLimit, timers_.begin()->first.first);
  if (waitLimit == Clock::time_point::max()) return -1;
  Clock::duration left = waitLimit - Clock::now();
  if (left <= Clock::duration::zero()) return 0;
  // Rounded up: waking just before a deadline would only spin until it.
  auto ms = std::chrono::ceil<std::chrono::milliseconds>(left).count();
  return static_cast<int>(std::min<decltype(ms)>(ms, INT_MAX));
}

size_t ActivityLoop::turn(Clock::time_point waitLimit) {
  size_t ran = runDeferredCalls();
  ran += runReadyFds(ran ? 0 : waitMillis(waitLimit));
  ran += runDueTimers();
  return ran;
}

void ActivityLoop::run() {
  RunScope scope(*this);
  while (!stopRequested_) turn(Clock::time_point::max());
}

void ActivityLoop::stop() {
  if (running_) stopRequested_ = true;
}

bool ActivityLoop::runUntil(std::function<bool()> const& done, double timeoutSeconds) {
  RunScope scope(*this);
  Clock::time_point limit = Clock::now() + delayOf(timeoutSeconds);
  while (!done()) {
    if (stopRequested_ || Clock::now() >= limit) return false;
    turn(limit);
  }
  return true;
}

size_t ActivityLoop::runUntilIdle() {
  RunScope scope(*this);
  size_t total = 0;
  while (!stopRequested_) {
    size_t ran = turn(Clock::now());
    if (ran == 0) break;
    total += ran;
  }
  return total;
}

}  // namespace Zet
