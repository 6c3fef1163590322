// Runs a feature on real threads, as the framework does on a device:
//  - a trigger thread that hands queued payloads to runAsync, one at a time;
//  - a periodic thread that waits on periodicWake (no polling: the trigger
//    thread wakes it after each trigger) while periodicActive is false,
//    periodicEnabled unset or the interval unset, and otherwise sleeps
//    periodicInterval ms, then calls runAsyncPeriodic;
//  - a meter thread (ThreadedMeterService) delivering writeToDataBase.
// Owns the feature and destroys it in Stop(), after all three threads.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <thread>

#include "framework/Feature.h"
#include "host/framework/ThreadedMeterService.h"

class FeatureRunner {
 public:
  // Takes ownership of `feature`, installs the runner's meter service and
  // starts the trigger and periodic threads. A null feature leaves the
  // runner idle.
  FeatureRunner(std::chrono::milliseconds meterLatency, Feature* feature);
  ~FeatureRunner();

  Feature* feature() const { return mFeature.get(); }

  // Queues a trigger for the trigger thread. Any thread.
  void Post(AsyncTriggerPayload payload);
  // Blocks until every posted trigger has been handled.
  void WaitUntilIdle();
  // Stops the threads (handled triggers stay handled; queued ones are
  // dropped), then destroys the feature. Idempotent.
  void Stop();

 private:
  void TriggerLoop();
  void PeriodicLoop();
  void WakePeriodic();                                // after each trigger and at Stop
  bool SleepFor(std::chrono::milliseconds duration);  // false when stopping

  ThreadedMeterService mMeters;
  std::unique_ptr<Feature> mFeature;
  std::atomic<bool> mStopping{false};
  std::mutex mMutex;
  std::condition_variable mQueueChanged;
  std::deque<AsyncTriggerPayload> mQueue;  // guarded by mMutex
  bool mBusy = false;                      // guarded by mMutex
  std::mutex mSleepMutex;
  std::condition_variable mSleepWake;
  std::thread mTriggerThread;
  std::thread mPeriodicThread;
};
