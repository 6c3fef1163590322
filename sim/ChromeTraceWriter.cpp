#include "sim/ChromeTraceWriter.h"

#include <nlohmann/json.hpp>

#include "sim/RunSummary.h"
#include "sim/TimelinePrinter.h"

namespace {

using Json = nlohmann::ordered_json;

constexpr int kPid = 1;
constexpr int kPluginThread = 1;
constexpr int kFrameworkThread = 2;
constexpr int kReplayThread = 3;

Json Counter(const char* name, int64_t ms, double value) {
  return {{"name", name}, {"ph", "C"}, {"ts", ms * 1000}, {"pid", kPid},
          {"args", {{"value", value}}}};
}

Json Instant(const std::string& name, const char* category, int64_t ms, int tid, Json args) {
  return {{"name", name}, {"cat", category}, {"ph", "i"}, {"s", "t"}, {"ts", ms * 1000},
          {"pid", kPid}, {"tid", tid}, {"args", std::move(args)}};
}

Json ThreadName(int tid, const char* name) {
  return {{"name", "thread_name"}, {"ph", "M"}, {"pid", kPid}, {"tid", tid},
          {"args", {{"name", name}}}};
}

}  // namespace

void ChromeTraceWriter::Write(const RunResult& result, std::ostream& out) {
  Json events = Json::array();
  events.push_back({{"name", "process_name"}, {"ph", "M"}, {"pid", kPid},
                    {"args", {{"name", "gorv-sim: " + result.scenarioName}}}});
  events.push_back(ThreadName(kPluginThread, "libgorv effects"));
  events.push_back(ThreadName(kFrameworkThread, "framework triggers"));

  float previous = -1.0f;
  for (const auto& [ms, fps] : result.measured) {
    if (fps != previous) events.push_back(Counter("measured fps", ms, fps));
    previous = fps;
  }
  RunSummary summary = RunSummary::Of(result);
  events.push_back(Counter("target fps", 0, 0));
  for (const auto& [ms, fps] : summary.targets) events.push_back(Counter("target fps", ms, fps));
  events.push_back(Counter("perf lock held", 0, 0));
  for (const auto& [from, to] : summary.lockSpans) {
    events.push_back(Counter("perf lock held", from, 1));
    events.push_back(Counter("perf lock held", to, 0));
  }
  for (const SimEvent& event : result.events) {
    switch (event.kind) {
      case SimEvent::Kind::Trigger:
        events.push_back(Instant(TimelinePrinter::TriggerName(event.value), "trigger", event.tMs,
                                 kFrameworkThread,
                                 {{"id", event.value}, {"component", event.name},
                                  {"value", event.triggerValue}}));
        break;
      case SimEvent::Kind::Node:
        events.push_back(Instant("write " + RunSummary::ShortNode(event.name) + " = " + event.text,
                                 "node", event.tMs, kPluginThread,
                                 {{"path", event.name}, {"value", event.text}}));
        break;
      case SimEvent::Kind::Log:
        events.push_back(Instant("log", "log", event.tMs, kPluginThread,
                                 {{"tag", event.name}, {"message", event.text}}));
        break;
      case SimEvent::Kind::LockAcquire:
      case SimEvent::Kind::LockRelease:
        events.push_back(Instant(event.kind == SimEvent::Kind::LockAcquire ? "perf lock acquire"
                                                                            : "perf lock release",
                                 "perf_lock", event.tMs, kPluginThread,
                                 {{"handle", event.handle}}));
        break;
      default:
        break;
    }
  }
  if (!result.jankyMs.empty()) events.push_back(ThreadName(kReplayThread, "replayed trace"));
  for (int64_t ms : result.jankyMs) {
    events.push_back(Instant("janky frame", "jank", ms, kReplayThread, Json::object()));
  }
  Json trace = {{"traceEvents", std::move(events)}, {"displayTimeUnit", "ms"}};
  out << trace.dump(1, ' ', false, Json::error_handler_t::replace) << '\n';
}
