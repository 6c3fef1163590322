#include "sim/output/JsonLinesWriter.h"

#include <nlohmann/json.hpp>

#include "sim/output/EventLog.h"

void JsonLinesWriter::Event(const SimEvent& event) {
  if (event.IsEffect()) mOut << Line(event) << '\n';
}

void JsonLinesWriter::End(const RunEnd& end) {
  if (!end.stopped.empty()) {
    nlohmann::ordered_json line = {{"t", end.endMs}, {"event", "stopped"}, {"reason", end.stopped}};
    mOut << line.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace) << '\n';
  }
  mOut.flush();
}

std::string JsonLinesWriter::Line(const SimEvent& event) {
  nlohmann::ordered_json line;
  line["t"] = event.tMs;
  line["event"] = EventLog::KindName(event.kind);
  switch (event.kind) {
    case SimEvent::Kind::Node:
      line["path"] = event.name;
      line["value"] = event.text;
      break;
    case SimEvent::Kind::LockAcquire:
      line["handle"] = event.handle;
      line["resources"] = event.resources;
      break;
    case SimEvent::Kind::LockRelease:
      line["handle"] = event.handle;
      break;
    case SimEvent::Kind::Log:
      line["priority"] = event.priority;
      line["tag"] = event.name;
      line["message"] = event.text;
      break;
    case SimEvent::Kind::Counter:
      line["name"] = event.name;
      line["value"] = event.value;
      break;
    case SimEvent::Kind::TraceSection:
      line["name"] = event.name;
      break;
    case SimEvent::Kind::Trigger:
      line["id"] = event.value;
      line["component"] = event.name;
      line["value"] = event.triggerValue;
      break;
  }
  return line.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}
