#include "sim/output/ChromeTraceWriter.h"

#include <nlohmann/json.hpp>

#include "sim/SimWords.h"
#include "sim/output/BucketBudget.h"
#include "sim/output/RunSeries.h"

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

struct ChromeTraceWriter::State {
  State(const RunInfo& run)
      : name(run.scenarioName), series(run, kBuckets), budget(run.endMs, kBuckets, kPerBucket) {
    BucketBudget jankyBudget(run.endMs, kBuckets, kPerBucket);
    for (int64_t ms : run.jankyMs) {
      if (jankyBudget.Take(ms)) janky.push_back(ms);
    }
  }
  std::string name;
  RunSeries series;
  BucketBudget budget;
  Json instants = Json::array();
  std::vector<int64_t> janky;  // the replayed trace's janky frames, reduced alike
};

ChromeTraceWriter::ChromeTraceWriter(std::ostream& out) : mOut(out) {}
ChromeTraceWriter::~ChromeTraceWriter() = default;

void ChromeTraceWriter::Begin(const RunInfo& info) { mState = std::make_unique<State>(info); }

void ChromeTraceWriter::Event(const SimEvent& event) {
  State& state = *mState;
  state.series.Add(event);
  if (event.kind == SimEvent::Kind::Counter || event.kind == SimEvent::Kind::TraceSection ||
      !state.budget.Take(event.tMs)) {
    return;
  }
  switch (event.kind) {
    case SimEvent::Kind::Trigger:
      state.instants.push_back(
          Instant(SimWords::TriggerName(event.value), "trigger", event.tMs, kFrameworkThread,
                  {{"id", event.value}, {"component", event.name}, {"value", event.triggerValue}}));
      break;
    case SimEvent::Kind::Node:
      state.instants.push_back(
          Instant("write " + SimWords::ShortNode(event.name) + " = " + event.text, "node",
                  event.tMs, kPluginThread, {{"path", event.name}, {"value", event.text}}));
      break;
    case SimEvent::Kind::Log:
      state.instants.push_back(Instant("log", "log", event.tMs, kPluginThread,
                                       {{"tag", event.name}, {"message", event.text}}));
      break;
    default:
      state.instants.push_back(Instant(
          event.kind == SimEvent::Kind::LockAcquire ? "perf lock acquire" : "perf lock release",
          "perf_lock", event.tMs, kPluginThread, {{"handle", event.handle}}));
      break;
  }
}

void ChromeTraceWriter::End(const RunEnd& end) {
  State& state = *mState;
  Json events = Json::array();
  events.push_back({{"name", "process_name"},
                    {"ph", "M"},
                    {"pid", kPid},
                    {"args", {{"name", "gorv-sim: " + state.name}}}});
  events.push_back(ThreadName(kPluginThread, "libgorv effects"));
  events.push_back(ThreadName(kFrameworkThread, "framework triggers"));
  for (const auto& [ms, fps] : state.series.Measured()) {
    if (ms <= end.endMs) events.push_back(Counter("measured fps", ms, fps));
  }
  for (const auto& [ms, fps] : state.series.Target())
    events.push_back(Counter("target fps", ms, fps));
  for (const auto& [ms, held] : state.series.Lock()) {
    events.push_back(Counter("perf lock held", ms, held));
  }
  if (!end.stopped.empty() && state.series.Lock().back().second != 0) {
    events.push_back(Counter("perf lock held", end.endMs, 0));
  }
  for (Json& instant : state.instants) events.push_back(std::move(instant));
  if (state.budget.dropped() > 0) {
    events.push_back(Instant(std::to_string(state.budget.dropped()) +
                                 " more events not shown here (--events has them all)",
                             "reduced", 0, kPluginThread, Json::object()));
  }
  if (!end.stopped.empty()) {
    events.push_back(
        Instant("stopped: " + end.stopped, "stopped", end.endMs, kFrameworkThread, Json::object()));
  }
  if (!state.janky.empty()) events.push_back(ThreadName(kReplayThread, "replayed trace"));
  for (int64_t ms : state.janky) {
    events.push_back(Instant("janky frame", "jank", ms, kReplayThread, Json::object()));
  }
  Json trace = {{"traceEvents", std::move(events)}, {"displayTimeUnit", "ms"}};
  mOut << trace.dump(1, ' ', false, Json::error_handler_t::replace) << '\n';
  mOut.flush();
  mState.reset();
}
