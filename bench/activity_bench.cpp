// The activity loop's costs: deferred calls, timer bookkeeping and coalesced
// reactor notification. Run with --benchmark_repetitions=5 and read the
// medians.

#include <benchmark/benchmark.h>

#include <functional>
#include <memory>
#include <random>
#include <vector>

#include "Zet/Activity.h"
#include "Zet/ActivityLoop.h"
#include "Zet/Reactor.h"

namespace Zet {
namespace {

// Queues range(0) independent calls, then runs them.
void deferredCalls(benchmark::State& state) {
  ActivityLoop loop;
  int const n = int(state.range(0));
  long ran = 0;
  for (auto _ : state) {
    for (int i = 0; i < n; ++i) loop.deferredCallIs([&ran] { ++ran; });
    loop.runUntilIdle();
  }
  benchmark::DoNotOptimize(ran);
  state.SetItemsProcessed(state.iterations() * n);
}
BENCHMARK(deferredCalls)->Arg(1000)->Arg(100000);

// A chain of range(0) calls, each queueing the next.
void deferredCallChain(benchmark::State& state) {
  ActivityLoop loop;
  int const n = int(state.range(0));
  int remaining = 0;
  std::function<void()> step = [&] {
    if (--remaining > 0) loop.deferredCallIs(step);
  };
  for (auto _ : state) {
    remaining = n;
    loop.deferredCallIs(step);
    loop.runUntilIdle();
  }
  state.SetItemsProcessed(state.iterations() * n);
}
BENCHMARK(deferredCallChain)->Arg(100000);

std::vector<double> spreadDelays(int n) {
  std::mt19937 rng(7);
  std::uniform_real_distribution<double> seconds(1.0, 100.0);
  std::vector<double> delays(static_cast<size_t>(n));
  for (double& d : delays) d = seconds(rng);
  return delays;
}

// Arms range(0) timers at spread-out delays, then cancels them all.
void timerInsertCancel(benchmark::State& state) {
  ActivityLoop loop;
  std::vector<double> delays = spreadDelays(int(state.range(0)));
  std::vector<ActivityLoop::TimerId> ids(delays.size());
  for (auto _ : state) {
    for (size_t i = 0; i < delays.size(); ++i) ids[i] = loop.timerIs(delays[i], [] {});
    for (ActivityLoop::TimerId id : ids) loop.timerDel(id);
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(timerInsertCancel)->Arg(100000);

// Arms range(0) timers that are due at once, then fires them.
void timerFire(benchmark::State& state) {
  ActivityLoop loop;
  int const n = int(state.range(0));
  long fired = 0;
  for (auto _ : state) {
    for (int i = 0; i < n; ++i) loop.timerIs(0, [&fired] { ++fired; });
    loop.runUntilIdle();
  }
  benchmark::DoNotOptimize(fired);
  state.SetItemsProcessed(state.iterations() * n);
}
BENCHMARK(timerFire)->Arg(100000);

class CountingReactor : public Reactor {
 public:
  using Reactor::Reactor;
  long delivered = 0;

 protected:
  void onNotification(int) override { ++delivered; }
};

// 1000 reactors, each deferred range(0) times per round: the first defer
// queues a delivery, the rest only replace the code.
void coalescedNotification(benchmark::State& state) {
  ActivityLoop loop;
  Ptr<ActivityManagerConfig> manager(new ActivityManagerConfig(&loop));
  Ptr<ActivityConfig> activity = manager->activityConfigIs("bench", 10);
  std::vector<std::unique_ptr<CountingReactor>> reactors;
  for (int i = 0; i < 1000; ++i) {
    reactors.push_back(std::make_unique<CountingReactor>(activity));
    reactors.back()->activate();
  }
  int const defers = int(state.range(0));
  for (auto _ : state) {
    for (auto& r : reactors)
      for (int k = 0; k < defers; ++k) r->notificationDefer(k);
    loop.runUntilIdle();
  }
  state.SetItemsProcessed(state.iterations() * long(reactors.size()) * defers);
  state.counters["deliveries/round"] = double(reactors[0]->delivered) / double(state.iterations());
}
BENCHMARK(coalescedNotification)->Arg(1)->Arg(3)->Arg(10);

}  // namespace
}  // namespace Zet

BENCHMARK_MAIN();
