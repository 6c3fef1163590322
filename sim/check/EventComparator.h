// Compares the effects of a run with those of an earlier one. Both lists
// are ordered by time (stably: events of the same ms keep their order) and
// aligned by a longest common subsequence, so one removed event reads as
// one missing event rather than every later event changed. Events only
// match at the same virtual time; an unmatched expected and recorded event
// of the same kind, time and subject (node path, counter name, log tag) are
// reported as one changed event.
#pragma once

#include <cstddef>
#include <set>
#include <string>
#include <vector>

#include "sim/SimEvent.h"

class EventComparator {
 public:
  struct Options {
    bool maskLogLines = false;         // compare log messages with source lines as "N"
    std::set<SimEvent::Kind> ignored;  // kinds left out on both sides
  };
  struct Difference {
    enum class Kind { Missing, Extra, Changed };
    Kind kind = Kind::Missing;
    SimEvent expected;  // Missing, Changed
    SimEvent recorded;  // Extra, Changed
    int64_t TimeMs() const { return kind == Kind::Extra ? recorded.tMs : expected.tMs; }
  };
  struct Result {
    size_t matched = 0;
    std::vector<Difference> differences;  // in time order
  };

  static Result Compare(std::vector<SimEvent> expected, std::vector<SimEvent> recorded,
                        const Options& options);
};
