// The timers and the intervals counter that decide which periodic task runs
// on which wake-up, driven by hand and by the virtual clock.
#include "intervals/TimeKeeper.h"

#include <gtest/gtest.h>

#include <chrono>
#include <stdexcept>
#include <string>
#include <vector>

#include "host/platform/HostEnv.h"
#include "intervals/GorvIntervalsCounter.h"
#include "tests/support/LogCapture.h"

namespace {

using std::chrono::milliseconds;

// Which calls of shouldTrigger(step) fire, as a string of 0 and 1.
std::string Firings(TimeKeeper& keeper, int step, int calls) {
  std::string fired;
  for (int i = 0; i < calls; ++i) fired += keeper.shouldTrigger(step) ? '1' : '0';
  return fired;
}

TimeKeeper Timer(int period, int delay, IntervalCallback hook = {}) {
  std::string name = "gorv";
  return TimeKeeper(
      period, delay, [](void*) {}, name, std::move(hook));
}

TEST(TimeKeeperTest, ArmsAfterTheDelayAndFiresOnThePeriodDroppingTheOvershoot) {
  // Armed on the first call past the delay, then firing every period of
  // accumulated time counted from 0 after each firing.
  struct Case {
    int period, delay, step, calls;
    const char* fired;
  };
  for (const Case& c :
       {Case{400, 400, 100, 12, "000100010001"}, Case{400, 1000, 300, 8, "00010101"},
        Case{0, 0, 0, 3, "111"}, Case{100, 0, 250, 1, "1"}}) {
    TimeKeeper keeper = Timer(c.period, c.delay);
    EXPECT_EQ(Firings(keeper, c.step, c.calls), c.fired) << c.period << "/" << c.delay;
    EXPECT_EQ(keeper.mElapsed, 0);
    keeper.reset();
    EXPECT_EQ(Firings(keeper, c.step, c.calls), c.fired) << "after reset";
  }
}

TEST(TimeKeeperTest, TheHookGetsTheNameAndAThrowingHookFiresAgainAtOnce) {
  Lines seen;
  TimeKeeper named =
      Timer(200, 200, [&seen](void* name) { seen.push_back(*static_cast<std::string*>(name)); });
  EXPECT_TRUE(named.shouldTrigger(200));
  EXPECT_EQ(seen, Lines{"gorv"});

  LogCapture logs;
  TimeKeeper failing = Timer(200, 200, [](void*) { throw std::runtime_error("no meter"); });
  EXPECT_TRUE(failing.shouldTrigger(200));
  EXPECT_EQ(failing.mElapsed, 200);  // not reset: the next call fires again
  EXPECT_TRUE(failing.shouldTrigger(0));
  failing.mOnTrigger = [](void*) { throw 1; };
  EXPECT_TRUE(failing.shouldTrigger(0));
  EXPECT_EQ(logs.Messages(), (Lines{"GORV_IC: shouldTrigger() N: Triggers - exception no meter\n",
                                    "GORV_IC: shouldTrigger() N: Triggers - exception no meter\n",
                                    "GORV_IC: shouldTrigger() N: Triggers - exception\n"}));
}

class IntervalsCounterTest : public ::testing::Test {
 protected:
  void SetUp() override {
    gorv::HostEnv::Get().Reset();
    gorv::HostEnv::Get().UseVirtualClock();
  }
  // Registers a timer whose task records `label`.
  void Register(GorvIntervalsCounter& counter, int period, int delay, const std::string& label) {
    std::string name = label;
    counter.registerIntervals(period, delay, [this, label](void*) { ran.push_back(label); }, name,
                              {});
  }
  // Advances the clock, syncs and runs the due tasks in order.
  void Wake(GorvIntervalsCounter& counter, int ms) {
    gorv::HostEnv::Get().AdvanceClock(milliseconds(ms));
    counter.syncWakeUpTime(due);
    for (IntervalCallback& task : due) task(nullptr);
  }

  Lines ran;
  std::vector<IntervalCallback> due;
};

TEST_F(IntervalsCounterTest, NewestRegistrationFirstAndTheSmallestPeriodWakes) {
  GorvIntervalsCounter counter;
  EXPECT_EQ(counter.mWakeUpTime, -1);
  Register(counter, 1000, 0, "slow");
  Register(counter, 400, 400, "fast");
  Wake(counter, 400);
  Wake(counter, 400);
  Wake(counter, 400);  // 1200: both due, the newest first
  EXPECT_EQ(ran, (Lines{"fast", "fast", "fast", "slow"}));

  LogCapture logs;
  Register(counter, -1, 400, "bad");
  Register(counter, 400, -3, "bad");
  EXPECT_EQ(counter.mTimeKeepers.size(), 2u);
  EXPECT_EQ(counter.mWakeUpTime, 400);
  EXPECT_EQ(logs.Messages(),
            (Lines{"GORV_IC: registerIntervals() N: Unexpected Intervals  -1-400",
                   "GORV_IC: registerIntervals() N: Unexpected Intervals  400--3"}));
}

TEST_F(IntervalsCounterTest, ElapsedTimeComesFromTheClockBetweenSuccessfulSyncsAndResetKeepsIt) {
  GorvIntervalsCounter empty;
  gorv::HostEnv::Get().AdvanceClock(milliseconds(500));
  empty.syncWakeUpTime(due);
  EXPECT_TRUE(due.empty());
  EXPECT_EQ(empty.mLastSync.time_since_epoch(), milliseconds(500));

  GorvIntervalsCounter counter;  // created at 500
  Register(counter, 400, 400, "gorv");
  Wake(counter, 300);
  counter.reset();  // changes nothing: the timers keep their phase
  EXPECT_EQ(counter.mTimeKeepers[0].mElapsed, 300);
  Wake(counter, 99);
  EXPECT_TRUE(ran.empty());
  Wake(counter, 1);
  EXPECT_EQ(ran, Lines{"gorv"});
  // A clock that went backwards counts as 1 ms; sub-millisecond time as 0.
  gorv::HostEnv::Get().AdvanceClock(-milliseconds(5));
  counter.syncWakeUpTime(due);
  EXPECT_EQ(counter.mTimeKeepers[0].mElapsed, 1);
  gorv::HostEnv::Get().AdvanceClock(std::chrono::microseconds(999));
  counter.syncWakeUpTime(due);
  EXPECT_EQ(counter.mTimeKeepers[0].mElapsed, 1);
}

// A task whose copies fail once armed, as a callback holding a resource
// might.
bool gCopiesFail = false;
struct CopyFails {
  CopyFails() = default;
  CopyFails(const CopyFails&) {
    if (gCopiesFail) throw std::runtime_error("copy failed");
  }
  void operator()(void*) const {}
};

TEST_F(IntervalsCounterTest, AFailedSyncReturnsNothingAndMeasuresAgainFromTheLastGoodOne) {
  GorvIntervalsCounter counter;
  Register(counter, 200, 200, "copy");
  Register(counter, 200, 200, "good");
  // Swap the first timer's task for one whose copy throws.
  counter.mTimeKeepers[1].mTask = CopyFails();
  LogCapture logs;
  gorv::HostEnv::Get().AdvanceClock(milliseconds(200));
  gCopiesFail = true;
  counter.syncWakeUpTime(due);
  gCopiesFail = false;
  EXPECT_TRUE(due.empty());
  EXPECT_EQ(counter.mLastSync.time_since_epoch(), milliseconds(0));
  EXPECT_EQ(logs.Messages(),
            Lines{"GORV_IC: syncWakeUpTime() N: wakeups - exception copy failed\n"});
}

}  // namespace
