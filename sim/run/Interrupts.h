// The signals that would end gorv-sim, caught once for the whole process.
// Every signal whose default action ends a process and that can be caught
// is turned into a note: the first one caught is kept (Caught()) and a
// pipe becomes readable and stays so (Fd()), for every loop that waits
// (RunSupervisor's, an output stalled on a pipe) to poll beside its own work.
// Nothing is per run: several runs in threads share the one note and each
// stops its own child. SIGPIPE and SIGXFSZ that a write of this process
// raised itself are left to the write, which sees EPIPE or EFBIG; sent by
// another process they stop the run as the others do.
#pragma once

namespace Interrupts {

// Installs the handlers (main, once, before any thread starts). False when
// the pipe cannot be made: the signals then keep their default action.
bool Install();

// The first signal caught, or 0. Any thread.
int Caught();

// The read end of the pipe, readable once a signal has been caught (never
// drained); -1 before Install(). Any thread; do not read or close it.
int Fd();

// In a run's process, from between its fork and its exec on: the signals
// are ignored (gorv-sim asks the run to stop), SIGPIPE ends it (gorv-sim is
// gone). Async-signal-safe.
void IgnoreInChild();

// How long a reader that takes nothing is waited for once a signal has been
// caught (an output, standard error), ms.
inline constexpr int kGraceMs = 1000;

// Waits until `fd` can be written to without blocking on a full pipe, or a
// signal has been caught. After a signal, waits at most `graceMs` for the
// reader to take more (outputs are still written after an interrupt, but a
// reader that never reads must not hold the program). False when that time
// passed without room.
bool WaitWritable(int fd, int graceMs);

}  // namespace Interrupts
