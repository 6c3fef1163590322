// The outcome of checking a run against its expected events, in the
// timeline's words: one line when they match; otherwise a headline with the
// number of differences, then the first ones as timeline lines marked
// "missing", "extra" or "changed" (the changed event followed by the
// expected one), then how many were left out. Stateless; any thread.
#pragma once

#include <cstddef>
#include <ostream>
#include <string>

#include "sim/check/EventComparator.h"

namespace DiffReport {

// `scenario` and `expectedFile` name the run and the file in the headline.
void Print(const std::string& scenario, const std::string& expectedFile,
           const EventComparator::Result& result, std::ostream& out, size_t shown = 10);

}  // namespace DiffReport
