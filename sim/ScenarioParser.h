// Reads the scenario language: one directive per line; blank lines and
// lines whose first non-blank character is # are ignored. Times are integer
// milliseconds (0 or more). "Rest of the line" arguments are everything
// after the one blank that follows the previous token, verbatim.
//
//   property NAME VALUE         app PACKAGE CLASS PID     ignore TEXT
//   meter NAME                  meter-latency MS          fps T VALUE
//   frames T FILE               layer TEXT                trigger T ID COMPONENT [VALUE]
//   fault T KIND                end T
#pragma once

#include <string>

#include "sim/Scenario.h"

class ScenarioParser {
 public:
  // Parses `text`; `name` names the file in messages and `directory` is
  // where frame captures are looked up. On error returns false and sets
  // `error` to "FILE:LINE: what was expected".
  static bool Parse(const std::string& name, const std::string& directory, const std::string& text,
                    Scenario* scenario, std::string* error);
  // Reads and parses the file `path`.
  static bool ParseFile(const std::string& path, Scenario* scenario, std::string* error);
};
