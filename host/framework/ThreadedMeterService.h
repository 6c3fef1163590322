// Meters on a real meter thread: each Start() finishes `latency` later on
// the real clock, and the meter thread calls writeToDataBase, as the
// framework does on a device.
#pragma once

#include <chrono>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>

#include "host/framework/MeterService.h"

class ThreadedMeterService : public MeterService {
 public:
  explicit ThreadedMeterService(std::chrono::milliseconds latency = std::chrono::milliseconds(50));
  // Stops the meter thread; pending runs are dropped.
  ~ThreadedMeterService() override;

  // Any thread.
  void Start(MetaMeter& meter) override;
  // Stops delivering and joins the meter thread. Pending runs are dropped.
  void Stop();

 private:
  struct Run {
    std::chrono::steady_clock::time_point due;
    MetaMeter* meter;
  };
  void Loop();

  const std::chrono::milliseconds mLatency;
  std::mutex mMutex;
  std::condition_variable mWake;
  std::deque<Run> mRuns;   // guarded by mMutex; due order (fixed latency)
  bool mStopping = false;  // guarded by mMutex
  std::thread mThread;
};
