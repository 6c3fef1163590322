#include "sim/TimelinePrinter.h"

#include <cstdio>
#include <sstream>

#include "sim/RunSummary.h"

namespace {

std::string Seconds(int64_t ms) {
  char text[32];
  std::snprintf(text, sizeof(text), "%.3f", static_cast<double>(ms) / 1000.0);
  return text;
}

// Line feeds and other control characters made visible.
std::string Visible(const std::string& text) {
  std::string out;
  for (char c : text) {
    if (c == '\n') {
      out += "\\n";
    } else if (static_cast<unsigned char>(c) < 0x20) {
      out += '?';
    } else {
      out += c;
    }
  }
  return out;
}

std::string Describe(const SimEvent& event) {
  switch (event.kind) {
    case SimEvent::Kind::Node:
      return "node     " + RunSummary::ShortNode(event.name) + " <- " + event.text;
    case SimEvent::Kind::LockAcquire: {
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
    case SimEvent::Kind::LockRelease:
      return "lock     released, handle " + std::to_string(event.handle);
    case SimEvent::Kind::Log:
      return "log      " + Visible(event.text);
    case SimEvent::Kind::Counter:
      return "counter  " + event.name + " = " + std::to_string(event.value);
    case SimEvent::Kind::TraceSection:
      return "trace    " + Visible(event.name);
    case SimEvent::Kind::Trigger:
      return "> " + TimelinePrinter::TriggerName(event.value) + " " + std::to_string(event.value) +
             " " + event.name + " " + std::to_string(event.triggerValue);
  }
  return "";
}

}  // namespace

std::string TimelinePrinter::TriggerName(int64_t id) {
  switch (id) {
    case 4097:
    case 4099:
      return "start";
    case 4098:
    case 4100:
      return "stop";
    case 4221:
      return "fps-hint";
    case 4222:
      return "vendor-hint-disable";
    default:
      return "trigger";
  }
}

void TimelinePrinter::Print(const RunResult& result, std::ostream& out) {
  out << "gorv-sim: " << result.scenarioName << ", 0.000 s to " << Seconds(result.endMs)
      << " s (lines starting with > are triggers handed to the plug-in)\n";
  for (const RunResult::Replay& replay : result.replays) {
    out << "frames from " << Seconds(replay.atMs) << " s: layer '" << Visible(replay.layer)
        << "' of " << replay.file << ", " << replay.frames
        << (replay.frames == 1 ? " frame (" : " frames (") << replay.janky
        << " flagged janky by the trace)\n";
  }
  out << '\n';
  out << "  time (s)  effect\n";
  for (const SimEvent& event : result.events) {
    std::string time = Seconds(event.tMs);
    out << std::string(time.size() < 10 ? 10 - time.size() : 0, ' ') << time << "  "
        << Describe(event) << '\n';
  }
  RunSummary summary = RunSummary::Of(result);
  std::string targets;
  for (const auto& [at, fps] : summary.targets) {
    targets += (targets.empty() ? "" : ", ") + std::to_string(fps) + " at " + Seconds(at) + " s";
  }
  std::string writes;
  int total = 0;
  for (const auto& [node, count] : summary.nodeWrites) {
    writes += (writes.empty() ? "" : ", ") + node + " " + std::to_string(count);
    total += count;
  }
  out << "\nSummary\n"
      << "  session length   " << Seconds(result.sessionMs) << " s\n"
      << "  target changes   " << summary.targets.size()
      << (targets.empty() ? "" : " (" + targets + ")") << '\n'
      << "  lock held        " << Seconds(summary.LockHeldMs()) << " s in "
      << summary.lockSpans.size() << " span(s)\n"
      << "  node writes      " << total << (writes.empty() ? "" : " (" + writes + ")") << '\n'
      << "  messages         " << summary.messages << '\n';
}
