// Checks a run's outputs before they are opened (opening truncates): an
// output that is one of the run's inputs would destroy it, and two outputs
// that are one file would mix their bytes. Files are compared by device and
// inode, so any spelling of a path (./x, a link, /dev/stdout,
// /proc/self/fd/1) is caught; "-" is standard output as it is open now. An
// output that does not exist yet cannot be an input, but two outputs may
// name it: it is known by its folder's identity and its name there.
// A path to the null device is never in the way: nothing written there can
// be lost or mixed ("-" twice is refused wherever standard output goes).
// Main thread.
#pragma once

#include <string>
#include <vector>

namespace OutputCheck {

// A file and how a message names it: {"--events", "out.jsonl"},
// {"the scenario", "game.scn"}.
struct Named {
  std::string what;
  std::string path;
};

// "" when every output is a file of its own; else the error, naming both
// files: "--events FILE is the same file as the scenario FILE".
std::string Conflict(const std::vector<Named>& outputs, const std::vector<Named>& inputs);

}  // namespace OutputCheck
