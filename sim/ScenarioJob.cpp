#include "sim/ScenarioJob.h"

#include <memory>
#include <vector>

#include "sim/ErrorLine.h"
#include "sim/check/ExpectChecker.h"
#include "sim/input/ScenarioParser.h"
#include "sim/output/EventLog.h"
#include "sim/output/OutputCheck.h"
#include "sim/output/OutputFile.h"
#include "sim/output/RunSummary.h"
#include "sim/output/TimelinePrinter.h"
#include "sim/run/RunSupervisor.h"

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
  std::string error;  // the last error reported

  void Add(std::unique_ptr<RunSink> sink) {
    sinks.Add(sink.get());
    owned.push_back(std::move(sink));
  }
  // Opens `path`; null after reporting why it cannot be.
  std::ostream* OpenFile(const std::string& path) {
    std::string error;
    std::unique_ptr<OutputFile> file = OutputFile::Open(path, &error);
    if (!file) {
      ErrorLine::Print(error);
      this->error = error;
      return nullptr;
    }
    files.push_back(std::move(file));
    return &files.back()->stream();
  }
  // Opens `path` with the sink make(stream) writes; false after reporting
  // why it cannot be.
  template <typename Make>
  bool Open(const std::string& path, Make make) {
    std::ostream* out = OpenFile(path);
    if (out != nullptr) Add(make(*out));
    return out != nullptr;
  }
  bool PipeClosed() const {
    for (const auto& file : files) {
      if (file->PipeClosed()) return true;
    }
    return false;
  }
  // Closes every file; false after reporting each that failed, and each
  // sink's problem.
  bool Close() {
    bool ok = true;
    for (const auto& sink : owned) {
      std::string problem = sink->Problem();
      if (!problem.empty()) ErrorLine::Print(problem);
      ok &= problem.empty();
    }
    for (auto& file : files) {
      std::string error;
      if (!file->Close(&error) && !file->PipeClosed()) {
        ErrorLine::Print(error);
        this->error = error;
        ok = false;
      }
    }
    return ok;
  }
};

bool ParseScenario(const std::string& path, Scenario* scenario, std::string* error) {
  return path.empty() ? ScenarioParser::Parse("built-in scenario", ".",
                                              RunEngine::BuiltInScenario(), scenario, error)
                      : ScenarioParser::ParseFile(path, scenario, error);
}

// The files the run reads, as OutputCheck names them: the scenario, the
// captures it replays and the expected events.
std::vector<OutputCheck::Named> InputsOf(const std::string& scenarioPath, const Scenario& scenario,
                                         const std::string& expect) {
  std::vector<OutputCheck::Named> inputs;
  if (!scenarioPath.empty()) inputs.push_back({"the scenario", scenarioPath});
  for (const Scenario::RateChange& change : scenario.rates) {
    if (change.timeline) inputs.push_back({"the capture", change.timeline->name()});
  }
  if (!expect.empty()) inputs.push_back({"--expect", expect});
  return inputs;
}

// "" when no output is an input or another output; else why.
std::string CheckOutputs(const std::string& scenarioPath, const Scenario& scenario,
                         const ScenarioJob::Outputs& paths) {
  std::vector<OutputCheck::Named> outputs;
  for (size_t i = 0; i < paths.files.size(); ++i) {
    if (!paths.files[i].empty()) outputs.push_back({OutputTable::Rows()[i].option, paths.files[i]});
  }
  return OutputCheck::Conflict(outputs, InputsOf(scenarioPath, scenario, paths.expect));
}

// Opens the outputs, one sink per OutputTable row asked for. The timeline,
// or with --expect the check's report, goes to standard output unless an
// output holds it; the report then goes to standard error. Sets `checker`
// when there is a check.
bool OpenAll(const Scenario& scenario, const ScenarioJob::Outputs& paths,
             std::vector<SimEvent> expected, const EventComparator::Options& comparison,
             OpenOutputs* outputs, ExpectChecker** checker) {
  bool stdoutTaken = false;
  for (size_t i = 0; i < paths.files.size(); ++i) {
    const std::string& path = paths.files[i];
    auto make = [&scenario, i](std::ostream& out) {
      return OutputTable::Rows()[i].make(out, scenario);
    };
    if (!path.empty() && !outputs->Open(path, make)) return false;
    stdoutTaken |= path == "-";
  }
  if (paths.expect.empty()) {
    return stdoutTaken || outputs->Open("-", [](std::ostream& out) {
      return std::make_unique<TimelinePrinter>(out);
    });
  }
  std::ostream* report = stdoutTaken ? &ErrorLine::Stream() : outputs->OpenFile("-");
  if (report == nullptr) return false;
  auto check =
      std::make_unique<ExpectChecker>(std::move(expected), paths.expect, comparison, *report);
  *checker = check.get();
  outputs->Add(std::move(check));
  return true;
}

// Says how the run ended (standard error) and sets the status, the word for
// a batch's table and the error a report shows (`said`, when it was already
// printed).
void Conclude(const StopReport::Facts& facts, ScenarioJob::Outcome* outcome,
              const std::string& said = "") {
  StopReport::Words words = StopReport::Report(facts);
  if (!words.message.empty()) ErrorLine::Print(words.message);
  outcome->status = words.status;
  outcome->word = words.tableWord;
  outcome->error = words.message.empty() ? said : words.message;
}

}  // namespace

namespace ScenarioJob {

Outcome Run(const std::string& scenarioPath, const Outputs& paths, const Settings& settings) {
  Outcome outcome;
  Scenario scenario;
  std::vector<SimEvent> expected;
  std::string error;
  if (!ParseScenario(scenarioPath, &scenario, &error) ||
      (!paths.expect.empty() && !EventLog::Load(paths.expect, &expected, &error)) ||
      !(error = CheckOutputs(scenarioPath, scenario, paths)).empty()) {
    Conclude(StopReport::Of(StopReport::Kind::BadInput, 0, error), &outcome);
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
    Conclude(StopReport::Of(StopReport::Kind::Failed), &outcome, outputs.error);
    return outcome;
  }
  StopReport::Facts run = RunSupervisor::Run(scenario, settings.simulator, *sysfs, outputs.sinks,
                                             [&outputs] { return outputs.PipeClosed(); });
  outcome.written = outputs.Close();
  outcome.pipeClosed = run.kind == StopReport::Kind::OutputClosed || outputs.PipeClosed();
  outcome.ran = run.kind != StopReport::Kind::Failed;
  if (checker != nullptr && outcome.ran) {
    outcome.check = checker->passed() ? Check::Pass : Check::Fail;
    outcome.checkReport = checker->report();
  }
  outcome.targetChanges = tally.summary.targetChanges();
  outcome.lockHeldMs = tally.summary.lockHeldMs();
  run.written = outcome.written;
  run.checkFailed = outcome.check == Check::Fail;
  if (outcome.pipeClosed) run.kind = StopReport::Kind::OutputClosed;
  Conclude(run, &outcome, outcome.pipeClosed ? "" : outputs.error);
  return outcome;
}

}  // namespace ScenarioJob
