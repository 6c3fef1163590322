#include "sim/run/StopReport.h"

#include <cstdio>
#include <cstring>
#include <utility>

#include "sim/ExitStatus.h"
#include "sim/SimWords.h"

namespace {

// How the plug-in ended its process.
std::string HowItEnded(const StopReport::Facts& facts) {
  if (facts.signal == 0 && !facts.exception.empty()) {
    return "an exception that escaped it: " + facts.exception;
  }
  std::string how = facts.signal != 0 ? StopReport::SignalName(facts.signal)
                                      : "exit status " + std::to_string(facts.exitStatus);
  return facts.exception.empty() ? how : how + " after an exception escaped: " + facts.exception;
}

std::string PluginEndedLine(const StopReport::Facts& facts) {
  std::string message = "the plug-in ended the run at " + SimWords::Seconds(facts.reachedMs) +
                        " s of virtual time with " + HowItEnded(facts);
  message += facts.lastLog.empty() ? "; it logged nothing before"
                                   : "; its last log line: \"" + facts.lastLog + "\"";
  message +=
      ". This is the plug-in's own behaviour, not the simulator's; the outputs hold the run up "
      "to that moment.";
  return message;
}

std::string StalledLine(const StopReport::Facts& facts) {
  std::string message = StopReport::StoppedReason(facts) + " at " +
                        SimWords::Seconds(facts.reachedMs) +
                        " s of virtual time, and gorv-sim ended its process";
  message += facts.lastLog.empty() ? "; it logged nothing before"
                                   : "; its last log line: \"" + facts.lastLog + "\"";
  return message + ". The outputs hold the run up to that moment.";
}

}  // namespace

namespace StopReport {

std::string SignalName(int signal) {
  const char* description = sigdescr_np(signal);  // strsignal is not thread-safe
  std::string name = sigabbrev_np(signal) != nullptr ? std::string("SIG") + sigabbrev_np(signal)
                                                     : "signal " + std::to_string(signal);
  return name + (description != nullptr ? " (" + std::string(description) + ")" : "");
}

Facts Of(Kind kind, int signal, std::string failure) {
  Facts facts;
  facts.kind = kind;
  facts.signal = signal;
  facts.failure = std::move(failure);
  return facts;
}

std::string StoppedReason(const Facts& facts) {
  switch (facts.kind) {
    case Kind::PluginEnded:
      return "the plug-in ended the process: " + HowItEnded(facts);
    case Kind::Stalled:
      return "the plug-in made no progress for " + SimWords::Seconds(facts.stalledMs) +
             " s of real time";
    case Kind::Interrupted:
      return "interrupted by " + SignalName(facts.signal);
    case Kind::OutputClosed:
      return "its output was closed";
    default:
      return "";
  }
}

Words Report(const Facts& facts) {
  switch (facts.kind) {
    case Kind::BadInput:
      return {facts.failure, "bad input", ExitStatus::kBadInput};
    case Kind::Failed:
      return {facts.failure, "failed", ExitStatus::kNotRun};
    case Kind::PluginEnded:
      return {PluginEndedLine(facts), "plug-in ended", ExitStatus::kPluginEnded};
    case Kind::Stalled:
      return {StalledLine(facts), "plug-in stalled", ExitStatus::kPluginEnded};
    case Kind::Interrupted:
      return {StoppedReason(facts) + "; the outputs hold the run up to then", "interrupted",
              ExitStatus::kBySignal + facts.signal};
    case Kind::OutputClosed:
      return {"", "output closed", ExitStatus::kNotRun};
    case Kind::Completed:
      break;
  }
  bool done = facts.written && !facts.checkFailed;
  return {"", facts.written ? "ok" : "write failed",
          done ? ExitStatus::kDone : ExitStatus::kNotRun};
}

}  // namespace StopReport
