// Figures of a run, added up event by event in bounded memory: node writes
// by node, lock-held time and spans, the fps node's changes (the first few
// kept for the summary line, all counted), log messages. Single-threaded.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "sim/SimEvent.h"

class RunSummary {
 public:
  static constexpr size_t kShownTargets = 10;

  // True when the event changed the target or whether a lock is held.
  bool Add(const SimEvent& event);
  // Locks still held count as held up to `endMs`.
  void Finish(int64_t endMs);

  int target() const { return mTarget; }  // the fps node's value (0 before a write)
  bool lockHeld() const { return !mHeld.empty(); }
  int64_t lockHeldMs() const { return mLockHeldMs; }
  int64_t lockSpans() const { return mLockSpans; }
  int64_t targetChanges() const { return mTargetChanges; }
  // The first kShownTargets changes: (ms, value).
  const std::vector<std::pair<int64_t, int>>& shownTargets() const { return mShownTargets; }
  const std::map<std::string, int64_t>& nodeWrites() const { return mNodeWrites; }
  int64_t messages() const { return mMessages; }

 private:
  int mTarget = 0;
  int64_t mTargetChanges = 0;
  std::vector<std::pair<int64_t, int>> mShownTargets;
  std::map<int32_t, int64_t> mHeld;  // handle -> acquired at
  int64_t mLockHeldMs = 0;
  int64_t mLockSpans = 0;
  std::map<std::string, int64_t> mNodeWrites;
  int64_t mMessages = 0;
};
