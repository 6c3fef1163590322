// The events JSON-lines format, in one place: --events writes it, --expect
// reads it back. One JSON object per line: "t" (ms) and "event" (the kind's
// name) first, then the kind's fields in the order of the table in
// EventsFormat.cpp, from which both the writer and the reader work. Any
// bytes in names and texts give valid JSON (invalid UTF-8 is replaced by
// U+FFFD). A run that stopped early ends with the line
// {"t":..,"event":"stopped","reason":".."}, which is not an event.
//
// To add a kind or a field: one row (or one field) in the table. Stateless;
// any thread.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "sim/SimEvent.h"

namespace EventsFormat {

// Lines nested deeper than this are refused before they are parsed (an
// event needs 2 levels).
inline constexpr int kMaxDepth = 8;

// The line of one event (no line feed), triggers included.
std::string Line(const SimEvent& event);
// The line a run that stopped early ends with (no line feed).
std::string StopLine(int64_t endMs, const std::string& reason);

enum class Parsed { Event, Stop, Damaged };
// Reads one line: an effect into `event`, the stop line, or a damaged line
// with `reason` set ("expected ..."). Triggers are not read back.
Parsed ParseLine(std::string_view line, SimEvent* event, std::string* reason);

// The "event" name of a kind ("node", "perf_lock_acquire", ...), and back;
// KindOf is false for a name that is not an effect.
const char* KindName(SimEvent::Kind kind);
bool KindOf(std::string_view name, SimEvent::Kind* kind);
// "node, perf_lock_acquire, ... or trace_section", for messages.
std::string EffectNames();

}  // namespace EventsFormat
