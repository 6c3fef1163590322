#include "sim/output/TimelinePrinter.h"

#include <cstdio>
#include <sstream>

#include "sim/TextEscape.h"

namespace {

std::string Seconds(int64_t ms) {
  char text[32];
  std::snprintf(text, sizeof(text), "%.3f", static_cast<double>(ms) / 1000.0);
  return text;
}

}  // namespace

std::string TimelinePrinter::Describe(const SimEvent& event) {
  switch (event.kind) {
    case SimEvent::Kind::Node:
      return "node     " + TextEscape::Terminal(RunSummary::ShortNode(event.name)) + " <- " +
             TextEscape::Terminal(event.text);
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
      return "log      " + TextEscape::Terminal(event.text);
    case SimEvent::Kind::Counter:
      return "counter  " + TextEscape::Terminal(event.name) + " = " + std::to_string(event.value);
    case SimEvent::Kind::TraceSection:
      return "trace    " + TextEscape::Terminal(event.name);
    case SimEvent::Kind::Trigger:
      return "> " + TimelinePrinter::TriggerName(event.value) + " " + std::to_string(event.value) +
             " " + TextEscape::Terminal(event.name) + " " + std::to_string(event.triggerValue);
  }
  return "";
}

std::string TimelinePrinter::TimeColumn(int64_t ms) {
  std::string time = Seconds(ms);
  return std::string(time.size() < 10 ? 10 - time.size() : 0, ' ') + time;
}

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
  TimelinePrinter printer(out);
  result.Replay(printer);
}

void TimelinePrinter::Begin(const RunInfo& info) {
  mOut << "gorv-sim: " << TextEscape::Terminal(info.scenarioName) << ", 0.000 s to "
       << Seconds(info.endMs) << " s (lines starting with > are triggers handed to the plug-in)\n";
  for (const RunInfo::Replay& replay : info.replays) {
    mOut << "frames from " << Seconds(replay.atMs) << " s: layer '"
         << TextEscape::Terminal(replay.layer) << "' of " << TextEscape::Terminal(replay.file)
         << ", " << replay.frames << (replay.frames == 1 ? " frame (" : " frames (") << replay.janky
         << " flagged janky by the trace)\n";
  }
  mOut << "\n  time (s)  effect\n";
}

void TimelinePrinter::Event(const SimEvent& event) {
  mSummary.Add(event);
  mOut << TimeColumn(event.tMs) << "  " << Describe(event) << '\n';
}

void TimelinePrinter::End(const RunEnd& end) {
  mSummary.Finish(end.endMs);
  std::string targets;
  for (const auto& [at, fps] : mSummary.shownTargets()) {
    targets += (targets.empty() ? "" : ", ") + std::to_string(fps) + " at " + Seconds(at) + " s";
  }
  if (mSummary.targetChanges() > static_cast<int64_t>(mSummary.shownTargets().size())) {
    targets += ", ...";
  }
  std::string writes;
  int64_t total = 0;
  for (const auto& [node, count] : mSummary.nodeWrites()) {
    writes +=
        (writes.empty() ? "" : ", ") + TextEscape::Terminal(node) + " " + std::to_string(count);
    total += count;
  }
  mOut << "\nSummary\n";
  if (!end.stopped.empty()) {
    mOut << "  stopped at       " << Seconds(end.endMs)
         << " s: " << TextEscape::Terminal(end.stopped) << '\n';
  } else {
    mOut << "  session length   " << Seconds(end.sessionMs) << " s\n";
  }
  mOut << "  target changes   " << mSummary.targetChanges()
       << (targets.empty() ? "" : " (" + targets + ")") << '\n'
       << "  lock held        " << Seconds(mSummary.lockHeldMs()) << " s in "
       << mSummary.lockSpans() << " span(s)\n"
       << "  node writes      " << total << (writes.empty() ? "" : " (" + writes + ")") << '\n'
       << "  messages         " << mSummary.messages() << '\n';
  mOut.flush();
}
