// How libgorv.so makes itself known to the framework when it is loaded, and
// how the framework creates the feature through the registered factory.
#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <string>

#include "framework/Feature.h"
#include "host/framework/PluginLoader.h"
#include "tests/support/AllocationFault.h"
#include "tests/support/GameWorld.h"
#include "tests/support/LogCapture.h"
#include "tests/support/TempFolder.h"

// The tests load a second copy of libgorv.so on purpose; its globals are
// the same definitions at other addresses, which is what AddressSanitizer's
// one-definition check would report.
// NOLINTNEXTLINE(bugprone-reserved-identifier): the name AddressSanitizer looks up
extern "C" const char* __asan_default_options() { return "detect_odr_violation=0"; }

namespace {

// The registry's factory signature takes the record by value.
// NOLINTNEXTLINE(performance-unnecessary-value-param)
Feature* OtherFactory(FeatureInfo) { return nullptr; }

// A second copy of the library under another path: the loader maps it as a
// library of its own, so its registration runs again, as when two plug-ins
// with the same key are installed.
std::string CopyOfPlugin(const std::string& name) {
  static const TempFolder folder;
  std::string copy = folder.path() + "/" + name;
  std::filesystem::copy_file(GORV_PLUGIN_PATH, copy);
  return copy;
}

FeatureRegistry::Factory Registered(const std::string& key) {
  std::lock_guard<std::mutex> lock(FeatureRegistry::mMutex);
  if (FeatureRegistry::classList == nullptr) return nullptr;
  auto found = FeatureRegistry::classList->find(key);
  return found == FeatureRegistry::classList->end() ? nullptr : found->second;
}

TEST(RegistrationTest, LoadingRegistersGorvBesideOtherPluginsAndTheFirstFactoryWins) {
  // Another plug-in loaded first and created the map.
  FeatureRegistry::Map* map = nullptr;
  {
    std::lock_guard<std::mutex> lock(FeatureRegistry::mMutex);
    ASSERT_EQ(FeatureRegistry::classList, nullptr);
    map = new FeatureRegistry::Map();
    map->emplace("OTHER", &OtherFactory);
    FeatureRegistry::classList = map;
  }
  std::string error;
  ASSERT_TRUE(PluginLoader::Load(GORV_PLUGIN_PATH, &error)) << error;
  EXPECT_EQ(FeatureRegistry::classList, map);
  EXPECT_EQ(Registered("OTHER"), &OtherFactory);
  FeatureRegistry::Factory first = Registered("GORV");
  ASSERT_NE(first, nullptr);

  // Loading the same library again runs nothing new; a second copy
  // registers again and is turned away. The copy's factory resolves to the
  // first copy's function, so the entry is marked beforehand to tell them
  // apart.
  ASSERT_TRUE(PluginLoader::Load(GORV_PLUGIN_PATH, &error)) << error;
  (*map)["GORV"] = &OtherFactory;
  ASSERT_TRUE(PluginLoader::Load(CopyOfPlugin("libgorv-copy.so"), &error)) << error;
  EXPECT_EQ(Registered("GORV"), &OtherFactory);
  EXPECT_EQ(map->size(), 2u);
  (*map)["GORV"] = first;

  // The framework creates the feature through the factory.
  GameWorld world;
  std::unique_ptr<Feature> feature(world.CreateFeature());
  ASSERT_NE(feature, nullptr);
  EXPECT_EQ(feature->name, "GORV");
}

TEST(RegistrationTest, AMapThatCannotBeMadeLeavesGorvUnregistered) {
  FeatureRegistry::Map* saved = nullptr;
  {
    std::lock_guard<std::mutex> lock(FeatureRegistry::mMutex);
    std::swap(saved, FeatureRegistry::classList);
  }
  LogCapture logs;
  std::string error;
  ArmAllocationFailure(-1);
  bool loaded = PluginLoader::Load(CopyOfPlugin("libgorv-nomap.so"), &error);
  CountAllocations(false);
  EXPECT_TRUE(loaded) << error;
  EXPECT_EQ(FeatureRegistry::classList, nullptr);
  EXPECT_EQ(
      logs.Messages(),
      Lines{"FeatureRegistry: Registry() N: getMap() returned nullptr, Class GORV not registered"});
  std::lock_guard<std::mutex> lock(FeatureRegistry::mMutex);
  FeatureRegistry::classList = saved;
}

}  // namespace
