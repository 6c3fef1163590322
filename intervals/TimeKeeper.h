// One named millisecond timer of the periodic work.
//
// A TimeKeeper is fed the milliseconds that passed since the previous wake-up
// of the periodic thread and answers whether its interval has come round. It
// holds no clock and no lock: it is only touched from the thread that calls
// GorvIntervalsCounter::syncWakeUpTime (the framework's periodic thread), or
// during construction of the feature.
#pragma once

#include <cstdint>
#include <string>

#include "intervals/IntervalCallback.h"

class TimeKeeper {
 public:
  // Placeholder text for a missing name.
  static const std::string NAStr;

  // No validation: the intervals counter refuses negative values first.
  TimeKeeper(int period, int delay, IntervalCallback task, std::string& name,
             IntervalCallback onTrigger);

  // Adds `elapsedMs` (checked: an overflow aborts) and answers whether the
  // timer fires now: armed once the accumulated time reached mDelay, then
  // firing whenever it reaches mPeriod. On firing, calls mOnTrigger (if set)
  // with &mName and restarts the count from 0, dropping any overshoot. A
  // throwing hook is logged; the call still returns true but the count is
  // left as it was, so the next call fires again.
  bool shouldTrigger(int elapsedMs);

  // Back to the state after construction: mElapsed 0, not armed.
  void reset();

  int32_t mPeriod;   // ms
  int32_t mElapsed;  // ms accumulated since construction, last firing or reset
  int32_t mDelay;    // ms before the timer is armed
  bool mArmed;
  std::string mName;
  IntervalCallback mTask;       // run by the periodic loop, never by the timer
  IntervalCallback mOnTrigger;  // may be empty
};
