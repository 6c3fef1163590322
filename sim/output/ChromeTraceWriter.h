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
#include <memory>
#include <ostream>

#include "sim/output/BucketBudget.h"
#include "sim/output/RunSink.h"

class ChromeTraceWriter : public RunSink {
 public:
  static constexpr int64_t kBuckets = 20000;
  static constexpr int64_t kPerBucket = 4;

  explicit ChromeTraceWriter(std::ostream& out);
  ~ChromeTraceWriter() override;
  void Begin(const RunInfo& info) override;
  void Event(const SimEvent& event) override;
  void End(const RunEnd& end) override;

 private:
  struct State;
  std::ostream& mOut;
  std::unique_ptr<State> mState;  // from Begin to End
};
