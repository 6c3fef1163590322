// The one way gorv-sim reports an error on standard error: "gorv-sim: "
// and the text on one line, every byte a user or the plug-in chose (a path,
// a scenario name, a log line) escaped as the timeline escapes it, so that
// no message can move the cursor or forge a line. Escaping is idempotent:
// text already escaped where it was made stays as it is.
#pragma once

#include <ostream>
#include <string>
#include <string_view>

namespace ErrorLine {

// "gorv-sim: " + the escaped text + "\n".
std::string Text(std::string_view message);
// Writes Text(message) to standard error. Any thread; on a thread whose
// standard output is held (HeldOutput), to the held error lines.
void Print(std::string_view message);
// The calling thread's standard error: std::cerr (main thread), or the
// held error lines.
std::ostream& Stream();

// Makes std::cerr write through WriteRaw, so that nothing written to
// standard error (an error line, a report, a usage message) can hold
// gorv-sim for good (main, once, before any thread starts).
void Install();
// Writes `bytes` to standard error as outputs are written: waiting for room
// on a pipe or terminal until a signal is caught, then for at most
// Interrupts::kGraceMs; what cannot be written then is dropped (there is
// nowhere left to say so). Any thread.
void WriteRaw(std::string_view bytes);

}  // namespace ErrorLine
