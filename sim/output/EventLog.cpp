#include "sim/output/EventLog.h"

#include "sim/input/InputFile.h"
#include "sim/input/TextLines.h"
#include "sim/output/EventsFormat.h"

bool EventLog::Parse(const std::string& name, std::string_view text, std::vector<SimEvent>* events,
                     std::string* error) {
  TextLines lines(name, text);
  std::string_view line;
  while (lines.Next(&line)) {
    if (line.find_first_not_of(" \t") == std::string_view::npos) continue;
    SimEvent event;
    std::string reason;
    EventsFormat::Parsed parsed = EventsFormat::ParseLine(line, &event, &reason);
    if (parsed == EventsFormat::Parsed::Damaged) {
      *error = lines.Where() + reason;
      return false;
    }
    if (parsed == EventsFormat::Parsed::Event) events->push_back(std::move(event));
  }
  *error = lines.error();
  return error->empty();
}

bool EventLog::Load(const std::string& path, std::vector<SimEvent>* events, std::string* error) {
  std::string text;
  return InputFile::Read(path, "events file", InputFile::kMaxCaptureBytes, &text, error) &&
         Parse(path, text, events, error);
}
