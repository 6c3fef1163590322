#include "sim/check/ExpectChecker.h"

#include <sstream>
#include <utility>

#include "sim/check/DiffReport.h"
#include "sim/output/EventsFormat.h"

ExpectChecker::ExpectChecker(std::vector<SimEvent> expected, std::string expectedFile,
                             EventComparator::Options options, std::ostream& report)
    : mExpected(std::move(expected)),
      mExpectedFile(std::move(expectedFile)),
      mOptions(std::move(options)),
      mReport(report) {}

void ExpectChecker::Event(const SimEvent& event) {
  if (!event.IsEffect() || mOptions.ignored.count(event.kind) != 0) return;
  SimEvent recorded;
  std::string unused;
  if (EventsFormat::ParseLine(EventsFormat::Line(event), &recorded, &unused) ==
      EventsFormat::Parsed::Event) {
    mRecorded.push_back(std::move(recorded));
  }
}

void ExpectChecker::End(const RunEnd& /*end*/) {
  EventComparator::Result result =
      EventComparator::Compare(std::move(mExpected), std::move(mRecorded), mOptions);
  std::ostringstream report;
  DiffReport::Print(mScenario, mExpectedFile, result, report);
  mReportText = report.str();
  mReport << mReportText;
  mReport.flush();
  mPassed = result.differences.empty();
}
