#include "host/framework/FeatureRunner.h"

#include <utility>

namespace {
// A notify that races the periodic thread's check is not lost for longer
// than this.
constexpr std::chrono::milliseconds kWakePoll(10);
}  // namespace

FeatureRunner::FeatureRunner(std::chrono::milliseconds meterLatency, Feature* feature)
    : mMeters(meterLatency), mFeature(feature) {
  MeterService::Install(&mMeters);
  if (!mFeature) return;
  mTriggerThread = std::thread([this] { TriggerLoop(); });
  mPeriodicThread = std::thread([this] { PeriodicLoop(); });
}

FeatureRunner::~FeatureRunner() { Stop(); }

void FeatureRunner::Post(AsyncTriggerPayload payload) {
  std::lock_guard<std::mutex> lock(mMutex);
  mQueue.push_back(std::move(payload));
  mQueueChanged.notify_all();
}

void FeatureRunner::WaitUntilIdle() {
  std::unique_lock<std::mutex> lock(mMutex);
  mQueueChanged.wait(lock, [this] { return (mQueue.empty() && !mBusy) || mStopping; });
}

void FeatureRunner::Stop() {
  if (mStopping.exchange(true)) return;
  {
    std::lock_guard<std::mutex> lock(mMutex);
    mQueue.clear();
    mQueueChanged.notify_all();
  }
  {
    std::lock_guard<std::mutex> lock(mSleepMutex);
    mSleepWake.notify_all();
  }
  if (mFeature) {
    std::lock_guard<std::mutex> lock(mFeature->periodicMutex);
    mFeature->periodicWake.notify_all();
  }
  if (mTriggerThread.joinable()) mTriggerThread.join();
  if (mPeriodicThread.joinable()) mPeriodicThread.join();
  mMeters.Stop();
  mFeature.reset();
  if (MeterService::Installed() == &mMeters) MeterService::Install(nullptr);
}

void FeatureRunner::TriggerLoop() {
  std::unique_lock<std::mutex> lock(mMutex);
  while (!mStopping) {
    if (mQueue.empty()) {
      mQueueChanged.wait(lock);
      continue;
    }
    AsyncTriggerPayload payload = std::move(mQueue.front());
    mQueue.pop_front();
    mBusy = true;
    lock.unlock();
    mFeature->runAsync(std::move(payload));
    lock.lock();
    mBusy = false;
    mQueueChanged.notify_all();
  }
}

void FeatureRunner::PeriodicLoop() {
  Feature& feature = *mFeature;
  while (!mStopping) {
    {
      std::unique_lock<std::mutex> lock(feature.periodicMutex);
      if (!feature.periodicActive.load(std::memory_order_acquire)) {
        feature.periodicWake.wait_for(lock, kWakePoll);
        continue;
      }
    }
    int32_t interval = feature.periodicInterval.load();
    if (!feature.periodicEnabled || interval < 0) {
      if (!SleepFor(kWakePoll)) break;
      continue;
    }
    if (!SleepFor(std::chrono::milliseconds(interval))) break;
    if (feature.periodicActive.load(std::memory_order_acquire)) {
      feature.runAsyncPeriodic(mStopping);
    }
  }
}

bool FeatureRunner::SleepFor(std::chrono::milliseconds duration) {
  std::unique_lock<std::mutex> lock(mSleepMutex);
  return !mSleepWake.wait_for(lock, duration, [this] { return mStopping.load(); });
}
