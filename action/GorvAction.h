// Turns the game's averaged frame rates into a target frame rate, publishes
// the target to the fps node and holds the performance lock while the game
// keeps up with it.
//
// Owned by GorvFeature. analyseProfiles runs on the periodic thread;
// applyAction, reset and mDisabled writes come from the trigger thread. The
// action takes no lock: the feature serialises the two threads' calls. Only
// mDisabled is atomic (release stores, acquire loads).
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <list>
#include <string>
#include <vector>

class GorvFeature;
class GorvDataManager;

class GorvAction {
 public:
  // The performance-lock request: one resource opcode and its value.
  static constexpr int32_t kPerfResource = 0x44800000;
  static constexpr int32_t kPerfResourceValue = 1;
  static constexpr size_t kHistorySize = 5;

  // Registers "gorv" (400 ms period and delay, analyseProfiles) with the
  // feature's intervals counter and declares the frame-rate element (200 ms
  // sampling, 400 ms averaging). Inert when the feature has no data manager
  // or no intervals counter.
  explicit GorvAction(GorvFeature& feature);
  // Releases a held lock. Never throws.
  ~GorvAction();

  // Periodic task: fetches the averaged frame rate, updates the target and
  // applies the lock rule. The argument is ignored.
  void analyseProfiles(void* unused);
  // Appends one measurement (fps) to the history of five and, when the
  // history's maximum left the +-5 band around the target, recomputes the
  // target and writes it to the fps node unless an FPS hint owns the node.
  void UpdateFPSData(float fps);
  // The lock rule: release when the game runs more than 3 fps below the
  // target, acquire when it keeps up and no lock is held.
  void updateAutoPenatly(float fps);
  // Target bucket of the history's maximum (the argument is not used).
  int DetectGameFPS(float unused) const;
  // Whether the history's maximum is more than 5 away from `target`.
  bool isGameFPSChange(float unused, float target) const;
  // Coarser rounding table: 30, 40, 60, 90, 120, 144 or -1.
  int GetRoundOffFps(float fps) const;

  // Takes the performance lock unless disabled or already held.
  void applyAction();
  // Releases `handle` when it is 1 or more and forgets the held handle.
  void removeAction(int handle);
  // Forgets the history and the target and releases a held lock.
  void reset();

  std::atomic<bool> mDisabled;
  GorvFeature& mFeature;
  GorvDataManager* mDataManager;  // not owned; null when inert
  std::list<float> mFPSList;      // frames per second, oldest first, at most 5
  float mGameFps;                 // target fps; 0 when none detected
  int32_t mPerfHandle;            // held lock, or -1

 private:
  // Appends to the history, reusing a spare node when there is one.
  void appendSample(float fps);
  float historyMax() const;
  void acquireLock();
  void releaseLock();
  void traceCounter(const char* name, float value) const;

  std::vector<float> mAverages;  // output of the frame-rate reduction
  // Nodes that left the history, kept for reuse: a running session then
  // moves list nodes instead of allocating them.
  std::list<float> mSpareNodes;
};
