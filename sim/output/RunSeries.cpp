#include "sim/output/RunSeries.h"

RunSeries::RunSeries(const RunInfo& info, int64_t buckets, int64_t jankyPerBucket)
    : mMeasured(info.endMs, buckets), mTarget(info.endMs, buckets), mLock(info.endMs, buckets) {
  BucketBudget jankyBudget(info.endMs, buckets, jankyPerBucket);
  for (int64_t ms : info.jankyMs) {
    if (jankyBudget.Take(ms)) mJanky.push_back(ms);
  }
  for (const auto& [ms, fps] : info.measured) {
    if (ms <= info.endMs) mMeasured.Add(ms, fps);
  }
  mTarget.Add(0, 0);
  mLock.Add(0, 0);
}

void RunSeries::Add(const SimEvent& event) {
  if (!mSummary.Add(event)) return;
  if (mSummary.target() != mLastTarget) {
    mLastTarget = mSummary.target();
    mTarget.Add(event.tMs, mLastTarget);
  }
  if (mSummary.lockHeld() != mLastLock) {
    mLastLock = mSummary.lockHeld();
    mLock.Add(event.tMs, mLastLock ? 1 : 0);
  }
}
