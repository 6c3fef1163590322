// Replays a scenario through the real libgorv.so in the host framework:
// properties set, library loaded and the feature created through the
// registry at time 0; faults, triggers, meter completions and periodic
// rounds at their times (virtual time by default, or real threads and the
// real clock); the feature destroyed at the end. Runs in the calling
// process: RunSupervisor hosts it in a child so that the plug-in's own aborts
// cannot take the outputs with them.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "sim/input/Scenario.h"
#include "sim/output/RunResult.h"
#include "sim/output/RunSink.h"
#include "sim/run/PrivateSysfs.h"

namespace RunEngine {

struct Options {
  std::string pluginPath;
  bool realtime = false;
  // When set, the virtual time reached (ms) is stored here as the run
  // goes, for a watcher in another process (shared memory).
  std::atomic<int64_t>* clockMs = nullptr;
  // When set and it turns true (another process asks), the run stops at
  // the virtual time it has reached, between two steps: the feature is
  // destroyed and End comes with that time.
  const std::atomic<bool>* stop = nullptr;
  // When set, the supervisor (RunSupervisor) calls it on its own thread about
  // every 100 ms with the virtual time reached and the run's end, ms (a
  // progress line).
  std::function<void(int64_t reachedMs, int64_t endMs)> onProgress = nullptr;
  // The supervisor ends a run that has made no progress for this long of
  // real time (StallWatch); zero never.
  std::chrono::milliseconds stallLimit{std::chrono::seconds(60)};
};

// Runs `scenario` into `sink` (Begin, every event, End), with the
// plug-in's nodes beneath `sysfs`. False and `error` set when the plug-in
// cannot be loaded or created (Begin has been called, End has not).
bool Run(const Scenario& scenario, const Options& options, PrivateSysfs& sysfs, RunSink& sink,
         std::string* error);
// The same into memory, with a private folder of its own (tests).
bool Run(const Scenario& scenario, const Options& options, RunResult* result, std::string* error);

// What the outputs know before the run: name, end, measured frame rate.
RunInfo InfoOf(const Scenario& scenario);

// The built-in scenario: a game launched, playing at 60 fps, dropping to
// 40, an FPS hint, the game leaving.
const char* BuiltInScenario();

}  // namespace RunEngine
