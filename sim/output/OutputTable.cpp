#include "sim/output/OutputTable.h"

#include "sim/output/ChromeTraceWriter.h"
#include "sim/output/JsonLinesWriter.h"
#include "sim/output/PerfettoWriter.h"
#include "sim/output/SummaryJsonWriter.h"
#include "sim/output/SvgPlotWriter.h"

namespace {

// A sink made from the stream alone.
template <class Writer>
std::unique_ptr<RunSink> Make(std::ostream& out, const Scenario& /*scenario*/) {
  return std::make_unique<Writer>(out);
}

std::unique_ptr<RunSink> MakeSummary(std::ostream& out, const Scenario& scenario) {
  return std::make_unique<SummaryJsonWriter>(scenario, out);
}

}  // namespace

namespace OutputTable {

const char* const kExpectSuffix = ".jsonl";

const std::vector<Row>& Rows() {
  static const std::vector<Row> kRows = {
      {"--events", kExpectSuffix, "write every effect as JSON lines to FILE (- stdout)",
       Make<JsonLinesWriter>},
      {"--trace", ".trace.json", "write a Chrome JSON trace to FILE (- stdout)",
       Make<ChromeTraceWriter>},
      {"--plot", ".svg", "write an SVG plot to FILE (- stdout)", Make<SvgPlotWriter>},
      {"--summary-json", ".summary.json", "write the summary as JSON to FILE (- stdout)",
       MakeSummary},
      {"--perfetto", ".perfetto-trace",
       "write a Perfetto trace to FILE, over the replayed device trace if any (- stdout)",
       Make<PerfettoWriter>},
  };
  return kRows;
}

Paths NoPaths() { return Paths(Rows().size()); }

}  // namespace OutputTable
