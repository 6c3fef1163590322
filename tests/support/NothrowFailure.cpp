#include "tests/support/NothrowFailure.h"

#include <cstddef>
#include <new>

namespace {
int gFailAt = 0;
int gCount = 0;
}  // namespace

void ArmNothrowFailure(int n) {
  gCount = 0;
  gFailAt = n;
}

int NothrowAllocations() { return gCount; }

void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  if (++gCount == gFailAt) return nullptr;
  try {
    return ::operator new(size);
  } catch (...) {
    return nullptr;
  }
}
