// The plug-in's feature: recognises a game coming to the foreground, writes
// its pid and frame-rate target to the scheduler-penalty nodes and holds the
// performance lock while the game keeps up.
//
// Created by the framework through the registry's factory and destroyed
// through Feature's virtual destructor, after the framework has stopped its
// threads. runAsync (trigger thread) and runAsyncPeriodic (periodic thread)
// may run at the same time; mCoreMutex serialises them, so the components
// (which hold no locks) only ever see one of the two. writeToDataBase (meter
// thread) touches the meta meter's atomics only and never takes mCoreMutex.
#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

#include "framework/Feature.h"
#include "intervals/IntervalCallback.h"

class GorvDataManager;
class GorvIntervalsCounter;
class GorvAction;

class GorvFeature : public Feature {
 public:
  static constexpr const char* kName = "GORV";
  static constexpr const char* kRevision = "v1.00";
  static constexpr const char* kPidNode = "/sys/kernel/sched_penalty/parameters/target_pid";
  static constexpr const char* kFpsNode = "/sys/kernel/sched_penalty/parameters/fps";

  // Framework trigger identifiers.
  static constexpr int32_t kTriggerStart = 4097;
  static constexpr int32_t kTriggerStartAlt = 4099;
  static constexpr int32_t kTriggerStop = 4098;
  static constexpr int32_t kTriggerStopAlt = 4100;
  static constexpr int32_t kTriggerFpsHint = 4221;
  static constexpr int32_t kTriggerVendorHintDisable = 4222;
  // Classifier value of a game.
  static constexpr int kAppClassGame = 2;

  // Reads "ro.vendor.perf.gorv" (works only when exactly "true") and
  // "vendor.debug.trace.gorv", then builds the meta meter, intervals counter,
  // data manager and action, each allocated without throwing; a failed
  // allocation leaves the feature partial and inert.
  explicit GorvFeature(FeatureInfo info);
  ~GorvFeature() override;

  // Trigger thread. Never throws.
  void runAsync(AsyncTriggerPayload payload) override;
  // Periodic thread: runs the periodic work that is due. Never throws. The
  // flag is not read.
  void runAsyncPeriodic(std::atomic<bool> const& stop) override;

  // The framework's hooks, answered here whatever the base class does:
  // nothing to do, no parameters (-1 into `out` when it is not null).
  int32_t onConfigChanged() override;
  int32_t getParam(int32_t id, int32_t flags, int32_t* out) override;
  int32_t getDefaultParam(int32_t id, int32_t flags, int32_t* out) override;
  int32_t onSuspend() override;
  int32_t onResume() override;

  // Copies the intervals counter's wake-up time into periodicInterval.
  // Constructor only.
  void setPeriodicThreadInterval();
  // Returns the components to idle: samples, history, target, lock. The
  // timers keep their phase. Under mCoreMutex (or before the threads run).
  void resetParams();
  // Whether the framework's classifier reports `package` as a game.
  bool isGame(std::string& package) const;
  // The pid of `package`'s process; negative (and logged) when none.
  int32_t getGamePid(std::string& package) const;
  // Writes `value` as decimal text, without a newline, to the node `path`
  // in one write. 0 when the node could be opened (a failed write is not
  // reported), -1 (logged) when not. Uses no member state and allocates
  // nothing; any thread.
  int32_t updateSysNodes(std::string& path, int32_t value) const;

  // Fixed at construction (before the framework's threads run).
  bool mTraceEnabled;
  // An FPS hint owns the fps node. Written on the trigger thread, read by
  // the action on the periodic thread; both under mCoreMutex.
  bool mFpsHintApplied;
  // Owned; set at construction, null only after a failed allocation.
  GorvDataManager* mDataManager;
  GorvIntervalsCounter* mIntervalsCounter;
  // The last accepted start or stop. Trigger thread, under mCoreMutex.
  AsyncTriggerPayload mTriggerPayload;
  // Fixed at construction.
  bool mEnabled;
  // Written on the trigger thread (release), read on both (acquire).
  std::atomic<bool> mGameActive;
  // Node paths and the last hint (-1: none). Trigger thread, under
  // mCoreMutex.
  std::string mPidNodePath;
  std::string mFpsNodePath;
  int32_t mFpsHint;
  // Owned; set at construction, null only after a failed allocation.
  GorvAction* mAction;

 private:
  void buildComponents();
  void destroyComponents();
  void adoptPayload(AsyncTriggerPayload& payload, std::string& package);
  // resetParams for a handler, when `lock` holds mCoreMutex. Never throws.
  void resetAfterFailure(const std::unique_lock<std::mutex>& lock);
  void handleStart(AsyncTriggerPayload& payload, std::string& package);
  void handleStop(AsyncTriggerPayload& payload, std::string& package);
  void handleFpsHint(AsyncTriggerPayload& payload);
  void handleVendorHintDisable(AsyncTriggerPayload& payload);
  bool isIgnored(const std::string& component) const;
  void runDueTasks();

  // Serialises trigger handling against the periodic round.
  std::mutex mCoreMutex;
  // The due list of a round, kept so that a round does not allocate.
  // Periodic thread, under mCoreMutex.
  std::vector<IntervalCallback> mDueTasks;
};
