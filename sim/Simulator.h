// Replays a scenario through the real libgorv.so in the host framework:
// properties set, library loaded and the feature created through the
// registry at time 0; faults, triggers, meter completions and periodic
// rounds at their times (virtual time by default, or real threads and the
// real clock); the feature destroyed at the end.
#pragma once

#include <string>

#include "sim/RunResult.h"
#include "sim/Scenario.h"

class Simulator {
 public:
  struct Options {
    std::string pluginPath;
    bool realtime = false;
  };

  // False and `error` set when the plug-in cannot be loaded or created.
  static bool Run(const Scenario& scenario, const Options& options, RunResult* result,
                  std::string* error);

  // The frame-rate source's value at `ms` under the scenario's fps and
  // frames lines (0 before the first).
  static float RateAt(const Scenario& scenario, int64_t ms);

  // The built-in scenario: a game launched, playing at 60 fps, dropping to
  // 40, an FPS hint, the game leaving.
  static const char* BuiltInScenario();
};
