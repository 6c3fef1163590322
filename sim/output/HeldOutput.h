// A scenario's standard output and error lines, held while it runs beside
// other scenarios and written out whole once every earlier one is done, so
// that a batch run in parallel reads like one run in turn.
//
// The standard output goes to an anonymous memory file (memfd: the kernel
// swaps it out as it does any tmpfs file, so a long timeline does not pin
// memory); the error lines, a few short ones, to a string.
//
// A thread makes a held output its own with a Scope: while it lasts,
// OutputFile's "-" writes to the held file and ErrorLine to the held
// errors. A held output is filled by one thread and written out by another
// after that thread is done with it (the caller orders the two).
#pragma once

#include <atomic>
#include <sstream>
#include <string>

class HeldOutput {
 public:
  // `stdoutClosed`, set by the thread that writes out once standard output
  // has met a closed pipe, outlives this held output.
  explicit HeldOutput(const std::atomic<bool>& stdoutClosed);
  ~HeldOutput();
  HeldOutput(const HeldOutput&) = delete;
  HeldOutput& operator=(const HeldOutput&) = delete;

  // The calling thread's held output, or null: its standard output and
  // errors are the process's own.
  static HeldOutput* Current();
  // Makes `held` the calling thread's held output while it lasts.
  class Scope {
   public:
    explicit Scope(HeldOutput& held);
    ~Scope();
    Scope(const Scope&) = delete;
    Scope& operator=(const Scope&) = delete;
  };

  // A new descriptor (close-on-exec, the caller's to close) for the held
  // standard output, or -1 with errno set when the memory file could not
  // be made.
  int NewDescriptor() const;
  std::ostream& errors() { return mErrors; }
  // Standard output has been closed (piping into head): whoever writes to
  // the held file should give up as on a closed pipe.
  bool StdoutClosed() const { return mStdoutClosed.load(); }

  // Writes the held standard output (unless it is closed), then the error
  // lines to standard error. Calling thread without a Scope. True when the
  // standard output was written; else `pipeClosed` says whether it was a
  // closed pipe, or `error` why not.
  bool WriteOut(bool* pipeClosed, std::string* error);

 private:
  const std::atomic<bool>& mStdoutClosed;
  int mFd;           // the memory file, or -1
  int mFailure = 0;  // why there is none: an errno value
  std::ostringstream mErrors;
};
