// The words a user reads about how a run ended, all from here: the reason
// the outputs' `stopped` line gives, the line on standard error, the word
// in a batch's table and the exit status. They are made from the facts the
// run host (RunSupervisor) and the job (ScenarioJob) report. Free functions,
// any thread.
#pragma once

#include <cstdint>
#include <string>

namespace StopReport {

enum class Kind {
  Completed,     // the run reached its end
  BadInput,      // the scenario or expected file was refused: nothing ran
  Failed,        // the run could not start, or the plug-in not be loaded
  PluginEnded,   // the plug-in ended its process
  Stalled,       // the plug-in made no progress: gorv-sim ended its process
  Interrupted,   // a signal reached gorv-sim
  OutputClosed,  // an output went to a pipe that was closed
};

struct Facts {
  Kind kind = Kind::Completed;
  // Interrupted: the signal caught. PluginEnded: the signal that ended the
  // child, or 0 when it exited (with `exitStatus`).
  int signal = 0;
  int exitStatus = 0;
  int64_t reachedMs = 0;  // the virtual time reached, ms
  int64_t stalledMs = 0;  // Stalled: how long no progress was made, real ms
  std::string lastLog;    // the plug-in's last log line, "" none
  std::string exception;  // the text of an exception that escaped, "" none
  std::string failure;    // Failed, BadInput: why, "" when already said
  bool written = true;    // every output written
  bool checkFailed = false;
};

// Facts with only a kind, a signal (Interrupted) or a failure (Failed,
// BadInput).
Facts Of(Kind kind, int signal = 0, std::string failure = "");

// The reason on the outputs' `stopped` line; "" for a run that ran to its
// end (and for Failed and BadInput, which have no end).
std::string StoppedReason(const Facts& facts);

struct Words {
  // What standard error is told (through ErrorLine, which adds "gorv-sim: "
  // and escapes it), or "" when nothing is (already said, or nothing to say).
  std::string message;
  std::string tableWord;  // the batch table's status column
  int status = 0;         // the exit status (ExitStatus)
};
Words Report(const Facts& facts);

// "SIGTERM (Terminated)", or "signal N" when the system has no name.
std::string SignalName(int signal);

}  // namespace StopReport
