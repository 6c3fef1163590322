// Reads back the events of an earlier run, as --events wrote them: one JSON
// object per line, "t" (ms) and "event" first, then the kind's fields. Blank
// lines, and the "stopped" line of a run that ended early, are skipped. Used
// to check a run against a recorded one; the file is read whole (its events
// are what the run is compared with).
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "sim/SimEvent.h"

class EventLog {
 public:
  // Parses `text`; `name` names the file in messages. On error returns false
  // and sets `error` to "FILE:LINE: what was expected"; `events` is then
  // incomplete.
  // Lines are checked text (TextLines).
  static bool Parse(const std::string& name, std::string_view text, std::vector<SimEvent>* events,
                    std::string* error);
  // Reads and parses the file `path` (InputFile: a regular file, 1 GB at most).
  static bool Load(const std::string& path, std::vector<SimEvent>* events, std::string* error);
  // One line's event; false and `reason` set when it is not one.
  static bool ParseLine(std::string_view line, SimEvent* event, std::string* reason);

  // The "event" name of a kind ("node", "perf_lock_acquire", ...), and back;
  // KindOf is false for a name that is not an effect.
  static const char* KindName(SimEvent::Kind kind);
  static bool KindOf(const std::string& name, SimEvent::Kind* kind);
  // "node, perf_lock_acquire, ... or trace_section", for messages.
  static std::string EffectNames();
};
