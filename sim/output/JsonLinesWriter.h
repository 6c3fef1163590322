// --events: one JSON object per line for each effect of the plug-in, in the
// order they happened, each with "t" (ms) and "event" first, written as it
// happens. Any bytes in names and texts give valid JSON (invalid UTF-8 is
// replaced by U+FFFD). A run that stopped early ends with a line
// {"t":..,"event":"stopped","reason":".."}.
#pragma once

#include <ostream>
#include <string>

#include "sim/output/RunSink.h"

class JsonLinesWriter : public RunSink {
 public:
  explicit JsonLinesWriter(std::ostream& out) : mOut(out) {}
  void Begin(const RunInfo& /*info*/) override {}
  void Event(const SimEvent& event) override;
  void End(const RunEnd& end) override;

  // The line of one effect (no line feed).
  static std::string Line(const SimEvent& event);

 private:
  std::ostream& mOut;
};
