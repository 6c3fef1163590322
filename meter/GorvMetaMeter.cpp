#include "meter/GorvMetaMeter.h"

#include <cstdio>
#include <string>

#include "feature/GorvFeature.h"
#include "platform/Env.h"

namespace {
constexpr const char* kFpsMeterName = "Fps";
constexpr size_t kTraceTextSize = 256;
}  // namespace

GorvMetaMeter::GorvMetaMeter(GorvFeature& feature)
    : MetaMeter(feature.featureInfo, feature.featureState),
      mTraceEnabled(feature.mTraceEnabled),
      mFps(0.0f) {
  mMeterRequests.max_load_factor(1.0f);
  for (const MeterInfo& info : feature.featureInfo.meterInfos) {
    MeterInfo description = info;
    mMeterRequests[description.name].store(false);
  }
}

GorvMetaMeter::~GorvMetaMeter() { mMeterRequests.clear(); }

bool GorvMetaMeter::writeToDataBase(std::vector<Meter*> meters) {
  if (meters.empty()) return false;
  float fps = 0.0f;
  for (Meter* meter : meters) {
    if (meter == nullptr) continue;
    std::string name = meter->name;
    if (name != kFpsMeterName) continue;
    // An unconfigured "Fps" meter gets an entry here, but its flag is false.
    std::atomic<bool>& requested = mMeterRequests[name];
    if (!requested.load(std::memory_order_acquire)) continue;
    fps = static_cast<FpsMeter*>(meter)->getFps();
    mFps.store(fps, std::memory_order_release);
    requested.store(false, std::memory_order_release);
  }
  if (mTraceEnabled) {
    char text[kTraceTextSize] = {};
    std::snprintf(text, sizeof(text), "Meters finished, fps = %f \n", static_cast<double>(fps));
    gorv::Env* env = gorv::Env::Default();
    if (env->TraceEnabledTags() & gorv::Env::kTraceTagAlways) {
      env->TraceBegin(text);
      if (env->TraceEnabledTags() & gorv::Env::kTraceTagAlways) env->TraceEnd();
    }
  }
  return true;
}

void* GorvMetaMeter::getMeterSnapshot() { return nullptr; }
