// The words every text output shares, so that the timeline, the check's
// report, the batch table and the trace and plot writers say the same thing
// the same way without borrowing from one another. Stateless; any thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "sim/SimEvent.h"

namespace SimWords {

// `ms` in seconds with three decimals: "1.250".
std::string Seconds(int64_t ms);
// `text` with spaces before it up to `width` characters (as it is when
// longer).
std::string RightAligned(const std::string& text, size_t width);
// `text` with spaces after it up to `width` characters.
std::string Padded(std::string text, size_t width);
// The time column of the timeline and the report: Seconds(ms) right-aligned
// in 10 characters.
std::string TimeColumn(int64_t ms);
// "target_pid" for "/sys/kernel/sched_penalty/parameters/target_pid".
std::string ShortNode(const std::string& path);
// What the feature does with a framework trigger: "start", "stop",
// "fps-hint", "vendor-hint-disable", or "trigger" for an id it ignores.
std::string TriggerName(int64_t id);
// One event as the timeline's line has it after the time column, every text
// from the user or the plug-in escaped: "node     fps <- 60".
std::string Describe(const SimEvent& event);

}  // namespace SimWords
