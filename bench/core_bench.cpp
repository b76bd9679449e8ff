// The hot paths everything else stands on: hashing names, the hash map at a
// million members, an attribute write fanned out to N notifiees, and making
// entities in a directory.

#include <benchmark/benchmark.h>

#include <string>
#include <unordered_map>
#include <vector>

#include "AgentEnv/AgentEnv.h"

namespace {

using namespace Zet;

std::vector<Name> names(size_t n) {
  std::vector<Name> out;
  out.reserve(n);
  for (size_t i = 0; i < n; ++i) {
    std::string text("entry_");
    text += std::to_string(i * 2654435761u % 1000003);
    out.emplace_back(text);
  }
  return out;
}

void BM_NameMake(benchmark::State& state) {
  std::string text(static_cast<size_t>(state.range(0)), 'x');
  for (auto _ : state) benchmark::DoNotOptimize(Name(text));
  state.SetBytesProcessed(int64_t(state.iterations()) * state.range(0));
}
BENCHMARK(BM_NameMake)->Arg(8)->Arg(32)->Arg(256);

void BM_HashOfText(benchmark::State& state) {
  std::string text(static_cast<size_t>(state.range(0)), 'x');
  for (auto _ : state) benchmark::DoNotOptimize(String8::hashOf(text));
  state.SetBytesProcessed(int64_t(state.iterations()) * state.range(0));
}
BENCHMARK(BM_HashOfText)->Arg(8)->Arg(32)->Arg(256);

constexpr size_t kMillion = 1000000;

void BM_HashMapInsert1M(benchmark::State& state) {
  auto keys = names(kMillion);
  for (auto _ : state) {
    HashMap<int> map;
    for (size_t i = 0; i < keys.size(); ++i) map.insert(keys[i], int(i));
    benchmark::DoNotOptimize(map.size());
  }
  state.SetItemsProcessed(int64_t(state.iterations() * kMillion));
}
BENCHMARK(BM_HashMapInsert1M)->Unit(benchmark::kMillisecond);

void BM_StdUnorderedMapInsert1M(benchmark::State& state) {
  auto keys = names(kMillion);
  for (auto _ : state) {
    std::unordered_map<Name, int> map;
    for (size_t i = 0; i < keys.size(); ++i) map.emplace(keys[i], int(i));
    benchmark::DoNotOptimize(map.size());
  }
  state.SetItemsProcessed(int64_t(state.iterations() * kMillion));
}
BENCHMARK(BM_StdUnorderedMapInsert1M)->Unit(benchmark::kMillisecond);

void BM_HashMapLookup1M(benchmark::State& state) {
  auto keys = names(kMillion);
  HashMap<int> map;
  for (size_t i = 0; i < keys.size(); ++i) map.insert(keys[i], int(i));
  size_t i = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(map.find(keys[i]));
    i = (i + 7919) % kMillion;
  }
  state.SetItemsProcessed(int64_t(state.iterations()));
}
BENCHMARK(BM_HashMapLookup1M);

void BM_HashMapEraseInsert1M(benchmark::State& state) {
  auto keys = names(kMillion);
  HashMap<int> map;
  for (size_t i = 0; i < keys.size(); ++i) map.insert(keys[i], int(i));
  size_t i = 0;
  for (auto _ : state) {
    map.erase(keys[i]);
    map.insert(keys[i], 1);
    i = (i + 7919) % kMillion;
  }
  state.SetItemsProcessed(int64_t(state.iterations()));
}
BENCHMARK(BM_HashMapEraseInsert1M);

struct Counter : AgentEnvStatus::NotifieeConst {
  size_t seen = 0;
  void onStatusCode() override { ++seen; }
};

void BM_AttributeWriteWithNotifiees(benchmark::State& state) {
  Ptr<AgentEnvStatusDir> dir = agentEnvStatusDirFactory("statuses");
  Ptr<AgentEnvStatus> status = dir->agentEnvStatusIs("e1");
  std::vector<Counter> counters(static_cast<size_t>(state.range(0)));
  for (auto& c : counters) c.notifierIs(status);
  unsigned code = 0;
  for (auto _ : state) status->statusCodeIs(AgentEnvStatus::StatusCode(++code % 25));
  state.SetItemsProcessed(int64_t(state.iterations()));
}
BENCHMARK(BM_AttributeWriteWithNotifiees)->Arg(0)->Arg(1)->Arg(8)->Arg(64);

void BM_ConfigCreateAndDelete(benchmark::State& state) {
  auto keys = names(10000);
  Ptr<AgentEnvConfigDir> dir = agentEnvConfigDirFactory("configs");
  for (auto _ : state) {
    for (auto const& k : keys) dir->agentEnvConfigIs(k);
    dir->agentEnvConfigDelAll();
  }
  state.SetItemsProcessed(int64_t(state.iterations() * keys.size()));
}
BENCHMARK(BM_ConfigCreateAndDelete)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
