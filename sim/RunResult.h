// Everything a finished run leaves for the reports.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "sim/SimEvent.h"

struct RunResult {
  std::string scenarioName;
  int64_t endMs = 0;
  std::vector<SimEvent> events;  // in the order they happened
  // The frame-rate source sampled every 100 ms: (ms, fps).
  std::vector<std::pair<int64_t, float>> measured;
  // Time a game session was active (the feature had asked for periodic work).
  int64_t sessionMs = 0;
  // The layers replayed from Perfetto traces, and the frames those traces
  // flag as janky while they drove the source, in ms (sorted).
  struct Replay {
    int64_t atMs;
    std::string file;
    std::string layer;
    size_t frames;
    size_t janky;
  };
  std::vector<Replay> replays;
  std::vector<int64_t> jankyMs;
};
