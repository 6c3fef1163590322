// Makes allocations of the process fail on demand. A test that calls these
// links AllocationFault.cpp, which replaces the global operator new and
// delete: every allocation of the plug-in then comes through them. Memory
// comes from malloc and goes back to free, so that sanitizers see matching
// pairs. Counters are atomic; arming is for the test thread.
#pragma once

enum class Allocations { kNothrow, kAll };

// From now on counts the allocations of `kinds` (the non-throwing form only,
// or every form); the nth one fails: null from the non-throwing form,
// std::bad_alloc from the others. 0: none fails; -1: every one fails.
void ArmAllocationFailure(long n, Allocations kinds = Allocations::kNothrow);

// Pauses or resumes counting, around allocations the test makes itself.
void CountAllocations(bool on);

// Allocations counted since the last ArmAllocationFailure.
long CountedAllocations();
