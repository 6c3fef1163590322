// The parallel batch's order: outcomes and error lines handed back in the
// batch's order whatever order the scenarios end in, and an early end that
// hands back every scenario started and starts no other. Scenarios here are
// functions that wait on each other, so the order they end in is fixed.
#include "sim/ParallelBatch.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <condition_variable>
#include <iostream>
#include <mutex>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "sim/ErrorLine.h"

namespace {

// Standard error captured for a test's lifetime.
class CerrCapture {
 public:
  CerrCapture() : mOld(std::cerr.rdbuf(mText.rdbuf())) {}
  ~CerrCapture() { std::cerr.rdbuf(mOld); }
  std::string text() const { return mText.str(); }

 private:
  std::ostringstream mText;
  std::streambuf* mOld;
};

TEST(ParallelBatchTest, OutcomesAndErrorLinesComeInOrderWhateverOrderTheScenariosEnd) {
  CerrCapture errors;
  std::mutex mutex;
  std::condition_variable changed;
  int ended = 0;
  // Scenario 0 ends only after 1 and 2 have ended.
  auto task = [&](size_t i) {
    ErrorLine::Print("scenario " + std::to_string(i) + " begins");
    std::unique_lock<std::mutex> lock(mutex);
    changed.wait(lock, [&] { return i != 0 || ended == 2; });
    ErrorLine::Print("scenario " + std::to_string(i) + " ends");
    ++ended;
    changed.notify_all();
    ScenarioJob::Outcome outcome;
    outcome.targetChanges = static_cast<int64_t>(i) * 10;
    return outcome;
  };
  std::string told;
  ParallelBatch::Run(3, 3, task, [&](size_t i, const ScenarioJob::Outcome& outcome) {
    told += std::to_string(i) + ":" + std::to_string(outcome.targetChanges) + " ";
    return true;
  });
  EXPECT_EQ(told, "0:0 1:10 2:20 ");
  EXPECT_EQ(errors.text(),
            "gorv-sim: scenario 0 begins\ngorv-sim: scenario 0 ends\n"
            "gorv-sim: scenario 1 begins\ngorv-sim: scenario 1 ends\n"
            "gorv-sim: scenario 2 begins\ngorv-sim: scenario 2 ends\n");
}

TEST(ParallelBatchTest, AnEarlyEndHandsBackEveryScenarioStartedAndStartsNoOther) {
  std::mutex mutex;
  std::condition_variable changed;
  size_t toldSoFar = 0;
  std::set<size_t> started;
  // Scenario 1 ends once 0 has been handed back (the batch then ends), the
  // others once 1 has: besides 0 and 1, each worker can take at most one
  // scenario before the end, and none after.
  auto task = [&](size_t i) {
    std::unique_lock<std::mutex> lock(mutex);
    started.insert(i);
    changed.wait(lock, [&] { return toldSoFar >= std::min<size_t>(i, 2); });
    return ScenarioJob::Outcome{};
  };
  std::vector<size_t> told;
  ParallelBatch::Run(100, 2, task, [&](size_t i, const ScenarioJob::Outcome&) {
    told.push_back(i);
    std::lock_guard<std::mutex> lock(mutex);
    ++toldSoFar;
    changed.notify_all();
    return false;
  });
  EXPECT_LE(told.size(), 4u);
  for (size_t i = 0; i < told.size(); ++i) EXPECT_EQ(told[i], i);
  EXPECT_EQ(started.size(), told.size());
}

}  // namespace
