// --events: the effects of the plug-in in the order they happened, one line
// each in the events format (EventsFormat.h), written as they happen; a run
// that stopped early ends with the format's stop line.
#pragma once

#include <ostream>

#include "sim/output/RunSink.h"

class JsonLinesWriter : public RunSink {
 public:
  explicit JsonLinesWriter(std::ostream& out) : mOut(out) {}
  void Begin(const RunInfo& /*info*/) override {}
  void Event(const SimEvent& event) override;
  void End(const RunEnd& end) override;

 private:
  std::ostream& mOut;
};
