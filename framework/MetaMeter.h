// Framework boundary: a feature's meter aggregate.
//
// handleAsync() starts the meters that the feature's FeatureInfo describes;
// once they have finished, the framework calls writeToDataBase() on one of its
// meter threads with those meters. The subclass must be ready for that call
// from the moment handleAsync() has been called until it is destroyed; the
// framework stops delivering before it destroys the feature.
#pragma once

#include <vector>

#include "framework/AsyncTriggerPayload.h"
#include "framework/FeatureInfo.h"
#include "framework/Meter.h"

class MetaMeter {
 public:
  // `info` and `state` belong to the feature and outlive the meta meter.
  MetaMeter(FeatureInfo const& info, FeatureState& state);
  virtual ~MetaMeter();

  // Starts the meters for `payload`. Never blocks on the meter thread.
  bool handleAsync(AsyncTriggerPayload const& payload);

  // Called by the framework's meter thread with finished meters (owned by the
  // framework, valid for the duration of the call).
  virtual bool writeToDataBase(std::vector<Meter*> meters) = 0;

  // Framework extension point; the framework treats null as "no snapshot".
  virtual void* getMeterSnapshot();

  FeatureInfo const& featureInfo() const { return mInfo; }

 private:
  FeatureInfo const& mInfo;
  FeatureState& mState;
};
