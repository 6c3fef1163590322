// The request a run's process is handed: every field of a scenario comes
// back as it was, captures shared by several lines stay one timeline, and
// damaged or cut bytes are refused, never misread.
#include "sim/run/RunRequest.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>

namespace {

Scenario EveryField() {
  auto capture = std::make_shared<FrameTimeline>();
  capture->Assign("c.pftrace", "perfetto", {5'000'000'000, 5'016'000'000, 5'033'000'000},
                  "SurfaceView[g]", {5'033'000'000});
  auto other = std::make_shared<FrameTimeline>();
  other->Assign("f.txt", "frame times", {0, 25'000'000});
  Scenario scenario;
  scenario.name = "s.scn";
  scenario.properties = {{"ro.vendor.perf.gorv", "true"}, {"a", ""}};
  scenario.apps["com.example.game"] = {2, 4242};
  scenario.ignoreList = {"com.ignored"};
  scenario.meters = {"Fps", "Other"};
  scenario.meterLatencyMs = 75;
  scenario.rates = {{0, 60.5F, nullptr}, {100, 0, capture}, {200, 0, other}, {300, 0, capture}};
  scenario.triggers = {{10, 4097, "com.example.game/.Main", -7}, {20, 4221, "", 30}};
  scenario.faults = {{5, Scenario::FaultKind::PerfLockFail},
                     {6, Scenario::FaultKind::NodesMissing}};
  scenario.endMs = 9000;
  scenario.latestMs = 300;
  return scenario;
}

void ExpectSameTimeline(const FrameTimeline& got, const FrameTimeline& want) {
  EXPECT_EQ(got.name(), want.name());
  EXPECT_EQ(got.format(), want.format());
  EXPECT_EQ(got.layer(), want.layer());
  EXPECT_EQ(got.frames(), want.frames());
  EXPECT_EQ(got.janky(), want.janky());
  EXPECT_EQ(got.originNs(), want.originNs());
}

TEST(RunRequestTest, EveryFieldComesBackAndSharedCapturesStayShared) {
  Scenario sent = EveryField();
  std::string bytes = RunRequest::Encode(sent, {"/lib/libgorv.so", true, "/dev/shm/gorv-sim-x"});
  Scenario got;
  RunRequest::Settings settings;
  ASSERT_TRUE(RunRequest::Decode(bytes, &got, &settings));
  EXPECT_EQ(settings.pluginPath, "/lib/libgorv.so");
  EXPECT_TRUE(settings.realtime);
  EXPECT_EQ(settings.sysfsPath, "/dev/shm/gorv-sim-x");
  EXPECT_EQ(got.name, sent.name);
  EXPECT_EQ(got.properties, sent.properties);
  ASSERT_EQ(got.apps.size(), 1u);
  EXPECT_EQ(got.apps["com.example.game"].appClass, 2);
  EXPECT_EQ(got.apps["com.example.game"].pid, 4242);
  EXPECT_EQ(got.ignoreList, sent.ignoreList);
  EXPECT_EQ(got.meters, sent.meters);
  EXPECT_EQ(got.meterLatencyMs, 75);
  EXPECT_EQ(got.EndMs(), 9000);
  EXPECT_EQ(got.latestMs, 300);
  ASSERT_EQ(got.rates.size(), 4u);
  EXPECT_EQ(got.rates[0].fps, 60.5F);
  EXPECT_EQ(got.rates[0].timeline, nullptr);
  EXPECT_EQ(got.rates[1].atMs, 100);
  ExpectSameTimeline(*got.rates[1].timeline, *sent.rates[1].timeline);
  ExpectSameTimeline(*got.rates[2].timeline, *sent.rates[2].timeline);
  EXPECT_EQ(got.rates[3].timeline, got.rates[1].timeline);
  ASSERT_EQ(got.triggers.size(), 2u);
  EXPECT_EQ(got.triggers[0].component, "com.example.game/.Main");
  EXPECT_EQ(got.triggers[0].value, -7);
  EXPECT_EQ(got.triggers[1].id, 4221);
  ASSERT_EQ(got.faults.size(), 2u);
  EXPECT_EQ(got.faults[1].kind, Scenario::FaultKind::NodesMissing);
  EXPECT_EQ(got.faults[1].atMs, 6);
}

TEST(RunRequestTest, CutLongerOrDamagedBytesAreRefused) {
  std::string bytes = RunRequest::Encode(EveryField(), {"p.so", false, "/tmp/x"});
  for (size_t size = 0; size < bytes.size(); ++size) {
    Scenario scenario;
    RunRequest::Settings settings;
    EXPECT_FALSE(RunRequest::Decode(bytes.substr(0, size), &scenario, &settings)) << size;
  }
  Scenario scenario;
  RunRequest::Settings settings;
  EXPECT_FALSE(RunRequest::Decode(bytes + "x", &scenario, &settings));
  // Every single byte flipped: refused or read, never a crash; a flipped
  // layout name is always refused.
  for (size_t at = 0; at < bytes.size(); ++at) {
    std::string damaged = bytes;
    damaged[at] = static_cast<char>(damaged[at] ^ 0x80);
    Scenario any;
    bool read = RunRequest::Decode(damaged, &any, &settings);
    EXPECT_TRUE(!read || at >= 24) << at;
  }
}

}  // namespace
