#include "sim/ParallelBatch.h"

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <exception>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "sim/ErrorLine.h"
#include "sim/output/HeldOutput.h"
#include "sim/run/Interrupts.h"
#include "sim/run/StopReport.h"

namespace {

// One scenario's place in the batch.
struct Slot {
  bool done = false;
  ScenarioJob::Outcome outcome;
  std::unique_ptr<HeldOutput> held;
};

// The scenarios shared by the workers and the calling thread, which writes
// them out in order.
class Batch {
 public:
  Batch(size_t count, const ParallelBatch::Task& task) : mTask(task), mSlots(count) {}

  // A worker: runs the next scenario until none is left or the batch ends.
  void Work() {
    for (size_t index = 0; Take(&index);) {
      auto held = std::make_unique<HeldOutput>(mStdoutClosed);
      ScenarioJob::Outcome outcome = RunHeld(index, *held);
      {
        std::lock_guard<std::mutex> lock(mMutex);
        mSlots[index] = {true, std::move(outcome), std::move(held)};
      }
      mChanged.notify_all();
    }
    // The calling thread may wait for a scenario that will not start now.
    mChanged.notify_all();
  }

  // Writes out each scenario as soon as it and every earlier one are done,
  // and tells `done`; until the batch ends and the scenarios started are
  // all told.
  void WriteOutInOrder(const ParallelBatch::Done& done) {
    for (size_t index = 0; index < mSlots.size(); ++index) {
      Slot slot;
      {
        std::unique_lock<std::mutex> lock(mMutex);
        mChanged.wait(lock, [&] { return mSlots[index].done || (Ended() && index >= mNext); });
        if (!mSlots[index].done) return;
        slot = std::move(mSlots[index]);
      }
      WriteOut(*slot.held, &slot.outcome);
      if (!done(index, slot.outcome)) Stop();
    }
  }

 private:
  // The task with this thread's standard output held; an exception (out
  // of memory) is that scenario's failure.
  ScenarioJob::Outcome RunHeld(size_t index, HeldOutput& held) {
    HeldOutput::Scope scope(held);
    try {
      return mTask(index);
    } catch (const std::exception& e) {
      return Failed(StopReport::Of(StopReport::Kind::Failed, 0, e.what()));
    }
  }

  void WriteOut(HeldOutput& held, ScenarioJob::Outcome* outcome) {
    bool pipeClosed = false;
    std::string error;
    if (held.WriteOut(&pipeClosed, &error)) return;
    if (pipeClosed) {
      mStdoutClosed = true;
      outcome->pipeClosed = true;
      return;
    }
    ErrorLine::Print(error);
    // A completed run whose standard output could not be written reads as
    // one whose write failed while it ran.
    StopReport::Facts completed;
    if (outcome->word == StopReport::Report(completed).tableWord) {
      completed.written = false;
      completed.checkFailed = outcome->check == ScenarioJob::Check::Fail;
      StopReport::Words words = StopReport::Report(completed);
      outcome->status = words.status;
      outcome->word = words.tableWord;
    }
    outcome->written = false;
    outcome->error = error;
  }

  // The outcome of a scenario that `facts` stopped, said on standard error.
  static ScenarioJob::Outcome Failed(const StopReport::Facts& facts) {
    StopReport::Words words = StopReport::Report(facts);
    if (!words.message.empty()) ErrorLine::Print(words.message);
    ScenarioJob::Outcome outcome;
    outcome.status = words.status;
    outcome.word = words.tableWord;
    outcome.error = words.message;
    return outcome;
  }

  // Sets `index` to the next scenario to run; false when none is left or
  // the batch has ended.
  bool Take(size_t* index) {
    std::lock_guard<std::mutex> lock(mMutex);
    if (Ended() || mNext == mSlots.size()) return false;
    *index = mNext++;
    return true;
  }

  // No further scenario starts. Guarded by mMutex.
  bool Ended() const { return mStopped || Interrupts::Caught() != 0; }

  void Stop() {
    std::lock_guard<std::mutex> lock(mMutex);
    mStopped = true;
  }

  const ParallelBatch::Task& mTask;
  std::atomic<bool> mStdoutClosed{false};
  std::mutex mMutex;
  std::condition_variable mChanged;
  std::vector<Slot> mSlots;  // guarded by mMutex until handed to the calling thread
  size_t mNext = 0;          // the next scenario to start; guarded by mMutex
  bool mStopped = false;     // no further scenario starts; guarded by mMutex
};

}  // namespace

namespace ParallelBatch {

unsigned DefaultJobs() { return std::max(1u, std::thread::hardware_concurrency()); }

void Run(size_t count, unsigned jobs, const Task& task, const Done& done) {
  size_t threads = std::min<size_t>(jobs, count);
  if (threads <= 1) {
    for (size_t index = 0; index < count && Interrupts::Caught() == 0; ++index) {
      if (!done(index, task(index))) return;
    }
    return;
  }
  Batch batch(count, task);
  std::vector<std::thread> workers;
  for (size_t i = 0; i < threads; ++i) workers.emplace_back([&batch] { batch.Work(); });
  batch.WriteOutInOrder(done);
  for (std::thread& worker : workers) worker.join();
}

}  // namespace ParallelBatch
