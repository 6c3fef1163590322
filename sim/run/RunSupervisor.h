// Hosts a run in a child process, so that the plug-in ending its process
// (an abort on a checked overflow, a fatal signal, an exception escaping,
// running out of memory) cannot take the outputs with it. The child is a
// fresh exec of gorv-sim (RunProcess), handed the parsed scenario in a
// memory file (RunMemory, RunRequest); it loads the plug-in and runs the
// scenario (RunEngine), streaming each event over a pipe (RunChannel). This
// process, the parent, hands them to the sink as they come and notices how
// the child ended. Because the child execs at once after the fork, it
// shares no lock and no descriptor with the parent's other threads and the
// runs beside it: a run's end can never wait on another's.
//
// Signals are the parent's alone (Interrupts, installed by main): when one
// has been caught, the parent asks the child to stop at the virtual time it
// has reached, takes every event up to then and ends the sink there. The
// caller owns the private sysfs folder (removed by its owner: the child
// never removes it).
//
// Run may be called from several threads at once, each with its own
// scenario, folder and sink; it holds nothing between calls.
#pragma once

#include <functional>

#include "sim/input/Scenario.h"
#include "sim/output/RunSink.h"
#include "sim/run/PrivateSysfs.h"
#include "sim/run/RunEngine.h"
#include "sim/run/StopReport.h"

namespace RunSupervisor {

// Runs `scenario` into `sink`: Begin, the events, then End in every kind of
// end but Failed (End's `stopped` says why a run stopped early, in
// StopReport's words). `abandon` is asked after each batch of events: true
// (an output closed) stops the run as a signal does. Returns the facts for
// StopReport: Completed, Failed, PluginEnded, Interrupted or OutputClosed.
StopReport::Facts Run(const Scenario& scenario, const RunEngine::Options& options,
                      PrivateSysfs& sysfs, RunSink& sink, const std::function<bool()>& abandon);

}  // namespace RunSupervisor
