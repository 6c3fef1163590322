// Running out of memory at every point of a game session: the Nth heap
// allocation fails (std::bad_alloc, or null for the non-throwing form), for
// every N up to the number the session makes. The plug-in must neither crash
// nor let an exception reach the framework, must leak nothing (checked by
// LeakSanitizer in the asan build) and must hold no lock once the feature is
// gone.
#include <android-base/properties.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <memory>
#include <vector>

#include "feature/GorvFeature.h"
#include "host/framework/HostLocator.h"
#include "host/framework/HostProcesses.h"
#include "host/framework/MeterService.h"
#include "host/platform/HostEnv.h"
#include "meter/GorvMetaMeter.h"
#include "tests/support/AllocationFault.h"
#include "tests/support/LogCapture.h"
#include "tests/support/TempSysfsRoot.h"

namespace {

AsyncTriggerPayload Trigger(int id, int value = 0) {
  AsyncTriggerPayload payload;
  payload.triggerId = id;
  payload.component = "com.example.game/.Main";
  payload.triggerValue = value;
  return payload;
}

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
  const FeatureInfo info{"GORV", {}, {}, {}, {}, {{"Fps", {}}}, ""};
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
  auto trigger = [&](AsyncTriggerPayload payload) {
    InPlugin([&] { feature->runAsync(std::move(payload)); });
  };
  trigger(Trigger(GorvFeature::kTriggerStart));
  for (int i = 0; i < 10; ++i) round();
  trigger(Trigger(GorvFeature::kTriggerFpsHint, 45));
  round();
  trigger(Trigger(GorvFeature::kTriggerVendorHintDisable, 1));
  round();
  trigger(Trigger(GorvFeature::kTriggerVendorHintDisable, 0));
  for (int i = 0; i < 3; ++i) round();
  trigger(Trigger(GorvFeature::kTriggerStop));
  round();
  InPlugin([&] { feature.reset(); });
  return CountedAllocations();
}

TEST(AllocationFailureTest, EveryAllocationOfASessionMayFail) {
  gorv::HostEnv::Get().Reset();
  gorv::HostEnv::Get().SetRecordEvents(false);
  TempSysfsRoot sysfs;
  android::base::SetProperty("ro.vendor.perf.gorv", "true");
  android::base::SetProperty("vendor.debug.trace.gorv", "1");
  HostLocator::Get().Clear();
  HostLocator::Get().SetClass("com.example.game", 2);
  HostProcesses::Get().UseTable({{"com.example.game", 4242}});
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
  RecordProperty("allocation_points", static_cast<int>(allocations));
  std::printf("allocation points tried: %ld\n", allocations);
}

}  // namespace
