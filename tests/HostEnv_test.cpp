// The host platform binding: what the feature's tests rely on when they read
// handles, failure values, node contents, property values and event times.
#include "host/platform/HostEnv.h"

#include <android-base/properties.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
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
};

// One whole write of a node, as the feature's node writer makes it.
void WriteNode(const std::string& path, const std::string& text) {
  auto node = HostEnv::Get().OpenNode(path);
  ASSERT_NE(node, nullptr) << path;
  node->Write(text);
}

std::vector<int32_t> Handles(const std::vector<HostEvent>& calls) {
  std::vector<int32_t> handles;
  handles.reserve(calls.size());
  for (const HostEvent& call : calls) handles.push_back(call.handle);
  return handles;
}

TEST_F(HostEnvTest, PerfLockHandlesFailuresAndReleases) {
  int request[] = {0x44800000, 1};
  EXPECT_EQ(env().PerfLockAcqRel(0, 0, request, 2, 0), 1);
  EXPECT_EQ(env().PerfLockAcqRel(0, 0, request, 2, 0), 2);
  env().SetPerfLockFailure(true, -22);
  EXPECT_EQ(env().PerfLockAcqRel(0, 0, request, 2, 0), -22);
  env().SetPerfLockFailure(false);
  // A failure uses up no handle.
  EXPECT_EQ(env().PerfLockAcqRel(0, 0, request, 2, 0), 3);
  EXPECT_EQ(env().HeldPerfLocks(), (std::vector<int32_t>{1, 2, 3}));

  EXPECT_EQ(env().PerfLockRel(2), 0);
  EXPECT_EQ(env().PerfLockRel(2), -1);    // released twice
  EXPECT_EQ(env().PerfLockRel(-22), -1);  // never held
  EXPECT_EQ(env().HeldPerfLocks(), (std::vector<int32_t>{1, 3}));

  // Every call is recorded with its arguments, failed ones included.
  std::vector<HostEvent> calls = env().PerfLockCalls();
  EXPECT_EQ(Handles(calls), (std::vector<int32_t>{1, 2, -22, 3, 2, 2, -22}));
  ASSERT_EQ(calls.size(), 7u);
  EXPECT_EQ(calls[2].kind, HostEvent::Kind::PerfLockAcquire);
  EXPECT_EQ(calls[2].resources, (std::vector<int32_t>{0x44800000, 1}));
  EXPECT_EQ(calls[4].kind, HostEvent::Kind::PerfLockRelease);

  // Reset starts the handles over and forgets what was held.
  env().Reset();
  EXPECT_TRUE(env().HeldPerfLocks().empty());
  EXPECT_EQ(env().PerfLockAcqRel(0, 0, nullptr, 0, 0), 1);
  EXPECT_TRUE(env().PerfLockCalls().front().resources.empty());
}

TEST_F(HostEnvTest, ConcurrentAcquisitionsGetDistinctHandles) {
  constexpr int kThreads = 4;
  constexpr int kEach = 500;
  std::vector<std::vector<int>> got(kThreads);
  std::vector<std::thread> threads;
  threads.reserve(kThreads);
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&got, t] {
      int request[] = {0x44800000, 1};
      for (int i = 0; i < kEach; ++i) got[t].push_back(env().PerfLockAcqRel(0, 0, request, 2, 0));
    });
  }
  for (std::thread& thread : threads) thread.join();
  std::set<int> handles;
  for (const auto& list : got) handles.insert(list.begin(), list.end());
  EXPECT_EQ(handles.size(), static_cast<size_t>(kThreads * kEach));
  EXPECT_EQ(*handles.begin(), 1);
  EXPECT_EQ(*handles.rbegin(), kThreads * kEach);
  EXPECT_EQ(env().PerfLockCalls().size(), static_cast<size_t>(kThreads * kEach));
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
  WriteNode(kFpsNode, "120");
  {
    auto node = env().OpenNode(kFpsNode);
    ASSERT_NE(node, nullptr);
    node->Write("6");
    node->Write("0");
    // Nothing is reported before the node is closed.
    EXPECT_EQ(env().NodeWrites().size(), 1u);
  }
  // Truncated, not appended.
  EXPECT_EQ(sysfs.Read(kFpsNode), "60");
  std::vector<HostEvent> writes = env().NodeWrites();
  ASSERT_EQ(writes.size(), 2u);
  EXPECT_EQ(writes[1].name, kFpsNode);
  EXPECT_EQ(writes[1].text, "60");

  // A node whose directory is missing cannot be opened, and nothing is
  // reported.
  sysfs.RemoveNodeDirectory();
  EXPECT_EQ(env().OpenNode(kFpsNode), nullptr);
  EXPECT_EQ(env().NodeWrites().size(), 2u);

  // Without a root the path is used as given.
  env().SetSysfsRoot("");
  std::string direct = sysfs.path() + "/direct";
  WriteNode(direct, "1");
  EXPECT_EQ(sysfs.Read("/direct"), "1");
  EXPECT_EQ(env().NodeWrites().back().name, direct);
}

TEST_F(HostEnvTest, TheRootComesFromTheEnvironmentAtReset) {
  // The test runs alone on its thread; nothing reads the environment meanwhile.
  // NOLINTNEXTLINE(concurrency-mt-unsafe)
  ASSERT_EQ(setenv("GORV_SYSFS_ROOT", "/tmp/gorv-root", 1), 0);
  env().Reset();
  EXPECT_EQ(env().SysfsRoot(), "/tmp/gorv-root");
  // NOLINTNEXTLINE(concurrency-mt-unsafe)
  ASSERT_EQ(unsetenv("GORV_SYSFS_ROOT"), 0);
  env().Reset();
  EXPECT_EQ(env().SysfsRoot(), "");
}

TEST_F(HostEnvTest, TraceAlwaysTagAndRecords) {
  EXPECT_EQ(env().TraceEnabledTags(), HostEnv::kTraceTagAlways);
  env().SetTraceAlwaysTagEnabled(false);
  EXPECT_EQ(env().TraceEnabledTags(), 0u);
  env().TraceInt("Game FPS", 60);
  env().TraceBegin("Meters finished, fps = 0.000000 \n");
  env().TraceEnd();
  std::vector<HostEvent> trace = env().TraceEvents();
  ASSERT_EQ(trace.size(), 3u);
  EXPECT_EQ(trace[0].kind, HostEvent::Kind::TraceCounter);
  EXPECT_EQ(trace[0].name, "Game FPS");
  EXPECT_EQ(trace[0].value, 60);
  EXPECT_EQ(trace[1].kind, HostEvent::Kind::TraceBegin);
  EXPECT_EQ(trace[1].name, "Meters finished, fps = 0.000000 \n");
  EXPECT_EQ(trace[2].kind, HostEvent::Kind::TraceEnd);
}

TEST_F(HostEnvTest, ListenersSeeEveryEffectInOrderWithItsVirtualTime) {
  env().UseVirtualClock(milliseconds(1000));
  std::vector<std::string> seen;
  int first = env().AddListener([&seen](const HostEvent& event) {
    seen.push_back("first " + event.name + "@" + std::to_string(event.timeNs / 1000000));
  });
  env().AddListener([&seen](const HostEvent& event) {
    seen.push_back("second " + event.name + "@" + std::to_string(event.timeNs / 1000000));
  });
  env().TraceBegin("a");
  env().AdvanceClock(milliseconds(200));
  EXPECT_EQ(env().NowMonotonic().time_since_epoch(), milliseconds(1200));
  env().TraceInt("b", 1);
  env().RemoveListener(first);
  env().SetClock(milliseconds(5000));
  env().TraceBegin("c");
  EXPECT_EQ(seen, (std::vector<std::string>{"first a@1000", "second a@1000", "first b@1200",
                                            "second b@1200", "second c@5000"}));

  // Unrecorded effects still reach the listeners.
  env().ClearEvents();
  env().SetRecordEvents(false);
  env().TraceBegin("d");
  EXPECT_TRUE(env().Events().empty());
  EXPECT_EQ(seen.back(), "second d@5000");

  // Back on the real clock, time moves by itself.
  env().UseRealClock();
  EXPECT_GT(env().NowMonotonic().time_since_epoch(), milliseconds(0));
}

}  // namespace
