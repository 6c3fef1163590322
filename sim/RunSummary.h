// Figures of a run, derived from its events.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "sim/RunResult.h"

struct RunSummary {
  // Lock-held spans [from, to) in ms; a lock still held at the end runs to it.
  std::vector<std::pair<int64_t, int64_t>> lockSpans;
  // The fps node's values over time: (ms, value) for each change.
  std::vector<std::pair<int64_t, int>> targets;
  std::map<std::string, int> nodeWrites;  // by short node name
  int messages = 0;

  static RunSummary Of(const RunResult& result);
  int64_t LockHeldMs() const;
  // "target_pid" for "/sys/kernel/sched_penalty/parameters/target_pid".
  static std::string ShortNode(const std::string& path);
};
