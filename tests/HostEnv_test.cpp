// The host platform binding: what the feature's tests rely on when they read
// handles, failure values, node contents, property values and event times.
// Trace events are checked where the feature emits them.
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
using gorv::HostEvent;
using std::chrono::milliseconds;

constexpr const char* kFpsNode = "/sys/kernel/sched_penalty/parameters/fps";

class HostEnvTest : public ::testing::Test {
 protected:
  void SetUp() override { env().Reset(); }
  void TearDown() override { env().Reset(); }
  static HostEnv& env() { return HostEnv::Get(); }
  static int Acquire() {
    int request[] = {0x44800000, 1};
    return env().PerfLockAcqRel(0, 0, request, 2, 0);
  }
};

TEST_F(HostEnvTest, PerfLockHandlesFailuresReleasesAndConcurrentAcquisitions) {
  EXPECT_EQ(Acquire(), 1);
  EXPECT_EQ(Acquire(), 2);
  env().SetPerfLockFailure(true, -22);
  EXPECT_EQ(Acquire(), -22);
  env().SetPerfLockFailure(false);
  EXPECT_EQ(Acquire(), 3);  // a failure uses up no handle
  EXPECT_EQ(env().PerfLockRel(2), 0);
  EXPECT_EQ(env().PerfLockRel(2), -1);    // released twice
  EXPECT_EQ(env().PerfLockRel(-22), -1);  // never held
  EXPECT_EQ(env().HeldPerfLocks(), (std::vector<int32_t>{1, 3}));
  // Every call is recorded with its arguments, failed ones included.
  std::vector<std::string> calls;
  for (const HostEvent& call : env().PerfLockCalls()) {
    bool acquire = call.kind == HostEvent::Kind::PerfLockAcquire;
    calls.push_back((acquire ? "acq " : "rel ") + std::to_string(call.handle) + " " +
                    std::to_string(call.resources.size()));
  }
  EXPECT_EQ(calls, (std::vector<std::string>{"acq 1 2", "acq 2 2", "acq -22 2", "acq 3 2",
                                             "rel 2 0", "rel 2 0", "rel -22 0"}));

  // Reset starts the handles over and forgets what was held; concurrent
  // acquisitions get distinct handles.
  env().Reset();
  EXPECT_TRUE(env().HeldPerfLocks().empty());
  constexpr int kThreads = 4;
  constexpr int kEach = 500;
  std::vector<std::vector<int>> got(kThreads);
  std::vector<std::thread> threads;
  threads.reserve(kThreads);
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&got, t] {
      for (int i = 0; i < kEach; ++i) got[t].push_back(Acquire());
    });
  }
  for (std::thread& thread : threads) thread.join();
  std::set<int> handles;
  for (const auto& list : got) handles.insert(list.begin(), list.end());
  EXPECT_EQ(handles.size(), static_cast<size_t>(kThreads * kEach));
  EXPECT_EQ(*handles.begin(), 1);
  EXPECT_EQ(*handles.rbegin(), kThreads * kEach);
}

TEST_F(HostEnvTest, PropertiesReadLikePropertyGetAndPerfGetProp) {
  char value[HostEnv::kPropValueMax];
  ASSERT_TRUE(android::base::SetProperty("vendor.test.gorv.flag", "true"));
  EXPECT_EQ(env().PropertyGet("vendor.test.gorv.flag", value, "false"), 4);
  EXPECT_STREQ(value, "true");
  EXPECT_EQ(env().PerfGetProp("vendor.test.gorv.flag", "false"), "true");

  // Unset: the default, or nothing at all without one.
  EXPECT_EQ(env().PropertyGet("vendor.test.gorv.unset", value, "dflt"), 4);
  EXPECT_STREQ(value, "dflt");
  EXPECT_EQ(env().PropertyGet("vendor.test.gorv.unset", value, nullptr), 0);
  EXPECT_STREQ(value, "");
  EXPECT_EQ(env().PerfGetProp("vendor.test.gorv.unset", "dflt"), "dflt");
  EXPECT_EQ(env().PerfGetProp("vendor.test.gorv.unset", nullptr), "");

  // A value longer than the buffer is cut at 91 characters and terminated.
  const std::string longText(120, 'x');
  EXPECT_EQ(env().PropertyGet("vendor.test.gorv.unset", value, longText.c_str()), 91);
  EXPECT_EQ(std::string(value), std::string(91, 'x'));
}

TEST_F(HostEnvTest, NodesAreWrittenBeneathTheRootAndReportedUnderTheirDevicePath) {
  TempSysfsRoot sysfs;
  EXPECT_EQ(env().SysfsRoot(), sysfs.path());
  EXPECT_EQ(env().WriteNode(kFpsNode, "120", 3), gorv::NodeFile::Outcome::kWritten);
  EXPECT_EQ(env().WriteNode(kFpsNode, "60", 2), gorv::NodeFile::Outcome::kWritten);
  EXPECT_EQ(sysfs.Read(kFpsNode), "60");  // truncated, not appended
  ASSERT_EQ(env().NodeWrites().size(), 2u);
  EXPECT_EQ(env().NodeWrites()[1].name, kFpsNode);
  EXPECT_EQ(env().NodeWrites()[1].text, "60");

  // A node whose directory is missing cannot be opened, and nothing is
  // reported.
  sysfs.RemoveNodeDirectory();
  EXPECT_EQ(env().WriteNode(kFpsNode, "60", 2), gorv::NodeFile::Outcome::kUnopened);
  EXPECT_EQ(env().NodeWrites().size(), 2u);

  // Without a root the path is used as given.
  env().SetSysfsRoot("");
  std::string direct = sysfs.path() + "/direct";
  env().WriteNode(direct, "1", 1);
  EXPECT_EQ(sysfs.Read("/direct"), "1");
  EXPECT_EQ(env().NodeWrites().back().name, direct);

  // Reset takes the root from the environment. The test runs alone on its
  // thread; nothing reads the environment meanwhile.
  // NOLINTNEXTLINE(concurrency-mt-unsafe)
  ASSERT_EQ(setenv("GORV_SYSFS_ROOT", "/tmp/gorv-root", 1), 0);
  env().Reset();
  EXPECT_EQ(env().SysfsRoot(), "/tmp/gorv-root");
  // NOLINTNEXTLINE(concurrency-mt-unsafe)
  ASSERT_EQ(unsetenv("GORV_SYSFS_ROOT"), 0);
  env().Reset();
  EXPECT_EQ(env().SysfsRoot(), "");
}

TEST_F(HostEnvTest, ListenersSeeEveryEffectInOrderWithItsVirtualTime) {
  env().UseVirtualClock(milliseconds(1000));
  std::vector<std::string> seen;
  auto listener = [&seen](const char* who) {
    return [&seen, who](const HostEvent& event) {
      seen.push_back(who + event.name + "@" + std::to_string(event.timeNs / 1000000));
    };
  };
  int first = env().AddListener(listener("1 "));
  env().AddListener(listener("2 "));
  env().TraceBegin("a");
  env().AdvanceClock(milliseconds(200));
  EXPECT_EQ(env().NowMonotonic().time_since_epoch(), milliseconds(1200));
  env().TraceInt("b", 1);
  env().RemoveListener(first);
  env().SetClock(milliseconds(5000));
  env().TraceBegin("c");
  EXPECT_EQ(seen,
            (std::vector<std::string>{"1 a@1000", "2 a@1000", "1 b@1200", "2 b@1200", "2 c@5000"}));

  // Unrecorded effects still reach the listeners.
  env().ClearEvents();
  env().SetRecordEvents(false);
  env().TraceBegin("d");
  EXPECT_TRUE(env().Events().empty());
  EXPECT_EQ(seen.back(), "2 d@5000");

  // Back on the real clock, time moves by itself.
  env().UseRealClock();
  EXPECT_GT(env().NowMonotonic().time_since_epoch(), milliseconds(0));
}

}  // namespace
