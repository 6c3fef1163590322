// Running out of memory at every point of a game session.
//
// Every allocation: the Nth heap allocation fails (std::bad_alloc, or null
// for the non-throwing form), for every N up to the number the session
// makes. The plug-in must neither crash nor let an exception reach the
// framework, must leak nothing (checked by LeakSanitizer in the asan build)
// and must hold no lock once the feature is gone.
//
// Every non-throwing allocation: the Nth `new (std::nothrow)` returns null,
// for every N up to the number a whole session makes (the factory's feature,
// then the meta meter, the intervals counter, the data manager and the
// action; nothing after construction allocates that way). The feature is
// created through the class registry, driven by the stepped runner through a
// start, an fps hint, a vendor disable and enable, a periodic call and a
// stop, then destroyed. Each N leaves exactly the feature that construction
// describes: no feature, an inert one, or one without an action that starts
// sessions but refuses periodic work.
#include <android-base/properties.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "action/GorvAction.h"
#include "feature/GorvFeature.h"
#include "host/framework/MeterService.h"
#include "host/framework/PluginLoader.h"
#include "host/framework/SteppedRunner.h"
#include "host/platform/HostEnv.h"
#include "meter/GorvMetaMeter.h"
#include "tests/support/AllocationFault.h"
#include "tests/support/GameWorld.h"
#include "tests/support/LogCapture.h"

namespace {

// Starting meters only counts: the framework's own allocations are not
// under test.
class CountingMeterService : public MeterService {
 public:
  void Start(MetaMeter&) override { ++starts; }
  long starts = 0;
};

// Runs `call` into the plug-in with allocation failures armed; everything
// the test itself allocates happens outside.
template <typename Call>
void InPlugin(Call call) {
  CountAllocations(true);
  call();
  CountAllocations(false);
}

// A whole session: construction, start, rounds with readings, a hint, a
// vendor disable and enable, stop, destruction. Returns the number of
// allocations the plug-in made.
long Session(long failAt) {
  const FeatureInfo info = GameWorld::Info();
  const std::atomic<bool> running{true};
  FpsMeter reading("Fps", 60.0f);
  ArmAllocationFailure(failAt, Allocations::kAll);
  CountAllocations(false);
  std::unique_ptr<GorvFeature> feature;
  InPlugin([&] {
    try {
      feature = std::make_unique<GorvFeature>(info);
    } catch (const std::bad_alloc&) {
      // What the framework's factory caller sees; nothing was built.
    }
  });
  if (!feature) return CountedAllocations();
  auto round = [&] {
    gorv::HostEnv::Get().AdvanceClock(std::chrono::milliseconds(200));
    InPlugin([&] { feature->runAsyncPeriodic(running); });
    if (feature->metaMeter == nullptr) return;  // no meters without a meta meter
    std::vector<Meter*> meters = {&reading};
    InPlugin([&] { feature->metaMeter->writeToDataBase(std::move(meters)); });
  };
  auto trigger = [&](int id, int value = 0) {
    AsyncTriggerPayload payload = GameWorld::Trigger(id, GameWorld::kGameComponent, value);
    InPlugin([&] { feature->runAsync(std::move(payload)); });
  };
  trigger(GorvFeature::kTriggerStart);
  for (int i = 0; i < 10; ++i) round();
  trigger(GorvFeature::kTriggerFpsHint, 45);
  round();
  trigger(GorvFeature::kTriggerVendorHintDisable, 1);
  round();
  trigger(GorvFeature::kTriggerVendorHintDisable, 0);
  for (int i = 0; i < 3; ++i) round();
  trigger(GorvFeature::kTriggerStop);
  round();
  InPlugin([&] { feature.reset(); });
  return CountedAllocations();
}

TEST(AllocationFailureTest, EveryAllocationOfASessionMayFail) {
  GameWorld world;
  gorv::HostEnv::Get().SetRecordEvents(false);
  android::base::SetProperty("vendor.debug.trace.gorv", "1");
  LogCapture logs;

  CountingMeterService meters;
  MeterService::Install(&meters);
  gorv::HostEnv::Get().UseVirtualClock();
  long allocations = Session(0);
  ASSERT_GT(allocations, 20);
  const char* only = std::getenv("GORV_FAIL_AT");  // to look at one point by hand
  for (long n = only ? std::atol(only) : 1; n <= allocations; ++n) {
    ASSERT_NO_THROW(Session(n)) << "failing allocation " << n;
    ASSERT_TRUE(gorv::HostEnv::Get().HeldPerfLocks().empty()) << "failing allocation " << n;
  }
  MeterService::Install(nullptr);
  std::printf("allocation points tried: %ld\n", allocations);
}

constexpr const char* kImproper = "GORV_FEATURE: runAsyncPeriodic() N: Improper Initialization";

struct Outcome {
  bool created = false;
  bool periodicEnabled = false;
  Lines effects;
  Lines logs;
  std::vector<int32_t> locksHeld;  // after the feature is destroyed
  long nothrowAllocations = 0;
};

// One session, with the Nth non-throwing allocation failing (0: none).
Outcome NothrowSession(long failAt) {
  GameWorld world;
  SteppedRunner runner;
  LogCapture logs;
  std::string error;
  Outcome outcome;

  ArmAllocationFailure(failAt);
  Feature* feature = PluginLoader::Create("GORV", GameWorld::Info(), &error);
  runner.Adopt(feature);
  outcome.created = feature != nullptr;
  outcome.periodicEnabled = feature != nullptr && feature->periodicEnabled;
  auto at = [&runner](int64_t ms, int id, int value = 0) {
    runner.ScheduleTrigger(ms, GameWorld::Trigger(id, GameWorld::kGameComponent, value));
  };
  at(1000, GorvFeature::kTriggerStart);
  at(1100, GorvFeature::kTriggerFpsHint, 45);
  at(1300, GorvFeature::kTriggerVendorHintDisable, 1);
  at(1500, GorvFeature::kTriggerVendorHintDisable, 0);
  // The framework's periodic thread calls whether or not an interval is set.
  runner.ScheduleAction(2000, [feature] {
    if (feature != nullptr) feature->runAsyncPeriodic(std::atomic<bool>{true});
  });
  at(3000, GorvFeature::kTriggerStop);
  runner.RunUntil(3500);
  runner.DestroyFeature();

  outcome.nothrowAllocations = CountedAllocations();
  CountAllocations(false);
  outcome.effects = GameWorld::Effects();
  outcome.logs = logs.Messages();
  outcome.locksHeld = gorv::HostEnv::Get().HeldPerfLocks();
  return outcome;
}

// An action is built inside the feature's constructor, which must not fail
// because of it: with every allocation failing, building one still
// succeeds (the counter's registration handles its own failures).
TEST(AllocationFailureTest, BuildingAnActionCannotFail) {
  GameWorld world;
  const FeatureInfo info = GameWorld::Info();
  GorvFeature feature(info);
  ArmAllocationFailure(-1, Allocations::kAll);
  InPlugin([&] { EXPECT_NO_THROW(GorvAction action(feature)); });
  ArmAllocationFailure(0);
}

TEST(PartialFeatureTest, EveryNonThrowingAllocationOfASessionMayFail) {
  const Outcome whole = NothrowSession(0);
  ASSERT_TRUE(whole.created);
  EXPECT_TRUE(whole.periodicEnabled);
  // All of them happen while the feature is created.
  ASSERT_EQ(whole.nothrowAllocations, 5);
  // The vendor hint drops the lock; once re-enabled, the next analysis round
  // takes it again.
  EXPECT_EQ(whole.effects, (Lines{"1000 target_pid=4242", "1000 acquire 1", "1100 fps=45",
                                  "1300 release 1", "1600 acquire 2", "3000 release 2"}));

  struct Expected {
    const char* failing;
    bool created;
    Lines effects;
    Lines logs;
  };
  const Expected expected[] = {
      // The factory returns null: the framework has no feature.
      {"the feature", false, {}, {}},
      // No components: every trigger is ignored, periodic work refused.
      {"the meta meter",
       true,
       {},
       {"GORV_FEATURE: GorvFeature() N: MetaMeter is not available\n", kImproper}},
      {"the intervals counter", true, {}, {kImproper}},
      {"the data manager", true, {}, {kImproper}},
      // Without an action a game session starts and stops (pid written, the
      // hint applied) but holds no lock, ignores the vendor hint and refuses
      // periodic work.
      {"the action", true, {"1000 target_pid=4242", "1100 fps=45"}, {kImproper}},
  };
  for (long n = 1; n <= whole.nothrowAllocations; ++n) {
    const Expected& want = expected[n - 1];
    SCOPED_TRACE(std::string("failing allocation ") + std::to_string(n) + ": " + want.failing);
    const Outcome got = NothrowSession(n);
    EXPECT_EQ(got.created, want.created);
    EXPECT_FALSE(got.periodicEnabled);
    EXPECT_EQ(got.effects, want.effects);
    EXPECT_EQ(got.logs, want.logs);
    EXPECT_TRUE(got.locksHeld.empty());
  }
}

}  // namespace
