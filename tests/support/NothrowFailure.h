// Makes one non-throwing allocation fail on demand. A test that calls these
// links NothrowFailure.cpp, which replaces the process's
// `operator new(std::size_t, const std::nothrow_t&)`: every
// `new (std::nothrow)` of the plug-in then comes through it. Memory comes
// from the throwing form, so that sanitizers see matching new/delete pairs.
// Test thread only.
#pragma once

// From now on the nth non-throwing allocation returns null (0: none fails),
// counted from this call.
void ArmNothrowFailure(int n);

// Non-throwing allocations since the last ArmNothrowFailure.
int NothrowAllocations();
