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

  // Copies the intervals counter's wake-up time into periodicInterval.
  void setPeriodicThreadInterval();
  // Returns the components to idle: samples, history, target, lock.
  void resetParams();
  // Whether the framework's classifier reports `package` as a game.
  bool isGame(std::string& package);
  // The pid of `package`'s process; negative (and logged) when none.
  int32_t getGamePid(std::string& package);
  // Writes `value` as decimal text to the node `path`. 0 when the node could
  // be opened, -1 (logged) when not. Uses no member state; any thread.
  int32_t updateSysNodes(std::string& path, int32_t value);

  bool mTraceEnabled;
  bool mFpsHintApplied;  // an FPS hint owns the fps node
  GorvDataManager* mDataManager;
  GorvIntervalsCounter* mIntervalsCounter;
  AsyncTriggerPayload mTriggerPayload;  // the last accepted start or stop
  bool mEnabled;
  std::atomic<bool> mGameActive;
  std::string mPidNodePath;
  std::string mFpsNodePath;
  int32_t mFpsHint;
  GorvAction* mAction;

 private:
  void buildComponents();
  void destroyComponents();
  void adoptPayload(AsyncTriggerPayload& payload, std::string& package);
  void resetAfterFailure();
  void handleStart(AsyncTriggerPayload& payload, std::string& package);
  void handleStop(AsyncTriggerPayload& payload, std::string& package);
  void handleFpsHint(AsyncTriggerPayload& payload);
  void handleVendorHintDisable(AsyncTriggerPayload& payload);
  bool isIgnored(const std::string& component) const;
  void runDueTasks();

  // Serialises trigger handling against the periodic round.
  std::mutex mCoreMutex;
  // The due list of a round, kept so that a round does not allocate.
  std::vector<IntervalCallback> mDueTasks;
};
