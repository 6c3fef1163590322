// Figures of a run, added up event by event: node writes by node, lock-held
// time and spans, the fps node's changes (the first few kept for the
// summary line, all counted), log messages; in bounded memory unless every
// change and span is kept (16 bytes each). Single-threaded.
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

  // `keepAll`: every target change is kept, and every span in which a lock
  // was held (as one span while several are).
  explicit RunSummary(bool keepAll = false) : mKeepAll(keepAll) {}

  // True when the event changed the target or whether a lock is held.
  bool Add(const SimEvent& event);
  // Locks still held count as held up to `endMs`.
  void Finish(int64_t endMs);

  int target() const { return mTarget; }  // the fps node's value (0 before a write)
  bool lockHeld() const { return !mHeld.empty(); }
  int64_t lockHeldMs() const { return mLockHeldMs; }
  int64_t lockSpans() const { return mLockSpans; }
  int64_t targetChanges() const { return mTargetChanges; }
  // The first kShownTargets changes (all with keepAll): (ms, value).
  const std::vector<std::pair<int64_t, int>>& shownTargets() const { return mShownTargets; }
  // With keepAll, after Finish: (from, to) ms of each span a lock was held.
  const std::vector<std::pair<int64_t, int64_t>>& heldSpans() const { return mHeldSpans; }
  const std::map<std::string, int64_t>& nodeWrites() const { return mNodeWrites; }
  int64_t messages() const { return mMessages; }

 private:
  void HeldChanged(int64_t ms);

  bool mKeepAll;
  int mTarget = 0;
  int64_t mTargetChanges = 0;
  std::vector<std::pair<int64_t, int>> mShownTargets;
  std::map<int32_t, int64_t> mHeld;  // handle -> acquired at
  int64_t mLockHeldMs = 0;
  int64_t mLockSpans = 0;
  int64_t mHeldSince = -1;  // when a lock was last taken while none was held
  std::vector<std::pair<int64_t, int64_t>> mHeldSpans;
  std::map<std::string, int64_t> mNodeWrites;
  int64_t mMessages = 0;
};
