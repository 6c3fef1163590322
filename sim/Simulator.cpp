#include "sim/Simulator.h"

#include <android-base/properties.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <thread>

#include "host/framework/FeatureRunner.h"
#include "host/framework/FrameRateSource.h"
#include "host/framework/HostLocator.h"
#include "host/framework/HostProcesses.h"
#include "host/framework/PluginLoader.h"
#include "host/framework/SteppedRunner.h"
#include "host/platform/HostEnv.h"
#include "sim/EventRecorder.h"

namespace {

constexpr const char* kNodeDirectory = "/sys/kernel/sched_penalty/parameters";

// A private sysfs root for the run's node files.
class SysfsRoot {
 public:
  SysfsRoot() {
    std::string pattern = (std::filesystem::temp_directory_path() / "gorv-sim-XXXXXX").string();
    if (mkdtemp(pattern.data()) != nullptr) mPath = pattern;
    Create();
    gorv::HostEnv::Get().SetSysfsRoot(mPath);
  }
  ~SysfsRoot() {
    std::error_code ignored;
    if (!mPath.empty()) std::filesystem::remove_all(mPath, ignored);
  }
  void Create() {
    std::error_code ignored;
    std::filesystem::create_directories(mPath + kNodeDirectory, ignored);
  }
  void Remove() {
    std::error_code ignored;
    std::filesystem::remove_all(mPath + kNodeDirectory, ignored);
  }

 private:
  std::string mPath;
};

// Sets up the host framework and platform for the scenario.
void PrepareWorld(const Scenario& scenario, int64_t originNs) {
  for (const auto& [name, value] : scenario.properties) android::base::SetProperty(name, value);
  HostLocator::SetCurrent(&HostLocator::Get());
  HostLocator::Get().Clear();
  std::map<std::string, int> pids;
  for (const auto& [package, app] : scenario.apps) {
    HostLocator::Get().SetClass(package, app.appClass);
    pids[package] = app.pid;
  }
  HostProcesses::Get().UseTable(pids);
  FrameRateSource::Get().SetFunction([&scenario, originNs](std::chrono::nanoseconds now) {
    return Simulator::RateAt(scenario, (now.count() - originNs) / 1000000);
  });
}

FeatureInfo InfoOf(const Scenario& scenario) {
  FeatureInfo info;
  info.name = "GORV";
  info.ignoreList = scenario.ignoreList;
  std::vector<std::string> meters = scenario.meters.empty() ? std::vector<std::string>{"Fps"}
                                                            : scenario.meters;
  for (const std::string& name : meters) info.meterInfos.push_back({name, {}});
  return info;
}

AsyncTriggerPayload PayloadOf(const Scenario::Trigger& trigger) {
  AsyncTriggerPayload payload;
  payload.triggerId = trigger.id;
  payload.component = trigger.component;
  payload.triggerValue = trigger.value;
  return payload;
}

std::function<void()> FaultAction(Scenario::FaultKind kind, SysfsRoot& sysfs) {
  switch (kind) {
    case Scenario::FaultKind::NodesMissing:
      return [&sysfs] { sysfs.Remove(); };
    case Scenario::FaultKind::NodesPresent:
      return [&sysfs] { sysfs.Create(); };
    case Scenario::FaultKind::PerfLockFail:
      return [] { gorv::HostEnv::Get().SetPerfLockFailure(true, -1); };
    case Scenario::FaultKind::PerfLockOk:
      return [] { gorv::HostEnv::Get().SetPerfLockFailure(false); };
  }
  return [] {};
}

// Adds up the time the feature had a session running.
class SessionClock {
 public:
  void Observe(const Feature* feature, int64_t nowMs) {
    bool active = feature != nullptr && feature->periodicActive.load();
    if (active && mSince < 0) mSince = nowMs;
    if (!active && mSince >= 0) {
      mTotal += nowMs - mSince;
      mSince = -1;
    }
  }
  int64_t TotalUntil(int64_t endMs) const { return mTotal + (mSince >= 0 ? endMs - mSince : 0); }

 private:
  int64_t mSince = -1;
  int64_t mTotal = 0;
};

Feature* CreateFeature(const Scenario& scenario, const Simulator::Options& options,
                       std::string* error) {
  if (!PluginLoader::Load(options.pluginPath, error)) return nullptr;
  return PluginLoader::Create("GORV", InfoOf(scenario), error);
}

bool RunVirtual(const Scenario& scenario, const Simulator::Options& options, RunResult* result,
                std::string* error) {
  SteppedRunner runner(std::chrono::milliseconds(scenario.meterLatencyMs));
  SysfsRoot sysfs;
  EventRecorder recorder(0);
  PrepareWorld(scenario, 0);
  Feature* feature = CreateFeature(scenario, options, error);
  if (feature == nullptr) return false;
  runner.Adopt(feature);
  SessionClock session;
  // Faults at a time take effect before the triggers at that time.
  for (const Scenario::Fault& fault : scenario.faults) {
    runner.ScheduleAction(fault.atMs, FaultAction(fault.kind, sysfs));
  }
  for (const Scenario::Trigger& trigger : scenario.triggers) {
    runner.ScheduleAction(trigger.atMs, [&, payload = PayloadOf(trigger)] {
      recorder.RecordTrigger(payload);
      runner.TriggerNow(payload);
      session.Observe(runner.feature(), runner.NowMs());
    });
  }
  int64_t end = scenario.EndMs();
  runner.RunUntil(end);
  runner.DestroyFeature();
  result->sessionMs = session.TotalUntil(end);
  result->events = recorder.Events();
  return true;
}

bool RunRealtime(const Scenario& scenario, const Simulator::Options& options, RunResult* result,
                 std::string* error) {
  gorv::HostEnv::Get().UseRealClock();
  SysfsRoot sysfs;
  auto origin = std::chrono::steady_clock::now();
  int64_t originNs = origin.time_since_epoch().count();
  EventRecorder recorder(originNs);
  PrepareWorld(scenario, originNs);
  Feature* feature = CreateFeature(scenario, options, error);
  if (feature == nullptr) return false;
  FeatureRunner runner(std::chrono::milliseconds(scenario.meterLatencyMs), feature);
  SessionClock session;
  auto nowMs = [origin] {
    return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() -
                                                                 origin)
        .count();
  };
  std::multimap<int64_t, std::function<void()>> script;
  for (const Scenario::Fault& fault : scenario.faults) {
    script.emplace(fault.atMs, FaultAction(fault.kind, sysfs));
  }
  for (const Scenario::Trigger& trigger : scenario.triggers) {
    script.emplace(trigger.atMs, [&, payload = PayloadOf(trigger)] {
      recorder.RecordTrigger(payload);
      runner.Post(payload);
      runner.WaitUntilIdle();
      session.Observe(runner.feature(), nowMs());
    });
  }
  for (auto& [atMs, action] : script) {
    std::this_thread::sleep_until(origin + std::chrono::milliseconds(atMs));
    action();
  }
  int64_t end = scenario.EndMs();
  std::this_thread::sleep_until(origin + std::chrono::milliseconds(end));
  result->sessionMs = session.TotalUntil(nowMs());
  runner.Stop();
  result->events = recorder.Events();
  return true;
}

// The fps or frames line in force at `ms`: the latest to start, the last
// in the file among those starting together.
const Scenario::RateChange* ChangeAt(const Scenario& scenario, int64_t ms) {
  const Scenario::RateChange* current = nullptr;
  for (const Scenario::RateChange& change : scenario.rates) {
    if (change.atMs <= ms && (current == nullptr || change.atMs >= current->atMs)) current = &change;
  }
  return current;
}

// What the reports say of the Perfetto layers replayed.
void NoteReplays(const Scenario& scenario, RunResult* result) {
  for (const Scenario::RateChange& change : scenario.rates) {
    if (!change.timeline || change.timeline->layer().empty()) continue;
    const FrameTimeline& timeline = *change.timeline;
    result->replays.push_back({change.atMs, timeline.name(), timeline.layer(),
                               timeline.frames().size(), timeline.janky().size()});
    for (int64_t frameNs : timeline.janky()) {
      int64_t ms = change.atMs + frameNs / 1000000;
      if (ms <= result->endMs && ChangeAt(scenario, ms) == &change) result->jankyMs.push_back(ms);
    }
  }
  std::sort(result->jankyMs.begin(), result->jankyMs.end());
}

}  // namespace

bool Simulator::Run(const Scenario& scenario, const Options& options, RunResult* result,
                    std::string* error) {
  gorv::HostEnv::Get().Reset();
  result->scenarioName = scenario.name;
  result->endMs = scenario.EndMs();
  bool ran = options.realtime ? RunRealtime(scenario, options, result, error)
                              : RunVirtual(scenario, options, result, error);
  FrameRateSource::Get().SetConstant(0.0f);
  gorv::HostEnv::Get().SetPerfLockFailure(false);
  if (!ran) return false;
  for (int64_t ms = 0; ms <= result->endMs; ms += 100) {
    result->measured.emplace_back(ms, RateAt(scenario, ms));
  }
  NoteReplays(scenario, result);
  return true;
}

float Simulator::RateAt(const Scenario& scenario, int64_t ms) {
  const Scenario::RateChange* current = ChangeAt(scenario, ms);
  if (current == nullptr) return 0.0f;
  if (!current->timeline) return current->fps;
  return static_cast<float>(current->timeline->FramesInSecondBefore((ms - current->atMs) * 1000000));
}

const char* Simulator::BuiltInScenario() {
  return R"(# A game session on a 60 Hz phone.
property ro.vendor.perf.gorv true
app com.example.game 2 4242
app com.example.mail 0 1717
# The game comes to the foreground and runs at a steady 60 fps.
fps 0 60
trigger 1000 4097 com.example.game/.MainActivity
# A heavy scene: the game drops to 40 fps.
fps 5000 40
# The game asks for 30 fps through a frame-rate hint.
trigger 10000 4221 com.example.game/.MainActivity 30
fps 10500 30
# The game leaves the foreground.
trigger 13000 4098 com.example.game/.MainActivity
end 14000
)";
}
