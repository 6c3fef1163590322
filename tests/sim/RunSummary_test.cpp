// The figures both the timeline and the JSON summary show: lock time per
// handle, lock spans as the union of the handles held, and target changes.
#include "sim/output/RunSummary.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "tests/support/SimEvents.h"

namespace {

SimEvent Lock(int64_t ms, SimEvent::Kind kind, int32_t handle) {
  return MakeEvent(ms, kind, "", "", 0, handle);
}

SimEvent Fps(int64_t ms, const std::string& text) {
  return MakeEvent(ms, SimEvent::Kind::Node, "/sys/kernel/sched_penalty/parameters/fps", text);
}

TEST(RunSummaryTest, LockSpansAreTheUnionOfTheHandlesHeldAndEndWithTheRun) {
  using K = SimEvent::Kind;
  RunSummary summary(true);
  const SimEvent events[] = {
      Lock(100, K::LockAcquire, 1),
      Lock(150, K::LockAcquire, 2),  // overlapping handles
      Lock(200, K::LockRelease, 1),
      Lock(300, K::LockRelease, 2),
      Lock(350, K::LockRelease, 9),   // never acquired
      Lock(400, K::LockAcquire, -1),  // a failed acquire
      Lock(500, K::LockAcquire, 3),   // still held at the end
      Fps(100, "60"),
      Fps(120, "60"),
      Fps(130, "30"),
      Fps(140, "junk"),
  };
  for (const SimEvent& event : events) summary.Add(event);
  summary.Finish(800);
  using Spans = std::vector<std::pair<int64_t, int64_t>>;
  EXPECT_EQ(summary.heldSpans(), (Spans{{100, 300}, {500, 800}}));
  EXPECT_EQ(summary.lockHeldMs(), 100 + 150 + 300);
  EXPECT_EQ(summary.lockSpans(), 3);
  using Targets = std::vector<std::pair<int64_t, int>>;
  EXPECT_EQ(summary.shownTargets(), (Targets{{100, 60}, {130, 30}, {140, 0}}));
}

TEST(RunSummaryTest, WithoutKeepAllOnlyTheFirstChangesAreKeptAndAllCounted) {
  RunSummary summary;
  for (int i = 0; i < 25; ++i) summary.Add(Fps(i, std::to_string(i + 1)));
  summary.Finish(25);
  EXPECT_EQ(summary.shownTargets().size(), RunSummary::kShownTargets);
  EXPECT_EQ(summary.shownTargets().back(), std::make_pair(int64_t{9}, 10));
  EXPECT_EQ(summary.targetChanges(), 25);
  EXPECT_TRUE(summary.heldSpans().empty());
}

}  // namespace
