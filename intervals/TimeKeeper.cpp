#include "intervals/TimeKeeper.h"

#include <exception>
#include <utility>

#include "platform/CheckedMath.h"
#include "platform/Log.h"

const std::string TimeKeeper::NAStr = "NA";

TimeKeeper::TimeKeeper(int period, int delay, IntervalCallback task, std::string& name,
                       IntervalCallback onTrigger)
    : mPeriod(period),
      mElapsed(0),
      mDelay(delay),
      mArmed(false),
      mName(name),
      mTask(std::move(task)),
      mOnTrigger(std::move(onTrigger)) {}

bool TimeKeeper::shouldTrigger(int elapsedMs) {
  mElapsed = gorv::CheckedAdd(mElapsed, static_cast<int32_t>(elapsedMs));
  if (!mArmed && mElapsed >= mDelay) mArmed = true;
  if (!mArmed || mElapsed < mPeriod) return false;
  try {
    if (mOnTrigger) mOnTrigger(&mName);
  } catch (const std::exception& e) {
    GORV_LOG("GORV_IC", "shouldTrigger", "Triggers - exception %s\n", e.what());
    return true;
  } catch (...) {
    GORV_LOG("GORV_IC", "shouldTrigger", "Triggers - exception\n");
    return true;
  }
  mElapsed = 0;
  return true;
}

void TimeKeeper::reset() {
  mElapsed = 0;
  mArmed = false;
}
