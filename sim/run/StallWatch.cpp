#include "sim/run/StallWatch.h"

#include <algorithm>

StallWatch::StallWatch(std::chrono::milliseconds limit, bool realtime, int64_t endMs,
                       Clock::time_point started)
    : mLimit(limit),
      mRealtime(realtime),
      mSince(realtime ? started + std::chrono::milliseconds(endMs) : started) {}

bool StallWatch::Stalled(int64_t clockMs, Clock::time_point now) {
  if (mLimit.count() == 0) return false;
  if (!mRealtime && clockMs != mLastClockMs) {
    mLastClockMs = clockMs;
    mSince = now;
  }
  return now - mSince >= mLimit;
}

int64_t StallWatch::MsLeft(Clock::time_point now) const {
  if (mLimit.count() == 0) return -1;
  auto left = std::chrono::duration_cast<std::chrono::milliseconds>(mSince + mLimit - now);
  return std::max<int64_t>(1, left.count());
}
