#include "sim/output/SummaryJsonWriter.h"

#include "sim/SimWords.h"

namespace {

using Json = nlohmann::ordered_json;

Json Replays(const Scenario& scenario) {
  Json replays = Json::array();
  for (const Scenario::RateChange& change : scenario.rates) {
    if (!change.timeline) continue;
    const FrameTimeline& timeline = *change.timeline;
    replays.push_back({{"t", change.atMs},
                       {"format", timeline.format()},
                       {"frames", timeline.frames().size()},
                       {"layer", timeline.layer().empty() ? Json() : Json(timeline.layer())}});
  }
  return replays;
}

}  // namespace

SummaryJsonWriter::SummaryJsonWriter(const Scenario& scenario, std::ostream& out)
    : mOut(out), mReplays(Replays(scenario)) {}

void SummaryJsonWriter::Begin(const RunInfo& info) { mScenario = info.scenarioName; }

void SummaryJsonWriter::Event(const SimEvent& event) {
  if (event.kind == SimEvent::Kind::Trigger) ++mTriggers[event.value];
  mSummary.Add(event);
}

void SummaryJsonWriter::End(const RunEnd& end) {
  mSummary.Finish(end.endMs);
  Json targets = Json::array(), spans = Json::array(), triggers = Json::array();
  for (const auto& [at, fps] : mSummary.shownTargets())
    targets.push_back({{"t", at}, {"fps", fps}});
  for (const auto& [from, to] : mSummary.heldSpans()) spans.push_back({{"from", from}, {"to", to}});
  for (const auto& [id, count] : mTriggers) {
    triggers.push_back({{"id", id}, {"name", SimWords::TriggerName(id)}, {"count", count}});
  }
  Json json = {{"scenario", mScenario}, {"end_ms", end.endMs}, {"session_ms", end.sessionMs}};
  if (!end.stopped.empty()) json["stopped"] = end.stopped;
  json["target_changes"] = targets;
  json["lock_spans"] = spans;
  json["lock_held_ms"] = mSummary.lockHeldMs();
  json["node_writes"] = mSummary.nodeWrites();
  json["messages"] = mSummary.messages();
  json["triggers"] = triggers;
  json["replays"] = mReplays;
  mOut << json.dump(-1, ' ', false, Json::error_handler_t::replace) << '\n';
  mOut.flush();
}
