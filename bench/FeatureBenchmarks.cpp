// The plug-in's own cost on its hot paths: a periodic round of an active
// game session (five times a second on a device, for as long as a game is
// open), an idle round, a start and stop trigger, a node write, and the heap
// a session holds. Times to compare with a device are CPU times: the nodes
// live on a memory file system here, as sysfs does on a device.
#include <android-base/properties.h>
#include <android/log.h>
#include <benchmark/benchmark.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <memory>
#include <string>
#include <system_error>

#include "bench/AllocationCounter.h"
#include "feature/GorvFeature.h"
#include "host/framework/HostLocator.h"
#include "host/framework/HostProcesses.h"
#include "host/framework/MeterService.h"
#include "host/platform/HostEnv.h"
#include "meter/GorvMetaMeter.h"

namespace {

constexpr const char* kGame = "com.example.game/.Main";

// The framework's meters are not the plug-in's cost: starting them is only
// counted.
class CountingMeterService : public MeterService {
 public:
  void Start(MetaMeter&) override { ++starts; }
  int64_t starts = 0;
};

void InertLogger(const __android_logger_data*, const char*) {}

// The host set up as for a game: enabled feature, a game with a pid, nodes
// under a temporary root, virtual clock, nothing recorded.
class BenchWorld {
 public:
  BenchWorld() {
    gorv::HostEnv& env = gorv::HostEnv::Get();
    env.Reset();
    env.UseVirtualClock();
    env.SetRecordEvents(false);
    // Nodes on a memory file system, as sysfs is: a disk's file operations
    // would be the cost measured.
    std::error_code noShm;
    std::filesystem::path base = std::filesystem::is_directory("/dev/shm", noShm)
                                     ? std::filesystem::path("/dev/shm")
                                     : std::filesystem::temp_directory_path();
    std::string pattern = (base / "gorv-bench-XXXXXX").string();
    if (mkdtemp(pattern.data()) != nullptr) mRoot = pattern;
    std::filesystem::create_directories(mRoot + "/sys/kernel/sched_penalty/parameters");
    env.SetSysfsRoot(mRoot);
    android::base::SetProperty("ro.vendor.perf.gorv", "true");
    android::base::SetProperty("vendor.debug.trace.gorv", "");
    HostLocator::Get().Clear();
    HostLocator::Get().SetClass("com.example.game", 2);
    HostProcesses::Get().UseTable({{"com.example.game", 4242}});
    MeterService::Install(&mMeters);
    __android_log_set_logger(InertLogger);
  }
  ~BenchWorld() {
    MeterService::Install(nullptr);
    std::filesystem::remove_all(mRoot);
  }

  std::unique_ptr<GorvFeature> Feature() {
    FeatureInfo info;
    info.name = "GORV";
    info.meterInfos = {{"Fps", {}}};
    return std::make_unique<GorvFeature>(info);
  }

 private:
  CountingMeterService mMeters;
  std::string mRoot;
};

AsyncTriggerPayload Trigger(int id) {
  AsyncTriggerPayload payload;
  payload.triggerId = id;
  payload.component = kGame;
  return payload;
}

// One round of the periodic thread, 200 ms after the previous one.
void Round(GorvFeature& feature) {
  static const std::atomic<bool> kRunning{true};
  gorv::HostEnv::Get().AdvanceClock(std::chrono::milliseconds(200));
  feature.runAsyncPeriodic(kRunning);
}

// A session at a steady 60 fps, past its first analyses.
std::unique_ptr<GorvFeature> ActiveSession(BenchWorld& world) {
  std::unique_ptr<GorvFeature> feature = world.Feature();
  static_cast<GorvMetaMeter*>(feature->metaMeter)->mFps.store(60.0f);
  feature->runAsync(Trigger(GorvFeature::kTriggerStart));
  for (int i = 0; i < 20; ++i) Round(*feature);
  return feature;
}

void BM_PeriodicRound(benchmark::State& state) {
  BenchWorld world;
  std::unique_ptr<GorvFeature> feature = ActiveSession(world);
  int64_t allocations = AllocationCounter::Allocations();
  for (auto _ : state) Round(*feature);
  state.counters["allocs_per_round"] =
      benchmark::Counter(static_cast<double>(AllocationCounter::Allocations() - allocations),
                         benchmark::Counter::kAvgIterations);
}
BENCHMARK(BM_PeriodicRound);

void BM_IdleRound(benchmark::State& state) {
  BenchWorld world;
  std::unique_ptr<GorvFeature> feature = world.Feature();
  std::atomic<bool> running{true};
  for (auto _ : state) feature->runAsyncPeriodic(running);
}
BENCHMARK(BM_IdleRound);

void BM_TriggerStartStop(benchmark::State& state) {
  BenchWorld world;
  std::unique_ptr<GorvFeature> feature = world.Feature();
  for (auto _ : state) {
    feature->runAsync(Trigger(GorvFeature::kTriggerStart));
    feature->runAsync(Trigger(GorvFeature::kTriggerStop));
  }
}
BENCHMARK(BM_TriggerStartStop)
    ->Repetitions(5)
    ->ReportAggregatesOnly(true)
    ->Unit(benchmark::kMicrosecond);

// One write of the fps node, as a round that changes the target makes it.
void BM_NodeWrite(benchmark::State& state) {
  BenchWorld world;
  std::unique_ptr<GorvFeature> feature = world.Feature();
  std::string path = GorvFeature::kFpsNode;
  int64_t allocations = AllocationCounter::Allocations();
  for (auto _ : state) feature->updateSysNodes(path, 60);
  state.counters["allocs_per_write"] =
      benchmark::Counter(static_cast<double>(AllocationCounter::Allocations() - allocations),
                         benchmark::Counter::kAvgIterations);
}
BENCHMARK(BM_NodeWrite)->Unit(benchmark::kMicrosecond);

// The feature's heap after construction and after an hour of session
// (18 000 rounds of 200 ms): it must not grow with the session's length.
void BM_SessionMemory(benchmark::State& state) {
  BenchWorld world;
  for (auto _ : state) {
    int64_t before = AllocationCounter::LiveBytes();
    std::unique_ptr<GorvFeature> feature = world.Feature();
    int64_t constructed = AllocationCounter::LiveBytes() - before;
    static_cast<GorvMetaMeter*>(feature->metaMeter)->mFps.store(60.0f);
    feature->runAsync(Trigger(GorvFeature::kTriggerStart));
    for (int i = 0; i < 20; ++i) Round(*feature);
    int64_t settled = AllocationCounter::LiveBytes() - before;
    for (int i = 0; i < 18000; ++i) Round(*feature);
    int64_t hour = AllocationCounter::LiveBytes() - before;
    state.counters["heap_after_construction"] = static_cast<double>(constructed);
    state.counters["heap_in_session"] = static_cast<double>(settled);
    state.counters["heap_after_18000_rounds"] = static_cast<double>(hour);
  }
}
BENCHMARK(BM_SessionMemory)->Iterations(1)->Unit(benchmark::kMillisecond);

}  // namespace
