// Reads the scenario language: one directive per line (lines as TextLines
// reads them: CR, CRLF or LF ends, no final end needed, NUL bytes, control
// characters and bytes that are not UTF-8 refused); blank lines and lines
// whose first non-blank character is # are ignored. Times are integer
// milliseconds from 0 to a year; every number is range-checked, and a value
// out of range is an error naming the line and the range. "Rest of the
// line" arguments are everything after the one blank that follows the
// previous token, verbatim. An fps VALUE below the smallest normal float
// (1.2e-38, e.g. 1e-40) is taken as the nearest float: a denormal, or 0.
// A capture file named by several `frames` lines (in any way: ./x, x, a
// link to it) is read once for each layer it replays.
//
//   property NAME VALUE         app PACKAGE CLASS PID     ignore TEXT
//   meter NAME                  meter-latency MS          fps T VALUE
//   frames T FILE               layer TEXT                trigger T ID COMPONENT [VALUE]
//   fault T KIND                end T
#pragma once

#include <string>

#include "sim/input/Scenario.h"

namespace ScenarioParser {

// Parses `text`; `name` names the file in messages and `directory` is
// where frame captures are looked up. On error returns false and sets
// `error` to "FILE:LINE: what was expected".
bool Parse(const std::string& name, const std::string& directory, const std::string& text,
           Scenario* scenario, std::string* error);
// Reads (InputFile: a regular file of at most 256 MiB) and parses `path`.
bool ParseFile(const std::string& path, Scenario* scenario, std::string* error);

}  // namespace ScenarioParser
