// What of the host platform binding the feature's tests take for granted:
// lock handles, property values and node contents.
#include "host/platform/HostEnv.h"

#include <android-base/properties.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/TempSysfsRoot.h"

namespace {

using gorv::HostEnv;

constexpr const char* kFpsNode = "/sys/kernel/sched_penalty/parameters/fps";

HostEnv& env() { return HostEnv::Get(); }

int Acquire() {
  int request[] = {0x44800000, 1};
  return env().PerfLockAcqRel(0, 0, request, 2, 0);
}

TEST(HostEnvTest, PerfLockHandlesAreDistinctAndAFailureUsesNone) {
  env().Reset();
  EXPECT_EQ(Acquire(), 1);
  env().SetPerfLockFailure(true, -22);
  EXPECT_EQ(Acquire(), -22);
  env().SetPerfLockFailure(false);
  EXPECT_EQ(Acquire(), 2);
  EXPECT_EQ(env().PerfLockRel(1), 0);
  EXPECT_EQ(env().PerfLockRel(1), -1);    // released twice
  EXPECT_EQ(env().PerfLockRel(-22), -1);  // never held
  EXPECT_EQ(env().HeldPerfLocks(), (std::vector<int32_t>{2}));

  env().Reset();
  std::vector<std::vector<int>> got(4);
  std::vector<std::thread> threads;
  threads.reserve(got.size());
  for (auto& list : got) {
    threads.emplace_back([&list] {
      for (int i = 0; i < 500; ++i) list.push_back(Acquire());
    });
  }
  for (std::thread& thread : threads) thread.join();
  std::set<int> handles;
  for (const auto& list : got) handles.insert(list.begin(), list.end());
  EXPECT_EQ(handles.size(), 2000u);
  EXPECT_EQ(*handles.rbegin(), 2000);
}

// Properties read like property_get and perf_get_prop; nodes are truncated;
// events are recorded only when asked.
TEST(HostEnvTest, PropertiesNodesAndEvents) {
  ASSERT_TRUE(android::base::SetProperty("vendor.test.gorv.flag", "true"));
  const std::string longText(120, 'x');
  struct Case {
    const char* key;
    const char* fallback;
    std::string value;
  };
  for (const Case& c :
       {Case{"vendor.test.gorv.flag", "false", "true"},
        Case{"vendor.test.gorv.unset", "dflt", "dflt"}, Case{"vendor.test.gorv.unset", nullptr, ""},
        Case{"vendor.test.gorv.unset", longText.c_str(), std::string(91, 'x')}}) {
    char value[HostEnv::kPropValueMax];
    EXPECT_EQ(env().PropertyGet(c.key, value, c.fallback), static_cast<int>(c.value.size()));
    EXPECT_EQ(value, c.value);
    if (c.value.size() < 91) {
      EXPECT_EQ(env().PerfGetProp(c.key, c.fallback), c.value);
    }
  }

  env().Reset();
  TempSysfsRoot sysfs;
  EXPECT_EQ(env().WriteNode(kFpsNode, "120", 3), gorv::NodeFile::Outcome::kWritten);
  EXPECT_EQ(env().WriteNode(kFpsNode, "60", 2), gorv::NodeFile::Outcome::kWritten);
  EXPECT_EQ(sysfs.Read(kFpsNode), "60");
  // A missing directory: GameSessionTest's failures see the write refused
  // and left out of the effects.
  env().SetRecordEvents(false);
  env().WriteNode(kFpsNode, "1", 1);
  Acquire();
  EXPECT_EQ(env().Events().size(), 2u);
  // Reset takes the root from the environment (the test runs alone on its
  // thread).
  // NOLINTNEXTLINE(concurrency-mt-unsafe)
  ASSERT_EQ(setenv("GORV_SYSFS_ROOT", "/tmp/gorv-root", 1), 0);
  env().Reset();
  EXPECT_EQ(env().SysfsRoot(), "/tmp/gorv-root");
  // NOLINTNEXTLINE(concurrency-mt-unsafe)
  ASSERT_EQ(unsetenv("GORV_SYSFS_ROOT"), 0);
  env().Reset();
}

}  // namespace
