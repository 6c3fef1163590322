// What the host's frame-rate meters measure: a constant, or a function of
// monotonic time (a recorded frame timeline). Thread-safe.
#pragma once

#include <chrono>
#include <functional>
#include <mutex>

class FrameRateSource {
 public:
  using Function = std::function<float(std::chrono::nanoseconds now)>;

  static FrameRateSource& Get();

  void SetConstant(float fps);
  void SetFunction(Function function);
  // The frame rate at monotonic time `now`.
  float ValueAt(std::chrono::nanoseconds now);

 private:
  std::mutex mMutex;
  Function mFunction;      // guarded by mMutex; empty means the constant
  float mConstant = 0.0f;  // guarded by mMutex
};
