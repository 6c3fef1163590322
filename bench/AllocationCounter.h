// Counts heap allocations made through operator new in this process (the
// benchmark binary replaces the global operators), so a benchmark can report
// how many a round makes and how much heap a feature holds.
#pragma once

#include <cstdint>

class AllocationCounter {
 public:
  // Allocations and live bytes since the process started.
  static int64_t Allocations();
  static int64_t LiveBytes();
};
