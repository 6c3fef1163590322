#include "sim/output/ChromeTraceWriter.h"

#include <nlohmann/json.hpp>

#include "sim/SimWords.h"

namespace {

using Json = nlohmann::ordered_json;

constexpr int kPid = 1;
constexpr int kPluginThread = 1;
constexpr int kFrameworkThread = 2;
constexpr int kReplayThread = 3;

Json Counter(const char* name, int64_t ms, double value) {
  return {
      {"name", name}, {"ph", "C"}, {"ts", ms * 1000}, {"pid", kPid}, {"args", {{"value", value}}}};
}

Json Instant(const std::string& name, const char* category, int64_t ms, int tid, Json args) {
  return {{"name", name},    {"cat", category}, {"ph", "i"},  {"s", "t"},
          {"ts", ms * 1000}, {"pid", kPid},     {"tid", tid}, {"args", std::move(args)}};
}

Json ThreadName(int tid, const char* name) {
  return {{"name", "thread_name"},
          {"ph", "M"},
          {"pid", kPid},
          {"tid", tid},
          {"args", {{"name", name}}}};
}

}  // namespace

ChromeTrace::ChromeTrace(const RunInfo& run)
    : mName(run.scenarioName),
      mSeries(run, kBuckets, kPerBucket),
      mBudget(run.endMs, kBuckets, kPerBucket) {}

void ChromeTrace::Add(const SimEvent& event) {
  mSeries.Add(event);
  if (event.kind == SimEvent::Kind::Counter || event.kind == SimEvent::Kind::TraceSection ||
      !mBudget.Take(event.tMs)) {
    return;
  }
  switch (event.kind) {
    case SimEvent::Kind::Trigger:
      mInstants.push_back(
          Instant(SimWords::TriggerName(event.value), "trigger", event.tMs, kFrameworkThread,
                  {{"id", event.value}, {"component", event.name}, {"value", event.triggerValue}}));
      break;
    case SimEvent::Kind::Node:
      mInstants.push_back(Instant("write " + SimWords::ShortNode(event.name) + " = " + event.text,
                                  "node", event.tMs, kPluginThread,
                                  {{"path", event.name}, {"value", event.text}}));
      break;
    case SimEvent::Kind::Log:
      mInstants.push_back(Instant("log", "log", event.tMs, kPluginThread,
                                  {{"tag", event.name}, {"message", event.text}}));
      break;
    default:
      mInstants.push_back(Instant(
          event.kind == SimEvent::Kind::LockAcquire ? "perf lock acquire" : "perf lock release",
          "perf_lock", event.tMs, kPluginThread, {{"handle", event.handle}}));
      break;
  }
}

Json ChromeTrace::Metadata() const {
  Json events = Json::array();
  events.push_back({{"name", "process_name"},
                    {"ph", "M"},
                    {"pid", kPid},
                    {"args", {{"name", "gorv-sim: " + mName}}}});
  events.push_back(ThreadName(kPluginThread, "libgorv effects"));
  events.push_back(ThreadName(kFrameworkThread, "framework triggers"));
  return events;
}

Json ChromeTrace::Counters(const RunEnd& end) const {
  Json events = Json::array();
  for (const auto& [ms, fps] : mSeries.Measured()) {
    if (ms <= end.endMs) events.push_back(Counter("measured fps", ms, fps));
  }
  for (const auto& [ms, fps] : mSeries.Target()) events.push_back(Counter("target fps", ms, fps));
  std::vector<SeriesReducer::Point> lock = mSeries.Lock();
  for (const auto& [ms, held] : lock) events.push_back(Counter("perf lock held", ms, held));
  if (!end.stopped.empty() && lock.back().second != 0) {
    events.push_back(Counter("perf lock held", end.endMs, 0));
  }
  return events;
}

void ChromeTrace::Write(const RunEnd& end, std::ostream& out) {
  Json events = Metadata();
  for (Json& counter : Counters(end)) events.push_back(std::move(counter));
  for (Json& instant : mInstants) events.push_back(std::move(instant));
  if (mBudget.dropped() > 0) {
    events.push_back(Instant(
        std::to_string(mBudget.dropped()) + " more events not shown here (--events has them all)",
        "reduced", 0, kPluginThread, Json::object()));
  }
  if (!end.stopped.empty()) {
    events.push_back(
        Instant("stopped: " + end.stopped, "stopped", end.endMs, kFrameworkThread, Json::object()));
  }
  if (!mSeries.Janky().empty()) events.push_back(ThreadName(kReplayThread, "replayed trace"));
  for (int64_t ms : mSeries.Janky()) {
    events.push_back(Instant("janky frame", "jank", ms, kReplayThread, Json::object()));
  }
  Json trace = {{"traceEvents", std::move(events)}, {"displayTimeUnit", "ms"}};
  out << trace.dump(1, ' ', false, Json::error_handler_t::replace) << '\n';
}
