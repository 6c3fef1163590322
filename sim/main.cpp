// gorv-sim: watch the plug-in work on a Linux host, and check a change
// against recorded runs.
//
//   gorv-sim [SCENARIO|FOLDER...] [--events FILE] [--trace FILE] [--plot FILE]
//            [--summary-json FILE] [--perfetto FILE] [--expect FILE [--ignore-log-lines]
//            [--ignore KIND]...] [--realtime] [--shard I/N] [--junit FILE]
//            [--quiet] [-j N] [--stall-timeout SECONDS]
//
// The output options come from OutputTable, one per output.
//
// --shard I/N (or TEST_TOTAL_SHARDS and TEST_SHARD_INDEX) runs one shard of
// a batch (Shard); --junit writes a JUnit XML report (JUnitReport); --quiet
// hides the progress line a terminal shows (Progress); -j N runs N
// scenarios of a batch at once, one per core by default (ParallelBatch);
// --stall-timeout ends a run that makes no progress (StallWatch).
//
// Without SCENARIO the built-in scenario runs. FILE may be - for standard
// output, or a folder for files named after each scenario (BatchRunner);
// the human timeline goes to standard output unless another output or the
// check does. Each run happens in a child process (RunSupervisor) so that the
// plug-in ending its own process still leaves every output written up to
// then. Exit status, the highest of the runs': 0 done (and matched); 1 the
// plug-in could not be run, an output (or its folder) could not be written,
// or the events differ from the expected ones; 2 bad usage or bad input,
// including an output that is the same file as an input or as another
// output (that scenario does not run); 3 the plug-in ended its process, or made no progress (one
// line on standard error says when and how); 128+N interrupted by signal N
// (any signal that would end the program: SIGINT, SIGTERM, SIGHUP, ...; the
// run stops where it is, every output is written and the private folder
// removed), which ends a batch. A closed pipe on an output ends the run
// quietly, as SIGPIPE ends other tools.
#include <fcntl.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <exception>
#include <memory>
#include <vector>

#include "sim/BatchRunner.h"
#include "sim/ErrorLine.h"
#include "sim/ExitStatus.h"
#include "sim/ParallelBatch.h"
#include "sim/Shard.h"
#include "sim/output/EventsFormat.h"
#include "sim/output/OutputTable.h"
#include "sim/run/Interrupts.h"
#include "sim/run/RunProcess.h"

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
  ErrorLine::Print("cannot write standard output: it is closed");
  return false;
}

// The options of the outputs (one per OutputTable row) and of the check.
CLI::Option* AddOutputOptions(CLI::App& app, ScenarioJob::Outputs& outputs) {
  for (size_t i = 0; i < OutputTable::Rows().size(); ++i) {
    const OutputTable::Row& row = OutputTable::Rows()[i];
    app.add_option(row.option, outputs.files[i], row.help);
  }
  return app.add_option("--expect", outputs.expect,
                        "check the events against FILE (an --events file)");
}

// The limit of real time a run may go without progress (StallWatch).
void AddStallOption(CLI::App& app, std::chrono::milliseconds* limit) {
  app.add_option_function<int64_t>(
         "--stall-timeout", [limit](int64_t seconds) { *limit = std::chrono::seconds(seconds); },
         "end a run whose plug-in makes no progress for SECONDS of real time (default 60; 0: "
         "never)")
      ->check(CLI::Range(int64_t{0}, int64_t{31536000}));
}

// --shard (its text to `shard`), --junit, --quiet and --jobs.
CLI::Option* AddCorpusOptions(CLI::App& app, BatchRunner::Request* request, std::string* shard) {
  CLI::Option* option = app.add_option(
      "--shard", *shard,
      "run scenario i (in name order) when i mod N is I (default: TEST_TOTAL_SHARDS, "
      "TEST_SHARD_INDEX)");
  app.add_option("--junit", request->junit, "write a JUnit XML report to FILE (- stdout)");
  app.add_flag("--quiet", request->quiet, "no progress line on a terminal");
  request->jobs = ParallelBatch::DefaultJobs();
  app.add_option("-j,--jobs", request->jobs,
                 "run N scenarios of a batch at once (default: one per core)")
      ->check(CLI::Range(1u, 1000u));
  return option;
}

// The shard from --shard or the environment (a usage error when neither is
// right), and the shard status file touched when the environment names one.
int SetUpShard(const std::string* option, Shard::Slice* slice) {
  std::string error;
  if (!Shard::Choose(option, std::getenv("TEST_TOTAL_SHARDS"), std::getenv("TEST_SHARD_INDEX"),
                     slice, &error)) {
    ErrorLine::Print(error);
    return ExitStatus::kBadInput;
  }
  const char* statusFile = std::getenv("TEST_SHARD_STATUS_FILE");
  if (statusFile != nullptr && !Shard::TouchStatusFile(statusFile, &error)) {
    ErrorLine::Print(error);
    return ExitStatus::kNotRun;
  }
  return ExitStatus::kDone;
}

int Run(int argc, char** argv) {
  CLI::App app{"gorv-sim: replays game sessions through libgorv.so in the host framework"};
  BatchRunner::Request request;
  std::vector<std::string> ignored;
  app.add_option("SCENARIO", request.scenarios,
                 "scenario files or folders of *.scn files (default: the built-in scenario)");
  CLI::Option* expect = AddOutputOptions(app, request.outputs);
  app.add_flag("--ignore-log-lines", request.settings.comparison.maskLogLines,
               "check log messages with their source line numbers masked")
      ->needs(expect);
  app.add_option("--ignore", ignored, "leave events of KIND out of the check (repeatable)")
      ->allow_extra_args(false)
      ->needs(expect);
  app.add_flag("--realtime", request.settings.simulator.realtime,
               "run on real threads and the real clock");
  AddStallOption(app, &request.settings.simulator.stallLimit);
  std::string shard;
  CLI::Option* shardOption = AddCorpusOptions(app, &request, &shard);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& e) {
    int status = app.exit(e);
    return status == 0 ? ExitStatus::kDone : ExitStatus::kBadInput;
  }
  for (const std::string& name : ignored) {
    SimEvent::Kind kind;
    if (!EventsFormat::KindOf(name, &kind)) {
      ErrorLine::Print("--ignore " + name + ": expected " + EventsFormat::EffectNames());
      return ExitStatus::kBadInput;
    }
    request.settings.comparison.ignored.insert(kind);
  }
  if (!CheckStandardStreams()) return ExitStatus::kNotRun;
  int sharding = SetUpShard(shardOption->count() > 0 ? &shard : nullptr, &request.shard);
  if (sharding != ExitStatus::kDone) return sharding;
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
  // Each run happens in a fresh exec of this program (RunProcess).
  if (RunProcess::Asked(argc, argv)) RunProcess::Main(argc, argv);
  // Signals become a note every run and output looks at (Interrupts);
  // standard error waits for room as the outputs do.
  Interrupts::Install();
  ErrorLine::Install();
  // Out of memory in the simulator itself is reported like any other
  // failure to run.
  try {
    return Run(argc, argv);
  } catch (const std::exception& e) {
    ErrorLine::Print(e.what());
  } catch (...) {
    ErrorLine::Print("unknown error");
  }
  return ExitStatus::kNotRun;
}
