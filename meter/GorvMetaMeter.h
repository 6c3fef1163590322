// The feature's meter aggregate: hands the "Fps" meter's reading over to the
// data manager when one was requested.
//
// Owned by GorvFeature (through Feature::metaMeter). writeToDataBase runs on
// the framework's meter thread while the feature's threads set requests in
// mMeterRequests and read mFps, so both are atomics; the map's keys are fixed
// after construction but for one late insertion on the meter thread
// (MeterRequestMap.h).
#pragma once

#include <atomic>
#include <vector>

#include "framework/MetaMeter.h"
#include "meter/MeterRequestMap.h"

class GorvFeature;

class GorvMetaMeter : public MetaMeter {
 public:
  // Builds the request map (max load factor 1.0) from the feature's
  // meterInfos, one entry per distinct name, every flag false.
  explicit GorvMetaMeter(GorvFeature& feature);
  ~GorvMetaMeter() override;

  // Framework callback with the finished meters (not owned). Takes the first
  // requested "Fps" reading into mFps and withdraws the request. False for an
  // empty vector, true otherwise.
  bool writeToDataBase(std::vector<Meter*> meters) override;

  // No snapshot: always null.
  void* getMeterSnapshot() override;

  bool mTraceEnabled;
  std::atomic<float> mFps;  // frames per second; 0 until the first reading
  MeterRequestMap mMeterRequests;
};
