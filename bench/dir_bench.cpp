// Directory costs at 100,000 entries: making entities by type name, looking
// them up by name, and walking paths to them. Each benchmark is repeated and
// reported as mean, median and deviation; read the medians.

#include <benchmark/benchmark.h>

#include <string>
#include <vector>

#include "Zet/Dir.h"
#include "Zet/TypeMap.h"

namespace Zet {
namespace {

constexpr size_t kEntries = 100000;

class BenchGadget : public Entity {
 public:
  BenchGadget(Name const& name, Entity* parent) : Entity(name, parent) {}
  TypeDescriptor const& fwkType() const override;
};
Ptr<Entity> benchGadgetFactory(Name const& name, Entity* parent) { return new BenchGadget(name, parent); }
TypeDescriptor const benchGadgetType{"Bench::Gadget", benchGadgetFactory, {}, {}};
ZET_REGISTER_TYPE(benchGadgetType);
TypeDescriptor const& BenchGadget::fwkType() const { return benchGadgetType; }

std::vector<Name> const& names() {
  static std::vector<Name> const made = [] {
    std::vector<Name> v;
    for (size_t i = 0; i < kEntries; ++i) v.emplace_back("entry-" + std::to_string(i));
    return v;
  }();
  return made;
}

Ptr<Dir> filledDir() {
  Ptr<Dir> dir = ptr_cast<Dir>(dirFactory("bench", nullptr));
  for (Name const& n : names()) dir->entityIs(n, "Bench::Gadget");
  return dir;
}

void BM_EntityIs(benchmark::State& state) {
  names();
  for (auto _ : state) {
    Ptr<Dir> dir = ptr_cast<Dir>(dirFactory("bench", nullptr));
    for (Name const& n : names()) dir->entityIs(n, "Bench::Gadget");
    state.PauseTiming();
    dir = nullptr;
    state.ResumeTiming();
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * kEntries));
}

void BM_EntityRefByName(benchmark::State& state) {
  Ptr<Dir> dir = filledDir();
  for (auto _ : state)
    for (Name const& n : names()) benchmark::DoNotOptimize(dir->entityRef(n));
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * kEntries));
}

void BM_EntityRefByPath(benchmark::State& state) {
  Ptr<Dir> root = ptr_cast<Dir>(dirFactory("/", nullptr));
  Ptr<Dir> leafDir = root->dirIs("agent")->dirIs("state");
  for (Name const& n : names()) leafDir->entityIs(n, "Bench::Gadget");
  std::vector<EntityUriPath> paths;
  for (Name const& n : names()) paths.emplace_back(String8("/agent/state/") + n.view());
  for (auto _ : state)
    for (EntityUriPath const& p : paths) benchmark::DoNotOptimize(leafDir->entityRef(p));
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * kEntries));
}

BENCHMARK(BM_EntityIs)->Unit(benchmark::kMillisecond)->Repetitions(5)->ReportAggregatesOnly(true);
BENCHMARK(BM_EntityRefByName)->Unit(benchmark::kMillisecond)->Repetitions(5)->ReportAggregatesOnly(true);
BENCHMARK(BM_EntityRefByPath)->Unit(benchmark::kMillisecond)->Repetitions(5)->ReportAggregatesOnly(true);

}  // namespace
}  // namespace Zet

BENCHMARK_MAIN();
