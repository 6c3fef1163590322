// --perfetto: the run as a Perfetto trace in its binary protobuf form, as a
// device's tracing service writes it, for ui.perfetto.dev ("Open trace
// file") and Perfetto's tools. One process track, "gorv-sim: libgorv", holds
// counter tracks for the measured frame rate, the target written to the fps
// node and whether a perf lock is held (0/1), and instant tracks for the
// triggers, the node writes (path and value as debug annotations) and the
// plug-in's log lines; a `stopped` instant marks a run that stopped early.
// Texts are written as the timeline shows them (valid UTF-8, control
// characters escaped).
//
// Clock: without a replayed Perfetto trace, virtual time 0 is timestamp 0 on
// the boot clock (BUILTIN_CLOCK_BOOTTIME). When the run replays one (the
// first in RunInfo::replays when there are several), Begin copies every
// packet of that device trace first, byte for byte, and the plug-in's
// packets follow on the clock of its frames: virtual time t is written as
// originNs + (t - atMs) ms, so the plug-in's tracks line up with the
// replayed layer's frames; times before the clock's 0 are written as 0.
// The plug-in's packets use a trusted_packet_sequence_id no device packet
// at the top level uses (above 2^30 when the device trace holds compressed
// packets, whose inner ids are not looked into).
//
// Streamed: each call writes its packets to the stream at once, so a run
// that stopped early leaves a readable trace up to that moment; memory holds
// one device packet at a time and the measured rates still to come.
// Single-threaded; calls in RunSink's order.
#pragma once

#include <memory>
#include <ostream>
#include <string>

#include "sim/output/RunSink.h"

class PerfettoWriter : public RunSink {
 public:
  explicit PerfettoWriter(std::ostream& out);
  ~PerfettoWriter() override;
  void Begin(const RunInfo& info) override;
  void Event(const SimEvent& event) override;
  void End(const RunEnd& end) override;

  // Set by Begin when the replayed device trace could not be copied whole
  // ("FILE: reason"); the packets before the fault and the plug-in's tracks
  // are written all the same. Empty otherwise.
  const std::string& error() const { return mError; }
  std::string Problem() const override { return mError; }

 private:
  class State;
  std::ostream& mOut;
  std::unique_ptr<State> mState;  // from Begin to End
  std::string mError;
};
