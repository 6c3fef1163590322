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
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "sim/output/BucketBudget.h"
#include "sim/output/RunSeries.h"
#include "sim/output/WrittenAtEnd.h"

// The plot of one run, from Begin to End (WrittenAtEnd).
class SvgPlot {
 public:
  static constexpr int64_t kBuckets = 1000;

  explicit SvgPlot(const RunInfo& run);
  // Keeps the event's series and, one per span, its trigger label.
  void Add(const SimEvent& event);
  void Write(const RunEnd& end, std::ostream& out);

 private:
  std::string mName;
  int64_t mEndMs;
  RunSeries mSeries;  // janky frames one per span: all a reader can tell apart
  BucketBudget mLabels;
  std::vector<std::pair<int64_t, std::string>> mTriggers;  // at most kBuckets
};

using SvgPlotWriter = WrittenAtEnd<SvgPlot>;
