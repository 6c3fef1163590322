// The default output: a human timeline, one line per effect (and per
// trigger, for context), then a summary of the run.
#pragma once

#include <ostream>
#include <string>

#include "sim/RunResult.h"

class TimelinePrinter {
 public:
  static void Print(const RunResult& result, std::ostream& out);
  static std::string TriggerName(int64_t id);
};
