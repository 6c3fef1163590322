// --trace: the run in the Chrome trace-event JSON format, which Perfetto's
// UI (ui.perfetto.dev, "Open trace file") and chrome://tracing open:
// counters for the measured frame rate, the target and the lock state;
// instant events for triggers, node writes, log lines and the frames a
// replayed Perfetto trace flags as janky.
#pragma once

#include <ostream>

#include "sim/RunResult.h"

class ChromeTraceWriter {
 public:
  static void Write(const RunResult& result, std::ostream& out);
};
