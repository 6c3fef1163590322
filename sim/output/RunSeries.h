// The three series the trace and the plot draw, reduced by SeriesReducer
// to `buckets` spans of the run: the measured frame rate (from RunInfo),
// the target written to the fps node and whether a perf lock is held (0 or
// 1), each with a point only where its value changes. Fed event by event;
// memory O(buckets). Single-threaded.
#pragma once

#include <cstdint>
#include <vector>

#include "sim/output/RunSink.h"
#include "sim/output/RunSummary.h"
#include "sim/output/SeriesReducer.h"

class RunSeries {
 public:
  RunSeries(const RunInfo& info, int64_t buckets);
  void Add(const SimEvent& event);

  std::vector<SeriesReducer::Point> Measured() const { return mMeasured.Points(); }
  std::vector<SeriesReducer::Point> Target() const { return mTarget.Points(); }
  std::vector<SeriesReducer::Point> Lock() const { return mLock.Points(); }

 private:
  SeriesReducer mMeasured, mTarget, mLock;
  RunSummary mSummary;
  int mLastTarget = 0;
  bool mLastLock = false;
};
