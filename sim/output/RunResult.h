// A whole run kept in memory, for tests and short runs: RunCollector fills
// it as a sink, Replay() hands it to another sink (an output) afterwards.
#pragma once

#include <cstdint>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "sim/output/RunSink.h"

struct RunResult {
  RunInfo info;
  std::vector<SimEvent> events;  // in the order they happened
  RunEnd end;

  void Replay(RunSink& sink) const {
    sink.Begin(info);
    for (const SimEvent& event : events) sink.Event(event);
    sink.End(end);
  }
  // Writes the run through an output sink constructed on `out`
  // (e.g. WriteAs<SvgPlotWriter>(file)).
  template <class Writer>
  void WriteAs(std::ostream& out) const {
    Writer writer(out);
    Replay(writer);
  }
};

// Collects a run into a RunResult (which it does not own).
class RunCollector : public RunSink {
 public:
  explicit RunCollector(RunResult* result) : mResult(result) {}
  void Begin(const RunInfo& info) override { mResult->info = info; }
  void Event(const SimEvent& event) override { mResult->events.push_back(event); }
  void End(const RunEnd& end) override { mResult->end = end; }

 private:
  RunResult* mResult;
};
