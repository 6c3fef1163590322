// Framework boundary: the base class of every feature.
//
// The framework creates a feature through the registry's factory, then drives
// it from its own threads: runAsync() on the trigger thread, one trigger at a
// time, and runAsyncPeriodic() on the periodic thread every periodicInterval
// ms while periodicActive is true. It destroys the feature through the virtual
// destructor after both threads and the meter thread have stopped.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>

#include "framework/AsyncTriggerPayload.h"
#include "framework/FeatureInfo.h"
#include "framework/RegistryBase.h"

class MetaMeter;
class FeatureLocator;

class Feature {
 public:
  explicit Feature(FeatureInfo info);
  virtual ~Feature();

  virtual void runAsync(AsyncTriggerPayload payload) = 0;
  virtual void runAsyncIdle(std::atomic<bool> const& stop);
  virtual void runAsyncPeriodic(std::atomic<bool> const& stop) = 0;
  virtual int32_t onConfigChanged();
  virtual int32_t getParam(int32_t id, int32_t flags, int32_t* out);
  virtual int32_t getDefaultParam(int32_t id, int32_t flags, int32_t* out);
  virtual int32_t onSuspend();
  virtual int32_t onResume();

  std::string name;
  // Owned by the derived class, which deletes it in its destructor.
  MetaMeter* metaMeter = nullptr;
  FeatureInfo featureInfo;
  FeatureState featureState;
  // The framework's locator; may be null.
  FeatureLocator* locator = nullptr;
  // The periodic thread waits here (under periodicMutex) while periodicActive
  // is false; the feature notifies it when a session starts.
  std::condition_variable periodicWake;
  std::mutex periodicMutex;
  std::atomic<bool> periodicActive{false};
  // Period of the periodic thread in ms; -1 until the feature sets one.
  std::atomic<int32_t> periodicInterval{-1};
  bool periodicEnabled = false;
};

using FeatureRegistry = RegistryBase<Feature, FeatureInfo>;
template <>
FeatureRegistry::Map* FeatureRegistry::classList;
template <>
std::mutex FeatureRegistry::mMutex;
