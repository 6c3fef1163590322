// When a run counts as stalled: a virtual clock standing still for the
// limit (any move starts the count again), a real-time run going the limit
// past its end, never with a zero limit; and when to look again.
#include "sim/run/StallWatch.h"

#include <gtest/gtest.h>

namespace {

using std::chrono::milliseconds;
const StallWatch::Clock::time_point kStart{};

TEST(StallWatchTest, AVirtualClockThatStandsStillForTheLimit) {
  StallWatch watch(milliseconds(1000), false, 5000, kStart);
  EXPECT_FALSE(watch.Stalled(0, kStart));
  EXPECT_EQ(watch.MsLeft(kStart + milliseconds(400)), 600);
  EXPECT_FALSE(watch.Stalled(200, kStart + milliseconds(999)));  // moved: counts from here
  EXPECT_FALSE(watch.Stalled(200, kStart + milliseconds(1998)));
  EXPECT_EQ(watch.MsLeft(kStart + milliseconds(1998)), 1);
  EXPECT_TRUE(watch.Stalled(200, kStart + milliseconds(1999)));
  EXPECT_EQ(watch.MsLeft(kStart + milliseconds(5000)), 1);  // overdue: at once
}

TEST(StallWatchTest, ARealTimeRunPastItsEndByTheLimitAndAZeroLimit) {
  StallWatch realtime(milliseconds(1000), true, 5000, kStart);
  EXPECT_FALSE(realtime.Stalled(0, kStart + milliseconds(5999)));  // no move needed before
  EXPECT_EQ(realtime.MsLeft(kStart), 6000);
  EXPECT_TRUE(realtime.Stalled(5000, kStart + milliseconds(6000)));  // moves do not count

  StallWatch never(milliseconds(0), false, 5000, kStart);
  EXPECT_FALSE(never.Stalled(0, kStart + std::chrono::hours(24 * 365)));
  EXPECT_EQ(never.MsLeft(kStart), -1);
}

}  // namespace
