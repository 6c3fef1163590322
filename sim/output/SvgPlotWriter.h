// --plot: an SVG of the measured frame rate and the target over time, with
// the spans where the performance lock was held shaded, the triggers
// marked, and the frames a replayed Perfetto trace flags as janky ticked.
// Written at End and bounded whatever the run: the lines keep the first,
// lowest, highest and last value of each of kBuckets spans (about a pixel
// each), at most one trigger label and one janky tick per span, axes with at
// most a dozen ticks for any length and any frame rate up to the float
// limit. Well-formed XML for any bytes in names.
#pragma once

#include <cstdint>
#include <memory>
#include <ostream>

#include "sim/output/RunSink.h"

class SvgPlotWriter : public RunSink {
 public:
  static constexpr int64_t kBuckets = 1000;

  explicit SvgPlotWriter(std::ostream& out);
  ~SvgPlotWriter() override;
  void Begin(const RunInfo& info) override;
  void Event(const SimEvent& event) override;
  void End(const RunEnd& end) override;

 private:
  struct State;
  std::ostream& mOut;
  std::unique_ptr<State> mState;  // from Begin to End
};
