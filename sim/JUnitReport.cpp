#include "sim/JUnitReport.h"

#include <cstdio>
#include <memory>

#include "sim/ExitStatus.h"
#include "sim/TextEscape.h"
#include "sim/output/OutputFile.h"

namespace {

constexpr const char* kReplacement = "\xEF\xBF\xBD";  // U+FFFD

// A character XML 1.0 cannot carry: C0 controls but tab, LF and CR;
// U+FFFE and U+FFFF. (Surrogates are not valid UTF-8 to begin with.)
bool Forbidden(std::string_view sequence) {
  auto lead = static_cast<unsigned char>(sequence[0]);
  if (sequence.size() == 1) return lead < 0x20 && lead != '\t' && lead != '\n' && lead != '\r';
  return sequence == "\xEF\xBF\xBE" || sequence == "\xEF\xBF\xBF";
}

void AppendEscaped(char c, bool attribute, std::string* out) {
  switch (c) {
    case '&':
      *out += "&amp;";
      return;
    case '<':
      *out += "&lt;";
      return;
    case '>':
      *out += "&gt;";
      return;
    case '"':
      *out += "&quot;";
      return;
    case '\'':
      *out += "&apos;";
      return;
    case '\t':
      *out += attribute ? "&#9;" : "\t";
      return;
    case '\n':
      *out += attribute ? "&#10;" : "\n";
      return;
    case '\r':
      *out += "&#13;";  // a literal CR is read back as LF even in text
      return;
    default:
      *out += c;
  }
}

std::string Seconds(double seconds) {
  char text[32];
  std::snprintf(text, sizeof(text), "%.3f", seconds);
  return text;
}

// The first line of `text`, which dashboards show as the message.
std::string FirstLine(const std::string& text) {
  std::string line = text.substr(0, text.find('\n'));
  return line.rfind("gorv-sim: ", 0) == 0 ? line.substr(10) : line;
}

enum class Kind { Passed, Failed, Error, Skipped };

// A check that differs is a failure even when the run also stopped: the
// difference report is the more useful text.
Kind KindOf(const JUnitReport::Case& test) {
  if (!test.outcome) return Kind::Skipped;
  if (test.outcome->check == ScenarioJob::Check::Fail) return Kind::Failed;
  return test.outcome->status == ExitStatus::kDone ? Kind::Passed : Kind::Error;
}

// The element inside one testcase: "" when it passed.
std::string Verdict(const JUnitReport::Case& test) {
  using JUnitReport::Escape;
  switch (KindOf(test)) {
    case Kind::Passed:
      return "";
    case Kind::Skipped:
      return "    <skipped message=\"not run: the batch was interrupted\"/>\n";
    case Kind::Failed:
      return "    <failure message=\"" + Escape(FirstLine(test.outcome->checkReport), true) +
             "\">" + Escape(test.outcome->checkReport, false) + "</failure>\n";
    case Kind::Error:
      break;
  }
  std::string message = test.outcome->error.empty() ? "the run failed" : test.outcome->error;
  return "    <error message=\"" + Escape(message, true) + "\">" + Escape(message, false) +
         "</error>\n";
}

}  // namespace

std::string JUnitReport::Escape(std::string_view text, bool attribute) {
  std::string out;
  out.reserve(text.size());
  for (size_t i = 0; i < text.size();) {
    size_t length = TextEscape::Utf8Sequence(text.substr(i));
    if (length == 0 || Forbidden(text.substr(i, length))) {
      out += kReplacement;
    } else if (length == 1) {
      AppendEscaped(text[i], attribute, &out);
    } else {
      out.append(text.substr(i, length));
    }
    i += length == 0 ? 1 : length;
  }
  return out;
}

std::string JUnitReport::Text(const std::vector<Case>& cases, double seconds) {
  size_t counts[4] = {};
  std::string body;
  for (const Case& test : cases) {
    ++counts[static_cast<int>(KindOf(test))];
    std::string verdict = Verdict(test);
    body += "  <testcase name=\"" + Escape(test.name, true) + "\" classname=\"gorv-sim\" time=\"" +
            Seconds(test.seconds) + "\"";
    body += verdict.empty() ? "/>\n" : ">\n" + verdict + "  </testcase>\n";
  }
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<testsuite name=\"gorv-sim\" tests=\"" +
         std::to_string(cases.size()) + "\" failures=\"" +
         std::to_string(counts[static_cast<int>(Kind::Failed)]) + "\" errors=\"" +
         std::to_string(counts[static_cast<int>(Kind::Error)]) + "\" skipped=\"" +
         std::to_string(counts[static_cast<int>(Kind::Skipped)]) + "\" time=\"" + Seconds(seconds) +
         "\">\n" + body + "</testsuite>\n";
}

bool JUnitReport::Write(const std::string& path, const std::vector<Case>& cases, double seconds,
                        std::string* error) {
  std::unique_ptr<OutputFile> file = OutputFile::Open(path, error);
  if (!file) return false;
  file->stream() << Text(cases, seconds);
  return file->Close(error);
}
