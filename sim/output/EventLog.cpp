#include "sim/output/EventLog.h"

#include <cstdint>
#include <limits>
#include <nlohmann/json.hpp>

#include "sim/input/InputFile.h"
#include "sim/input/TextLines.h"

namespace {

using Json = nlohmann::json;

// Each effect's "event" name and, for messages, its fields.
struct KindInfo {
  SimEvent::Kind kind;
  const char* name;
  const char* fields;
};
constexpr KindInfo kEffects[] = {
    {SimEvent::Kind::Node, "node", "\"path\" and \"value\" (strings)"},
    {SimEvent::Kind::LockAcquire, "perf_lock_acquire",
     "\"handle\" (integer) and \"resources\" (integers)"},
    {SimEvent::Kind::LockRelease, "perf_lock_release", "\"handle\" (integer)"},
    {SimEvent::Kind::Log, "log", "\"priority\" (integer), \"tag\" and \"message\" (strings)"},
    {SimEvent::Kind::Counter, "counter", "\"name\" (string) and \"value\" (integer)"},
    {SimEvent::Kind::TraceSection, "trace_section", "\"name\" (string)"},
};

// The line --events ends a run with when it stopped early: not an event.
bool IsStopLine(std::string_view line) {
  return line.find("\"event\":\"stopped\"") != std::string_view::npos;
}

const KindInfo* InfoOf(SimEvent::Kind kind) {
  for (const KindInfo& info : kEffects) {
    if (info.kind == kind) return &info;
  }
  return nullptr;
}

constexpr int64_t kInt32Min = std::numeric_limits<int32_t>::min();
constexpr int64_t kInt32Max = std::numeric_limits<int32_t>::max();

bool IntOf(const Json& item, int64_t min, int64_t max, int64_t* value) {
  if (!item.is_number_integer()) return false;
  if (item.is_number_unsigned() &&
      item.get<uint64_t>() > static_cast<uint64_t>(std::numeric_limits<int64_t>::max())) {
    return false;
  }
  int64_t read = item.get<int64_t>();
  if (read < min || read > max) return false;
  *value = read;
  return true;
}

bool GetInt(const Json& object, const char* key, int64_t min, int64_t max, int64_t* value) {
  auto found = object.find(key);
  return found != object.end() && IntOf(*found, min, max, value);
}

bool GetInt32(const Json& object, const char* key, int32_t* value) {
  int64_t read = 0;
  if (!GetInt(object, key, kInt32Min, kInt32Max, &read)) return false;
  *value = static_cast<int32_t>(read);
  return true;
}

bool GetString(const Json& object, const char* key, std::string* value) {
  auto found = object.find(key);
  if (found == object.end() || !found->is_string()) return false;
  *value = found->get<std::string>();
  return true;
}

bool GetResources(const Json& object, std::vector<int32_t>* resources) {
  auto found = object.find("resources");
  if (found == object.end() || !found->is_array()) return false;
  for (const Json& item : *found) {
    int64_t value = 0;
    if (!IntOf(item, kInt32Min, kInt32Max, &value)) return false;
    resources->push_back(static_cast<int32_t>(value));
  }
  return true;
}

// The fields of one kind; false when one is missing or of the wrong type.
bool GetFields(const Json& object, SimEvent* event) {
  switch (event->kind) {
    case SimEvent::Kind::Node:
      return GetString(object, "path", &event->name) && GetString(object, "value", &event->text);
    case SimEvent::Kind::LockAcquire:
      return GetInt32(object, "handle", &event->handle) && GetResources(object, &event->resources);
    case SimEvent::Kind::LockRelease:
      return GetInt32(object, "handle", &event->handle);
    case SimEvent::Kind::Log:
      return GetInt32(object, "priority", &event->priority) &&
             GetString(object, "tag", &event->name) && GetString(object, "message", &event->text);
    case SimEvent::Kind::Counter:
      return GetString(object, "name", &event->name) &&
             GetInt(object, "value", std::numeric_limits<int64_t>::min(),
                    std::numeric_limits<int64_t>::max(), &event->value);
    case SimEvent::Kind::TraceSection:
      return GetString(object, "name", &event->name);
    case SimEvent::Kind::Trigger:
      break;
  }
  return false;
}

}  // namespace

bool EventLog::ParseLine(std::string_view line, SimEvent* event, std::string* reason) {
  Json object = Json::parse(line, nullptr, false);
  if (object.is_discarded() || !object.is_object()) {
    *reason = "expected one JSON object per line, as --events writes them";
    return false;
  }
  std::string kind;
  if (!GetInt(object, "t", 0, std::numeric_limits<int64_t>::max(), &event->tMs) ||
      !GetString(object, "event", &kind) || !EventLog::KindOf(kind, &event->kind)) {
    *reason = "expected \"t\" (ms, 0 or more) and \"event\" (" + EventLog::EffectNames() + ")";
    return false;
  }
  if (!GetFields(object, event)) {
    *reason = "expected a " + kind + " event with " + InfoOf(event->kind)->fields;
    return false;
  }
  return true;
}

bool EventLog::Parse(const std::string& name, std::string_view text, std::vector<SimEvent>* events,
                     std::string* error) {
  TextLines lines(name, text);
  std::string_view line;
  while (lines.Next(&line)) {
    if (line.find_first_not_of(" \t") == std::string_view::npos || IsStopLine(line)) continue;
    SimEvent event;
    std::string reason;
    if (!ParseLine(line, &event, &reason)) {
      *error = lines.Where() + reason;
      return false;
    }
    events->push_back(std::move(event));
  }
  *error = lines.error();
  return error->empty();
}

bool EventLog::Load(const std::string& path, std::vector<SimEvent>* events, std::string* error) {
  std::string text;
  return InputFile::Read(path, "events file", InputFile::kMaxCaptureBytes, &text, error) &&
         Parse(path, text, events, error);
}

const char* EventLog::KindName(SimEvent::Kind kind) {
  const KindInfo* info = InfoOf(kind);
  return info != nullptr ? info->name : "trigger";
}

bool EventLog::KindOf(const std::string& name, SimEvent::Kind* kind) {
  for (const KindInfo& info : kEffects) {
    if (name == info.name) {
      *kind = info.kind;
      return true;
    }
  }
  return false;
}

std::string EventLog::EffectNames() {
  std::string names;
  for (size_t i = 0; i < std::size(kEffects); ++i) {
    if (i > 0) names += i + 1 == std::size(kEffects) ? " or " : ", ";
    names += kEffects[i].name;
  }
  return names;
}
