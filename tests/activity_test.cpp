#include <gtest/gtest.h>

#include <chrono>

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cmath>
#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

#include "Zet/Activity.h"
#include "Zet/ActivityLoop.h"
#include "Zet/Exception.h"
#include "Zet/Trace.h"

namespace Zet {
namespace {

using Loop = ActivityLoop;

// A connected pair of non-blocking stream sockets, closed at the end.
struct SocketPair {
  SocketPair() { EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0, fd), 0); }
  ~SocketPair() {
    for (int f : fd)
      if (f >= 0) close(f);
  }
  void send(int end, std::string_view text) const {
    ASSERT_EQ(write(fd[end], text.data(), text.size()), ssize_t(text.size()));
  }
  std::string receive(int end) const {
    char buf[256];
    ssize_t n = read(fd[end], buf, sizeof buf);
    return n > 0 ? std::string(buf, size_t(n)) : std::string();
  }
  void closeEnd(int end) { close(std::exchange(fd[end], -1)); }
  int fd[2] = {-1, -1};
};

// Collects the lines traced by the activity loop for the life of the object.
struct ActivityTraces {
  ActivityTraces() {
    Trace::configIs("Activity/0");
    Trace::sinkIs([this](std::string_view facility, int level, std::string_view line) {
      if (facility == "Activity" && level == 0) lines.emplace_back(line);
    });
  }
  ~ActivityTraces() {
    Trace::sinkIs({});
    char const* env = std::getenv("ZET_TRACE");
    Trace::configIs(env ? env : "");
  }
  std::vector<std::string> lines;
};

template <class F>
std::string rangeErrorOf(F&& f) {
  try {
    Expect expected(kRangeException);
    f();
  } catch (RangeException const& e) {
    return e.what();
  }
  return "no exception";
}

TEST(ActivityLoop, TimersFireByDeadlineAndMayCancelOrRearmFromTheirCallbacks) {
  Loop loop;
  std::vector<std::string> fired;
  Loop::TimerId first = 0, doomed = 0, late = 0;

  loop.timerIs(0.030, [&] { fired.push_back("third"); });
  late = loop.timerIs(0.050, [&] { fired.push_back("cancelled by second"); });
  doomed = loop.timerIs(0.015, [&] { fired.push_back("cancelled by first"); });
  loop.timerIs(0.020, [&] {
    fired.push_back("second");
    EXPECT_TRUE(loop.timerDel(late));
  });
  first = loop.timerIs(0.005, [&] {
    fired.push_back("first");
    EXPECT_FALSE(loop.timerDel(first));  // a running timer has already fired
    EXPECT_TRUE(loop.timerDel(doomed));
  });
  EXPECT_EQ(loop.timerCount(), 5u);

  EXPECT_TRUE(loop.runUntil([&] { return fired.size() == 3; }, 5.0));
  EXPECT_EQ(fired, (std::vector<std::string>{"first", "second", "third"}));
  EXPECT_EQ(loop.timerCount(), 0u);
  EXPECT_FALSE(loop.timerDel(doomed));

  // A timer re-arming itself at no delay runs once per turn, not in a tight
  // loop inside one turn; out-of-range delays are tamed, not trusted.
  int ticks = 0;
  std::function<void()> tick = [&] {
    if (++ticks < 3) loop.timerIs(0, tick);
  };
  loop.timerIs(0, tick);
  loop.timerIs(-1.0, [&] { fired.push_back("negative delay"); });
  loop.timerIs(std::nan(""), [&] { fired.push_back("NaN delay"); });
  Loop::TimerId distant = loop.timerIs(1e300, [&] { fired.push_back("distant"); });
  EXPECT_EQ(loop.runUntilIdle(), 5u);
  EXPECT_EQ(ticks, 3);
  EXPECT_EQ(fired.back(), "NaN delay");
  EXPECT_EQ(loop.timerCount(), 1u);
  EXPECT_TRUE(loop.timerDel(distant));
}

TEST(ActivityLoop, WatchesASocketUntilItsWatcherRemovesItself) {
  Loop loop;
  SocketPair pair;
  std::vector<unsigned> seen;
  std::string received;
  loop.fdWatcherIs(pair.fd[0], Loop::kReadable, [&](unsigned events) {
    seen.push_back(events);
    received += pair.receive(0);
    EXPECT_TRUE(loop.fdWatcherDel(pair.fd[0]));
  });
  EXPECT_EQ(loop.runUntilIdle(), 0u);  // nothing written yet

  pair.send(1, "ping");
  EXPECT_TRUE(loop.runUntil([&] { return !seen.empty(); }, 5.0));
  EXPECT_EQ(seen, std::vector<unsigned>{Loop::kReadable});
  EXPECT_EQ(received, "ping");
  EXPECT_EQ(loop.fdWatcherCount(), 0u);
  pair.send(1, "unheard");
  EXPECT_EQ(loop.runUntilIdle(), 0u);

  // Writable interest, then parked: a parked watcher hears nothing more.
  int writable = 0;
  loop.fdWatcherIs(pair.fd[1], Loop::kWritable, [&](unsigned events) {
    ++writable;
    EXPECT_EQ(events, Loop::kWritable);
    EXPECT_TRUE(loop.fdWatcherEventsIs(pair.fd[1], 0));
  });
  EXPECT_EQ(loop.runUntilIdle(), 1u);
  EXPECT_EQ(writable, 1);
  EXPECT_TRUE(loop.fdWatcherDel(pair.fd[1]));

  // The peer hangs up: the reader hears the data left and the hang-up.
  unsigned last = 0;
  loop.fdWatcherIs(pair.fd[0], Loop::kReadable, [&](unsigned events) {
    last = events;
    received += pair.receive(0);
    if (events & Loop::kError) loop.fdWatcherDel(pair.fd[0]);
  });
  pair.closeEnd(1);
  EXPECT_EQ(loop.runUntilIdle(), 1u);
  EXPECT_EQ(last, Loop::kReadable | Loop::kError);
  EXPECT_EQ(received, "pingunheard");
}

TEST(ActivityLoop, AWatcherRemovedOrReplacedEarlierInATurnMissesThatTurnsEvent) {
  Loop loop;
  SocketPair one, two;
  int fds[2] = {one.fd[0], two.fd[0]};
  int firstCalls = 0, replacementCalls = 0;
  // Whichever watcher runs first replaces the other one; the replacement
  // must not receive the event already fetched for its predecessor.
  for (int i = 0; i < 2; ++i) {
    loop.fdWatcherIs(fds[i], Loop::kReadable, [&, i](unsigned) {
      ++firstCalls;
      int other = fds[1 - i];
      loop.fdWatcherIs(other, Loop::kReadable, [&, other](unsigned) {
        ++replacementCalls;
        loop.fdWatcherDel(other);
      });
      loop.fdWatcherDel(fds[i]);
    });
  }
  one.send(1, "a");
  two.send(1, "b");
  EXPECT_TRUE(loop.runUntil([&] { return firstCalls > 0; }, 5.0));
  EXPECT_EQ(firstCalls, 1);
  EXPECT_EQ(replacementCalls, 0);
  // The data is still there: the replacement hears it in a later turn.
  EXPECT_EQ(loop.runUntilIdle(), 1u);
  EXPECT_EQ(replacementCalls, 1);
  EXPECT_EQ(loop.fdWatcherCount(), 0u);
}

TEST(ActivityLoop, RefusesWhatItCannotWatchOrCall) {
  Loop loop;
  EXPECT_EQ(rangeErrorOf([&] { loop.timerIs(1, nullptr); }), "null activity loop callback");
  EXPECT_EQ(rangeErrorOf([&] { loop.deferredCallIs({}); }), "null activity loop callback");
  EXPECT_EQ(rangeErrorOf([&] { loop.fdWatcherIs(0, Loop::kReadable, {}); }), "null activity loop callback");
  auto ignore = [](unsigned) {};
  EXPECT_EQ(rangeErrorOf([&] { loop.fdWatcherIs(-3, Loop::kReadable, ignore); }),
            "cannot watch fd -3: negative descriptor");

  int file = open("/proc/self/exe", O_RDONLY | O_CLOEXEC);
  ASSERT_GE(file, 0);
  EXPECT_EQ(rangeErrorOf([&] { loop.fdWatcherIs(file, Loop::kReadable, ignore); }),
            "cannot watch fd " + std::to_string(file) + ": Operation not permitted");
  close(file);
  EXPECT_EQ(rangeErrorOf([&] { loop.fdWatcherIs(file, Loop::kReadable, ignore); }),
            "cannot watch fd " + std::to_string(file) + ": Bad file descriptor");
  EXPECT_EQ(loop.fdWatcherCount(), 0u);
  EXPECT_FALSE(loop.fdWatcherEventsIs(file, Loop::kReadable));
  EXPECT_FALSE(loop.fdWatcherDel(file));

  // A descriptor closed without removing its watcher, its number then reused:
  // watching the new one works.
  auto pair = std::make_unique<SocketPair>();
  int reused = pair->fd[0];
  loop.fdWatcherIs(reused, Loop::kReadable, ignore);
  pair.reset();
  SocketPair fresh;
  ASSERT_EQ(fresh.fd[0], reused);
  std::string heard;
  loop.fdWatcherIs(reused, Loop::kReadable, [&](unsigned) { heard += fresh.receive(0); });
  fresh.send(1, "again");
  EXPECT_TRUE(loop.runUntil([&] { return !heard.empty(); }, 5.0));
  EXPECT_EQ(heard, "again");

  // Running the loop from its own callback is refused.
  std::string nested;
  loop.deferredCallIs([&] { nested = rangeErrorOf([&] { loop.runUntilIdle(); }); });
  loop.runUntilIdle();
  EXPECT_EQ(nested, "activity loop is already running");
}

TEST(ActivityLoop, DeferredCallsRunInOrderAndALongChainSettlesWithoutRecursion) {
  Loop loop;
  std::vector<int> order;
  loop.deferredCallIs([&] {
    order.push_back(1);
    loop.deferredCallIs([&] { order.push_back(4); });
  });
  loop.deferredCallIs([&] { order.push_back(2); });
  loop.deferredCallIs([&] { order.push_back(3); });
  EXPECT_EQ(loop.deferredCallCount(), 3u);
  EXPECT_EQ(loop.runUntilIdle(), 4u);
  EXPECT_EQ(order, (std::vector<int>{1, 2, 3, 4}));

  // A call deferred by a timer runs before the next timer.
  order.clear();
  loop.timerIs(0, [&] {
    order.push_back(1);
    loop.deferredCallIs([&] { order.push_back(2); });
  });
  loop.timerIs(0, [&] { order.push_back(3); });
  EXPECT_EQ(loop.runUntilIdle(), 3u);
  EXPECT_EQ(order, (std::vector<int>{1, 2, 3}));

  int remaining = 100000, depth = 0, deepest = 0;
  std::function<void()> step = [&] {
    deepest = std::max(deepest, ++depth);
    if (--remaining > 0) loop.deferredCallIs(step);
    --depth;
  };
  loop.deferredCallIs(step);
  EXPECT_EQ(loop.runUntilIdle(), 100000u);
  EXPECT_EQ(remaining, 0);
  EXPECT_EQ(deepest, 1);
}

// Work that keeps queueing itself does not starve the rest of the loop.
TEST(ActivityLoop, EndlessDeferredWorkLeavesRoomForTimersDeadlinesAndStop) {
  Loop loop;
  size_t rounds = 0;
  bool timerFired = false;
  std::function<void()> again = [&] {
    ++rounds;
    if (timerFired && rounds % 1000 == 0) loop.stop();
    loop.deferredCallIs(again);
  };
  loop.deferredCallIs(again);
  loop.timerIs(0.01, [&] { timerFired = true; });
  loop.run();
  EXPECT_TRUE(timerFired);
  EXPECT_LE(rounds % 1000, Loop::kDrainBudget);

  auto started = std::chrono::steady_clock::now();
  EXPECT_FALSE(loop.runUntil([] { return false; }, 0.05));
  EXPECT_LT(std::chrono::steady_clock::now() - started, std::chrono::seconds(5));
  loop.deferredCallIs([&] { again = [] {}; });  // lets the chain end
  loop.runUntilIdle();
}

TEST(ActivityLoop, RunUntilReportsWhetherItsConditionWasMet) {
  Loop loop;
  bool never = false;
  EXPECT_FALSE(loop.runUntil([&] { return never; }, 0.02));

  bool ready = false;
  loop.timerIs(0.01, [&] { ready = true; });
  Loop::TimerId later = loop.timerIs(60, [] {});
  EXPECT_TRUE(loop.runUntil([&] { return ready; }, 5.0));

  // A condition already met runs nothing.
  loop.deferredCallIs([] {});
  EXPECT_TRUE(loop.runUntil([] { return true; }, 0));
  EXPECT_EQ(loop.deferredCallCount(), 1u);

  // stop() from a callback ends run() at the end of that turn; outside of a
  // run it is forgotten.
  loop.stop();
  bool stoppedTurnFinished = false;
  loop.timerIs(0.01, [&] {
    loop.stop();
    loop.deferredCallIs([&] { stoppedTurnFinished = true; });
  });
  loop.run();
  EXPECT_TRUE(stoppedTurnFinished);
  EXPECT_EQ(loop.deferredCallCount(), 0u);
  EXPECT_TRUE(loop.timerDel(later));
}

TEST(ActivityLoop, AThrowingCallbackIsTracedAndTheLoopCarriesOn) {
  ActivityTraces traces;
  Loop loop;
  SocketPair pair;
  std::vector<std::string> ran;
  loop.deferredCallIs([] { throw RangeException("deferred boom"); });
  loop.deferredCallIs([&] { ran.push_back("deferred"); });
  loop.timerIs(0, [] { throw 42; });
  loop.timerIs(0, [&] { ran.push_back("timer"); });
  loop.fdWatcherIs(pair.fd[0], Loop::kReadable, [&](unsigned) {
    loop.fdWatcherDel(pair.fd[0]);
    throw std::runtime_error("watcher boom");
  });
  pair.send(1, "x");
  EXPECT_EQ(loop.runUntilIdle(), 5u);  // every callback counts, thrown or not
  EXPECT_EQ(ran, (std::vector<std::string>{"deferred", "timer"}));
  EXPECT_EQ(traces.lines, (std::vector<std::string>{"callback threw: deferred boom", "callback threw: watcher boom",
                                                     "callback threw an exception of unknown type"}));
}

// Owned by callbacks; its destructor calls back into the loop, as the last
// reference to a state machine captured by a callback would.
class CancelsTimerWhenDestroyed {
 public:
  CancelsTimerWhenDestroyed(ActivityLoop& loop, ActivityLoop::TimerId id) : loop_(loop), id_(id) {}
  ~CancelsTimerWhenDestroyed() { loop_.timerDel(id_); }

 private:
  ActivityLoop& loop_;
  ActivityLoop::TimerId id_;
};

TEST(ActivityLoop, DestroyingItDropsPendingWorkWhoseOwnersCallBack) {
  bool ran = false;
  {
    Loop loop;
    Loop::TimerId other = loop.timerIs(10, [&] { ran = true; });
    auto owner = std::make_shared<CancelsTimerWhenDestroyed>(loop, other);
    loop.deferredCallIs([owner] {});
    loop.timerIs(10, [owner] {});
    SocketPair pair;
    loop.fdWatcherIs(pair.fd[0], Loop::kReadable, [owner](unsigned) {});
  }
  EXPECT_FALSE(ran);  // dropped without running; the sanitizer build checks the rest
}

TEST(Activity, ConfigsAreMadeOnceByNameAndRunOnTheirManagersLoop) {
  Loop loop;
  Ptr<ActivityManagerConfig> manager(new ActivityManagerConfig(&loop));
  Ptr<ActivityConfig> agent = manager->activityConfigIs("agent", 10);
  EXPECT_EQ(agent->name(), "agent");
  EXPECT_EQ(agent->priorityHint(), 10u);
  EXPECT_EQ(agent->loop(), &loop);
  EXPECT_EQ(manager->activityConfigIs("agent", 3), agent);
  EXPECT_EQ(agent->priorityHint(), 10u);
  EXPECT_EQ(manager->activityConfig("agent"), agent);
  EXPECT_EQ(manager->activityConfig("other"), nullptr);
  EXPECT_EQ(stringValue(agent), "agent");
  EXPECT_EQ(stringValue(Ptr<ActivityConfig>()), "");

  manager->activityConfigIs("other", 10);
  EXPECT_EQ(manager->activityConfigCount(), 2u);

  EXPECT_EQ(manager->activityConfigDel("agent"), agent);
  EXPECT_EQ(manager->activityConfigDel("agent"), nullptr);
  EXPECT_EQ(manager->activityConfigCount(), 1u);
  EXPECT_EQ(agent->name(), "agent");  // its holders keep it
  EXPECT_NE(manager->activityConfigIs("agent", 10), agent);

  // The process's manager is one object, running on the process's loop.
  Ptr<ActivityManagerConfig> process = ActivityFacility::activityManagerConfig();
  EXPECT_EQ(ActivityFacility::activityManagerConfig(), process);
  EXPECT_EQ(process->loop(), &ActivityFacility::loop());
  EXPECT_EQ(process->activityConfigIs("agent", 10)->loop(), &ActivityFacility::loop());
  process->activityConfigDel("agent");
}

}  // namespace
}  // namespace Zet
