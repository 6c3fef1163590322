// --summary-json: the figures of the timeline's summary as one JSON object,
// for scripts and dashboards, written at the end of the run:
//   {"scenario", "end_ms", "session_ms", "stopped" (only for a run that
//    stopped early: why),
//    "target_changes": [{"t", "fps"}...], "lock_spans": [{"from", "to"}...],
//    "lock_held_ms", "node_writes": {"fps": N, ...}, "messages",
//    "triggers": [{"id", "name", "count"}...] (by id, in id order),
//    "replays": [{"t", "format", "frames", "layer"}...] (one per recorded
//    frame timeline the scenario plays; "layer" the Perfetto trace's layer,
//    null for the text formats)}
// Times in ms of virtual time. A sink adding up the figures as events come:
// what it keeps grows with the target changes and lock spans (16 bytes
// each), not with the run's other events. Single-threaded.
#pragma once

#include <cstdint>
#include <map>
#include <nlohmann/json.hpp>
#include <ostream>

#include "sim/input/Scenario.h"
#include "sim/output/RunSink.h"
#include "sim/output/RunSummary.h"

class SummaryJsonWriter : public RunSink {
 public:
  // `out` is not owned and must outlive End.
  SummaryJsonWriter(const Scenario& scenario, std::ostream& out);
  void Begin(const RunInfo& info) override;
  void Event(const SimEvent& event) override;
  void End(const RunEnd& end) override;

 private:
  std::ostream& mOut;
  nlohmann::ordered_json mReplays;
  std::string mScenario;
  RunSummary mSummary{true};
  std::map<int64_t, int64_t> mTriggers;  // id -> count
};
