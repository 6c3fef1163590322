// Runs what the command line names: the built-in scenario, one scenario
// file, or several (files and folders; a folder stands for its *.scn files
// in name order).
//
// Each scenario runs in a child process of its own (ScenarioJob,
// RunSupervisor), so every run starts from a fresh plug-in and platform; `jobs`
// of them at once (ParallelBatch). The timelines and errors come in the
// order given, each whole: with one job as they happen, with more as each
// scenario and every earlier one are done. With several scenarios, or a
// folder, a closing table follows: per scenario its status, target
// changes, lock time and check.
//
// An output option naming a folder (an existing one, or a path ending in
// /, made when missing) gets one file per scenario, named after it and the
// option's suffix in OutputTable: NAME.jsonl (--events, and what --expect
// reads), NAME.trace.json, ... With several scenarios every output option
// must name a folder.
//
// A shard runs its part of the whole list (Shard); the JUnit report, when
// asked for, is written at the end, even of an interrupted batch. A batch
// on a terminal shows its progress on standard error (Progress).
#pragma once

#include <string>
#include <vector>

#include "sim/ScenarioJob.h"
#include "sim/Shard.h"

namespace BatchRunner {

struct Request {
  std::vector<std::string> scenarios;  // files and folders; empty: the built-in scenario
  ScenarioJob::Outputs outputs;        // files, folders or "-"
  ScenarioJob::Settings settings;
  Shard::Slice shard;  // the part of the batch to run: scenario i when i mod total is index
  std::string junit;   // the JUnit XML report's file; "" none
  bool quiet = false;  // no progress line even on a terminal
  unsigned jobs = 1;   // scenarios run at once (ParallelBatch)
};

// Returns the exit status: the highest of the runs' (0 all done and
// matched, 1 a run failed or differed, 2 bad input, 3 the plug-in ended a
// run), or before anything runs 2 for bad usage and 1 for an output
// folder that cannot be made. An interrupted run
// (128+N) ends the batch with its status; so does standard output going
// to a closed pipe (`pipeClosed` then set, for the caller to end quietly).
int Run(const Request& request, bool* pipeClosed);

}  // namespace BatchRunner
