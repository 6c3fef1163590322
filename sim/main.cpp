// gorv-sim: watch the plug-in work on a Linux host.
//
//   gorv-sim [SCENARIO] [--events FILE] [--trace FILE] [--plot FILE] [--realtime]
//
// Without SCENARIO the built-in scenario runs. FILE may be - for standard
// output; the human timeline goes to standard output unless another output
// does. Exit status: 0 done, 1 the plug-in could not be run, 2 bad usage or
// a bad scenario (nothing runs).
#include <CLI/CLI.hpp>

#include <cstdlib>
#include <exception>
#include <fstream>
#include <functional>
#include <iostream>

#include "sim/ChromeTraceWriter.h"
#include "sim/JsonLinesWriter.h"
#include "sim/ScenarioParser.h"
#include "sim/Simulator.h"
#include "sim/SvgPlotWriter.h"
#include "sim/TimelinePrinter.h"

namespace {

// Writes one report to `path` ("-": standard output). False on failure.
bool WriteReport(const std::string& path, const RunResult& result,
                 const std::function<void(const RunResult&, std::ostream&)>& write) {
  if (path == "-") {
    write(result, std::cout);
    return bool(std::cout);
  }
  std::ofstream out(path, std::ios::binary);
  if (out) write(result, out);
  if (!out) std::cerr << "gorv-sim: cannot write " << path << "\n";
  return bool(out);
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
    return status == 0 ? 0 : 2;
  }

  Scenario scenario;
  std::string error;
  bool parsed = scenarioPath.empty()
                    ? ScenarioParser::Parse("built-in scenario", ".", Simulator::BuiltInScenario(),
                                            &scenario, &error)
                    : ScenarioParser::ParseFile(scenarioPath, &scenario, &error);
  if (!parsed) {
    std::cerr << "gorv-sim: " << error << "\n";
    return 2;
  }

  Simulator::Options options;
  const char* plugin = std::getenv("GORV_PLUGIN");
  options.pluginPath = plugin != nullptr ? plugin : GORV_PLUGIN_PATH;
  options.realtime = realtime;
  RunResult result;
  if (!Simulator::Run(scenario, options, &result, &error)) {
    std::cerr << "gorv-sim: " << error << "\n";
    return 1;
  }

  bool ok = true;
  if (!eventsPath.empty()) ok &= WriteReport(eventsPath, result, &JsonLinesWriter::Write);
  if (!tracePath.empty()) ok &= WriteReport(tracePath, result, &ChromeTraceWriter::Write);
  if (!plotPath.empty()) ok &= WriteReport(plotPath, result, &SvgPlotWriter::Write);
  if (eventsPath != "-" && tracePath != "-" && plotPath != "-") {
    TimelinePrinter::Print(result, std::cout);
  }
  return ok ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
  // Out of memory or a failed stream is reported like any other failure to run.
  try {
    return Run(argc, argv);
  } catch (const std::exception& e) {
    std::cerr << "gorv-sim: " << e.what() << "\n";
  } catch (...) {
    std::cerr << "gorv-sim: unknown error\n";
  }
  return 1;
}
