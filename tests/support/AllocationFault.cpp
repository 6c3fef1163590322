#include "tests/support/AllocationFault.h"

#include <atomic>
#include <cstdlib>
#include <new>

namespace {
std::atomic<bool> gCounting{false};
std::atomic<bool> gAll{false};
std::atomic<long> gCount{0};
std::atomic<long> gFailAt{0};

// Counts one allocation of the given form; true if it is to fail.
bool Fails(bool nothrow) {
  if (!gCounting.load(std::memory_order_relaxed)) return false;
  if (!nothrow && !gAll.load(std::memory_order_relaxed)) return false;
  long failAt = gFailAt.load(std::memory_order_relaxed);
  return ++gCount == failAt || failAt == -1;
}

void* Allocate(std::size_t size) { return std::malloc(size == 0 ? 1 : size); }
}  // namespace

void ArmAllocationFailure(long n, Allocations kinds) {
  gCount = 0;
  gFailAt = n;
  gAll = kinds == Allocations::kAll;
  gCounting = true;
}

void CountAllocations(bool on) { gCounting = on; }

long CountedAllocations() { return gCount; }

void* operator new(std::size_t size) {
  if (Fails(false)) throw std::bad_alloc();
  if (void* p = Allocate(size)) return p;
  throw std::bad_alloc();
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  return Fails(true) ? nullptr : Allocate(size);
}
// GCC 12 at -O2 inlines these into callers and takes free() for a mismatch
// with operator new, which here comes from malloc as well.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"
void operator delete(void* p) noexcept { std::free(p); }
void operator delete(void* p, std::size_t) noexcept { std::free(p); }
void operator delete(void* p, const std::nothrow_t&) noexcept { std::free(p); }
#pragma GCC diagnostic pop
