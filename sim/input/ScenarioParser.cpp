#include "sim/input/ScenarioParser.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cfloat>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <memory>
#include <tuple>

#include "sim/input/CaptureFormats.h"
#include "sim/input/InputFile.h"
#include "sim/input/TextLines.h"
#include "sim/input/TextNumbers.h"

namespace {

// A cursor over one line's tokens.
class LineReader {
 public:
  explicit LineReader(const std::string& line) : mLine(line) {}

  bool Token(std::string* token) {
    while (mPos < mLine.size() && mLine[mPos] == ' ') ++mPos;
    size_t start = mPos;
    while (mPos < mLine.size() && mLine[mPos] != ' ') ++mPos;
    *token = mLine.substr(start, mPos - start);
    return !token->empty();
  }
  // Everything after the one blank that follows the previous token.
  std::string Rest() {
    if (mPos < mLine.size()) ++mPos;
    std::string rest = mLine.substr(mPos);
    mPos = mLine.size();
    return rest;
  }
  bool AtEnd() {
    std::string extra;
    return !Token(&extra);
  }

 private:
  const std::string& mLine;
  size_t mPos = 0;
};

bool ToInt(const std::string& text, long long min, long long max, long long* value) {
  int64_t parsed = 0;
  if (!TextNumbers::ToInteger(text, &parsed, min, max)) return false;
  *value = parsed;
  return true;
}

// A finite float, 0 or more: too large, NaN and infinities refused. A value
// below the smallest normal float underflows (ERANGE) yet is accepted, as
// the nearest float (a denormal, or 0); -0 is 0.
bool ToRate(const std::string& text, float* value) {
  if (text.empty()) return false;
  char* end = nullptr;
  errno = 0;
  float parsed = std::strtof(text.c_str(), &end);
  bool underflow = errno == ERANGE && std::fabs(parsed) < FLT_MIN;
  if ((errno != 0 && !underflow) || *end != '\0' || !std::isfinite(parsed) || parsed < 0.0f) {
    return false;
  }
  *value = parsed == 0.0f ? 0.0f : parsed;
  return true;
}

// Echoes at most this much of a word the parser did not expect.
std::string Quoted(const std::string& word) {
  constexpr size_t kShown = 40;
  return "'" + (word.size() > kShown ? word.substr(0, kShown) + "..." : word) + "'";
}

constexpr long long kMaxTime = 1000LL * 60 * 60 * 24 * 365;  // a year of virtual time
const std::string kTimeRange = "T in ms from 0 to 31536000000 (a year)";
constexpr long long kInt32Max = 2147483647;
constexpr long long kInt32Min = -2147483647 - 1;

// Parses one directive; returns an empty string or what was expected.
class DirectiveParser {
 public:
  DirectiveParser(const std::string& directory, Scenario* scenario)
      : mDirectory(directory), mScenario(scenario) {}

  std::string Parse(const std::string& line) {
    LineReader reader(line);
    std::string directive;
    reader.Token(&directive);
    using Handler = std::string (DirectiveParser::*)(LineReader&);
    static const std::map<std::string, Handler> kHandlers = {
        {"property", &DirectiveParser::Property},
        {"app", &DirectiveParser::App},
        {"ignore", &DirectiveParser::Ignore},
        {"meter", &DirectiveParser::Meter},
        {"meter-latency", &DirectiveParser::MeterLatency},
        {"fps", &DirectiveParser::Fps},
        {"frames", &DirectiveParser::Frames},
        {"layer", &DirectiveParser::Layer},
        {"trigger", &DirectiveParser::Trigger},
        {"fault", &DirectiveParser::Fault},
        {"end", &DirectiveParser::End}};
    auto handler = kHandlers.find(directive);
    if (handler == kHandlers.end()) {
      return "unknown directive " + Quoted(directive) +
             "; expected property, app, ignore, meter, meter-latency, fps, frames, layer, "
             "trigger, fault or end";
    }
    return (this->*handler->second)(reader);
  }

 private:
  bool Time(LineReader& reader, int64_t* atMs) {
    std::string token;
    long long value;
    if (!reader.Token(&token) || !ToInt(token, 0, kMaxTime, &value)) return false;
    *atMs = value;
    mScenario->latestMs = std::max<int64_t>(mScenario->latestMs, value);
    return true;
  }

  std::string Property(LineReader& reader) {
    std::string name;
    if (!reader.Token(&name)) return "expected 'property NAME VALUE'";
    mScenario->properties.emplace_back(name, reader.Rest());
    return "";
  }

  std::string App(LineReader& reader) {
    const char* usage =
        "expected 'app PACKAGE CLASS PID' with CLASS and PID integers from -2147483648 to "
        "2147483647";
    std::string package, appClass, pid;
    long long classValue, pidValue;
    if (!reader.Token(&package) || !reader.Token(&appClass) || !reader.Token(&pid) ||
        !ToInt(appClass, kInt32Min, kInt32Max, &classValue) ||
        !ToInt(pid, kInt32Min, kInt32Max, &pidValue) || !reader.AtEnd()) {
      return usage;
    }
    mScenario->apps[package] = {static_cast<int>(classValue), static_cast<int>(pidValue)};
    return "";
  }

  std::string Ignore(LineReader& reader) {
    mScenario->ignoreList.push_back(reader.Rest());
    return "";
  }

  std::string Meter(LineReader& reader) {
    mScenario->meters.push_back(reader.Rest());
    return "";
  }

  std::string MeterLatency(LineReader& reader) {
    std::string token;
    long long value;
    if (!reader.Token(&token) || !ToInt(token, 1, 10000, &value) || !reader.AtEnd()) {
      return "expected 'meter-latency MS' with MS from 1 to 10000";
    }
    mScenario->meterLatencyMs = static_cast<int>(value);
    return "";
  }

  std::string Fps(LineReader& reader) {
    int64_t at;
    std::string token;
    float fps;
    if (!Time(reader, &at) || !reader.Token(&token) || !ToRate(token, &fps) || !reader.AtEnd()) {
      return "expected 'fps T VALUE' with " + kTimeRange +
             " and VALUE a finite decimal number from 0 to 3.4e38";
    }
    mScenario->rates.push_back({at, fps, nullptr});
    return "";
  }

  std::string Frames(LineReader& reader) {
    int64_t at;
    if (!Time(reader, &at)) return "expected 'frames T FILE' with " + kTimeRange;
    std::string file = reader.Rest();
    if (file.empty()) return "expected 'frames T FILE': FILE is missing";
    std::string path = (std::filesystem::path(mDirectory) / file).string();
    // A capture named on several lines, in whatever way, is read once per
    // layer chosen: the file is known by its identity, not its name. A
    // file that cannot be looked at is left to the reader's message.
    struct stat status {};
    std::shared_ptr<const FrameTimeline> unused;
    std::shared_ptr<const FrameTimeline>& timeline =
        stat(path.c_str(), &status) == 0 ? mCaptures[{status.st_dev, status.st_ino, mLayer}]
                                         : unused;
    if (!timeline) {
      auto loaded = std::make_shared<FrameTimeline>();
      std::string error;
      if (!CaptureFormats::Load(path, mLayer, loaded.get(), &error)) return error;
      timeline = std::move(loaded);
    }
    mScenario->rates.push_back({at, 0.0f, timeline});
    return "";
  }

  // The layer later frames lines replay from a Perfetto trace.
  std::string Layer(LineReader& reader) {
    mLayer = reader.Rest();
    return "";
  }

  std::string Trigger(LineReader& reader) {
    std::string usage = "expected 'trigger T ID COMPONENT [VALUE]' with " + kTimeRange +
                        ", ID and VALUE integers from -2147483648 to 2147483647";
    int64_t at;
    std::string id, component, value;
    long long idValue, triggerValue = 0;
    if (!Time(reader, &at) || !reader.Token(&id) || !ToInt(id, kInt32Min, kInt32Max, &idValue) ||
        !reader.Token(&component)) {
      return usage;
    }
    if (reader.Token(&value) &&
        (!ToInt(value, kInt32Min, kInt32Max, &triggerValue) || !reader.AtEnd())) {
      return usage;
    }
    mScenario->triggers.push_back(
        {at, static_cast<int>(idValue), component, static_cast<int>(triggerValue)});
    return "";
  }

  std::string Fault(LineReader& reader) {
    static const std::map<std::string, Scenario::FaultKind> kKinds = {
        {"nodes-missing", Scenario::FaultKind::NodesMissing},
        {"nodes-present", Scenario::FaultKind::NodesPresent},
        {"perf-lock-fail", Scenario::FaultKind::PerfLockFail},
        {"perf-lock-ok", Scenario::FaultKind::PerfLockOk}};
    int64_t at;
    std::string kind;
    if (!Time(reader, &at) || !reader.Token(&kind) || !kKinds.count(kind) || !reader.AtEnd()) {
      return "expected 'fault T KIND' with " + kTimeRange +
             " and KIND nodes-missing, nodes-present, perf-lock-fail or "
             "perf-lock-ok";
    }
    mScenario->faults.push_back({at, kKinds.at(kind)});
    return "";
  }

  std::string End(LineReader& reader) {
    int64_t at;
    if (!Time(reader, &at) || !reader.AtEnd()) return "expected 'end T' with " + kTimeRange;
    mScenario->endMs = at;
    return "";
  }

  std::string mDirectory;
  std::string mLayer;  // empty: the layer with the most frames
  Scenario* mScenario;
  // By the file's device and inode, and the layer.
  std::map<std::tuple<dev_t, ino_t, std::string>, std::shared_ptr<const FrameTimeline>> mCaptures;
};

}  // namespace

bool ScenarioParser::Parse(const std::string& name, const std::string& directory,
                           const std::string& text, Scenario* scenario, std::string* error) {
  Scenario parsed;
  parsed.name = name;
  DirectiveParser parser(directory, &parsed);
  TextLines lines(name, text);
  std::string line;
  for (std::string_view view; lines.Next(&view);) {
    size_t first = view.find_first_not_of(" \t");
    if (first == std::string_view::npos || view[first] == '#') continue;
    line.assign(view);
    std::string expected = parser.Parse(line);
    if (!expected.empty()) {
      *error = lines.Where() + expected;
      return false;
    }
  }
  if (!lines.error().empty()) {
    *error = lines.error();
    return false;
  }
  // The rate in force at a time is the last line at or before it.
  std::stable_sort(parsed.rates.begin(), parsed.rates.end(),
                   [](const auto& a, const auto& b) { return a.atMs < b.atMs; });
  *scenario = std::move(parsed);
  return true;
}

bool ScenarioParser::ParseFile(const std::string& path, Scenario* scenario, std::string* error) {
  std::string text;
  if (!InputFile::Read(path, "scenario", InputFile::kMaxScenarioBytes, &text, error)) return false;
  std::string directory = std::filesystem::path(path).parent_path().string();
  return Parse(path, directory.empty() ? "." : directory, text, scenario, error);
}
