// Reads back the events of an earlier run, as --events wrote them
// (EventsFormat). Blank lines, and the "stopped" line of a run that ended
// early, are skipped; any other line that is not an effect is an error.
// Used to check a run against a recorded one; the file is read whole (its
// events are what the run is compared with). Stateless; any thread.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "sim/SimEvent.h"

namespace EventLog {

// Parses `text`; `name` names the file in messages. On error returns false
// and sets `error` to "FILE:LINE: what was expected"; `events` is then
// incomplete. Lines are checked text (TextLines).
bool Parse(const std::string& name, std::string_view text, std::vector<SimEvent>* events,
           std::string* error);
// Reads and parses the file `path` (InputFile: a regular file, 1 GB at most).
bool Load(const std::string& path, std::vector<SimEvent>* events, std::string* error);

}  // namespace EventLog
