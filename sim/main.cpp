// gorv-sim: watch the plug-in work on a Linux host, and check a change
// against recorded runs.
//
//   gorv-sim [SCENARIO|FOLDER...] [--events FILE] [--trace FILE] [--plot FILE]
//            [--summary-json FILE] [--expect FILE [--ignore-log-lines]
//            [--ignore KIND]...] [--realtime]
//
// Without SCENARIO the built-in scenario runs. FILE may be - for standard
// output, or a folder for files named after each scenario (BatchRunner);
// the human timeline goes to standard output unless another output or the
// check does. Each run happens in a child process (ChildRun) so that the
// plug-in ending its own process still leaves every output written up to
// then. Exit status, the highest of the runs': 0 done (and matched); 1 the
// plug-in could not be run, an output could not be written, or the events
// differ from the expected ones; 2 bad usage or bad input (that scenario
// does not run); 3 the plug-in ended its process (one line on standard
// error says when and how); 128+N interrupted by signal N (any signal that
// would end the program: SIGINT, SIGTERM, SIGHUP, ...; the run stops where
// it is, every output is written and the private folder removed), which
// ends a batch. A closed pipe on an output ends the run quietly, as SIGPIPE
// ends other tools.
#include <fcntl.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <csignal>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <memory>
#include <vector>

#include "sim/BatchRunner.h"
#include "sim/ExitStatus.h"
#include "sim/output/EventLog.h"
#include "sim/run/Interrupts.h"

namespace {

// Standard input and error, when closed, are pointed at /dev/null so that
// no output file takes their numbers; a closed standard output is an error
// (the timeline or a "-" output goes there).
bool CheckStandardStreams() {
  for (int fd : {STDIN_FILENO, STDERR_FILENO}) {
    if (fcntl(fd, F_GETFD) < 0) {
      int opened = open("/dev/null", fd == STDIN_FILENO ? O_RDONLY : O_WRONLY);
      if (opened >= 0 && opened != fd) close(opened);
    }
  }
  if (fcntl(STDOUT_FILENO, F_GETFD) >= 0) return true;
  std::cerr << "gorv-sim: cannot write standard output: it is closed\n";
  return false;
}

int Run(int argc, char** argv) {
  CLI::App app{"gorv-sim: replays game sessions through libgorv.so in the host framework"};
  BatchRunner::Request request;
  ScenarioJob::Outputs& outputs = request.outputs;
  std::vector<std::string> ignored;
  app.add_option("SCENARIO", request.scenarios,
                 "scenario files or folders of *.scn files (default: the built-in scenario)");
  app.add_option("--events", outputs.events, "write every effect as JSON lines to FILE (- stdout)");
  app.add_option("--trace", outputs.trace, "write a Chrome/Perfetto trace to FILE (- stdout)");
  app.add_option("--plot", outputs.plot, "write an SVG plot to FILE (- stdout)");
  app.add_option("--summary-json", outputs.summary, "write the summary as JSON to FILE (- stdout)");
  CLI::Option* expect = app.add_option("--expect", outputs.expect,
                                       "check the events against FILE (an --events file)");
  app.add_flag("--ignore-log-lines", request.settings.comparison.maskLogLines,
               "check log messages with their source line numbers masked")
      ->needs(expect);
  app.add_option("--ignore", ignored, "leave events of KIND out of the check (repeatable)")
      ->allow_extra_args(false)
      ->needs(expect);
  app.add_flag("--realtime", request.settings.simulator.realtime,
               "run on real threads and the real clock");
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& e) {
    int status = app.exit(e);
    return status == 0 ? ExitStatus::kDone : ExitStatus::kBadInput;
  }
  for (const std::string& name : ignored) {
    SimEvent::Kind kind;
    if (!EventLog::KindOf(name, &kind)) {
      std::cerr << "gorv-sim: --ignore " << name << ": expected " << EventLog::EffectNames()
                << "\n";
      return ExitStatus::kBadInput;
    }
    request.settings.comparison.ignored.insert(kind);
  }
  if (!CheckStandardStreams()) return ExitStatus::kNotRun;
  const char* plugin = std::getenv("GORV_PLUGIN");
  request.settings.simulator.pluginPath = plugin != nullptr ? plugin : GORV_PLUGIN_PATH;
  bool pipeClosed = false;
  int status = BatchRunner::Run(request, &pipeClosed);
  if (pipeClosed) {
    std::signal(SIGPIPE, SIG_DFL);
    std::raise(SIGPIPE);
  }
  return status;
}

}  // namespace

int main(int argc, char** argv) {
  // Signals become a note every run and output looks at (Interrupts).
  Interrupts::Install();
  // Out of memory in the simulator itself is reported like any other
  // failure to run.
  try {
    return Run(argc, argv);
  } catch (const std::exception& e) {
    std::cerr << "gorv-sim: " << e.what() << "\n";
  } catch (...) {
    std::cerr << "gorv-sim: unknown error\n";
  }
  return ExitStatus::kNotRun;
}
