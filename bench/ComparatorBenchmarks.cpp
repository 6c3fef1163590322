// The cost of checking a run against its expected events when they all
// fall in one millisecond: the comparison must stay linear.
#include <benchmark/benchmark.h>

#include <string>
#include <vector>

#include "sim/check/EventComparator.h"

namespace {

// Arg: events in one ms; the recorded side misses one and changes one.
void BM_CompareOneMillisecond(benchmark::State& state) {
  std::vector<SimEvent> expected;
  for (int64_t i = 0; i < state.range(0); ++i) {
    SimEvent event;
    event.kind = SimEvent::Kind::Counter;
    event.tMs = 7;
    event.name = "c" + std::to_string(i % 10);
    event.value = i;
    expected.push_back(event);
  }
  std::vector<SimEvent> recorded = expected;
  recorded.erase(recorded.begin() + static_cast<ptrdiff_t>(recorded.size() / 2));
  recorded.front().value = -1;
  for (auto _ : state) {
    EventComparator::Result result = EventComparator::Compare(expected, recorded, {});
    benchmark::DoNotOptimize(result.matched);
  }
  state.SetComplexityN(state.range(0));
}
BENCHMARK(BM_CompareOneMillisecond)
    ->RangeMultiplier(10)
    ->Range(1000, 100000)
    ->Complexity()
    ->Unit(benchmark::kMillisecond);

}  // namespace
