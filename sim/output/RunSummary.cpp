#include "sim/output/RunSummary.h"

#include <charconv>

#include "sim/SimWords.h"

bool RunSummary::Add(const SimEvent& event) {
  bool wasHeld = lockHeld();
  switch (event.kind) {
    case SimEvent::Kind::Node: {
      std::string node = SimWords::ShortNode(event.name);
      ++mNodeWrites[node];
      int value = 0;
      if (node != "fps") break;
      std::from_chars(event.text.data(), event.text.data() + event.text.size(), value);
      if (mTargetChanges > 0 && value == mTarget) break;
      mTarget = value;
      if (++mTargetChanges <= static_cast<int64_t>(kShownTargets) || mKeepAll) {
        mShownTargets.emplace_back(event.tMs, value);
      }
      return true;
    }
    case SimEvent::Kind::LockAcquire:
      if (event.handle >= 1) mHeld.emplace(event.handle, event.tMs);
      break;
    case SimEvent::Kind::LockRelease: {
      auto found = mHeld.find(event.handle);
      if (found == mHeld.end()) break;
      mLockHeldMs += event.tMs - found->second;
      ++mLockSpans;
      mHeld.erase(found);
      break;
    }
    case SimEvent::Kind::Log:
      ++mMessages;
      break;
    default:
      break;
  }
  if (wasHeld == lockHeld()) return false;
  HeldChanged(event.tMs);
  return true;
}

void RunSummary::HeldChanged(int64_t ms) {
  if (lockHeld()) {
    mHeldSince = ms;
  } else if (mKeepAll) {
    mHeldSpans.emplace_back(mHeldSince, ms);
  }
}

void RunSummary::Finish(int64_t endMs) {
  for (const auto& [handle, from] : mHeld) {
    mLockHeldMs += endMs - from;
    ++mLockSpans;
  }
  bool wasHeld = lockHeld();
  mHeld.clear();
  if (wasHeld) HeldChanged(endMs);
}
