#include "sim/run/RunEngine.h"

#include <android-base/properties.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
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
#include "sim/TextEscape.h"
#include "sim/input/FrameRateModel.h"
#include "sim/run/EventRecorder.h"

namespace {

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
    return FrameRateModel::RateAt(scenario, (now.count() - originNs) / 1000000);
  });
}

FeatureInfo InfoOf(const Scenario& scenario) {
  FeatureInfo info;
  info.name = "GORV";
  info.ignoreList = scenario.ignoreList;
  std::vector<std::string> meters =
      scenario.meters.empty() ? std::vector<std::string>{"Fps"} : scenario.meters;
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

std::function<void()> FaultAction(Scenario::FaultKind kind, PrivateSysfs& sysfs) {
  switch (kind) {
    case Scenario::FaultKind::NodesMissing:
      return [&sysfs] { sysfs.RemoveNodes(); };
    case Scenario::FaultKind::NodesPresent:
      return [&sysfs] { sysfs.CreateNodes(); };
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

Feature* CreateFeature(const Scenario& scenario, const RunEngine::Options& options,
                       std::string* error) {
  if (!PluginLoader::Load(options.pluginPath, error)) {
    *error = TextEscape::Terminal(*error);  // the path is the user's (GORV_PLUGIN)
    return nullptr;
  }
  return PluginLoader::Create("GORV", InfoOf(scenario), error);
}

// Thrown between two steps of a virtual run asked to stop.
struct StopRequested {};

bool StopAsked(const RunEngine::Options& options) {
  return options.stop != nullptr && options.stop->load();
}

bool RunVirtual(const Scenario& scenario, const RunEngine::Options& options, PrivateSysfs& sysfs,
                RunSink& sink, std::string* error) {
  SteppedRunner runner(std::chrono::milliseconds(scenario.meterLatencyMs));
  int64_t end = scenario.EndMs();
  EventRecorder recorder(0, end, sink);
  PrepareWorld(scenario, 0);
  Feature* feature = CreateFeature(scenario, options, error);
  if (feature == nullptr) return false;
  runner.Adopt(feature);
  runner.SetStepObserver([&options](int64_t nowMs) {
    if (options.clockMs != nullptr) options.clockMs->store(nowMs);
    if (StopAsked(options)) throw StopRequested();
  });
  SessionClock session;
  // Faults at a time take effect before the triggers at that time.
  for (const Scenario::Fault& fault : scenario.faults) {
    if (fault.atMs <= end) runner.ScheduleAction(fault.atMs, FaultAction(fault.kind, sysfs));
  }
  for (const Scenario::Trigger& trigger : scenario.triggers) {
    if (trigger.atMs > end) continue;
    runner.ScheduleAction(trigger.atMs, [&, payload = PayloadOf(trigger)] {
      recorder.RecordTrigger(payload);
      runner.TriggerNow(payload);
      session.Observe(runner.feature(), runner.NowMs());
    });
  }
  try {
    runner.RunUntil(end);
  } catch (const StopRequested&) {
    end = runner.NowMs();
  }
  runner.DestroyFeature();
  sink.End({end, session.TotalUntil(end), ""});
  return true;
}

// Sleeps until `when` in short slices, looking for a stop request between
// them; false when one came.
bool SleepUntil(std::chrono::steady_clock::time_point when, const RunEngine::Options& options) {
  constexpr auto kSlice = std::chrono::milliseconds(20);
  for (auto now = std::chrono::steady_clock::now(); now < when;
       now = std::chrono::steady_clock::now()) {
    if (StopAsked(options)) return false;
    std::this_thread::sleep_until(std::min(when, now + kSlice));
  }
  return !StopAsked(options);
}

bool RunRealtime(const Scenario& scenario, const RunEngine::Options& options, PrivateSysfs& sysfs,
                 RunSink& sink, std::string* error) {
  gorv::HostEnv::Get().UseRealClock();
  auto origin = std::chrono::steady_clock::now();
  int64_t originNs = origin.time_since_epoch().count();
  int64_t end = scenario.EndMs();
  EventRecorder recorder(originNs, end, sink);
  PrepareWorld(scenario, originNs);
  Feature* feature = CreateFeature(scenario, options, error);
  if (feature == nullptr) return false;
  FeatureRunner runner(std::chrono::milliseconds(scenario.meterLatencyMs), feature);
  SessionClock session;
  auto nowMs = [origin, end] {
    auto elapsed = std::chrono::steady_clock::now() - origin;
    return std::min<int64_t>(
        end, std::chrono::duration_cast<std::chrono::milliseconds>(elapsed).count());
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
  // Nothing at or after the end is delivered, even when the script runs
  // late: the clock decides, not the schedule.
  bool stopped = false;
  for (auto it = script.begin(); it != script.end() && !stopped; ++it) {
    stopped = !SleepUntil(origin + std::chrono::milliseconds(it->first), options);
    if (stopped || nowMs() >= end) break;
    if (options.clockMs != nullptr) options.clockMs->store(nowMs());
    it->second();
  }
  if (!stopped) SleepUntil(origin + std::chrono::milliseconds(end), options);
  int64_t reached = nowMs();
  int64_t sessionMs = session.TotalUntil(reached);
  runner.Stop();
  sink.End({reached, sessionMs, ""});
  return true;
}

// What the reports say of the Perfetto layers replayed.
void NoteReplays(const Scenario& scenario, RunInfo* info) {
  for (const Scenario::RateChange& change : scenario.rates) {
    if (!change.timeline || change.timeline->layer().empty()) continue;
    const FrameTimeline& timeline = *change.timeline;
    info->replays.push_back({change.atMs, timeline.name(), timeline.layer(),
                             timeline.frames().size(), timeline.janky().size(),
                             timeline.originNs()});
    for (int64_t frameNs : timeline.janky()) {
      int64_t ms = change.atMs + frameNs / 1000000;
      if (ms <= info->endMs && FrameRateModel::ChangeAt(scenario, ms) == &change)
        info->jankyMs.push_back(ms);
    }
  }
  std::sort(info->jankyMs.begin(), info->jankyMs.end());
}

}  // namespace

bool RunEngine::Run(const Scenario& scenario, const Options& options, PrivateSysfs& sysfs,
                    RunSink& sink, std::string* error) {
  gorv::HostEnv::Get().Reset();
  // Effects go to the recorder's sink only: the env's own record would grow
  // with the length of the run.
  gorv::HostEnv::Get().SetRecordEvents(false);
  gorv::HostEnv::Get().SetSysfsRoot(sysfs.path());
  sink.Begin(InfoOf(scenario));
  bool ran = options.realtime ? RunRealtime(scenario, options, sysfs, sink, error)
                              : RunVirtual(scenario, options, sysfs, sink, error);
  FrameRateSource::Get().SetConstant(0.0f);
  gorv::HostEnv::Get().SetPerfLockFailure(false);
  return ran;
}

bool RunEngine::Run(const Scenario& scenario, const Options& options, RunResult* result,
                    std::string* error) {
  std::unique_ptr<PrivateSysfs> sysfs = PrivateSysfs::Make(error);
  if (!sysfs) return false;
  RunCollector collector(result);
  return Run(scenario, options, *sysfs, collector, error);
}

RunInfo RunEngine::InfoOf(const Scenario& scenario) {
  RunInfo info{scenario.name,
               scenario.EndMs(),
               FrameRateModel::MeasuredRates(scenario, scenario.EndMs()),
               {},
               {}};
  NoteReplays(scenario, &info);
  return info;
}

const char* RunEngine::BuiltInScenario() {
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
