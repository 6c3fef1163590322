// --junit FILE: the run or batch as a JUnit XML report, the format CI
// dashboards read (Jenkins, GitLab, Bazel's test.xml). One <testsuite>
// named gorv-sim, one <testcase> per scenario in the batch's order: a
// <failure> when the events differ from --expect (its text the difference
// report), an <error> when the scenario could not run or its run stopped
// (its message the line said on standard error), <skipped> for scenarios an
// interrupted batch never reached.
//
// Any bytes may arrive in a scenario's name or a message: the XML stays
// well formed (markup characters as entities, line ends in attributes as
// character references, bytes XML 1.0 cannot carry replaced by U+FFFD).
// Stateless; any thread.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "sim/ScenarioJob.h"

namespace JUnitReport {

struct Case {
  std::string name;                             // the scenario's stem
  std::optional<ScenarioJob::Outcome> outcome;  // none: not run (skipped)
  double seconds = 0;                           // wall time of the run
};

// The whole report; `seconds` is the batch's wall time.
std::string Text(const std::vector<Case>& cases, double seconds);

// Writes Text() to `path` (created or truncated; "-" standard output);
// false and `error` set when it cannot be written.
bool Write(const std::string& path, const std::vector<Case>& cases, double seconds,
           std::string* error);

// `text` made safe in XML character data; `attribute` also turns tab, line
// feed and carriage return into character references, which attribute
// value normalisation would otherwise turn into spaces.
std::string Escape(std::string_view text, bool attribute);

}  // namespace JUnitReport
