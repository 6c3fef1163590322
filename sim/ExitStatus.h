// gorv-sim's exit statuses. A run has one of them; a batch of runs exits
// with the highest, except that an interrupted run ends the batch with its
// own.
#pragma once

struct ExitStatus {
  static constexpr int kDone = 0;  // ran, every output written (and matched)
  // The plug-in could not be run, an output could not be written, or the
  // events differ from the expected ones.
  static constexpr int kNotRun = 1;
  static constexpr int kBadInput = 2;     // bad usage, scenario or expected file
  static constexpr int kPluginEnded = 3;  // the plug-in ended its process
  // Interrupted by signal N: kBySignal + N.
  static constexpr int kBySignal = 128;
};
