// One thing that happened in a simulated run, at a time in ms from its start.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

struct SimEvent {
  enum class Kind {
    Node,          // a successful node write: path, text
    LockAcquire,   // perf_lock_acq_rel: handle (its result), resources
    LockRelease,   // perf_lock_rel: handle
    Log,           // a plug-in log line: priority, tag, text
    Counter,       // a trace counter: name, value
    TraceSection,  // a trace section begun: name
    Trigger,       // a trigger delivered (input, not an effect): value = id, name = component
  };
  int64_t tMs = 0;
  Kind kind = Kind::Log;
  std::string name;   // node path, counter or section name, log tag, component
  std::string text;   // node text, log message
  int64_t value = 0;  // counter value, trigger id
  int32_t handle = -1;
  int32_t priority = 0;
  int32_t triggerValue = 0;
  std::vector<int32_t> resources;

  // Effects of the plug-in, as opposed to the scenario's inputs.
  bool IsEffect() const { return kind != Kind::Trigger; }
};
