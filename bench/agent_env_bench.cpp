// Settling the environment: N entries put into a config dir with empty
// source0 and absolute targets, until every one is initialized, for three
// shapes of dependency graph:
//   independent  every entry acts at once
//   chain        each entry depends on the one before; the head becomes ready
//                only after all are in, so the chain settles from the loop
//   aggregates   aggregates of 100 entries (one aggregate, 99 members)
// and the memory an entry costs (config, status, state machine and activity)
// while it waits. Read the medians; "per_entry" is time per entry.

#include <benchmark/benchmark.h>
#include <malloc.h>

#include <string>
#include <vector>

#include "AgentEnv/AgentEnv.h"

namespace Zet {
namespace {

enum class Shape { independent, chain, aggregates };
constexpr size_t kAggregateSize = 100;

struct Entry {
  Name name;
  String8 target;
  Name dependency;
  Name aggregate;  // empty at the outer level
  String8 suffix;
};

std::vector<Entry> entries(Shape shape, size_t count, std::string const& root) {
  std::vector<Entry> made;
  made.reserve(count);
  for (size_t i = 0; i < count; ++i) {
    std::string name = "e";
    name += std::to_string(i);
    Entry e{Name(name), String8(root + "/" + name), Name(""), Name(), String8()};
    if (shape == Shape::chain && i > 0) e.dependency = made.back().name;
    if (shape == Shape::aggregates && i % kAggregateSize != 0) {
      e.aggregate = made[i - i % kAggregateSize].name;
      e.target = String8();
      e.suffix = String8(name);
    }
    made.push_back(std::move(e));
  }
  if (shape == Shape::chain) made.front().dependency = AgentEnvConfig::notReady();
  return made;
}

struct Environment {
  Ptr<AgentEnvConfigDir> configs = agentEnvConfigDirFactory("configs");
  Ptr<AgentEnvStatusDir> statuses = agentEnvStatusDirFactory("statuses");
  Ptr<AgentEnvDirSm> dirSm = agentEnvDirSmFactory(configs, statuses);

  ~Environment() {
    dirSm = nullptr;
    configs->agentEnvConfigDelAll();
  }

  void add(Entry const& e) {
    Ptr<AgentEnvConfig> c = configs->agentEnvConfigIs(e.name);
    if (!e.aggregate.isEmpty()) c->aggConfigIs(configs->agentEnvConfig(e.aggregate));
    c->typeNameIs("Zet::Dir");
    if (!e.target.isEmpty()) c->targetIs(EntityUriPath(e.target));
    if (!e.suffix.isEmpty()) c->pathSuffixIs(EntityUri(e.suffix));
    c->dependencyIs(e.dependency);
  }
};

void BM_Settle(benchmark::State& state, Shape shape) {
  size_t count = static_cast<size_t>(state.range(0));
  size_t round = 0;
  for (auto _ : state) {
    state.PauseTiming();
    std::string root = "/bench-" + std::to_string(round++);
    std::vector<Entry> all = entries(shape, count, root);
    auto* env = new Environment;
    state.ResumeTiming();

    for (Entry const& e : all) env->add(e);
    if (shape == Shape::chain) env->configs->agentEnvConfig(all.front().name)->dependencyIs(Name(""));
    ActivityFacility::loop().runUntilIdle();

    state.PauseTiming();
    for (Entry const& e : all)
      if (env->statuses->agentEnvStatus(e.name)->groupStatus() != AgentEnvStatus::initialized)
        state.SkipWithError("an entry did not settle");
    delete env;
    globalDir()->entryDel(Name(root.substr(1)));
    // The allocator consolidates what the round freed here, not in the
    // next timed round.
    malloc_trim(0);
    state.ResumeTiming();
  }
  state.counters["per_entry"] = benchmark::Counter(
      static_cast<double>(count), benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

// Bytes held per waiting entry: its config, status, state machine, activity
// and their places in the directories' maps.
void BM_BytesPerEntry(benchmark::State& state) {
  size_t count = static_cast<size_t>(state.range(0));
  std::vector<Entry> all = entries(Shape::independent, count, "/bench-memory");
  for (Entry& e : all) e.dependency = AgentEnvConfig::notReady();
  double configBytes = 0, entryBytes = 0;
  for (auto _ : state) {
    Environment env;
    size_t before = mallinfo2().uordblks;
    for (Entry const& e : all) env.add(e);
    entryBytes = double(mallinfo2().uordblks - before) / double(count);
    Ptr<AgentEnvConfigDir> bare = agentEnvConfigDirFactory("bare");
    before = mallinfo2().uordblks;
    for (Entry const& e : all) bare->agentEnvConfigIs(e.name)->targetIs(EntityUriPath(e.target));
    configBytes = double(mallinfo2().uordblks - before) / double(count);
  }
  state.counters["bytes_per_entry"] = entryBytes;
  state.counters["config_bytes"] = configBytes;
}

BENCHMARK_CAPTURE(BM_Settle, independent, Shape::independent)
    ->Arg(10000)
    ->Arg(100000)
    ->Unit(benchmark::kMillisecond)
    ->Repetitions(3)
    ->ReportAggregatesOnly();
BENCHMARK_CAPTURE(BM_Settle, chain, Shape::chain)
    ->Arg(10000)
    ->Arg(100000)
    ->Unit(benchmark::kMillisecond)
    ->Repetitions(3)
    ->ReportAggregatesOnly();
BENCHMARK_CAPTURE(BM_Settle, aggregates, Shape::aggregates)
    ->Arg(10000)
    ->Arg(100000)
    ->Unit(benchmark::kMillisecond)
    ->Repetitions(3)
    ->ReportAggregatesOnly();
BENCHMARK(BM_BytesPerEntry)->Arg(100000)->Iterations(1)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace Zet

BENCHMARK_MAIN();
