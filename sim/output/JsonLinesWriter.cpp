#include "sim/output/JsonLinesWriter.h"

#include "sim/output/EventsFormat.h"

void JsonLinesWriter::Event(const SimEvent& event) {
  if (event.IsEffect()) mOut << EventsFormat::Line(event) << '\n';
}

void JsonLinesWriter::End(const RunEnd& end) {
  if (!end.stopped.empty()) mOut << EventsFormat::StopLine(end.endMs, end.stopped) << '\n';
  mOut.flush();
}
