// --plot: an SVG of the measured frame rate and the target over time, with
// the spans where the performance lock was held shaded, the triggers
// marked, and the frames a replayed Perfetto trace flags as janky ticked.
#pragma once

#include <ostream>

#include "sim/RunResult.h"

class SvgPlotWriter {
 public:
  static void Write(const RunResult& result, std::ostream& out);
};
