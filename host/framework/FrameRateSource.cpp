#include "host/framework/FrameRateSource.h"

#include <utility>

FrameRateSource& FrameRateSource::Get() {
  static FrameRateSource* source = new FrameRateSource();  // lives until exit
  return *source;
}

void FrameRateSource::SetConstant(float fps) {
  std::lock_guard<std::mutex> lock(mMutex);
  mFunction = nullptr;
  mConstant = fps;
}

void FrameRateSource::SetFunction(Function function) {
  std::lock_guard<std::mutex> lock(mMutex);
  mFunction = std::move(function);
}

float FrameRateSource::ValueAt(std::chrono::nanoseconds now) {
  std::lock_guard<std::mutex> lock(mMutex);
  return mFunction ? mFunction(now) : mConstant;
}
