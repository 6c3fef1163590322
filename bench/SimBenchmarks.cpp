// The simulator's overhead against the plug-in's own work, both measured in
// each iteration so that their ratio is not skewed by this machine's load:
//  - the plug-in alone: the stepped runner driving the feature, nothing
//    recorded, its nodes on a memory file system;
//  - the engine: RunEngine::Run in this process into a sink that keeps
//    nothing (the private folder where PrivateSysfs puts it: /dev/shm, or GORV_SIM_SYSFS_DIR);
//  - the program: gorv-sim run as a user runs it, the timeline going to
//    /dev/null; and with every output (events, trace, plot, summary).
// Two workloads: a virtual day of a game at 60 fps (432 000 rounds) and
// 100 000 start and stop triggers.
// And a batch of four virtual days run by gorv-sim with -j 1 and with -j 2,
// both in each iteration: the speed-up of running a batch in parallel.
#include <android-base/properties.h>
#include <android/log.h>
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>

#include "feature/GorvFeature.h"
#include "host/framework/FrameRateSource.h"
#include "host/framework/HostLocator.h"
#include "host/framework/HostProcesses.h"
#include "host/framework/SteppedRunner.h"
#include "host/platform/HostEnv.h"
#include "sim/input/ScenarioParser.h"
#include "sim/run/RunEngine.h"

namespace {

constexpr const char* kHeader = "property ro.vendor.perf.gorv true\napp com.example.game 2 4242\n";
constexpr const char* kGame = "com.example.game/.Main";

std::string DayScenario() {
  return std::string(kHeader) + "fps 0 60\ntrigger 0 4097 " + kGame + "\nend 86400000\n";
}

// A start or a stop every 10 ms.
std::string TriggerScenario() {
  std::string text = std::string(kHeader) + "fps 0 60\n";
  for (int i = 0; i < 100000; ++i) {
    text += "trigger " + std::to_string(i * 10) + (i % 2 == 0 ? " 4097 " : " 4098 ") + kGame + "\n";
  }
  return text + "end 1000000\n";
}

class NullSink : public RunSink {
 public:
  void Begin(const RunInfo& /*info*/) override {}
  void Event(const SimEvent& /*event*/) override {}
  void End(const RunEnd& /*end*/) override {}
};

void InertLogger(const __android_logger_data*, const char*) {}

// The plug-in's own work on `scenario`: the world set up as the simulator
// sets it up, the same triggers through the stepped runner.
void PluginAlone(const Scenario& scenario, const std::string& root) {
  gorv::HostEnv& env = gorv::HostEnv::Get();
  env.Reset();
  env.SetRecordEvents(false);
  env.SetSysfsRoot(root);
  android::base::SetProperty("ro.vendor.perf.gorv", "true");
  HostLocator::SetCurrent(&HostLocator::Get());
  HostLocator::Get().Clear();
  HostLocator::Get().SetClass("com.example.game", 2);
  HostProcesses::Get().UseTable({{"com.example.game", 4242}});
  FrameRateSource::Get().SetConstant(60.0f);
  SteppedRunner runner(std::chrono::milliseconds(scenario.meterLatencyMs));
  FeatureInfo info;
  info.name = "GORV";
  info.meterInfos = {{"Fps", {}}};
  runner.Adopt(new GorvFeature(info));
  for (const Scenario::Trigger& trigger : scenario.triggers) {
    AsyncTriggerPayload payload;
    payload.triggerId = trigger.id;
    payload.component = trigger.component;
    runner.ScheduleTrigger(trigger.atMs, payload);
  }
  runner.RunUntil(scenario.EndMs());
  runner.DestroyFeature();
}

double Seconds(const std::function<void()>& work) {
  auto start = std::chrono::steady_clock::now();
  work();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

// Arg 0: a virtual day at 60 fps; arg 1: 100 000 triggers.
void BM_SimOverhead(benchmark::State& state) {
  __android_log_set_logger(InertLogger);
  std::string text = state.range(0) == 0 ? DayScenario() : TriggerScenario();
  std::string file = (std::filesystem::temp_directory_path() / "gorv-bench-overhead.scn").string();
  std::ofstream(file) << text;
  Scenario scenario;
  std::string error;
  std::string root = "/dev/shm/gorv-bench-XXXXXX";
  if (!ScenarioParser::Parse("overhead.scn", "/", text, &scenario, &error) ||
      mkdtemp(root.data()) == nullptr) {
    state.SkipWithError("cannot set up");
    return;
  }
  std::filesystem::create_directories(root + "/sys/kernel/sched_penalty/parameters");
  std::string program = std::string(GORV_SIM_PATH) + " " + file;
  std::string timeline = program + " >/dev/null";
  std::string everything =
      program + " --events /dev/null --trace /dev/null --plot /dev/null --summary-json /dev/null";
  double plugin = 0, engine = 0, withTimeline = 0, withOutputs = 0;
  for (auto _ : state) {
    double before = plugin + engine + withTimeline + withOutputs;
    plugin += Seconds([&] { PluginAlone(scenario, root); });
    engine += Seconds([&] {
      std::unique_ptr<PrivateSysfs> sysfs = PrivateSysfs::Make(&error);
      NullSink sink;
      if (!sysfs || !RunEngine::Run(scenario, {GORV_PLUGIN_PATH, false}, *sysfs, sink, &error)) {
        state.SkipWithError(error.c_str());
      }
    });
    withTimeline += Seconds([&] {
      if (std::system(timeline.c_str()) != 0) state.SkipWithError("gorv-sim failed");
    });
    withOutputs += Seconds([&] {
      if (std::system(everything.c_str()) != 0) state.SkipWithError("gorv-sim failed");
    });
    state.SetIterationTime(plugin + engine + withTimeline + withOutputs - before);
  }
  std::filesystem::remove_all(root);
  std::filesystem::remove(file);
  state.counters["plugin_s"] = benchmark::Counter(plugin, benchmark::Counter::kAvgIterations);
  state.counters["engine_x"] = engine / plugin;
  state.counters["program_x"] = withTimeline / plugin;
  state.counters["outputs_x"] = withOutputs / plugin;
}
BENCHMARK(BM_SimOverhead)
    ->ArgName("triggers")
    ->Arg(0)
    ->Arg(1)
    ->Iterations(3)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);

// Four virtual days as a batch (a folder), with one job and with two.
void BM_SimBatchJobs(benchmark::State& state) {
  std::string folder =
      (std::filesystem::temp_directory_path() / "gorv-bench-batch-XXXXXX").string();
  if (mkdtemp(folder.data()) == nullptr) {
    state.SkipWithError("cannot set up");
    return;
  }
  for (const char* name : {"a", "b", "c", "d"}) {
    std::ofstream(folder + "/" + name + ".scn") << DayScenario();
  }
  std::string batch = std::string(GORV_SIM_PATH) + " " + folder + " >/dev/null -j ";
  double one = 0, two = 0;
  for (auto _ : state) {
    double before = one + two;
    one += Seconds([&] {
      if (std::system((batch + "1").c_str()) != 0) state.SkipWithError("gorv-sim -j 1 failed");
    });
    two += Seconds([&] {
      if (std::system((batch + "2").c_str()) != 0) state.SkipWithError("gorv-sim -j 2 failed");
    });
    state.SetIterationTime(one + two - before);
  }
  std::filesystem::remove_all(folder);
  state.counters["j1_s"] = benchmark::Counter(one, benchmark::Counter::kAvgIterations);
  state.counters["j2_s"] = benchmark::Counter(two, benchmark::Counter::kAvgIterations);
  state.counters["speedup"] = one / two;
}
BENCHMARK(BM_SimBatchJobs)->Iterations(3)->UseManualTime()->Unit(benchmark::kMillisecond);

}  // namespace
