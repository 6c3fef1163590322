// Every output gorv-sim can write, as one table. The command line's output
// options (main.cpp), the per-scenario file names in a folder (BatchRunner)
// and the sinks a run streams to (ScenarioJob) are all made from it, in the
// order of its rows. To add an output: write its RunSink in a file of its
// own and add one row to kRows in OutputTable.cpp.
#pragma once

#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "sim/input/Scenario.h"
#include "sim/output/RunSink.h"

namespace OutputTable {

// Makes an output's sink writing to `out` (opened by the caller, which keeps
// it until the sink's End); `scenario` is the one about to run, for a sink
// that writes what it read (most need only the RunInfo of Begin).
using MakeSink = std::unique_ptr<RunSink> (*)(std::ostream& out, const Scenario& scenario);

struct Row {
  const char* option;  // "--events"
  const char* suffix;  // the file's name after the scenario's in a folder: ".jsonl"
  const char* help;    // the option's line in --help
  MakeSink make;
};

// The rows, in the order --help lists them and outputs are opened.
const std::vector<Row>& Rows();

// The file --expect reads in a folder: the one --events writes there.
extern const char* const kExpectSuffix;

// The path each row's option names, by row ("" none, "-" standard output).
using Paths = std::vector<std::string>;
// One "" per row.
Paths NoPaths();

}  // namespace OutputTable
