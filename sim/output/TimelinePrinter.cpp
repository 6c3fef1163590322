#include "sim/output/TimelinePrinter.h"

#include "sim/SimWords.h"
#include "sim/TextEscape.h"

namespace {

using SimWords::Seconds;

}  // namespace

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
  mOut << SimWords::TimeColumn(event.tMs) << "  " << SimWords::Describe(event) << '\n';
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
