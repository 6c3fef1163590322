// A fixture for tests that drive a GorvFeature and its components directly
// on the test thread: a fresh host platform on the virtual clock, a
// temporary sysfs root, the feature's properties and a FeatureInfo with one
// "Fps" meter. Header-only: only unit tests, which link libgorv, use it.
#pragma once

#include <android-base/properties.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "feature/GorvFeature.h"
#include "host/platform/HostEnv.h"
#include "meter/GorvMetaMeter.h"
#include "tests/support/GameWorld.h"
#include "tests/support/TempSysfsRoot.h"

class FeatureTest : public ::testing::Test {
 protected:
  void SetUp() override { Make(); }

  // Builds the feature anew with these property values and `info`, then
  // forgets the platform effects of the construction.
  void Make(const char* enabled = "true", const char* trace = "") {
    feature.reset();
    env().Reset();
    env().UseVirtualClock();
    env().SetSysfsRoot(sysfs.path());
    android::base::SetProperty("ro.vendor.perf.gorv", enabled);
    android::base::SetProperty("vendor.debug.trace.gorv", trace);
    feature = std::make_unique<GorvFeature>(info);
    env().ClearEvents();
  }

  static gorv::HostEnv& env() { return gorv::HostEnv::Get(); }
  GorvMetaMeter& meter() { return *static_cast<GorvMetaMeter*>(feature->metaMeter); }

  TempSysfsRoot sysfs;
  FeatureInfo info = GameWorld::Info();
  std::unique_ptr<GorvFeature> feature;
};
