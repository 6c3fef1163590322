// Bounds how many marks (trace instants, plot labels) an output keeps: at
// most `perBucket` in each of `buckets` equal spans of [0, endMs]; the rest
// are counted. Times must come in order. Single-threaded.
#pragma once

#include <cstdint>

#include "sim/output/TimeBuckets.h"

class BucketBudget {
 public:
  BucketBudget(int64_t endMs, int64_t buckets, int64_t perBucket)
      : mWidthMs(TimeBuckets::WidthMs(endMs, buckets)), mPerBucket(perBucket) {}

  // True when a mark at `ms` is kept.
  bool Take(int64_t ms) {
    int64_t bucket = ms / mWidthMs;
    if (bucket != mBucket) {
      mBucket = bucket;
      mTaken = 0;
    }
    if (mTaken < mPerBucket) {
      ++mTaken;
      return true;
    }
    ++mDropped;
    return false;
  }
  int64_t dropped() const { return mDropped; }

 private:
  int64_t mWidthMs;
  int64_t mPerBucket;
  int64_t mBucket = -1;
  int64_t mTaken = 0;
  int64_t mDropped = 0;
};
