// --trace: the run in the Chrome trace-event JSON format, which Perfetto's
// UI (ui.perfetto.dev, "Open trace file") and chrome://tracing open:
// counters for the measured frame rate, the target and the lock state;
// instant events for triggers, node writes, log lines and the frames a
// replayed Perfetto trace flags as janky. Written at End, reduced to what a
// reader can see: counters keep the first, lowest, highest and last value
// of each of kBuckets spans of the run, instants at most kPerBucket per span
// (an instant at 0 says how many were left out; --events has them all).
// Valid JSON for any bytes.
#pragma once

#include <cstdint>
#include <functional>
#include <ostream>
#include <string>
#include <vector>

#include "sim/output/BucketBudget.h"
#include "sim/output/RunSeries.h"
#include "sim/output/WrittenAtEnd.h"

// The trace of one run, from Begin to End (WrittenAtEnd).
class ChromeTrace {
 public:
  static constexpr int64_t kBuckets = 20000;
  static constexpr int64_t kPerBucket = 4;

  explicit ChromeTrace(const RunInfo& run);
  // Keeps the event's counters and, within the budget, its instant.
  void Add(const SimEvent& event);
  void Write(const RunEnd& end, std::ostream& stream);

 private:
  // Writes one event (JSON text) after those before it.
  using Separated = std::function<void(const std::string& event)>;
  void WriteCounters(const RunEnd& end, Separated& out) const;

  std::string mName;
  RunSeries mSeries;
  BucketBudget mBudget;
  std::vector<std::string> mInstants;  // each a trace event's JSON text
};

using ChromeTraceWriter = WrittenAtEnd<ChromeTrace>;
