// --events: one JSON object per line for each effect of the plug-in, in the
// order they happened, each with "t" (ms) and "event" first.
#pragma once

#include <ostream>
#include <string>

#include "sim/RunResult.h"

class JsonLinesWriter {
 public:
  static void Write(const RunResult& result, std::ostream& out);
  // The line of one effect (no line feed).
  static std::string Line(const SimEvent& event);
};
