// Hosts a run in a child process, so that the plug-in ending its process
// (an abort on a checked overflow, a fatal signal, an exception escaping,
// running out of memory) cannot take the outputs with it. The child loads
// the plug-in and runs the Simulator, streaming each event over a pipe
// (RunChannel); this process, the parent, hands them to the sink as they
// come and notices how the child ended.
//
// The caller owns the private sysfs folder (made before the fork and
// removed by its owner after the child is gone, whatever happened to it:
// the child never removes it). The parent catches SIGINT and
// SIGTERM while the run lasts (the child ignores them and is killed) and
// ignores SIGPIPE (a closed output is the caller's to notice, through
// `abandon`). Single-threaded caller; one run at a time.
#pragma once

#include <functional>
#include <string>

#include "sim/input/Scenario.h"
#include "sim/output/RunSink.h"
#include "sim/run/PrivateSysfs.h"
#include "sim/run/Simulator.h"

class ChildRun {
 public:
  enum class Outcome {
    Completed,    // the run reached its end
    Failed,       // the plug-in could not be run (message says why); no End
    Aborted,      // the plug-in ended its process: message is the one line
    Interrupted,  // SIGINT or SIGTERM (signal) reached the simulator
    Abandoned,    // `abandon` returned true: the child was stopped
  };
  struct Result {
    Outcome outcome = Outcome::Completed;
    std::string message;
    int signal = 0;  // Interrupted: which
  };

  // Runs `scenario` into `sink`: Begin, the events, then End in every
  // outcome but Failed (End's `stopped` says why a run stopped early).
  // `abandon` is asked after each batch of events.
  static Result Run(const Scenario& scenario, const Simulator::Options& options,
                    PrivateSysfs& sysfs, RunSink& sink, const std::function<bool()>& abandon);
};
