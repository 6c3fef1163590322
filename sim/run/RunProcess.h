// The run's process: a fresh exec of gorv-sim that runs one scenario
// through the plug-in (RunEngine) and streams its events to gorv-sim over a
// pipe (RunChannel). RunSupervisor starts it with Arguments(); main hands
// over to Main() when it sees them. Being a new program image, it inherits
// no lock another thread of gorv-sim held, and no descriptor but the two it
// is given: its channel's write end and the run's memory (RunMemory, which
// holds the request, RunRequest). It never returns: whatever happens in it
// ends it with _exit once it has said so.
#pragma once

#include <string>
#include <vector>

namespace RunProcess {

// The first argument that makes gorv-sim a run's process.
inline constexpr const char* kFlag = "--run-process";

// The arguments after the program's path that start a run's process with
// these descriptors (which the process then owns; `program` is the
// program's own file, which an emulator may need to open, and is closed).
std::vector<std::string> Arguments(int channel, int memory, int program);

// True when argv is a run's process's (argv[1] is kFlag).
bool Asked(int argc, char** argv);

// The process's whole life. Exit status 0 when the run ended, 1 when the
// plug-in could not be run (said on the channel), 2 when the arguments are
// not a run's (said on standard error: a user typed them), 3 when an
// exception escaped (said on the channel); a fatal signal ends it as it
// would have, after the events so far are sent.
[[noreturn]] void Main(int argc, char** argv);

}  // namespace RunProcess
