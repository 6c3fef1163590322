// What a run's process needs to run one scenario, as bytes: the parsed
// scenario (with the frame timelines of its captures, each once however many
// lines replay it), the plug-in to load, virtual or real time, and the
// private folder. gorv-sim encodes it; the run's process, a fresh exec of
// the same program, decodes it (WireFormat). The run's process never reads
// the scenario or its captures again: it runs exactly what was checked.
#pragma once

#include <string>
#include <string_view>

#include "sim/input/Scenario.h"

namespace RunRequest {

struct Settings {
  std::string pluginPath;
  bool realtime = false;
  std::string sysfsPath;  // the private folder, made and removed by gorv-sim
};

std::string Encode(const Scenario& scenario, const Settings& settings);

// False when `data` is not a whole request of this program (damaged,
// truncated, longer, or from another build's layout); the outputs are then
// unspecified.
bool Decode(std::string_view data, Scenario* scenario, Settings* settings);

}  // namespace RunRequest
