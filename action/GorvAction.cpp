#include "action/GorvAction.h"

#include <cmath>
#include <exception>
#include <limits>
#include <string>

#include "data/GorvDataManager.h"
#include "feature/GorvFeature.h"
#include "intervals/GorvIntervalsCounter.h"
#include "platform/CheckedMath.h"
#include "platform/Env.h"
#include "platform/Log.h"

namespace {

constexpr const char* kTag = "GORV_ACTION";
// The fps node's path, made on the first write and shared by every action
// for the life of the process: constructing an action allocates nothing (so
// it cannot fail), and later rounds that write the node allocate nothing
// either. Only ever read after it is made (the writer takes a non-const
// reference but does not change it).
std::string& FpsNodePath() {
  static std::string path = GorvFeature::kFpsNode;
  return path;
}

constexpr float kChangeBand = 5.0f;   // fps around the target that do not move it
constexpr float kLockDeficit = 3.0f;  // fps below the target that drop the lock
constexpr int kTaskPeriodMs = 400;
constexpr int kSamplePeriodMs = 200;
constexpr int kAverageDurationMs = 400;

// Rounds half away from zero and saturates to 32 bits; NaN becomes 0.
int32_t RoundToInt32(float value) {
  if (std::isnan(value)) return 0;
  double rounded = std::round(static_cast<double>(value));
  if (rounded >= static_cast<double>(std::numeric_limits<int32_t>::max())) {
    return std::numeric_limits<int32_t>::max();
  }
  if (rounded <= static_cast<double>(std::numeric_limits<int32_t>::min())) {
    return std::numeric_limits<int32_t>::min();
  }
  return static_cast<int32_t>(rounded);
}

// Target frame rate of a measured maximum; buckets are open below, closed above.
float DetectionBucket(float maxFps) {
  struct Bucket {
    float upTo;
    float target;
  };
  static constexpr Bucket kBuckets[] = {{21, 20}, {26, 25}, {31, 30},   {36, 35},  {45, 40},
                                        {65, 60}, {95, 90}, {125, 120}, {145, 144}};
  if (!(maxFps > 15.0f)) return 0.0f;  // also NaN
  for (const Bucket& bucket : kBuckets) {
    if (maxFps <= bucket.upTo) return bucket.target;
  }
  return 0.0f;
}

}  // namespace

GorvAction::GorvAction(GorvFeature& feature)
    : mDisabled(false), mFeature(feature), mDataManager(nullptr), mGameFps(0.0f), mPerfHandle(-1) {
  if (feature.mDataManager == nullptr || feature.mIntervalsCounter == nullptr) return;
  std::string name = "gorv";
  feature.mIntervalsCounter->registerIntervals(
      kTaskPeriodMs, kTaskPeriodMs, [this](void* arg) { analyseProfiles(arg); }, name,
      IntervalCallback());
  mDataManager = feature.mDataManager;
  mDataManager->registerDataElem(FPS, kSamplePeriodMs, kAverageDurationMs);
}

GorvAction::~GorvAction() {
  if (mPerfHandle >= 1) releaseLock();
  mFPSList.clear();
  mSpareNodes.clear();
}

void GorvAction::analyseProfiles(void* /*unused*/) {
  if (mDataManager == nullptr) return;
  // Reused across rounds so that a round does not allocate; emptied first
  // because the reduction refuses a non-empty container.
  std::vector<float>& averages = mAverages;
  averages.clear();
  try {
    mDataManager->getData(FPS, &averages, kSamplePeriodMs, kAverageDurationMs);
  } catch (const std::exception& e) {
    GORV_LOG(kTag, "analyseProfiles", "Collect Data, ap- exception %s\n", e.what());
    return;
  } catch (...) {
    return;
  }
  if (averages.empty()) {
    GORV_LOG(kTag, "analyseProfiles", "FPS unavailable\n");
    return;
  }
  float fps = averages.front();
  UpdateFPSData(fps);
  updateAutoPenatly(fps);
}

void GorvAction::UpdateFPSData(float fps) {
  if (fps <= 0.0f || mDataManager == nullptr) return;
  try {
    gorv::CheckedAdd(mFPSList.size(), size_t{1});
    appendSample(fps);
  } catch (const std::exception& e) {
    GORV_LOG(kTag, "UpdateFPSData", "Data Update, ap- exception %s\n", e.what());
    return;
  } catch (...) {
    return;
  }
  traceCounter("mFPSList", fps);
  if (mFPSList.size() > kHistorySize) {
    mSpareNodes.splice(mSpareNodes.end(), mFPSList, mFPSList.begin());  // drop the oldest
  }

  if (mGameFps != 0.0f && std::fabs(historyMax() - mGameFps) <= kChangeBand) {
    traceCounter("Game FPS", mGameFps);
    return;
  }
  mGameFps = DetectionBucket(historyMax());
  if (!mFeature.mFpsHintApplied) mFeature.updateSysNodes(FpsNodePath(), RoundToInt32(mGameFps));
  traceCounter("Game FPS", mGameFps);
}

void GorvAction::updateAutoPenatly(float fps) {
  if (mGameFps == 0.0f) return;
  float deficit = mGameFps - fps;
  if (deficit > kLockDeficit) {
    if (mPerfHandle >= 1) releaseLock();
  } else if (mPerfHandle == -1 && !mDisabled.load(std::memory_order_acquire)) {
    acquireLock();
  }
}

int GorvAction::DetectGameFPS(float /*unused*/) const {
  return static_cast<int>(DetectionBucket(historyMax()));
}

bool GorvAction::isGameFPSChange(float /*unused*/, float target) const {
  return std::fabs(historyMax() - target) > kChangeBand;
}

int GorvAction::GetRoundOffFps(float fps) const {
  struct Bucket {
    float above;
    float upTo;
    int result;
  };
  static constexpr Bucket kBuckets[] = {{125, 149, 144}, {95, 125, 120}, {65, 95, 90},
                                        {45, 65, 60},    {32, 45, 40},   {25, 32, 30}};
  for (const Bucket& bucket : kBuckets) {
    if (fps > bucket.above && fps <= bucket.upTo) return bucket.result;
  }
  return -1;
}

void GorvAction::applyAction() {
  if (!mDisabled.load(std::memory_order_acquire) && mPerfHandle == -1) acquireLock();
}

void GorvAction::removeAction(int handle) {
  if (handle < 1) return;
  gorv::Env::Default()->PerfLockRel(handle);
  mPerfHandle = -1;
}

void GorvAction::reset() {
  mSpareNodes.splice(mSpareNodes.end(), mFPSList);  // empties the history
  mGameFps = 0.0f;
  if (mPerfHandle >= 1) releaseLock();
}

void GorvAction::appendSample(float fps) {
  if (mSpareNodes.empty()) {
    mFPSList.push_back(fps);
    return;
  }
  mSpareNodes.front() = fps;
  mFPSList.splice(mFPSList.end(), mSpareNodes, mSpareNodes.begin());
}

float GorvAction::historyMax() const {
  if (mFPSList.empty()) return 0.0f;
  float maxFps = mFPSList.front();
  for (float fps : mFPSList) {
    if (fps > maxFps) maxFps = fps;
  }
  return maxFps;
}

void GorvAction::acquireLock() {
  int request[] = {kPerfResource, kPerfResourceValue};
  mPerfHandle = gorv::Env::Default()->PerfLockAcqRel(0, 0, request, 2, 0);
}

void GorvAction::releaseLock() { removeAction(mPerfHandle); }

void GorvAction::traceCounter(const char* name, float value) const {
  if (!mFeature.mTraceEnabled) return;
  gorv::Env* env = gorv::Env::Default();
  if ((env->TraceEnabledTags() & gorv::Env::kTraceTagAlways) == 0) return;
  env->TraceInt(name, RoundToInt32(value));
}
