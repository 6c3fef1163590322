// The default output: a human timeline, one line per effect (and per
// trigger, for context) printed as it happens, then a summary of the run.
// Every text from the user or the plug-in is shown through
// TextEscape::Terminal: no raw control byte reaches the terminal.
#pragma once

#include <ostream>
#include <string>

#include "sim/output/RunSink.h"
#include "sim/output/RunSummary.h"

class TimelinePrinter : public RunSink {
 public:
  explicit TimelinePrinter(std::ostream& out) : mOut(out) {}
  void Begin(const RunInfo& info) override;
  void Event(const SimEvent& event) override;
  void End(const RunEnd& end) override;

 private:
  std::ostream& mOut;
  RunSummary mSummary;
};
