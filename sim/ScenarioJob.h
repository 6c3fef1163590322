// One scenario's run with its outputs: the scenario and the expected events
// read (bad input: nothing runs), the outputs opened, the run hosted in a
// child (RunSupervisor) and streamed to every output as a sink, the outputs
// closed and checked. Errors go to standard error as "gorv-sim: ...".
// Several jobs may run at once, in threads (RunSupervisor).
#pragma once

#include <cstdint>
#include <string>

#include "sim/check/EventComparator.h"
#include "sim/output/OutputTable.h"
#include "sim/run/RunEngine.h"

namespace ScenarioJob {

// Output files, by OutputTable row; "" none, "-" standard output.
struct Outputs {
  OutputTable::Paths files = OutputTable::NoPaths();
  std::string expect;  // the events file to check the run against; "" none
};
struct Settings {
  RunEngine::Options simulator;
  EventComparator::Options comparison;
};
enum class Check { None, Pass, Fail };
struct Outcome {
  int status = 0;    // an ExitStatus (kBadInput: nothing ran)
  std::string word;  // the batch table's status (StopReport)
  bool ran = false;
  bool written = true;      // every output written
  bool pipeClosed = false;  // standard output went to a closed pipe
  Check check = Check::None;
  int64_t targetChanges = 0;
  int64_t lockHeldMs = 0;
  std::string error;        // what standard error was told, without "gorv-sim: "; "" none
  std::string checkReport;  // Check::Pass or Fail: the check's report, as printed
};

// `scenarioPath` "" runs the built-in scenario. The human timeline goes to
// standard output unless an output or the check (whose report goes there,
// or to standard error when an output holds standard output) takes it.
// An output that is an input or another output: nothing runs (kBadInput).
Outcome Run(const std::string& scenarioPath, const Outputs& paths, const Settings& settings);

}  // namespace ScenarioJob
