#include "sim/BatchRunner.h"

#include <algorithm>
#include <filesystem>
#include <iostream>
#include <set>

#include "sim/ExitStatus.h"
#include "sim/output/OutputFile.h"
#include "sim/output/TimelinePrinter.h"
#include "sim/run/Interrupts.h"
#include "sim/run/StopReport.h"

namespace {

namespace fs = std::filesystem;

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

// One output option for one scenario: a file in the option's folder named
// after the scenario, or the option itself when it may be.
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

bool ResolveAll(const ScenarioJob::Outputs& options, Plan* plan, std::string* error) {
  std::set<std::string> stems;
  for (const std::string& scenario : plan->scenarios) {
    std::string stem = Stem(scenario);
    if (!stems.insert(stem).second) {
      *error = "two scenarios are named " + stem + "; their outputs would share file names";
      return false;
    }
    ScenarioJob::Outputs resolved;
    bool several = plan->table;
    if (!Resolve("--events", options.events, stem, ".jsonl", several, &resolved.events, error) ||
        !Resolve("--trace", options.trace, stem, ".trace.json", several, &resolved.trace, error) ||
        !Resolve("--plot", options.plot, stem, ".svg", several, &resolved.plot, error) ||
        !Resolve("--summary-json", options.summary, stem, ".summary.json", several,
                 &resolved.summary, error) ||
        !Resolve("--expect", options.expect, stem, ".jsonl", several, &resolved.expect, error)) {
      return false;
    }
    plan->outputs.push_back(resolved);
  }
  return true;
}

// Creates the folders the outputs go to.
bool CreateFolders(const ScenarioJob::Outputs& options, std::string* error) {
  for (const std::string* option :
       {&options.events, &options.trace, &options.plot, &options.summary}) {
    std::error_code failed;
    if (IsFolder(*option)) fs::create_directories(*option, failed);
    if (failed) {
      *error = *option + ": cannot create the folder";
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
  std::cerr << words.errorLine;
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

std::string Padded(std::string text, size_t width) {
  text.resize(std::max(width, text.size()), ' ');
  return text;
}

std::string RightAligned(const std::string& text, size_t width) {
  return std::string(width > text.size() ? width - text.size() : 0, ' ') + text;
}

void PrintTable(const Plan& plan, const std::vector<ScenarioJob::Outcome>& outcomes, int status,
                std::ostream& out) {
  size_t width = 8;
  for (const std::string& scenario : plan.scenarios) width = std::max(width, Stem(scenario).size());
  out << '\n'
      << Padded("scenario", width) << "  " << Padded("status", 13)
      << "  target changes  lock held (s)  check\n";
  for (size_t i = 0; i < outcomes.size(); ++i) {
    const ScenarioJob::Outcome& outcome = outcomes[i];
    std::string changes = outcome.ran ? std::to_string(outcome.targetChanges) : "-";
    std::string lock = outcome.ran ? TimelinePrinter::TimeColumn(outcome.lockHeldMs) : "-";
    out << Padded(Stem(plan.scenarios[i]), width) << "  " << Padded(outcome.word, 13) << "  "
        << RightAligned(changes, 14) << "  " << RightAligned(lock, 13) << "  "
        << CheckText(outcome.check) << '\n';
  }
  out << outcomes.size() << " scenario(s), exit status " << status << '\n';
}

}  // namespace

int BatchRunner::Run(const Request& request, bool* pipeClosed) {
  Plan plan;
  std::string error;
  if (!ListScenarios(request.scenarios, &plan, &error) ||
      !ResolveAll(request.outputs, &plan, &error) || !CreateFolders(request.outputs, &error)) {
    std::cerr << "gorv-sim: " << error << "\n";
    return ExitStatus::kBadInput;
  }
  std::vector<ScenarioJob::Outcome> outcomes;
  int status = ExitStatus::kDone;
  for (size_t i = 0; i < plan.scenarios.size(); ++i) {
    if (int stopped = Interrupted(); stopped != 0) return stopped;
    outcomes.push_back(ScenarioJob::Run(plan.scenarios[i], plan.outputs[i], request.settings));
    *pipeClosed = outcomes.back().pipeClosed;
    // An interrupted run (128+N) or a closed standard output ends the batch.
    if (outcomes.back().status >= ExitStatus::kBySignal || *pipeClosed)
      return outcomes.back().status;
    status = std::max(status, outcomes.back().status);
  }
  if (int stopped = Interrupted(); stopped != 0) return stopped;
  if (!plan.table) return status;
  std::unique_ptr<OutputFile> out = OutputFile::Open("-", &error);
  if (out) PrintTable(plan, outcomes, status, out->stream());
  if (!out || !out->Close(&error)) {
    *pipeClosed = out && out->PipeClosed();
    if (!*pipeClosed) std::cerr << "gorv-sim: " << error << "\n";
    return std::max(status, ExitStatus::kNotRun);
  }
  return status;
}
