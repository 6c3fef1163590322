// Fuzzes the simulator's inputs and outputs: the input is a scenario text
// (numbers at their limits, any bytes) and, after a blank line, a frame
// capture it may name. Each scenario that parses is turned into a run as
// the outputs see it (its triggers as events, a log line of any bytes, and
// an end that says the plug-in ended the process) and written by every
// output. Checks: parsing never crashes or overflows (the sanitizers
// watch), rejected input has a FILE:LINE message, the trace is valid JSON
// and the plot well-formed, no raw control byte reaches the timeline.
#include <fuzzer/FuzzedDataProvider.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>

#include "sim/input/ScenarioParser.h"
#include "sim/output/ChromeTraceWriter.h"
#include "sim/output/JsonLinesWriter.h"
#include "sim/output/SvgPlotWriter.h"
#include "sim/output/TimelinePrinter.h"
#include "sim/run/RunEngine.h"

namespace {

void Fail(const std::string& what) {
  std::fprintf(stderr, "==gorv-fuzz== %s\n", what.c_str());
  std::abort();
}

// The directory the capture is written to, once per process.
const std::string& CaptureDirectory() {
  static const std::string directory = [] {
    char pattern[] = "/tmp/gorv-fuzz-scenario-XXXXXX";
    return std::string(mkdtemp(pattern) != nullptr ? pattern : "/tmp");
  }();
  return directory;
}

RunResult RunOf(const Scenario& scenario, const std::string& logText) {
  RunResult result;
  result.info = RunEngine::InfoOf(scenario);
  SimEvent log;
  log.kind = SimEvent::Kind::Log;
  log.text = logText;
  result.events.push_back(log);
  for (const Scenario::Trigger& trigger : scenario.triggers) {
    SimEvent event;
    event.kind = SimEvent::Kind::Trigger;
    event.tMs = trigger.atMs;
    event.value = trigger.id;
    event.name = trigger.component;
    event.triggerValue = trigger.value;
    result.events.push_back(event);
  }
  std::stable_sort(result.events.begin(), result.events.end(),
                   [](const SimEvent& a, const SimEvent& b) { return a.tMs < b.tMs; });
  result.end = {scenario.EndMs(), 0, "the plug-in ended the process: SIGABRT (Aborted)"};
  return result;
}

void CheckOutputs(const RunResult& result) {
  std::ostringstream trace, plot, timeline, events;
  result.WriteAs<ChromeTraceWriter>(trace);
  if (!nlohmann::json::accept(trace.str())) Fail("the trace is not valid JSON");
  result.WriteAs<SvgPlotWriter>(plot);
  if (plot.str().size() > (size_t{1} << 20)) Fail("the plot is larger than 1 MiB");
  if (plot.str().find("</svg>") == std::string::npos) Fail("the plot is cut short");
  result.WriteAs<TimelinePrinter>(timeline);
  for (char c : timeline.str()) {
    if ((static_cast<unsigned char>(c) < 0x20 && c != '\n' && c != '\t') || c == 0x7F) {
      Fail("a raw control byte in the timeline");
    }
  }
  result.WriteAs<JsonLinesWriter>(events);
  std::istringstream lines(events.str());
  for (std::string line; std::getline(lines, line);) {
    if (!nlohmann::json::accept(line)) Fail("an --events line is not valid JSON");
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzedDataProvider input(data, size);
  std::string capture = input.ConsumeRandomLengthString(4096);
  std::string logText = input.ConsumeRandomLengthString(64);
  std::string text = input.ConsumeRemainingBytesAsString();
  std::ofstream(CaptureDirectory() + "/c", std::ios::binary) << capture;

  Scenario scenario;
  std::string error;
  if (!ScenarioParser::Parse("f.scn", CaptureDirectory(), text, &scenario, &error)) {
    if (error.rfind("f.scn:", 0) != 0 && error.find(CaptureDirectory()) == std::string::npos) {
      Fail("an error without the file: " + error);
    }
    return 0;
  }
  if (scenario.EndMs() < 0 || scenario.EndMs() > 31536000000LL + 2000) Fail("end out of range");
  CheckOutputs(RunOf(scenario, logText));
  return 0;
}
