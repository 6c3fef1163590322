// --plot: an SVG of the measured frame rate and the target over time, with
// the spans where the performance lock was held shaded and the triggers
// marked.
#pragma once

#include <ostream>

#include "sim/RunResult.h"

class SvgPlotWriter {
 public:
  static void Write(const RunResult& result, std::ostream& out);
};
