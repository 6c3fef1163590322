// Runs a feature on the virtual clock, deterministically, for tests and the
// simulator. Time is in milliseconds since the runner was made (virtual time
// 0, when the feature should be created). At each time T, in this order:
//  1. actions scheduled at T (e.g. faults), in the order scheduled;
//  2. triggers at T, in the order scheduled;
//  3. meter runs due at T finish, in the order they were started;
//  4. the periodic round due at T, if any.
// Rounds: when a trigger leaves periodicActive true, periodicEnabled set and
// no round pending, a round becomes due periodicInterval ms later; after a
// round, if periodicActive is still true, the next is due periodicInterval ms
// later. A round that comes due while periodicActive is false does not run
// and schedules nothing; a stop does not cancel a pending round.
// Single-threaded: every call of the feature happens inside RunUntil.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <vector>

#include "framework/Feature.h"
#include "host/framework/SteppedMeterService.h"

class SteppedRunner {
 public:
  // Switches HostEnv to a virtual clock at 0 and installs the runner's meter
  // service.
  explicit SteppedRunner(std::chrono::milliseconds meterLatency = std::chrono::milliseconds(50));
  ~SteppedRunner();

  // Takes ownership of the feature to drive (may be null: nothing runs).
  void Adopt(Feature* feature);
  Feature* feature() const { return mFeature.get(); }
  SteppedMeterService& meters() { return mMeters; }

  void ScheduleAction(int64_t atMs, std::function<void()> action);
  void ScheduleTrigger(int64_t atMs, AsyncTriggerPayload payload);
  // Delivers a trigger now (at the current time), then the rest of step 2.
  void TriggerNow(AsyncTriggerPayload payload);

  // Called with the time of each step before anything at that time runs
  // (for example to publish the virtual time to another process).
  void SetStepObserver(std::function<void(int64_t nowMs)> observer);

  // Runs every step up to and including `untilMs`; the clock ends at untilMs.
  void RunUntil(int64_t untilMs);
  int64_t NowMs() const { return mNowMs; }
  std::optional<int64_t> PendingRoundMs() const { return mRoundDueMs; }

  // Destroys the feature now (its destructor may release a lock); pending
  // meter runs are dropped.
  void DestroyFeature();

 private:
  std::optional<int64_t> NextEventMs() const;
  void Step(int64_t atMs);
  void Deliver(AsyncTriggerPayload payload);
  void RunRound();

  SteppedMeterService mMeters;
  std::unique_ptr<Feature> mFeature;
  int64_t mNowMs = 0;
  std::optional<int64_t> mRoundDueMs;
  std::function<void(int64_t)> mStepObserver;
  std::multimap<int64_t, std::function<void()>> mActions;
  std::multimap<int64_t, AsyncTriggerPayload> mTriggers;
};
