// The feature's store of measured data: one element, the frame rate ("Fps"),
// sampled on the intervals counter's schedule into a bounded queue and
// averaged for the action; plus the stored trigger payload that is replayed
// to the meters.
//
// Owned by GorvFeature. The table is written during construction and by
// registerDataElem before dataRegistryComp, then only read. mFpsQueue is
// guarded by mQueueMutex. mTriggerPayload is written on the trigger thread
// and read on the periodic thread; the feature serialises the two.
#pragma once

#include <array>
#include <cstdint>
#include <mutex>
#include <vector>

#include "data/DataElem.h"
#include "framework/AsyncTriggerPayload.h"
#include "meter/MeterRequestMap.h"

class GorvMetaMeter;
class GorvIntervalsCounter;

class GorvDataManager {
 public:
  static constexpr int32_t MAX_QUEUE_SIZE = 64;

  // `meter` (may be null: the row then stays empty) and the map behind
  // `meterRequests` are owned by the feature and outlive this object.
  GorvDataManager(GorvMetaMeter* meter, MeterRequestMap& meterRequests);
  ~GorvDataManager();

  // Fills row FPS: "Fps", limits unset, collectFPS / getFPS / prepareMeter.
  void initDataMaps();

  // A consumer will read row `index` every `interval` ms over `duration` ms.
  // 0 when accepted (also when the queue size had to be capped at 64),
  // -1 when refused (after dataRegistryComp, or non-positive values).
  int registerDataElem(int index, int interval, int duration);

  // Registers row FPS ("Fps") and "MetersTrig" with `counter` (may be null:
  // nothing happens). Called once, by the feature's constructor.
  void dataRegistryComp(GorvIntervalsCounter* counter);

  // Runs row `which`'s reduction into `out` (a std::vector<float>* for FPS).
  // -1 on refusal, otherwise the reduction's result.
  int getData(DataMapper which, void* out, int interval, int duration);

  // Empties the sample queue.
  void reset();

  // Interval hook of "Fps": `name` points to the std::string naming the
  // meter whose reading is wanted.
  void prepareMeter(void* name);
  // Interval task of "Fps": queues the meta meter's latest frame rate.
  void collectFPS(void* unused);
  // Reduction of row FPS, called with mQueueMutex held: appends
  // sum(queue) / (duration / interval) to the std::vector<float> at `out`.
  int getFPS(void* out, int interval, int duration);
  // Interval task of "MetersTrig": replays the stored payload to the meters.
  void collectTrigger(void* unused) const;
  // Keeps a copy of `payload`; a failed copy leaves component empty and
  // triggerValue -1.
  void setTriggerPayload(AsyncTriggerPayload& payload);

  GorvMetaMeter* mMetaMeter;
  std::array<DataElem, 1> mDataElems;
  MeterRequestMap& mMeterRequests;
  bool mRegistered;
  AsyncTriggerPayload mTriggerPayload;
  std::vector<float> mFpsQueue;  // frames per second, oldest first
  std::mutex mQueueMutex;

 private:
  // Makes a payload whose copy failed half-way recognisable.
  void markHalfCopied();
};
