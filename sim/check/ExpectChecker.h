// --expect: checks a run against the events of an earlier one, as a sink.
// The run's effects (those the comparison does not ignore) are collected as
// they come, because the alignment needs both lists whole: memory grows with
// the run's effects, like the expected file already read. Each effect is
// kept as its --events line reads back, so that a run checked against its
// own recording matches whatever bytes its texts held. At End the two are
// compared and DiffReport prints the outcome. Single-threaded.
#pragma once

#include <ostream>
#include <string>
#include <vector>

#include "sim/check/EventComparator.h"
#include "sim/output/RunSink.h"

class ExpectChecker : public RunSink {
 public:
  // `expectedFile` names the file in the report, which goes to `report`
  // (not owned; must outlive End).
  ExpectChecker(std::vector<SimEvent> expected, std::string expectedFile,
                EventComparator::Options options, std::ostream& report);
  void Begin(const RunInfo& info) override { mScenario = info.scenarioName; }
  void Event(const SimEvent& event) override;
  void End(const RunEnd& end) override;

  // After End: the run matched the expected events.
  bool passed() const { return mPassed; }
  // After End: the report as printed.
  const std::string& report() const { return mReportText; }

 private:
  std::vector<SimEvent> mExpected;
  std::string mExpectedFile;
  EventComparator::Options mOptions;
  std::ostream& mReport;
  std::string mScenario;
  std::vector<SimEvent> mRecorded;
  std::string mReportText;
  bool mPassed = false;
};
