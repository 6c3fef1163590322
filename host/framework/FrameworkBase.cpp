// The framework's own parts of the boundary classes: the registry storage,
// the Feature base and the meters.
#include <utility>

#include "framework/Feature.h"
#include "framework/Meter.h"
#include "host/framework/HostLocator.h"

template <>
FeatureRegistry::Map* FeatureRegistry::classList = nullptr;
template <>
std::mutex FeatureRegistry::mMutex{};

Feature::Feature(FeatureInfo info)
    : name(info.name), featureInfo(std::move(info)), locator(HostLocator::Current()) {
  featureState.featureName = name;
}

Feature::~Feature() = default;

void Feature::runAsyncIdle(std::atomic<bool> const& /*stop*/) {}
int32_t Feature::onConfigChanged() { return 0; }
int32_t Feature::getParam(int32_t /*id*/, int32_t /*flags*/, int32_t* out) {
  if (out != nullptr) *out = -1;
  return 0;
}
int32_t Feature::getDefaultParam(int32_t /*id*/, int32_t /*flags*/, int32_t* out) {
  if (out != nullptr) *out = -1;
  return 0;
}
int32_t Feature::onSuspend() { return 0; }
int32_t Feature::onResume() { return 0; }

Meter::Meter(std::string meterName) : name(std::move(meterName)) {}
Meter::~Meter() = default;

FpsMeter::FpsMeter(std::string meterName, float measuredFps)
    : Meter(std::move(meterName)), mMeasuredFps(measuredFps) {}
FpsMeter::~FpsMeter() = default;
float FpsMeter::getFps() { return mMeasuredFps; }
