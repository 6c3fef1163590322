// Configuration, construction and the periodic round's failure handling of
// the feature, driven directly on the test thread with the virtual clock.
#include "feature/GorvFeature.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "action/GorvAction.h"
#include "intervals/GorvIntervalsCounter.h"
#include "tests/support/FeatureTest.h"
#include "tests/support/LogCapture.h"

namespace {

class GorvFeatureTest : public FeatureTest {
 protected:
  std::vector<TimeKeeper>& timers() { return feature->mIntervalsCounter->mTimeKeepers; }
  // Advances the clock by `ms` and runs one periodic round.
  void Round(int ms) {
    env().AdvanceClock(std::chrono::milliseconds(ms));
    feature->runAsyncPeriodic(std::atomic<bool>{true});
  }
};

TEST_F(GorvFeatureTest, OnlyExactlyTrueEnablesAndALeadingOneTraces) {
  struct Case {
    const char* enabled;
    const char* trace;
    bool isEnabled, traced;
  };
  // The sessions try the other texts that do not enable.
  for (const Case& c : {Case{"", "1", false, false}, Case{"false", "", false, false},
                        Case{"true", "1", true, true}, Case{"true", "10", true, true},
                        Case{"true", "0", true, false}, Case{"true", " 1", true, false}}) {
    SCOPED_TRACE(std::string("'") + c.enabled + "' '" + c.trace + "'");
    Make(c.enabled, c.trace);
    EXPECT_EQ(feature->mEnabled, c.isEnabled);
    EXPECT_EQ(feature->mTraceEnabled, c.traced);
    EXPECT_EQ(feature->metaMeter != nullptr, c.isEnabled);
    EXPECT_EQ(feature->periodicEnabled, c.isEnabled);
    EXPECT_EQ(feature->periodicInterval.load(), c.isEnabled ? 200 : -1);
  }
}

TEST_F(GorvFeatureTest, AThrowingTaskSkipsTheRestOfTheRoundResetsAndLogs) {
  feature->mGameActive = true;
  feature->mAction->applyAction();
  Lines ran;
  timers()[0].mTask = [&ran](void*) { ran.emplace_back("first"); };
  timers()[1].mTask = [](void*) { throw std::runtime_error("boom"); };
  timers()[2] =
      TimeKeeper(200, 200, [&ran](void*) { ran.emplace_back("third"); }, timers()[2].mName, {});
  LogCapture logs;
  Round(400);
  EXPECT_EQ(ran, Lines{"first"});
  // The reset released the lock; the session goes on.
  EXPECT_EQ(feature->mAction->mPerfHandle, -1);
  EXPECT_TRUE(env().HeldPerfLocks().empty());
  EXPECT_TRUE(feature->mGameActive);

  timers()[1].mTask = [](void*) { throw 42; };
  Round(200);
  // An empty task raises bad_function_call like any standard exception.
  timers()[1].mTask = nullptr;
  Round(200);
  EXPECT_EQ(logs.Messages(),
            (Lines{"GORV_FEATURE: runAsyncPeriodic() N: runAsyncPeriodic- exception boom\n",
                   "GORV_FEATURE: runAsyncPeriodic() N: runAsyncPeriodic -  execution exception\n ",
                   "GORV_FEATURE: runAsyncPeriodic() N: runAsyncPeriodic- exception "
                   "bad_function_call\n"}));
}

TEST_F(GorvFeatureTest, AFailedNodeWriteStillCounts) {
  // Opened but not written (the device is full): reported as written.
  LogCapture logs;
  env().SetSysfsRoot("");
  std::string full = "/dev/full";
  EXPECT_EQ(feature->updateSysNodes(full, 60), 0);
  EXPECT_EQ(logs.Messages(), Lines{});
  env().SetSysfsRoot(sysfs.path());
  std::string fps = GorvFeature::kFpsNode;
  feature->updateSysNodes(fps, -2147483647 - 1);
  EXPECT_EQ(sysfs.Read(fps), "-2147483648");
}

}  // namespace
