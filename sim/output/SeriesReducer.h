// Keeps a time series as small as a reader can see it: [0, endMs] is cut
// into `buckets` equal spans, and of the points that fall in one span only
// the first, the lowest, the highest and the last are kept (in time order).
// Memory is O(buckets) whatever the number of points. Points must come in
// time order; times past endMs fall in the last span. Single-threaded.
#pragma once

#include <cstdint>
#include <utility>
#include <vector>

class SeriesReducer {
 public:
  using Point = std::pair<int64_t, double>;
  SeriesReducer(int64_t endMs, int64_t buckets);

  void Add(int64_t ms, double value);
  // The points kept so far, in time order.
  std::vector<Point> Points() const;

 private:
  int64_t BucketOf(int64_t ms) const;
  void Close(std::vector<Point>* out) const;  // appends the open bucket

  int64_t mWidthMs;
  int64_t mLastBucket;
  std::vector<Point> mDone;  // closed buckets
  int64_t mBucket = -1;      // the open bucket, -1 before the first point
  Point mFirst, mLow, mHigh, mLast;
};
