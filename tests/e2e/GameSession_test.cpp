// Game sessions end to end: libgorv.so loaded through the registry like the
// framework loads it, driven by the stepped runner on the virtual clock. Each
// test reads as a timeline: triggers in, node writes, lock calls and log
// lines out. Times are virtual milliseconds.
//
// How a session unfolds (steady 60 fps, meters finishing 50 ms after they
// are started):
//    1000  start trigger: pid written, lock 1 taken, meters started, first
//          periodic round due at 1200
//    1200  round: "MetersTrig" restarts the meters, "Fps" asks for a reading
//          (none yet, so 0 is queued), "gorv" averages [0] / 2 = 0: ignored
//    1250  meters finish: the requested reading, 60, is taken
//    1400  round: 60 queued -> [0, 60]
//    1600  round: queue [60, 60] averages to 60: target 60 written
//    ...   every 400 ms the average stays in the band: nothing is written
//    5000  stop trigger: lock 1 released; the nodes are left as they are
#include <android-base/properties.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "host/framework/FrameRateSource.h"
#include "host/framework/HostLocator.h"
#include "host/framework/SteppedRunner.h"
#include "tests/support/GameWorld.h"
#include "tests/support/LogCapture.h"

namespace {

constexpr int kStart = 4097;
constexpr int kStartAlt = 4099;
constexpr int kStop = 4098;
constexpr int kStopAlt = 4100;
constexpr int kFpsHint = 4221;
constexpr int kVendorHintDisable = 4222;
constexpr int kSetFps = 0;  // not a trigger: the game's frame rate becomes `value`
constexpr const char* kGame = GameWorld::kGameComponent;
constexpr const char* kInitialized = "GORV_FEATURE: GorvFeature() N: Initialized  GORV(rev. v1.00)";

struct Step {
  int64_t ms;
  int id;
  const char* component = kGame;
  int value = 0;
};

class GameSessionTest : public ::testing::Test {
 protected:
  // "com.example.other": a game without a process.
  void SetUp() override { HostLocator::Get().SetClass("com.example.other", 2); }
  // Every session logs exactly these lines.
  void TearDown() override { EXPECT_EQ(logs.Messages(), expectedLogs); }

  // Creates the feature, runs the steps to `endMs`, destroys the feature as
  // the framework does at exit and returns the effects.
  Lines Run(const std::vector<Step>& steps, int64_t endMs, const Lines& ignoreList = {}) {
    FeatureInfo info = GameWorld::Info();
    info.ignoreList = ignoreList;
    runner->Adopt(world.CreateFeature(info));
    for (const Step& step : steps) {
      if (step.id == kSetFps) {
        float fps = static_cast<float>(step.value);
        runner->ScheduleAction(step.ms, [fps] { FrameRateSource::Get().SetConstant(fps); });
      } else {
        runner->ScheduleTrigger(step.ms, GameWorld::Trigger(step.id, step.component, step.value));
      }
    }
    runner->RunUntil(endMs);
    roundPending = runner->PendingRoundMs().has_value();
    runner->DestroyFeature();
    return GameWorld::Effects();
  }

  GameWorld world;
  std::unique_ptr<SteppedRunner> runner = std::make_unique<SteppedRunner>();
  LogCapture logs;
  Lines expectedLogs = {kInitialized};
  bool roundPending = false;
};

TEST_F(GameSessionTest, SteadySixtyFps) {
  EXPECT_EQ(Run({{1000, kStart}, {5000, kStop}}, 6000),
            (Lines{"1000 target_pid=4242", "1000 acquire 1", "1600 fps=60", "5000 release 1"}));
  EXPECT_FALSE(roundPending);  // a stopped session asks for no more rounds
}

TEST_F(GameSessionTest, ADropReleasesTheLockAndTheNewTargetTakesItAgain) {
  // Samples lag the source by 150 ms (meters started at a round finish 50 ms
  // later and are queued at the next round). The drop to 40 shows in the
  // average at 3200 ([60, 40] -> 50, 10 behind: released); the history's
  // maximum leaves the band around 60 at 4800 (50: the target stays 60 and
  // is written again) and at 5200 (40: target 40, kept up with: lock 2).
  // Back at 60, the first full average (6400) moves the target to 60.
  EXPECT_EQ(
      Run({{1000, kStart}, {3000, kSetFps, "", 40}, {6000, kSetFps, "", 60}, {7000, kStop}}, 7500),
      (Lines{"1000 target_pid=4242", "1000 acquire 1", "1600 fps=60", "3200 release 1",
             "4800 fps=60", "5200 fps=40", "5200 acquire 2", "6400 fps=60", "7000 release 2"}));
}

TEST_F(GameSessionTest, AnFpsHintTakesOverTheNode) {
  // After the hint the action still follows the game (lock released at
  // 2800, taken again at 4800 once the target is 30) but never writes.
  EXPECT_EQ(
      Run({{1000, kStart}, {2000, kFpsHint, kGame, 90}, {2500, kSetFps, "", 30}, {5000, kStop}},
          5500),
      (Lines{"1000 target_pid=4242", "1000 acquire 1", "1600 fps=60", "2000 fps=90",
             "2800 release 1", "4800 acquire 2", "5000 release 2"}));
  EXPECT_EQ(world.sysfs().Read("/sys/kernel/sched_penalty/parameters/fps"), "90");
}

TEST_F(GameSessionTest, FpsHintsBelowOneAreStoredButNotWritten) {
  const char* mail = GameWorld::kMail;
  EXPECT_EQ(Run({{1000, kFpsHint, mail, 0}, {1100, kFpsHint, mail, -5}, {1200, kFpsHint, mail, 45}},
                2000),
            Lines{"1200 fps=45"});
}

TEST_F(GameSessionTest, VendorHintDisableOneOneZeroTwo) {
  // Disabling resets (lock 1 released) and forgets the target, so the round
  // right after the trigger at 2000 writes 60 again; disabled, the action
  // takes no lock until the first analysis after 3000. A second 1 and a 2
  // are refused.
  EXPECT_EQ(Run({{1000, kStart},
                 {2000, kVendorHintDisable, kGame, 1},
                 {2500, kVendorHintDisable, kGame, 1},
                 {3000, kVendorHintDisable, kGame, 0},
                 {3500, kVendorHintDisable, kGame, 2},
                 {4000, kStop}},
                4500),
            (Lines{"1000 target_pid=4242", "1000 acquire 1", "1600 fps=60", "2000 release 1",
                   "2000 fps=60", "3200 acquire 2", "4000 release 2"}));
  expectedLogs = {kInitialized, "GORV_FEATURE: runAsync() N: VENDOR_HINT_DISABLE -false, disable:1",
                  "GORV_FEATURE: runAsync() N: Invalid VENDOR_HINT_DISABLE value 1",
                  "GORV_FEATURE: runAsync() N: VENDOR_HINT_DISABLE - true, disable:0",
                  "GORV_FEATURE: runAsync() N: Invalid VENDOR_HINT_DISABLE value 2"};
}

TEST_F(GameSessionTest, IgnoredComponentsNonGamesAndUnknownTriggersChangeNothing) {
  const char* bench = "com.example.game/.Benchmark";
  EXPECT_EQ(Run({{1000, kStart, bench},
                 {1100, kFpsHint, bench, 60},
                 {1200, kVendorHintDisable, bench, 1},
                 {1300, kStart, GameWorld::kMail},
                 {1400, kStart, "com.example.unknown/.Main"},
                 {1500, 1234}},
                3000, {"/.Benchmark"}),
            Lines{});
}

TEST_F(GameSessionTest, AnEmptyIgnoreEntryMatchesEverything) {
  EXPECT_EQ(Run({{1000, kStart}}, 3000, {""}), Lines{});
}

TEST_F(GameSessionTest, AStartWithoutAPidStillStartsTheSession) {
  // No "/": the whole text is the package.
  EXPECT_EQ(
      Run({{1000, kStartAlt, "com.example.other"}, {2000, kStopAlt, "com.example.other/.Main"}},
          2500),
      (Lines{"1000 acquire 1", "1600 fps=60", "2000 release 1"}));
  expectedLogs.push_back(
      "GORV_FEATURE: getGamePid() N: Fail to start -Pid is -1 for com.example.other\n");
}

TEST_F(GameSessionTest, ASecondStartAndALoneStopAreIgnored) {
  EXPECT_EQ(
      Run({{500, kStop}, {1000, kStart}, {1100, kStartAlt}, {3000, kStopAlt}, {3100, kStop}}, 4000),
      (Lines{"1000 target_pid=4242", "1000 acquire 1", "1600 fps=60", "3000 release 1"}));
}

TEST_F(GameSessionTest, AQuickRestartKeepsThePendingRound) {
  // Triggers at one instant arrive in the order they were posted. The stop
  // at 1100 leaves the round due at 1200 in place; the restart schedules
  // none of its own, so the session's rounds stay on 1200, 1400, ... and the
  // first average lands at 1600 as usual. Destroying the feature
  // mid-session releases its lock.
  EXPECT_EQ(Run({{1000, kStart}, {1100, kStop}, {1100, kStart}}, 1700),
            (Lines{"1000 target_pid=4242", "1000 acquire 1", "1100 release 1",
                   "1100 target_pid=4242", "1100 acquire 2", "1600 fps=60", "1700 release 2"}));
  EXPECT_TRUE(roundPending);
}

TEST_F(GameSessionTest, ADisabledFeatureDoesNothing) {
  expectedLogs = {};
  for (const char* value : {"false", "TRUE", "true ", "", "1"}) {
    android::base::SetProperty("ro.vendor.perf.gorv", value);
    runner = std::make_unique<SteppedRunner>();
    EXPECT_EQ(Run({{1000, kStart}, {1100, kFpsHint, kGame, 60}}, 3000), Lines{}) << value;
  }
}

TEST_F(GameSessionTest, FailuresAroundTheSessionAreLoggedAndSurvived) {
  using Failure = HostLocator::Failure;
  // A classifier that throws: not a game (900, 950). At 1000 the scheduler
  // module is not loaded: the pid cannot be written, the session starts all
  // the same. From 1300 the meter service throws: the round at 1400 resets
  // (lock released) and logs; the session stays active.
  runner->ScheduleAction(900, [] { HostLocator::Get().SetFailure(Failure::StdException); });
  runner->ScheduleAction(950, [] { HostLocator::Get().SetFailure(Failure::OtherException); });
  runner->ScheduleAction(1000, [this] {
    HostLocator::Get().SetFailure(Failure::None);
    world.sysfs().RemoveNodeDirectory();
  });
  runner->ScheduleAction(1300, [this] { runner->meters().SetStartFailure(true); });
  runner->ScheduleAction(1500, [this] {
    runner->meters().SetStartFailure(false);
    world.sysfs().CreateNodeDirectory();
  });
  // The failed round at 1400 reset the queue and the history; at 1600 the
  // queue holds one 60, which averages to 30 over the two-sample window
  // (target 30, kept up with: lock 2), and the full [60, 60] at 2000 moves
  // the target to 60.
  EXPECT_EQ(Run({{900, kStart}, {950, kStart}, {1000, kStart}, {2500, kStop}}, 3000),
            (Lines{"1000 acquire 1", "1400 release 1", "1600 fps=30", "1600 acquire 2",
                   "2000 fps=60", "2500 release 2"}));
  expectedLogs = {kInitialized,
                  "GORV_FEATURE: isGame() N: isGame- exception classifier unavailable\n",
                  "GORV_FEATURE: isGame() N: isGame-  execution exception\n ",
                  // NOLINTNEXTLINE(bugprone-suspicious-missing-comma): one line in two parts
                  "GORV_FEATURE: updateSysNodes() N: Unable to open "
                  "/sys/kernel/sched_penalty/parameters/target_pid file",
                  "GORV_FEATURE: runAsyncPeriodic() N: runAsyncPeriodic- exception meter service "
                  "unavailable\n"};
}

}  // namespace
