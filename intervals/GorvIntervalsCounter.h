// The feature's scheduler: a registry of named intervals, polled on every
// wake-up of the framework's periodic thread.
//
// Takes no lock. Registration happens while the feature is constructed;
// syncWakeUpTime runs on the periodic thread; the feature's parameter reset
// walks mTimeKeepers by value from the trigger thread under the feature's own
// serialisation.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include "intervals/IntervalCallback.h"
#include "intervals/TimeKeeper.h"

class GorvIntervalsCounter {
 public:
  // Empty registry, mWakeUpTime -1, mLastSync = the platform's monotonic now.
  GorvIntervalsCounter();
  ~GorvIntervalsCounter();

  // Adds one interval (milliseconds) at the front of the registry, so later
  // scans visit the newest registration first, and lowers mWakeUpTime to
  // `period` when smaller. Negative values are refused with a log line.
  // Failures leave the registry as it was.
  void registerIntervals(int period, int delay, IntervalCallback task, std::string& name,
                         IntervalCallback onTrigger);

  // Measures the milliseconds since the last successful sync on the
  // platform's monotonic clock, feeds them to every timer and replaces the
  // content of `due` with copies of the tasks of the timers that fire, in
  // registry order. Timer hooks run inside this call. On failure `due` is
  // left empty and mLastSync is not moved.
  void syncWakeUpTime(std::vector<IntervalCallback>& due);

  // Walks the registry resetting copies of the timers: it changes nothing,
  // and the scheduling depends on that. A timer restarts only through its
  // own reset().
  void reset();

  std::vector<TimeKeeper> mTimeKeepers;
  // Smallest period ever registered (ms); -1 while none is.
  int32_t mWakeUpTime;
  // When the last successful sync finished.
  std::chrono::steady_clock::time_point mLastSync;
};
