#include "sim/output/EventsFormat.h"

#include <limits>
#include <nlohmann/json.hpp>
#include <string>
#include <variant>
#include <vector>

#include "sim/TextEscape.h"

namespace {

using Json = nlohmann::json;

// Where a field lives in SimEvent; its type is the JSON type.
using Member = std::variant<std::string SimEvent::*, int32_t SimEvent::*, int64_t SimEvent::*,
                            std::vector<int32_t> SimEvent::*>;
struct Field {
  const char* key;
  Member member;
};
struct KindRow {
  SimEvent::Kind kind;
  const char* name;
  std::vector<Field> fields;
};

// Every kind, effects first in the order messages list them.
const KindRow kKinds[] = {
    {SimEvent::Kind::Node, "node", {{"path", &SimEvent::name}, {"value", &SimEvent::text}}},
    {SimEvent::Kind::LockAcquire,
     "perf_lock_acquire",
     {{"handle", &SimEvent::handle}, {"resources", &SimEvent::resources}}},
    {SimEvent::Kind::LockRelease, "perf_lock_release", {{"handle", &SimEvent::handle}}},
    {SimEvent::Kind::Log,
     "log",
     {{"priority", &SimEvent::priority}, {"tag", &SimEvent::name}, {"message", &SimEvent::text}}},
    {SimEvent::Kind::Counter, "counter", {{"name", &SimEvent::name}, {"value", &SimEvent::value}}},
    {SimEvent::Kind::TraceSection, "trace_section", {{"name", &SimEvent::name}}},
    {SimEvent::Kind::Trigger,
     "trigger",
     {{"id", &SimEvent::value},
      {"component", &SimEvent::name},
      {"value", &SimEvent::triggerValue}}},
};

const KindRow& RowOf(SimEvent::Kind kind) {
  for (const KindRow& row : kKinds) {
    if (row.kind == kind) return row;
  }
  return kKinds[0];  // every kind has a row
}

// Writes a member of `event` as JSON text, as nlohmann writes it: lines
// are written as text (a JSON value per line cost more than the plug-in's
// run), and read back with nlohmann.
struct FieldWriter {
  const SimEvent& event;
  std::string* out;

  void operator()(std::string SimEvent::*member) const { *out += TextEscape::Json(event.*member); }
  void operator()(int32_t SimEvent::*member) const { *out += std::to_string(event.*member); }
  void operator()(int64_t SimEvent::*member) const { *out += std::to_string(event.*member); }
  void operator()(std::vector<int32_t> SimEvent::*member) const {
    *out += '[';
    for (size_t i = 0; i < (event.*member).size(); ++i) {
      if (i > 0) *out += ',';
      *out += std::to_string((event.*member)[i]);
    }
    *out += ']';
  }
};

// True when brackets outside strings nest deeper than kMaxDepth.
bool TooDeep(std::string_view line) {
  int depth = 0;
  bool inString = false;
  for (size_t i = 0; i < line.size(); ++i) {
    char c = line[i];
    if (inString) {
      if (c == '\\') ++i;
      inString = c != '"';
    } else if (c == '"') {
      inString = true;
    } else if (c == '[' || c == '{') {
      if (++depth > EventsFormat::kMaxDepth) return true;
    } else if (c == ']' || c == '}') {
      --depth;
    }
  }
  return false;
}

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

bool Int32Of(const Json& item, int32_t* value) {
  int64_t read = 0;
  if (!IntOf(item, std::numeric_limits<int32_t>::min(), std::numeric_limits<int32_t>::max(),
             &read)) {
    return false;
  }
  *value = static_cast<int32_t>(read);
  return true;
}

// Reads `item` into the member of `event` that `member` names.
struct FieldReader {
  const Json& item;
  SimEvent* event;

  bool operator()(std::string SimEvent::*member) const {
    if (!item.is_string()) return false;
    event->*member = item.get<std::string>();
    return true;
  }
  bool operator()(int32_t SimEvent::*member) const { return Int32Of(item, &(event->*member)); }
  bool operator()(int64_t SimEvent::*member) const {
    return IntOf(item, std::numeric_limits<int64_t>::min(), std::numeric_limits<int64_t>::max(),
                 &(event->*member));
  }
  bool operator()(std::vector<int32_t> SimEvent::*member) const {
    if (!item.is_array()) return false;
    for (const Json& element : item) {
      int32_t value = 0;
      if (!Int32Of(element, &value)) return false;
      (event->*member).push_back(value);
    }
    return true;
  }
};

bool ReadFields(const Json& object, const KindRow& row, SimEvent* event) {
  for (const Field& field : row.fields) {
    auto found = object.find(field.key);
    if (found == object.end() || !std::visit(FieldReader{*found, event}, field.member)) {
      return false;
    }
  }
  return true;
}

// "integer" or "integers" for a field of this member's type.
const char* TypeWord(const Member& member, bool plural) {
  if (std::holds_alternative<std::string SimEvent::*>(member)) return plural ? "strings" : "string";
  bool list = std::holds_alternative<std::vector<int32_t> SimEvent::*>(member);
  return plural || list ? "integers" : "integer";
}

// "\"tag\" and \"message\" (strings)": the fields in runs of one type.
std::string FieldsText(const std::vector<Field>& fields) {
  std::vector<std::string> runs;
  bool joinedRun = false;
  for (size_t i = 0; i < fields.size();) {
    size_t end = i + 1;
    while (end < fields.size() && fields[end].member.index() == fields[i].member.index()) ++end;
    std::string run = "\"" + std::string(fields[i].key) + "\"";
    for (size_t j = i + 1; j < end; ++j) run += " and \"" + std::string(fields[j].key) + "\"";
    runs.push_back(run + " (" + TypeWord(fields[i].member, end - i > 1) + ")");
    joinedRun |= end - i > 1;
    i = end;
  }
  // Runs are listed with commas, the last after "and" unless a run already
  // says "and".
  std::string text;
  for (size_t i = 0; i < runs.size(); ++i) {
    if (i > 0) text += i + 1 == runs.size() && !joinedRun ? " and " : ", ";
    text += runs[i];
  }
  return text;
}

}  // namespace

std::string EventsFormat::Line(const SimEvent& event) {
  const KindRow& row = RowOf(event.kind);
  std::string line = "{\"t\":" + std::to_string(event.tMs) + ",\"event\":\"" + row.name + "\"";
  for (const Field& field : row.fields) {
    line += ",\"";
    line += field.key;
    line += "\":";
    std::visit(FieldWriter{event, &line}, field.member);
  }
  return line + "}";
}

std::string EventsFormat::StopLine(int64_t endMs, const std::string& reason) {
  return "{\"t\":" + std::to_string(endMs) +
         ",\"event\":\"stopped\",\"reason\":" + TextEscape::Json(reason) + "}";
}

EventsFormat::Parsed EventsFormat::ParseLine(std::string_view line, SimEvent* event,
                                             std::string* reason) {
  const std::string expected = "expected one JSON object per line, as --events writes them";
  if (TooDeep(line)) {
    *reason = "nested deeper than " + std::to_string(kMaxDepth) + " levels; " + expected;
    return Parsed::Damaged;
  }
  Json object = Json::parse(line, nullptr, false);
  if (object.is_discarded() || !object.is_object()) {
    *reason = expected;
    return Parsed::Damaged;
  }
  auto kind = object.find("event");
  if (kind != object.end() && *kind == "stopped") return Parsed::Stop;
  auto t = object.find("t");
  if (t == object.end() || !IntOf(*t, 0, std::numeric_limits<int64_t>::max(), &event->tMs) ||
      kind == object.end() || !kind->is_string() ||
      !KindOf(kind->get_ref<const std::string&>(), &event->kind)) {
    *reason = "expected \"t\" (ms, 0 or more) and \"event\" (" + EffectNames() + ")";
    return Parsed::Damaged;
  }
  const KindRow& row = RowOf(event->kind);
  if (!ReadFields(object, row, event)) {
    *reason = "expected a " + std::string(row.name) + " event with " + FieldsText(row.fields);
    return Parsed::Damaged;
  }
  return Parsed::Event;
}

const char* EventsFormat::KindName(SimEvent::Kind kind) { return RowOf(kind).name; }

bool EventsFormat::KindOf(std::string_view name, SimEvent::Kind* kind) {
  for (const KindRow& row : kKinds) {
    if (name == row.name && row.kind != SimEvent::Kind::Trigger) {
      *kind = row.kind;
      return true;
    }
  }
  return false;
}

std::string EventsFormat::EffectNames() {
  std::vector<const char*> effects;
  for (const KindRow& row : kKinds) {
    if (row.kind != SimEvent::Kind::Trigger) effects.push_back(row.name);
  }
  std::string names;
  for (size_t i = 0; i < effects.size(); ++i) {
    if (i > 0) names += i + 1 == effects.size() ? " or " : ", ";
    names += effects[i];
  }
  return names;
}
