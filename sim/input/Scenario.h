// A game session to replay: what the simulator reads from a scenario file.
// Times are virtual milliseconds from the start of the run.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "sim/input/FrameTimeline.h"

struct Scenario {
  struct App {
    int appClass = 0;
    int pid = -1;
  };
  struct Trigger {
    int64_t atMs;
    int id;
    std::string component;
    int value;
  };
  enum class FaultKind { NodesMissing, NodesPresent, PerfLockFail, PerfLockOk };
  struct Fault {
    int64_t atMs;
    FaultKind kind;
  };
  // From atMs on the frame-rate source reads `fps`, or counts the frames of
  // `timeline` (when set) in the last second.
  struct RateChange {
    int64_t atMs;
    float fps;
    std::shared_ptr<const FrameTimeline> timeline;
  };

  std::string name;  // file name, or "built-in"
  std::vector<std::pair<std::string, std::string>> properties;
  std::map<std::string, App> apps;
  std::vector<std::string> ignoreList;
  std::vector<std::string> meters;  // empty: one "Fps"
  int meterLatencyMs = 50;
  std::vector<RateChange> rates;  // by time; equal times in file order
  std::vector<Trigger> triggers;  // in file order
  std::vector<Fault> faults;      // in file order
  int64_t endMs = -1;             // -1: 2000 ms after the latest time in the file
  int64_t latestMs = 0;

  int64_t EndMs() const { return endMs >= 0 ? endMs : latestMs + 2000; }
};
