#include "sim/output/ChromeTraceWriter.h"

#include <charconv>

#include "sim/SimWords.h"
#include "sim/TextEscape.h"

namespace {

// Each trace event is written as compact JSON text as soon as it is known:
// a run's trace holds up to kBuckets * kPerBucket instants, and a tree of
// JSON values for them cost more than the plug-in's whole run.
constexpr int kPid = 1;
constexpr int kPluginThread = 1;
constexpr int kFrameworkThread = 2;
constexpr int kReplayThread = 3;

// The shortest text that reads back as `value`.
std::string Number(double value) {
  char text[32];
  auto [end, error] = std::to_chars(text, text + sizeof(text), value);
  return error == std::errc() ? std::string(text, end) : "0";
}

// Microseconds, as trace events count.
std::string Ts(int64_t ms) { return std::to_string(ms * 1000); }

// `args` is the args object's members as JSON text.
std::string Event(std::string_view name, std::string_view phase, std::string_view rest,
                  std::string_view args) {
  return "{\"name\":" + TextEscape::Json(name) + ",\"ph\":\"" + std::string(phase) + "\"" +
         std::string(rest) + ",\"pid\":" + std::to_string(kPid) + ",\"args\":{" +
         std::string(args) + "}}";
}

std::string Counter(const char* name, int64_t ms, double value) {
  return Event(name, "C", ",\"ts\":" + Ts(ms), "\"value\":" + Number(value));
}

std::string Instant(std::string_view name, const char* category, int64_t ms, int tid,
                    std::string_view args) {
  return Event(name, "i",
               ",\"cat\":\"" + std::string(category) + "\",\"s\":\"t\",\"ts\":" + Ts(ms) +
                   ",\"tid\":" + std::to_string(tid),
               args);
}

std::string Metadata(const char* name, int tid, std::string_view value) {
  std::string thread = tid == 0 ? "" : ",\"tid\":" + std::to_string(tid);
  return Event(name, "M", thread, "\"name\":" + TextEscape::Json(value));
}

std::string Member(const char* key, std::string_view text) {
  return "\"" + std::string(key) + "\":" + TextEscape::Json(text);
}

std::string Member(const char* key, int64_t number) {
  return "\"" + std::string(key) + "\":" + std::to_string(number);
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
                  Member("id", event.value) + "," + Member("component", event.name) + "," +
                      Member("value", event.triggerValue)));
      break;
    case SimEvent::Kind::Node:
      mInstants.push_back(Instant("write " + SimWords::ShortNode(event.name) + " = " + event.text,
                                  "node", event.tMs, kPluginThread,
                                  Member("path", event.name) + "," + Member("value", event.text)));
      break;
    case SimEvent::Kind::Log:
      mInstants.push_back(Instant("log", "log", event.tMs, kPluginThread,
                                  Member("tag", event.name) + "," + Member("message", event.text)));
      break;
    default:
      mInstants.push_back(Instant(
          event.kind == SimEvent::Kind::LockAcquire ? "perf lock acquire" : "perf lock release",
          "perf_lock", event.tMs, kPluginThread, Member("handle", event.handle)));
      break;
  }
}

void ChromeTrace::WriteCounters(const RunEnd& end, Separated& out) const {
  for (const auto& [ms, fps] : mSeries.Measured()) {
    if (ms <= end.endMs) out(Counter("measured fps", ms, fps));
  }
  for (const auto& [ms, fps] : mSeries.Target()) out(Counter("target fps", ms, fps));
  std::vector<SeriesReducer::Point> lock = mSeries.Lock();
  for (const auto& [ms, held] : lock) out(Counter("perf lock held", ms, held));
  if (!end.stopped.empty() && lock.back().second != 0) {
    out(Counter("perf lock held", end.endMs, 0));
  }
}

void ChromeTrace::Write(const RunEnd& end, std::ostream& stream) {
  stream << "{\"traceEvents\":[";
  Separated out = [&stream, first = true](const std::string& event) mutable {
    stream << (first ? "\n" : ",\n") << event;
    first = false;
  };
  out(Metadata("process_name", 0, "gorv-sim: " + mName));
  out(Metadata("thread_name", kPluginThread, "libgorv effects"));
  out(Metadata("thread_name", kFrameworkThread, "framework triggers"));
  WriteCounters(end, out);
  for (const std::string& instant : mInstants) out(instant);
  if (mBudget.dropped() > 0) {
    out(Instant(
        std::to_string(mBudget.dropped()) + " more events not shown here (--events has them all)",
        "reduced", 0, kPluginThread, ""));
  }
  if (!end.stopped.empty()) {
    out(Instant("stopped: " + end.stopped, "stopped", end.endMs, kFrameworkThread, ""));
  }
  if (!mSeries.Janky().empty()) out(Metadata("thread_name", kReplayThread, "replayed trace"));
  for (int64_t ms : mSeries.Janky()) {
    out(Instant("janky frame", "jank", ms, kReplayThread, ""));
  }
  stream << "\n],\"displayTimeUnit\":\"ms\"}\n";
}
