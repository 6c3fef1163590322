// The progress line's decisions, driven with given times.
#include "sim/Progress.h"

#include <gtest/gtest.h>

#include <string>

namespace {

TEST(ProgressTest, DrawsAfterTheDelayAtMostEveryIntervalAndErasesOnlyWhatItShowed) {
  Progress progress(true, 1000);
  struct Row {
    int64_t nowMs;
    std::string text, written;
  };
  const Row rows[] = {
      {0, "a", ""},  // short work shows nothing
      {999, "b", ""},
      {1000, "c", "\rc\x1b[K"},
      {1099, "d", ""},  // too soon after the last drawing
      {1100, "e", "\re\x1b[K"},
      {5000, "f", "\rf\x1b[K"},
  };
  for (const Row& row : rows)
    EXPECT_EQ(progress.Update(row.text, row.nowMs), row.written) << row.nowMs;
  EXPECT_EQ(progress.Finish(), "\r\x1b[K");
  EXPECT_EQ(progress.Finish(), "");
  EXPECT_EQ(progress.Update("g", 5001), "\rg\x1b[K");  // erased: drawn again at once

  Progress disabled(false, 0);
  EXPECT_EQ(disabled.Update("a", 0), "");
  EXPECT_EQ(disabled.Finish(), "");
  EXPECT_EQ(Progress::BatchText(3, 10, 1), "gorv-sim: 3 of 10 scenarios done, 1 failed");
}

}  // namespace
