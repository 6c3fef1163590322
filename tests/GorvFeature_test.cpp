// Construction, configuration and the periodic round's failure handling of
// the feature, driven directly on the test thread with the virtual clock.
#include "feature/GorvFeature.h"

#include <android-base/properties.h>
#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "action/GorvAction.h"
#include "data/GorvDataManager.h"
#include "intervals/GorvIntervalsCounter.h"
#include "host/platform/HostEnv.h"
#include "tests/support/LogCapture.h"
#include "tests/support/NothrowFailure.h"
#include "tests/support/TempSysfsRoot.h"

namespace {

using gorv::HostEnv;

class GorvFeatureTest : public ::testing::Test {
 protected:
  void SetUp() override {
    HostEnv::Get().Reset();
    HostEnv::Get().UseVirtualClock();
    HostEnv::Get().SetSysfsRoot(sysfs.path());
    android::base::SetProperty("ro.vendor.perf.gorv", "true");
    android::base::SetProperty("vendor.debug.trace.gorv", "");
    info.name = "GORV";
    info.meterInfos = {{"Fps", {}}};
  }
  void TearDown() override { ArmNothrowFailure(0); }

  std::unique_ptr<GorvFeature> Make() { return std::make_unique<GorvFeature>(info); }

  static std::vector<std::string> TimerNames(const GorvFeature& feature) {
    std::vector<std::string> names;
    for (const TimeKeeper& keeper : feature.mIntervalsCounter->mTimeKeepers) {
      names.push_back(keeper.mName + "/" + std::to_string(keeper.mPeriod) + "/" +
                      std::to_string(keeper.mDelay));
    }
    return names;
  }

  TempSysfsRoot sysfs;
  FeatureInfo info;
};

TEST_F(GorvFeatureTest, OnlyExactlyTrueEnablesTheFeature) {
  for (const char* value : {"", "false", "TRUE", "true ", "1"}) {
    android::base::SetProperty("ro.vendor.perf.gorv", value);
    auto feature = Make();
    EXPECT_FALSE(feature->mEnabled) << "'" << value << "'";
    EXPECT_EQ(feature->metaMeter, nullptr);
    EXPECT_EQ(feature->mAction, nullptr);
    EXPECT_FALSE(feature->periodicEnabled);
    EXPECT_EQ(feature->periodicInterval.load(), -1);
  }
  for (const auto& [value, traced] : std::vector<std::pair<const char*, bool>>{
           {"1", true}, {"10", true}, {"0", false}, {"", false}, {" 1", false}}) {
    android::base::SetProperty("ro.vendor.perf.gorv", "true");
    android::base::SetProperty("vendor.debug.trace.gorv", value);
    auto feature = Make();
    EXPECT_TRUE(feature->mEnabled);
    EXPECT_EQ(feature->mTraceEnabled, traced) << "'" << value << "'";
  }
}

TEST_F(GorvFeatureTest, ConstructionWiresTheComponentsInOrder) {
  LogCapture logs;
  auto feature = Make();
  EXPECT_EQ(logs.Messages(),
            std::vector<std::string>{"GORV_FEATURE: GorvFeature() N: Initialized  GORV(rev. v1.00)"});
  // Newest registration first: the data manager's two after the action's.
  EXPECT_EQ(TimerNames(*feature),
            (std::vector<std::string>{"MetersTrig/200/200", "Fps/200/200", "gorv/400/400"}));
  EXPECT_EQ(feature->periodicInterval.load(), 200);
  EXPECT_TRUE(feature->periodicEnabled);
  const DataElem& row = feature->mDataManager->mDataElems[FPS];
  EXPECT_EQ(row.minInterval, 200);
  EXPECT_EQ(row.maxInterval, 400);
  EXPECT_EQ(row.queueSize, 2);
  EXPECT_TRUE(feature->mDataManager->mRegistered);
}

TEST_F(GorvFeatureTest, AFailedAllocationLeavesAPartialInertFeature) {
  struct Case {
    int failAt;
    bool meter, counter, data, action;
    std::vector<std::string> logs;
  };
  const Case cases[] = {
      {1, false, false, false, false, {"GORV_FEATURE: GorvFeature() N: MetaMeter is not available\n"}},
      {2, true, false, false, false, {}},
      {3, true, true, false, false, {}},
      {4, true, true, true, false, {}},
  };
  for (const Case& c : cases) {
    LogCapture logs;
    ArmNothrowFailure(c.failAt);
    auto feature = Make();
    ArmNothrowFailure(0);
    EXPECT_EQ(feature->metaMeter != nullptr, c.meter) << c.failAt;
    EXPECT_EQ(feature->mIntervalsCounter != nullptr, c.counter) << c.failAt;
    EXPECT_EQ(feature->mDataManager != nullptr, c.data) << c.failAt;
    EXPECT_EQ(feature->mAction != nullptr, c.action) << c.failAt;
    EXPECT_FALSE(feature->periodicEnabled);
    EXPECT_EQ(logs.Messages(), c.logs) << c.failAt;

    // Such a feature refuses periodic work and starts no session.
    logs.Clear();
    AsyncTriggerPayload start;
    start.triggerId = GorvFeature::kTriggerStart;
    start.component = "com.example.game/.Main";
    feature->runAsync(start);
    feature->runAsyncPeriodic(std::atomic<bool>{true});
    EXPECT_FALSE(feature->mGameActive);
    EXPECT_EQ(logs.Messages(), std::vector<std::string>{
                                   "GORV_FEATURE: runAsyncPeriodic() N: Improper Initialization"});
  }
}

TEST_F(GorvFeatureTest, AThrowingTaskSkipsTheRestOfTheRoundResetsAndLogs) {
  auto feature = Make();
  feature->mGameActive = true;
  feature->mAction->applyAction();
  std::vector<std::string> ran;
  std::vector<TimeKeeper>& timers = feature->mIntervalsCounter->mTimeKeepers;
  timers[0].mTask = [&ran](void*) { ran.emplace_back("first"); };
  timers[1].mTask = [](void*) { throw std::runtime_error("boom"); };
  timers[2] = TimeKeeper(200, 200, [&ran](void*) { ran.emplace_back("third"); }, timers[2].mName, {});

  LogCapture logs;
  HostEnv::Get().AdvanceClock(std::chrono::milliseconds(400));
  feature->runAsyncPeriodic(std::atomic<bool>{true});
  EXPECT_EQ(ran, std::vector<std::string>{"first"});
  EXPECT_EQ(logs.Messages(), std::vector<std::string>{
                                 "GORV_FEATURE: runAsyncPeriodic() N: runAsyncPeriodic- exception boom\n"});
  // The reset released the lock; the session goes on.
  EXPECT_EQ(feature->mAction->mPerfHandle, -1);
  EXPECT_TRUE(HostEnv::Get().HeldPerfLocks().empty());
  EXPECT_TRUE(feature->mGameActive);

  timers[1].mTask = [](void*) { throw 42; };
  timers[1].mElapsed = 0;
  logs.Clear();
  HostEnv::Get().AdvanceClock(std::chrono::milliseconds(200));
  feature->runAsyncPeriodic(std::atomic<bool>{true});
  EXPECT_EQ(logs.Messages(),
            std::vector<std::string>{
                "GORV_FEATURE: runAsyncPeriodic() N: runAsyncPeriodic -  execution exception\n "});

  // An empty task raises bad_function_call like any standard exception.
  timers[1].mTask = nullptr;
  logs.Clear();
  HostEnv::Get().AdvanceClock(std::chrono::milliseconds(200));
  feature->runAsyncPeriodic(std::atomic<bool>{true});
  EXPECT_EQ(logs.Messages(),
            std::vector<std::string>{
                "GORV_FEATURE: runAsyncPeriodic() N: runAsyncPeriodic- exception bad_function_call\n"});
}

TEST_F(GorvFeatureTest, ResetParamsLeavesTheTimersRunning) {
  auto feature = Make();
  feature->mGameActive = true;
  HostEnv::Get().AdvanceClock(std::chrono::milliseconds(200));
  feature->runAsyncPeriodic(std::atomic<bool>{true});
  std::vector<int32_t> before;
  for (const TimeKeeper& keeper : feature->mIntervalsCounter->mTimeKeepers) {
    before.push_back(keeper.mElapsed * 10 + keeper.mArmed);
  }
  feature->resetParams();
  std::vector<int32_t> after;
  for (const TimeKeeper& keeper : feature->mIntervalsCounter->mTimeKeepers) {
    after.push_back(keeper.mElapsed * 10 + keeper.mArmed);
  }
  EXPECT_EQ(before, after);
  EXPECT_EQ(after, (std::vector<int32_t>{1, 1, 2000}));  // fired, fired, 200 ms towards 400
}

TEST_F(GorvFeatureTest, NodeWriterWritesDecimalTextOrReportsTheOpenFailure) {
  auto feature = Make();
  std::string fps = GorvFeature::kFpsNode;
  EXPECT_EQ(feature->updateSysNodes(fps, 60), 0);
  EXPECT_EQ(sysfs.Read(fps), "60");
  EXPECT_EQ(feature->updateSysNodes(fps, -1), 0);
  EXPECT_EQ(sysfs.Read(fps), "-1");

  LogCapture logs;
  std::string missing = "/sys/kernel/no_such_module/parameters/fps";
  EXPECT_EQ(feature->updateSysNodes(missing, 60), -1);
  EXPECT_EQ(logs.Messages(),
            std::vector<std::string>{"GORV_FEATURE: updateSysNodes() N: Unable to open "
                                     "/sys/kernel/no_such_module/parameters/fps file"});
}

}  // namespace
