// Runs a batch's scenarios on several threads, each thread taking the next
// scenario in order, and hands their outcomes back in order: what a
// scenario writes to standard output and its error lines are held
// (HeldOutput) and written out, whole, as soon as every earlier scenario's
// are, so the output reads as with one job, only sooner.
//
// With one job (or one scenario) the scenarios run one after another on
// the calling thread, writing straight to standard output and error.
//
// A batch ends early when `done` says so or a signal is caught
// (Interrupts): no further scenario starts, the ones running finish (a
// signal stops each; standard output closing makes each give up as on a
// closed pipe), and theirs are handed back too.
#pragma once

#include <cstddef>
#include <functional>

#include "sim/ScenarioJob.h"

namespace ParallelBatch {

// Runs scenario `index`. Called on a worker thread (the calling thread
// with one job), never for the same index twice.
using Task = std::function<ScenarioJob::Outcome(size_t index)>;
// Told of scenario `index` on the calling thread, in index order, once its
// output is written out (an outcome whose held standard output could not
// be written says so: pipeClosed, or not written with its error). False:
// start no further scenario.
using Done = std::function<bool(size_t index, const ScenarioJob::Outcome& outcome)>;

// -j's default: one job per core.
unsigned DefaultJobs();

// Runs scenarios 0 to count-1, at most `jobs` at once.
void Run(size_t count, unsigned jobs, const Task& task, const Done& done);

}  // namespace ParallelBatch
