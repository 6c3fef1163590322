#include "sim/BatchRunner.h"

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <ostream>
#include <set>

#include "sim/ErrorLine.h"
#include "sim/ExitStatus.h"
#include "sim/JUnitReport.h"
#include "sim/ParallelBatch.h"
#include "sim/Progress.h"
#include "sim/SimWords.h"
#include "sim/SystemError.h"
#include "sim/TextEscape.h"
#include "sim/output/OutputFile.h"
#include "sim/run/Interrupts.h"
#include "sim/run/StopReport.h"

namespace {

namespace fs = std::filesystem;
using SimWords::Padded;
using SimWords::RightAligned;

struct Plan {
  std::vector<std::string> scenarios;         // files; "" the built-in scenario
  std::vector<ScenarioJob::Outputs> outputs;  // per scenario
  bool table = false;                         // several scenarios or a folder
};

bool IsFolder(const std::string& path) {
  std::error_code ignored;
  return !path.empty() && (path.back() == '/' || fs::is_directory(path, ignored));
}

// Expands folders into their *.scn files.
bool ListScenarios(const std::vector<std::string>& arguments, Plan* plan, std::string* error) {
  if (arguments.empty()) plan->scenarios.emplace_back();
  for (const std::string& argument : arguments) {
    if (!IsFolder(argument)) {
      plan->scenarios.push_back(argument);
      continue;
    }
    plan->table = true;
    std::vector<std::string> found;
    std::error_code failed;
    for (const auto& entry : fs::directory_iterator(argument, failed)) {
      if (entry.path().extension() == ".scn") found.push_back(entry.path().string());
    }
    if (failed || found.empty()) {
      *error = argument + (failed ? ": cannot read the folder" : ": no *.scn scenarios in it");
      return false;
    }
    std::sort(found.begin(), found.end());
    plan->scenarios.insert(plan->scenarios.end(), found.begin(), found.end());
  }
  plan->table |= plan->scenarios.size() > 1;
  return true;
}

std::string Stem(const std::string& scenario) {
  return scenario.empty() ? "built-in" : fs::path(scenario).stem().string();
}

// One option for one scenario: a file in the option's folder named after
// the scenario, or the option itself when it may be.
bool Resolve(const std::string& flag, const std::string& option, const std::string& stem,
             const char* suffix, bool several, std::string* path, std::string* error) {
  if (option.empty() || !IsFolder(option)) {
    *path = option;
    if (!several || option.empty()) return true;
    *error = "with several scenarios, " + flag + " needs a folder";
    return false;
  }
  *path = (fs::path(option) / (stem + suffix)).string();
  return true;
}

// Every output of one scenario, and the file --expect reads for it.
bool ResolveOne(const ScenarioJob::Outputs& options, const std::string& stem, bool several,
                ScenarioJob::Outputs* resolved, std::string* error) {
  for (size_t i = 0; i < options.files.size(); ++i) {
    const OutputTable::Row& row = OutputTable::Rows()[i];
    if (!Resolve(row.option, options.files[i], stem, row.suffix, several, &resolved->files[i],
                 error)) {
      return false;
    }
  }
  return Resolve("--expect", options.expect, stem, OutputTable::kExpectSuffix, several,
                 &resolved->expect, error);
}

bool ResolveAll(const ScenarioJob::Outputs& options, Plan* plan, std::string* error) {
  std::set<std::string> stems;
  for (const std::string& scenario : plan->scenarios) {
    std::string stem = Stem(scenario);
    if (!stems.insert(stem).second) {
      *error = "two scenarios are named " + stem + "; their outputs would share file names";
      return false;
    }
    ScenarioJob::Outputs resolved;
    if (!ResolveOne(options, stem, plan->table, &resolved, error)) return false;
    plan->outputs.push_back(std::move(resolved));
  }
  return true;
}

// Creates the folders the outputs go to.
bool CreateFolders(const ScenarioJob::Outputs& options, std::string* error) {
  for (const std::string& option : options.files) {
    std::error_code failed;
    if (IsFolder(option)) fs::create_directories(option, failed);
    // A part of the path that exists is a file, not a folder.
    if (failed == std::errc::file_exists) failed = std::make_error_code(std::errc::not_a_directory);
    if (failed) {
      *error = "cannot create the folder " + option + ": " + SystemError::Text(failed.value());
      return false;
    }
  }
  return true;
}

// A signal caught between two runs ends the batch: its exit status after
// saying so, or 0 when none came.
int Interrupted() {
  int signal = Interrupts::Caught();
  if (signal == 0) return 0;
  StopReport::Words words =
      StopReport::Report(StopReport::Of(StopReport::Kind::Interrupted, signal));
  if (!words.message.empty()) ErrorLine::Print(words.message);
  return words.status;
}

std::string CheckText(ScenarioJob::Check check) {
  switch (check) {
    case ScenarioJob::Check::None:
      return "-";
    case ScenarioJob::Check::Pass:
      return "pass";
    case ScenarioJob::Check::Fail:
      return "fail";
  }
  return "-";
}

// The closing table; scenario names escaped (and padded by their escaped
// width).
void PrintTable(const Plan& plan, const std::vector<ScenarioJob::Outcome>& outcomes, int status,
                std::ostream& out) {
  std::vector<std::string> names;
  size_t width = 8;
  for (const std::string& scenario : plan.scenarios) {
    names.push_back(TextEscape::Terminal(Stem(scenario)));
    width = std::max(width, names.back().size());
  }
  out << '\n'
      << Padded("scenario", width) << "  " << Padded("status", 13)
      << "  target changes  lock held (s)  check\n";
  for (size_t i = 0; i < outcomes.size(); ++i) {
    const ScenarioJob::Outcome& outcome = outcomes[i];
    std::string changes = outcome.ran ? std::to_string(outcome.targetChanges) : "-";
    std::string lock = outcome.ran ? SimWords::TimeColumn(outcome.lockHeldMs) : "-";
    out << Padded(names[i], width) << "  " << Padded(outcome.word, 13) << "  "
        << RightAligned(changes, 14) << "  " << RightAligned(lock, 13) << "  "
        << CheckText(outcome.check) << '\n';
  }
  out << outcomes.size() << " scenario(s), exit status " << status << '\n';
}

// Leaves the scenarios of `shard` in the plan; false after saying so when
// none is left.
bool KeepShard(const Shard::Slice& shard, Plan* plan) {
  Plan kept = *plan;
  kept.scenarios.clear();
  kept.outputs.clear();
  for (size_t i : Shard::Pick(plan->scenarios.size(), shard)) {
    kept.scenarios.push_back(plan->scenarios[i]);
    kept.outputs.push_back(plan->outputs[i]);
  }
  if (kept.scenarios.empty()) {
    ErrorLine::Print("shard " + std::to_string(shard.index) + "/" + std::to_string(shard.total) +
                     " runs no scenario: the batch has " + std::to_string(plan->scenarios.size()));
  }
  *plan = std::move(kept);
  return !plan->scenarios.empty();
}

// The report's test cases, none run yet.
std::vector<JUnitReport::Case> CasesOf(const Plan& plan) {
  std::vector<JUnitReport::Case> cases;
  for (const std::string& scenario : plan.scenarios) cases.push_back({Stem(scenario), {}, 0});
  return cases;
}

double SecondsSince(std::chrono::steady_clock::time_point start) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

// The JUnit report when asked for: the status, or kNotRun when it cannot
// be written.
int WriteReport(const std::string& path, const std::vector<JUnitReport::Case>& cases,
                std::chrono::steady_clock::time_point started) {
  std::string error;
  if (path.empty() || JUnitReport::Write(path, cases, SecondsSince(started), &error)) {
    return ExitStatus::kDone;
  }
  ErrorLine::Print(error);
  return ExitStatus::kNotRun;
}

// What the scenarios came to.
struct BatchResult {
  std::vector<ScenarioJob::Outcome> outcomes;  // in order, each scenario run
  int status = ExitStatus::kDone;              // the highest; the stopping one's when stopped
  bool stopped = false;                        // interrupted, or standard output closed
  bool pipeClosed = false;
};

// Runs the plan's scenarios, `request.jobs` at once, filling in the
// report's cases; the progress line counts them.
BatchResult RunAll(const Plan& plan, const BatchRunner::Request& request,
                   std::vector<JUnitReport::Case>* cases) {
  BatchResult result;
  std::vector<double> seconds(plan.scenarios.size());  // each written by the scenario's task
  Progress progress(plan.table && Progress::Wanted(request.quiet), 0);
  // A single run longer than a second shows the virtual time it reached
  // (on this thread: one scenario runs here).
  Progress runProgress(!plan.table && Progress::Wanted(request.quiet), 1000);
  ScenarioJob::Settings settings = request.settings;
  if (!plan.table) {
    settings.simulator.onProgress = [&runProgress](int64_t reachedMs, int64_t endMs) {
      runProgress.Show(Progress::RunText(reachedMs, endMs));
    };
  }
  size_t failed = 0;
  progress.Show(Progress::BatchText(0, plan.scenarios.size(), failed));
  auto task = [&](size_t i) {
    auto begun = std::chrono::steady_clock::now();
    ScenarioJob::Outcome outcome = ScenarioJob::Run(plan.scenarios[i], plan.outputs[i], settings);
    seconds[i] = SecondsSince(begun);
    return outcome;
  };
  auto done = [&](size_t i, const ScenarioJob::Outcome& outcome) {
    runProgress.Clear();
    (*cases)[i] = {Stem(plan.scenarios[i]), outcome, seconds[i]};
    result.outcomes.push_back(outcome);
    failed += outcome.status != ExitStatus::kDone;
    progress.Show(Progress::BatchText(i + 1, plan.scenarios.size(), failed));
    // An interrupted run (128+N) or a closed standard output ends the batch.
    bool stops = outcome.status >= ExitStatus::kBySignal || outcome.pipeClosed;
    if (!result.stopped)
      result.status = stops ? outcome.status : std::max(result.status, outcome.status);
    result.stopped |= stops;
    result.pipeClosed |= outcome.pipeClosed;
    return !result.stopped;
  };
  ParallelBatch::Run(plan.scenarios.size(), request.jobs, task, done);
  progress.Clear();
  return result;
}

}  // namespace

namespace BatchRunner {

int Run(const Request& request, bool* pipeClosed) {
  Plan plan;
  std::string error;
  if (!ListScenarios(request.scenarios, &plan, &error) ||
      !ResolveAll(request.outputs, &plan, &error)) {
    ErrorLine::Print(error);
    return ExitStatus::kBadInput;
  }
  if (!CreateFolders(request.outputs, &error)) {
    ErrorLine::Print(error);
    return ExitStatus::kNotRun;
  }
  bool any = KeepShard(request.shard, &plan);
  auto started = std::chrono::steady_clock::now();
  std::vector<JUnitReport::Case> cases = CasesOf(plan);
  if (!any) return WriteReport(request.junit, cases, started);
  BatchResult result = RunAll(plan, request, &cases);
  *pipeClosed = result.pipeClosed;
  // A signal caught when no run was there to stop still ends the batch.
  if (int stopped = result.stopped ? 0 : Interrupted(); stopped != 0) {
    result = {{}, stopped, true, false};
  }
  if (result.stopped) {
    WriteReport(request.junit, cases, started);
    return result.status;
  }
  int status = std::max(result.status, WriteReport(request.junit, cases, started));
  if (!plan.table) return status;
  std::unique_ptr<OutputFile> out = OutputFile::Open("-", &error);
  if (out) PrintTable(plan, result.outcomes, status, out->stream());
  if (!out || !out->Close(&error)) {
    *pipeClosed = out && out->PipeClosed();
    if (!*pipeClosed) ErrorLine::Print(error);
    return std::max(status, ExitStatus::kNotRun);
  }
  return status;
}

}  // namespace BatchRunner
