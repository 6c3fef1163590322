// gorv-sim's exit statuses. A run has one of them; a batch of runs exits
// with the highest, except that an interrupted run ends the batch with its
// own.
#pragma once

namespace ExitStatus {
inline constexpr int kDone = 0;  // ran, every output written (and matched)
// The plug-in could not be run, an output could not be written, or the
// events differ from the expected ones.
inline constexpr int kNotRun = 1;
inline constexpr int kBadInput = 2;     // bad usage, scenario or expected file
inline constexpr int kPluginEnded = 3;  // the plug-in ended its process
// Interrupted by signal N: kBySignal + N.
inline constexpr int kBySignal = 128;
}  // namespace ExitStatus
