// gorv-sim: watch the plug-in work on a Linux host.
//
//   gorv-sim [SCENARIO] [--events FILE] [--trace FILE] [--plot FILE] [--realtime]
//
// Without SCENARIO the built-in scenario runs. FILE may be - for standard
// output; the human timeline goes to standard output unless another output
// does. The run happens in a child process (ChildRun) so that the plug-in
// ending its own process still leaves every output written up to then.
// Exit status: 0 done; 1 the plug-in could not be run, or an output could
// not be written; 2 bad usage or a bad scenario (nothing runs); 3 the
// plug-in ended its process (one line on standard error says when and how);
// 128+N interrupted by signal N (SIGINT, SIGTERM). A closed pipe on an
// output ends the run quietly, as SIGPIPE ends other tools.
#include <fcntl.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <csignal>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <memory>
#include <vector>

#include "sim/ChildRun.h"
#include "sim/ChromeTraceWriter.h"
#include "sim/JsonLinesWriter.h"
#include "sim/OutputFile.h"
#include "sim/ScenarioParser.h"
#include "sim/Simulator.h"
#include "sim/SvgPlotWriter.h"
#include "sim/TimelinePrinter.h"

namespace {

constexpr int kDone = 0, kNotRun = 1, kBadInput = 2, kPluginEnded = 3;

// Hands each call to every output in turn.
class FanOut : public RunSink {
 public:
  void Add(std::unique_ptr<RunSink> sink) { mSinks.push_back(std::move(sink)); }
  void Begin(const RunInfo& info) override {
    for (auto& sink : mSinks) sink->Begin(info);
  }
  void Event(const SimEvent& event) override {
    for (auto& sink : mSinks) sink->Event(event);
  }
  void End(const RunEnd& end) override {
    for (auto& sink : mSinks) sink->End(end);
  }

 private:
  std::vector<std::unique_ptr<RunSink>> mSinks;
};

// The outputs asked for, opened before anything runs.
struct Outputs {
  std::vector<std::unique_ptr<OutputFile>> files;
  FanOut sinks;

  template <typename Writer>
  bool Open(const std::string& path) {
    if (path.empty()) return true;
    std::string error;
    std::unique_ptr<OutputFile> file = OutputFile::Open(path, &error);
    if (!file) {
      std::cerr << "gorv-sim: " << error << "\n";
      return false;
    }
    sinks.Add(std::make_unique<Writer>(file->stream()));
    files.push_back(std::move(file));
    return true;
  }
  bool PipeClosed() const {
    for (const auto& file : files) {
      if (file->PipeClosed()) return true;
    }
    return false;
  }
  // Closes every file; false after reporting each that failed.
  bool Close() {
    bool ok = true;
    for (auto& file : files) {
      std::string error;
      if (!file->Close(&error) && !file->PipeClosed()) {
        std::cerr << "gorv-sim: " << error << "\n";
        ok = false;
      }
    }
    return ok;
  }
};

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
  CLI::App app{"gorv-sim: replays a game session through libgorv.so in the host framework"};
  std::string scenarioPath, eventsPath, tracePath, plotPath;
  bool realtime = false;
  app.add_option("SCENARIO", scenarioPath, "scenario file (default: the built-in scenario)");
  app.add_option("--events", eventsPath, "write every effect as JSON lines to FILE (- for stdout)");
  app.add_option("--trace", tracePath, "write a Chrome/Perfetto trace to FILE (- for stdout)");
  app.add_option("--plot", plotPath, "write an SVG plot to FILE (- for stdout)");
  app.add_flag("--realtime", realtime, "run on real threads and the real clock");
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& e) {
    int status = app.exit(e);
    return status == 0 ? kDone : kBadInput;
  }
  if (!CheckStandardStreams()) return kNotRun;

  Scenario scenario;
  std::string error;
  bool parsed = scenarioPath.empty()
                    ? ScenarioParser::Parse("built-in scenario", ".", Simulator::BuiltInScenario(),
                                            &scenario, &error)
                    : ScenarioParser::ParseFile(scenarioPath, &scenario, &error);
  if (!parsed) {
    std::cerr << "gorv-sim: " << error << "\n";
    return kBadInput;
  }

  // Before anything is written: the plug-in's nodes must have a place.
  std::unique_ptr<PrivateSysfs> sysfs = PrivateSysfs::Make(&error);
  if (!sysfs) {
    std::cerr << "gorv-sim: " << error << "\n";
    return kNotRun;
  }
  Outputs outputs;
  if (!outputs.Open<JsonLinesWriter>(eventsPath) || !outputs.Open<ChromeTraceWriter>(tracePath) ||
      !outputs.Open<SvgPlotWriter>(plotPath)) {
    return kNotRun;
  }
  if (eventsPath != "-" && tracePath != "-" && plotPath != "-" &&
      !outputs.Open<TimelinePrinter>("-")) {
    return kNotRun;
  }

  Simulator::Options options;
  const char* plugin = std::getenv("GORV_PLUGIN");
  options.pluginPath = plugin != nullptr ? plugin : GORV_PLUGIN_PATH;
  options.realtime = realtime;
  ChildRun::Result run = ChildRun::Run(scenario, options, *sysfs, outputs.sinks,
                                       [&outputs] { return outputs.PipeClosed(); });
  bool written = outputs.Close();
  if (run.outcome == ChildRun::Outcome::Abandoned || outputs.PipeClosed()) {
    std::signal(SIGPIPE, SIG_DFL);
    std::raise(SIGPIPE);
    return kNotRun;
  }
  switch (run.outcome) {
    case ChildRun::Outcome::Failed:
      std::cerr << "gorv-sim: " << run.message << "\n";
      return kNotRun;
    case ChildRun::Outcome::Aborted:
      std::cerr << "gorv-sim: " << run.message << "\n";
      return kPluginEnded;
    case ChildRun::Outcome::Interrupted:
      std::cerr << "gorv-sim: " << run.message << "; the outputs hold the run up to then\n";
      return 128 + run.signal;
    default:
      return written ? kDone : kNotRun;
  }
}

}  // namespace

int main(int argc, char** argv) {
  // Out of memory in the simulator itself is reported like any other
  // failure to run.
  try {
    return Run(argc, argv);
  } catch (const std::exception& e) {
    std::cerr << "gorv-sim: " << e.what() << "\n";
  } catch (...) {
    std::cerr << "gorv-sim: unknown error\n";
  }
  return kNotRun;
}
