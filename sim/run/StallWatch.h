// Decides when a run has stalled, so that gorv-sim never waits forever on
// a run's process: a virtual run whose clock has not moved for `limit` of
// real time (the plug-in stuck in a call, or steps that keep scheduling
// themselves at the same time), or a real-time run still going `limit`
// after its end (the feature's threads never finishing). Times are the
// caller's, so a test drives them. One thread (the run's supervisor).
#pragma once

#include <chrono>
#include <cstdint>

class StallWatch {
 public:
  using Clock = std::chrono::steady_clock;

  // A zero `limit` never stalls. `endMs` is the run's end, virtual ms.
  StallWatch(std::chrono::milliseconds limit, bool realtime, int64_t endMs,
             Clock::time_point started);

  // Told the virtual time the run has reached (ms) at `now`; true once it
  // has stalled.
  bool Stalled(int64_t clockMs, Clock::time_point now);
  // How long from `now` until Stalled can next turn true (ms, at least 1),
  // or -1 for never.
  int64_t MsLeft(Clock::time_point now) const;

 private:
  std::chrono::milliseconds mLimit;
  bool mRealtime;
  int64_t mLastClockMs = -1;
  Clock::time_point mSince;  // when the clock last moved (virtual), or the end (real time)
};
