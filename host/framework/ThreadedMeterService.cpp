#include "host/framework/ThreadedMeterService.h"

#include "framework/MetaMeter.h"
#include "host/platform/HostEnv.h"

ThreadedMeterService::ThreadedMeterService(std::chrono::milliseconds latency)
    : mLatency(latency), mThread([this] { Loop(); }) {}

ThreadedMeterService::~ThreadedMeterService() { Stop(); }

void ThreadedMeterService::Start(MetaMeter& meter) {
  std::lock_guard<std::mutex> lock(mMutex);
  if (mStopping) return;
  mRuns.push_back(Run{std::chrono::steady_clock::now() + mLatency, &meter});
  mWake.notify_one();
}

void ThreadedMeterService::Stop() {
  {
    std::lock_guard<std::mutex> lock(mMutex);
    mStopping = true;
    mRuns.clear();
    mWake.notify_one();
  }
  if (mThread.joinable()) mThread.join();
}

void ThreadedMeterService::Loop() {
  std::unique_lock<std::mutex> lock(mMutex);
  while (!mStopping) {
    if (mRuns.empty()) {
      mWake.wait(lock);
      continue;
    }
    if (std::chrono::steady_clock::now() < mRuns.front().due) {
      mWake.wait_until(lock, mRuns.front().due);
      continue;
    }
    Run run = mRuns.front();
    mRuns.pop_front();
    lock.unlock();
    // The frame rate is read on the platform clock, virtual or real, like
    // every other effect the feature sees.
    Deliver(*run.meter, gorv::HostEnv::Get().NowMonotonic().time_since_epoch());
    lock.lock();
  }
}
