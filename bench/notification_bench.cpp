// Registering and unregistering notifiees on one entity, and one round of
// notification over all of them, at 10,000 and 100,000 notifiees: the shape
// of 100,000 entries depending on one common entry. Per-notifiee times
// ("per_notifiee") should not grow with the count. Read the medians.

#include <benchmark/benchmark.h>

#include <memory>
#include <vector>

#include "AgentEnv/AgentEnvStatus.h"
#include "AgentEnv/AgentEnvStatusDir.h"

namespace Zet {
namespace {

struct Counter : AgentEnvStatus::NotifieeConst {
  size_t* calls;
  explicit Counter(size_t* c) : calls(c) {}
  void onStatusCode() override { ++*calls; }
};

enum class Order { registration, reverse };

void perNotifiee(benchmark::State& state) {
  state.counters["per_notifiee"] = benchmark::Counter(
      static_cast<double>(state.range(0)), benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

void BM_RegisterAndUnregister(benchmark::State& state, Order order) {
  Ptr<AgentEnvStatusDir> dir = agentEnvStatusDirFactory("statuses");
  Ptr<AgentEnvStatus> status = dir->agentEnvStatusIs("common");
  size_t calls = 0;
  std::vector<std::unique_ptr<Counter>> notifiees;
  for (int64_t i = 0; i < state.range(0); ++i) notifiees.push_back(std::make_unique<Counter>(&calls));
  for (auto _ : state) {
    for (auto& n : notifiees) n->notifierIs(status);
    if (order == Order::registration)
      for (auto& n : notifiees) n->notifierIs(nullptr);
    else
      for (auto it = notifiees.rbegin(); it != notifiees.rend(); ++it) (*it)->notifierIs(nullptr);
  }
  perNotifiee(state);
}

void BM_NotifyAll(benchmark::State& state) {
  Ptr<AgentEnvStatusDir> dir = agentEnvStatusDirFactory("statuses");
  Ptr<AgentEnvStatus> status = dir->agentEnvStatusIs("common");
  size_t calls = 0;
  std::vector<std::unique_ptr<Counter>> notifiees;
  for (int64_t i = 0; i < state.range(0); ++i) {
    notifiees.push_back(std::make_unique<Counter>(&calls));
    notifiees.back()->notifierIs(status);
  }
  for (auto _ : state)
    status->statusCodeIs(status->statusCode() == AgentEnvStatus::none ? AgentEnvStatus::badPath : AgentEnvStatus::none);
  perNotifiee(state);
}

BENCHMARK_CAPTURE(BM_RegisterAndUnregister, in_order, Order::registration)
    ->Arg(10000)
    ->Arg(100000)
    ->Unit(benchmark::kMillisecond)
    ->Repetitions(5)
    ->ReportAggregatesOnly();
BENCHMARK_CAPTURE(BM_RegisterAndUnregister, reverse, Order::reverse)
    ->Arg(10000)
    ->Arg(100000)
    ->Unit(benchmark::kMillisecond)
    ->Repetitions(5)
    ->ReportAggregatesOnly();
BENCHMARK(BM_NotifyAll)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond)->Repetitions(5)->ReportAggregatesOnly();

}  // namespace
}  // namespace Zet

BENCHMARK_MAIN();
