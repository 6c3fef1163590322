#include "sim/ScenarioJob.h"

#include <iostream>
#include <memory>
#include <vector>

#include "sim/check/ExpectChecker.h"
#include "sim/input/ScenarioParser.h"
#include "sim/output/ChromeTraceWriter.h"
#include "sim/output/EventLog.h"
#include "sim/output/JsonLinesWriter.h"
#include "sim/output/OutputFile.h"
#include "sim/output/RunSummary.h"
#include "sim/output/SummaryJsonWriter.h"
#include "sim/output/SvgPlotWriter.h"
#include "sim/output/TimelinePrinter.h"
#include "sim/run/ChildRun.h"

namespace {

// Hands each call to every output in turn.
class FanOut : public RunSink {
 public:
  void Add(RunSink* sink) { mSinks.push_back(sink); }
  void Begin(const RunInfo& info) override {
    for (RunSink* sink : mSinks) sink->Begin(info);
  }
  void Event(const SimEvent& event) override {
    for (RunSink* sink : mSinks) sink->Event(event);
  }
  void End(const RunEnd& end) override {
    for (RunSink* sink : mSinks) sink->End(end);
  }

 private:
  std::vector<RunSink*> mSinks;  // not owned
};

// The figures the closing table of a batch shows.
class Tally : public RunSink {
 public:
  void Begin(const RunInfo& /*info*/) override {}
  void Event(const SimEvent& event) override { summary.Add(event); }
  void End(const RunEnd& end) override { summary.Finish(end.endMs); }
  RunSummary summary;
};

// The outputs asked for, opened before anything runs.
struct OpenOutputs {
  std::vector<std::unique_ptr<OutputFile>> files;
  std::vector<std::unique_ptr<RunSink>> owned;
  FanOut sinks;

  void Add(std::unique_ptr<RunSink> sink) {
    sinks.Add(sink.get());
    owned.push_back(std::move(sink));
  }
  // Opens `path`; null after reporting why it cannot be.
  std::ostream* OpenFile(const std::string& path) {
    std::string error;
    std::unique_ptr<OutputFile> file = OutputFile::Open(path, &error);
    if (!file) {
      std::cerr << "gorv-sim: " << error << "\n";
      return nullptr;
    }
    files.push_back(std::move(file));
    return &files.back()->stream();
  }
  // A Writer(stream) to `path`; nothing for "".
  template <typename Writer, typename... Args>
  bool Open(const std::string& path, Args&&... args) {
    if (path.empty()) return true;
    std::ostream* out = OpenFile(path);
    if (out != nullptr) Add(std::make_unique<Writer>(std::forward<Args>(args)..., *out));
    return out != nullptr;
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

bool ParseScenario(const std::string& path, Scenario* scenario, std::string* error) {
  return path.empty() ? ScenarioParser::Parse("built-in scenario", ".",
                                              Simulator::BuiltInScenario(), scenario, error)
                      : ScenarioParser::ParseFile(path, scenario, error);
}

// Opens the outputs. The timeline, or with --expect the check's report,
// goes to standard output unless an output holds it; the report then goes
// to standard error. Sets `checker` when there is a check.
bool OpenAll(const Scenario& scenario, const ScenarioJob::Outputs& paths,
             std::vector<SimEvent> expected, const EventComparator::Options& comparison,
             OpenOutputs* outputs, ExpectChecker** checker) {
  bool stdoutTaken =
      paths.events == "-" || paths.trace == "-" || paths.plot == "-" || paths.summary == "-";
  if (!outputs->Open<JsonLinesWriter>(paths.events) ||
      !outputs->Open<ChromeTraceWriter>(paths.trace) || !outputs->Open<SvgPlotWriter>(paths.plot) ||
      !outputs->Open<SummaryJsonWriter>(paths.summary, scenario)) {
    return false;
  }
  if (paths.expect.empty()) return stdoutTaken || outputs->Open<TimelinePrinter>("-");
  std::ostream* report = stdoutTaken ? &std::cerr : outputs->OpenFile("-");
  if (report == nullptr) return false;
  auto check =
      std::make_unique<ExpectChecker>(std::move(expected), paths.expect, comparison, *report);
  *checker = check.get();
  outputs->Add(std::move(check));
  return true;
}

// Says how the run ended (standard error) and sets the status and the word
// for a batch's table.
void Conclude(const StopReport::Facts& facts, ScenarioJob::Outcome* outcome) {
  StopReport::Words words = StopReport::Report(facts);
  std::cerr << words.errorLine;
  outcome->status = words.status;
  outcome->word = words.tableWord;
}

}  // namespace

ScenarioJob::Outcome ScenarioJob::Run(const std::string& scenarioPath, const Outputs& paths,
                                      const Settings& settings) {
  Outcome outcome;
  Scenario scenario;
  std::vector<SimEvent> expected;
  std::string error;
  if (!ParseScenario(scenarioPath, &scenario, &error) ||
      (!paths.expect.empty() && !EventLog::Load(paths.expect, &expected, &error))) {
    std::cerr << "gorv-sim: " << error << "\n";
    Conclude(StopReport::Of(StopReport::Kind::BadInput), &outcome);
    return outcome;
  }
  // Before anything is written: the plug-in's nodes must have a place.
  std::unique_ptr<PrivateSysfs> sysfs = PrivateSysfs::Make(&error);
  if (!sysfs) {
    Conclude(StopReport::Of(StopReport::Kind::Failed, 0, error), &outcome);
    return outcome;
  }
  OpenOutputs outputs;
  ExpectChecker* checker = nullptr;
  Tally tally;
  outputs.sinks.Add(&tally);
  if (!OpenAll(scenario, paths, std::move(expected), settings.comparison, &outputs, &checker)) {
    Conclude(StopReport::Of(StopReport::Kind::Failed), &outcome);
    return outcome;
  }
  StopReport::Facts run = ChildRun::Run(scenario, settings.simulator, *sysfs, outputs.sinks,
                                        [&outputs] { return outputs.PipeClosed(); });
  outcome.written = outputs.Close();
  outcome.pipeClosed = run.kind == StopReport::Kind::OutputClosed || outputs.PipeClosed();
  outcome.ran = run.kind != StopReport::Kind::Failed;
  if (checker != nullptr && outcome.ran) {
    outcome.check = checker->passed() ? Check::Pass : Check::Fail;
  }
  outcome.targetChanges = tally.summary.targetChanges();
  outcome.lockHeldMs = tally.summary.lockHeldMs();
  run.written = outcome.written;
  run.checkFailed = outcome.check == Check::Fail;
  if (outcome.pipeClosed) run.kind = StopReport::Kind::OutputClosed;
  Conclude(run, &outcome);
  return outcome;
}
