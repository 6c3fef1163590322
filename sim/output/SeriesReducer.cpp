#include "sim/output/SeriesReducer.h"

#include <algorithm>

#include "sim/output/TimeBuckets.h"

SeriesReducer::SeriesReducer(int64_t endMs, int64_t buckets)
    : mWidthMs(TimeBuckets::WidthMs(endMs, buckets)),
      mLastBucket(std::max<int64_t>(endMs, 0) / mWidthMs) {}

int64_t SeriesReducer::BucketOf(int64_t ms) const {
  return std::clamp<int64_t>(ms / mWidthMs, 0, mLastBucket);
}

void SeriesReducer::Add(int64_t ms, double value) {
  Point point(ms, value);
  int64_t bucket = BucketOf(ms);
  if (bucket != mBucket) {
    if (mBucket >= 0) Close(&mDone);
    mBucket = bucket;
    mFirst = mLow = mHigh = point;
  }
  if (value < mLow.second) mLow = point;
  if (value > mHigh.second) mHigh = point;
  mLast = point;
}

void SeriesReducer::Close(std::vector<Point>* out) const {
  Point kept[] = {mFirst, mLow, mHigh, mLast};
  std::stable_sort(std::begin(kept), std::end(kept),
                   [](const Point& a, const Point& b) { return a.first < b.first; });
  for (const Point& point : kept) {
    if (out->empty() || out->back() != point) out->push_back(point);
  }
}

std::vector<SeriesReducer::Point> SeriesReducer::Points() const {
  std::vector<Point> points = mDone;
  if (mBucket >= 0) Close(&points);
  return points;
}
