// Where a run's events go as they happen: the outputs (timeline, --events,
// --trace, --plot) are sinks, so that a run of any length is written as it
// goes and only what a reader can see is kept in memory. To add an output,
// implement RunSink and add a row to OutputTable.
//
// Calls come in this order on one thread: Begin once, Event for each event
// in the order they happened (times never decrease), End once. End comes
// even when the run stopped early (the plug-in ended its process, or the
// user interrupted it): `stopped` then says why and endMs is the time
// reached.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "sim/SimEvent.h"

struct RunInfo {
  std::string scenarioName;
  int64_t endMs = 0;  // the scenario's end, ms
  // The frame-rate source's value where it changes: (ms, fps), by time.
  std::vector<std::pair<int64_t, float>> measured;
  // The layers replayed from Perfetto traces, and the frames those traces
  // flag as janky while they drove the source, in ms (sorted).
  struct Replay {
    int64_t atMs;
    std::string file;
    std::string layer;
    size_t frames;
    size_t janky;
    int64_t originNs = 0;  // the device timestamp of the layer's first frame, ns
  };
  std::vector<Replay> replays;
  std::vector<int64_t> jankyMs;
};

struct RunEnd {
  int64_t endMs = 0;      // the last virtual time of the run
  int64_t sessionMs = 0;  // time a game session was active
  std::string stopped;    // empty: ran to the end; else why it stopped
};

class RunSink {
 public:
  virtual ~RunSink() = default;
  virtual void Begin(const RunInfo& info) = 0;
  virtual void Event(const SimEvent& event) = 0;
  virtual void End(const RunEnd& end) = 0;
  // After End: why the output is not whole although every write succeeded
  // (the caller reports it as an output error), or "".
  virtual std::string Problem() const { return ""; }
};
