// Builds the simulator's events for tests of its readers, writers and
// summaries. Header-only: only the tests that link the simulator use it.
#pragma once

#include <cstdint>
#include <string>
#include <utility>

#include "sim/SimEvent.h"

inline SimEvent MakeEvent(int64_t ms, SimEvent::Kind kind, std::string name = "",
                          std::string text = "", int64_t value = 0, int32_t handle = -1) {
  SimEvent event;
  event.tMs = ms;
  event.kind = kind;
  event.name = std::move(name);
  event.text = std::move(text);
  event.value = value;
  event.handle = handle;
  return event;
}
