#include "host/framework/FeatureRunner.h"

#include <utility>

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
  if (mFeature) WakePeriodic();
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
    WakePeriodic();
    lock.lock();
    mBusy = false;
    mQueueChanged.notify_all();
  }
}

void FeatureRunner::WakePeriodic() {
  // Under the mutex the periodic thread checks under: the feature's own
  // notify may come before that thread waits, this one cannot be lost.
  std::lock_guard<std::mutex> lock(mFeature->periodicMutex);
  mFeature->periodicWake.notify_all();
}

void FeatureRunner::PeriodicLoop() {
  Feature& feature = *mFeature;
  while (!mStopping) {
    {
      // Nothing is due until a trigger asks for periodic work: no polling.
      std::unique_lock<std::mutex> lock(feature.periodicMutex);
      if (!feature.periodicActive.load(std::memory_order_acquire) || !feature.periodicEnabled ||
          feature.periodicInterval.load() < 0) {
        if (!mStopping) feature.periodicWake.wait(lock);
        continue;
      }
    }
    int32_t interval = feature.periodicInterval.load();
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
