#include "sim/check/DiffReport.h"

#include "sim/SimWords.h"
#include "sim/TextEscape.h"

namespace {

using Difference = EventComparator::Difference;

void PrintDifference(const Difference& difference, std::ostream& out) {
  out << SimWords::TimeColumn(difference.TimeMs()) << "  ";
  switch (difference.kind) {
    case Difference::Kind::Missing:
      out << "missing   " << SimWords::Describe(difference.expected) << '\n';
      break;
    case Difference::Kind::Extra:
      out << "extra     " << SimWords::Describe(difference.recorded) << '\n';
      break;
    case Difference::Kind::Changed:
      out << "changed   " << SimWords::Describe(difference.recorded) << '\n'
          << std::string(12, ' ') << "expected  " << SimWords::Describe(difference.expected)
          << '\n';
      break;
  }
}

}  // namespace

void DiffReport::Print(const std::string& scenario, const std::string& expectedFile,
                       const EventComparator::Result& result, std::ostream& out, size_t shown) {
  const auto& differences = result.differences;
  if (differences.empty()) {
    out << "gorv-sim: " << TextEscape::Terminal(scenario) << ": " << result.matched
        << " events match " << TextEscape::Terminal(expectedFile) << '\n';
    return;
  }
  out << "gorv-sim: " << TextEscape::Terminal(scenario) << ": " << differences.size()
      << " difference(s) from " << TextEscape::Terminal(expectedFile) << " (" << result.matched
      << " events match)\n"
      << "  time (s)  difference\n";
  for (size_t i = 0; i < differences.size() && i < shown; ++i) {
    PrintDifference(differences[i], out);
  }
  if (differences.size() > shown) {
    out << "  ... and " << differences.size() - shown << " more\n";
  }
}
