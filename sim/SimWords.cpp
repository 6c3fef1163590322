#include "sim/SimWords.h"

#include <algorithm>
#include <sstream>
#include <utility>

#include "feature/GorvFeature.h"
#include "sim/TextEscape.h"

namespace {

std::string LockAcquired(const SimEvent& event) {
  std::ostringstream line;
  line << "lock     ";
  if (event.handle >= 1) {
    line << "acquired, handle " << event.handle;
  } else {
    line << "acquire failed (" << event.handle << ")";
  }
  if (event.resources.size() == 2) {
    line << " (resource 0x" << std::hex << event.resources[0] << std::dec << " = "
         << event.resources[1] << ")";
  }
  return line.str();
}

}  // namespace

namespace SimWords {

std::string Seconds(int64_t ms) {
  // Whole milliseconds: integer division, where the floating-point printer
  // was the timeline's costliest step.
  uint64_t magnitude = ms < 0 ? 0 - static_cast<uint64_t>(ms) : static_cast<uint64_t>(ms);
  auto rest = static_cast<unsigned>(magnitude % 1000);
  const char fraction[] = {'.', static_cast<char>('0' + rest / 100),
                           static_cast<char>('0' + rest / 10 % 10),
                           static_cast<char>('0' + rest % 10), '\0'};
  return (ms < 0 ? "-" : "") + std::to_string(magnitude / 1000) + fraction;
}

std::string RightAligned(const std::string& text, size_t width) {
  return std::string(width > text.size() ? width - text.size() : 0, ' ') + text;
}

std::string Padded(std::string text, size_t width) {
  text.resize(std::max(width, text.size()), ' ');
  return text;
}

std::string TimeColumn(int64_t ms) { return RightAligned(Seconds(ms), 10); }

std::string ShortNode(const std::string& path) { return path.substr(path.rfind('/') + 1); }

std::string TriggerName(int64_t id) {
  static constexpr std::pair<int32_t, const char*> kNames[] = {
      {GorvFeature::kTriggerStart, "start"},
      {GorvFeature::kTriggerStartAlt, "start"},
      {GorvFeature::kTriggerStop, "stop"},
      {GorvFeature::kTriggerStopAlt, "stop"},
      {GorvFeature::kTriggerFpsHint, "fps-hint"},
      {GorvFeature::kTriggerVendorHintDisable, "vendor-hint-disable"},
  };
  for (const auto& [known, name] : kNames) {
    if (known == id) return name;
  }
  return "trigger";
}

std::string Describe(const SimEvent& event) {
  switch (event.kind) {
    case SimEvent::Kind::Node:
      return "node     " + TextEscape::Terminal(ShortNode(event.name)) + " <- " +
             TextEscape::Terminal(event.text);
    case SimEvent::Kind::LockAcquire:
      return LockAcquired(event);
    case SimEvent::Kind::LockRelease:
      return "lock     released, handle " + std::to_string(event.handle);
    case SimEvent::Kind::Log:
      return "log      " + TextEscape::Terminal(event.text);
    case SimEvent::Kind::Counter:
      return "counter  " + TextEscape::Terminal(event.name) + " = " + std::to_string(event.value);
    case SimEvent::Kind::TraceSection:
      return "trace    " + TextEscape::Terminal(event.name);
    case SimEvent::Kind::Trigger:
      return "> " + TriggerName(event.value) + " " + std::to_string(event.value) + " " +
             TextEscape::Terminal(event.name) + " " + std::to_string(event.triggerValue);
  }
  return "";
}

}  // namespace SimWords
