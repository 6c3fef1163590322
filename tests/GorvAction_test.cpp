// The frame-rate action on a real feature: bucket tables, the +-5 band, node
// writes, the lock rule and the trace counters.
#include "action/GorvAction.h"

#include <gtest/gtest.h>

#include <limits>
#include <string>
#include <vector>

#include "data/GorvDataManager.h"
#include "tests/support/FeatureTest.h"
#include "tests/support/LogCapture.h"

namespace {

constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();

// Effects are node writes and lock calls, all at virtual time 0 ("0 fps=60",
// "0 acquire 1"); the resources a lock asks for are pinned by SimulatorTest.
class GorvActionTest : public FeatureTest {
 protected:
  GorvAction& action() { return *feature->mAction; }
  void Feed(std::initializer_list<float> samples) {
    for (float fps : samples) action().UpdateFPSData(fps);
  }
};

TEST_F(GorvActionTest, DetectionAndRoundOffTablesKeepTheirOwnBounds) {
  const std::pair<float, const char*> detected[] = {
      {15.0f, "0"},   {15.5f, "20"},   {21.0f, "20"},   {21.5f, "25"},   {26.0f, "25"},
      {26.5f, "30"},  {31.0f, "30"},   {31.5f, "35"},   {36.0f, "35"},   {36.5f, "40"},
      {45.0f, "40"},  {45.5f, "60"},   {65.0f, "60"},   {65.5f, "90"},   {95.0f, "90"},
      {95.5f, "120"}, {125.0f, "120"}, {125.5f, "144"}, {145.0f, "144"}, {145.5f, "0"},
      {kNaN, "0"}};
  for (const auto& [fps, written] : detected) {
    action().reset();
    env().ClearEvents();
    action().UpdateFPSData(fps);
    EXPECT_EQ(GameWorld::Effects(), Lines{std::string("0 fps=") + written}) << "fps " << fps;
    EXPECT_EQ(action().DetectGameFPS(0.0f), std::stoi(written)) << "fps " << fps;
  }
  const std::pair<float, int> rounded[] = {
      {25.0f, -1},   {25.5f, 30},  {32.0f, 30}, {32.5f, 40},   {45.0f, 40},
      {45.5f, 60},   {65.0f, 60},  {95.0f, 90}, {125.0f, 120}, {125.5f, 144},
      {149.0f, 144}, {149.5f, -1}, {kNaN, -1},  {-30.0f, -1}};
  for (const auto& [fps, expected] : rounded) {
    EXPECT_EQ(action().GetRoundOffFps(fps), expected) << "fps " << fps;
  }
}

TEST_F(GorvActionTest, TargetMovesOnlyWhenTheHistoryMaximumLeavesTheBand) {
  Feed({0.0f, -3.0f});  // not samples
  EXPECT_TRUE(action().mFPSList.empty());
  Feed({58, 59, 60});
  EXPECT_EQ(GameWorld::Effects(), Lines{"0 fps=60"});
  // A change is more than 5 fps either way from the maximum (60).
  EXPECT_FALSE(action().isGameFPSChange(0.0f, 65.0f) || action().isGameFPSChange(0.0f, 55.0f));
  EXPECT_TRUE(action().isGameFPSChange(0.0f, 66.0f) && action().isGameFPSChange(0.0f, 54.0f));
  // The maximum of the last five drives the target: GameSessionTest's drop
  // pins when it leaves the band and the target is written again.

  // 150 is above every bucket: 0 is written and there is still no target,
  // so the next sample recomputes (and writes) again.
  action().reset();
  env().ClearEvents();
  Feed({150, 150});
  EXPECT_EQ(GameWorld::Effects(), (Lines{"0 fps=0", "0 fps=0"}));
  EXPECT_EQ(action().mGameFps, 0.0f);
}

TEST_F(GorvActionTest, LockRule) {
  action().applyAction();
  action().applyAction();  // a held lock is not taken twice
  Feed({60});
  action().updateAutoPenatly(56.5f);  // 3.5 behind: released
  EXPECT_EQ(action().mPerfHandle, -1);
  action().updateAutoPenatly(57.0f);  // 3.0 behind: taken again
  EXPECT_EQ(action().mPerfHandle, 2);
  action().updateAutoPenatly(75.0f);  // ahead of the target: kept
  EXPECT_EQ(action().mPerfHandle, 2);

  action().removeAction(0);  // not a handle: nothing
  EXPECT_EQ(action().mPerfHandle, 2);
  action().mDisabled = true;
  action().reset();
  action().applyAction();
  Feed({60});
  action().updateAutoPenatly(60.0f);
  EXPECT_EQ(action().mPerfHandle, -1);
  EXPECT_EQ(GameWorld::Effects(), (Lines{"0 acquire 1", "0 fps=60", "0 release 1", "0 acquire 2",
                                         "0 release 2", "0 fps=60"}));

  // A failed acquisition is neither released nor retried: only a live
  // handle (1 or more) is ever released or forgotten.
  env().ClearEvents();
  env().SetPerfLockFailure(true, -22);
  action().mDisabled = false;
  action().applyAction();
  EXPECT_EQ(action().mPerfHandle, -22);
  action().updateAutoPenatly(60.0f);
  action().updateAutoPenatly(10.0f);
  action().reset();
  action().removeAction(action().mPerfHandle);
  action().applyAction();
  EXPECT_EQ(action().mPerfHandle, -22);
  EXPECT_EQ(GameWorld::Effects(), Lines{"0 acquire -22"});
}

// The markers and counters themselves are pinned by the simulator's traces.
TEST_F(GorvActionTest, NoTraceWithoutThePropertyOrTheAlwaysTag) {
  FpsMeter fps("Fps", 60.0f);
  for (bool traced : {false, true}) {
    Make("true", traced ? "1" : "");
    env().SetTraceAlwaysTagEnabled(!traced);
    meter().mMeterRequests.at("Fps") = true;
    meter().writeToDataBase({&fps});
    Feed({60});
    EXPECT_TRUE(env().TraceEvents().empty());
  }
}

TEST_F(GorvActionTest, AFailedAnalysisKeepsTheTargetAndTheLock) {
  // The sessions show a round's analysis; here a target and a lock are set
  // up by hand and kept through the rounds that fail.
  GorvDataManager* data = feature->mDataManager;
  Feed({60});
  action().applyAction();
  LogCapture logs;
  data->mDataElems[FPS].minInterval = 400;  // finer than the row allows: refused
  action().analyseProfiles(nullptr);
  data->mDataElems[FPS].processData = nullptr;
  data->mDataElems[FPS].minInterval = 200;
  action().analyseProfiles(nullptr);
  EXPECT_EQ(logs.Messages(), (Lines{"GORV_ACTION: analyseProfiles() N: FPS unavailable\n",
                                    "GORV_ACTION: analyseProfiles() N: Collect Data, ap- exception "
                                    "bad_function_call\n"}));
  EXPECT_EQ(action().mPerfHandle, 1);
  EXPECT_FLOAT_EQ(action().mGameFps, 60.0f);
}

TEST_F(GorvActionTest, AnActionWithoutComponentsIsInert) {
  Make("false");
  GorvAction inert(*feature);
  inert.UpdateFPSData(60.0f);
  inert.analyseProfiles(nullptr);
  EXPECT_TRUE(inert.mFPSList.empty());
  EXPECT_TRUE(env().Events().empty());
}

}  // namespace
