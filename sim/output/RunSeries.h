// What the trace and the plot draw, reduced to `buckets` spans of the run:
// three series (by SeriesReducer), the measured frame rate (from RunInfo),
// the target written to the fps node and whether a perf lock is held (0 or
// 1), each with a point only where its value changes; and the frames the
// replayed traces flag as janky, at most `jankyPerBucket` per span (by
// BucketBudget). Fed event by event; memory O(buckets). Single-threaded.
#pragma once

#include <cstdint>
#include <vector>

#include "sim/output/BucketBudget.h"
#include "sim/output/RunSink.h"
#include "sim/output/RunSummary.h"
#include "sim/output/SeriesReducer.h"

class RunSeries {
 public:
  RunSeries(const RunInfo& info, int64_t buckets, int64_t jankyPerBucket);
  void Add(const SimEvent& event);

  std::vector<SeriesReducer::Point> Measured() const { return mMeasured.Points(); }
  std::vector<SeriesReducer::Point> Target() const { return mTarget.Points(); }
  std::vector<SeriesReducer::Point> Lock() const { return mLock.Points(); }
  const std::vector<int64_t>& Janky() const { return mJanky; }  // ms, in order

 private:
  SeriesReducer mMeasured, mTarget, mLock;
  RunSummary mSummary;
  int mLastTarget = 0;
  bool mLastLock = false;
  std::vector<int64_t> mJanky;
};
