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

TEST(RunRequestTest, EveryFieldComesBackAndSharedCapturesStayShared) {
  Scenario sent = EveryField();
  const RunRequest::Settings settings{"/lib/libgorv.so", true, "/dev/shm/gorv-sim-x"};
  std::string bytes = RunRequest::Encode(sent, settings);
  Scenario got;
  RunRequest::Settings gotSettings;
  ASSERT_TRUE(RunRequest::Decode(bytes, &got, &gotSettings));
  // Every field read into its own member: encoded again, the same bytes (the
  // values in EveryField all differ, so a swap would show).
  EXPECT_EQ(RunRequest::Encode(got, gotSettings), bytes);
  EXPECT_EQ(gotSettings.sysfsPath, settings.sysfsPath);
  EXPECT_EQ(got.meters, sent.meters);
  EXPECT_EQ(got.apps.at("com.example.game").pid, 4242);
  EXPECT_EQ(got.faults.at(1).kind, Scenario::FaultKind::NodesMissing);
  EXPECT_EQ(got.rates.at(0).timeline, nullptr);
  EXPECT_EQ(got.rates.at(3).timeline, got.rates.at(1).timeline);
  EXPECT_NE(got.rates.at(2).timeline, got.rates.at(1).timeline);
  const FrameTimeline& capture = *got.rates.at(1).timeline;
  EXPECT_EQ(capture.originNs(), 5'000'000'000);
  EXPECT_EQ(capture.frames(), sent.rates.at(1).timeline->frames());
  EXPECT_EQ(capture.janky(), sent.rates.at(1).timeline->janky());
  EXPECT_EQ(capture.layer(), "SurfaceView[g]");
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
