// Compares the effects of a run with those of an earlier one. Both lists
// are ordered by time (stably: events of the same ms keep their order) and
// aligned within each ms in one pass: identical events are matched in
// order; where they differ, the side whose event comes again sooner on the
// other side is skipped, so one removed event reads as one missing event
// rather than every later event changed. Events only match at the same
// virtual time; an unmatched expected and recorded event of the same kind,
// time and subject (node path, counter name, log tag) are reported as one
// changed event, the others as missing or extra. Time and memory are linear
// in the number of events, however many share one ms. Stateless; any thread.
#pragma once

#include <cstddef>
#include <set>
#include <string>
#include <vector>

#include "sim/SimEvent.h"

namespace EventComparator {

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

Result Compare(std::vector<SimEvent> expected, std::vector<SimEvent> recorded,
               const Options& options);

}  // namespace EventComparator
