// The events format read and written from its one table: every kind's line
// as users' recorded files hold it, read back to the same event; damaged
// lines (deep nesting included) as FILE:LINE errors; and the comparison of
// a run with its expected events, aligned within each ms (that it stays
// linear however many share one ms is bench/ComparatorBenchmarks.cpp's).
#include "sim/output/EventsFormat.h"

#include <string>
#include <vector>

#include "gtest/gtest.h"
#include "sim/check/EventComparator.h"
#include "sim/output/EventLog.h"
#include "tests/support/SimEvents.h"

namespace {

using Kind = SimEvent::Kind;
using Lines = std::vector<std::string>;

TEST(EventsFormatTest, EveryKindIsWrittenAsBeforeAndReadBack) {
  SimEvent acquire = MakeEvent(2, Kind::LockAcquire, "", "", 0, 3);
  acquire.resources = {1077936128, -1};
  SimEvent log = MakeEvent(4, Kind::Log, "GORV", "a \"quoted\"\n\xC3\xA9 text");
  log.priority = 4;
  SimEvent trigger = MakeEvent(7, Kind::Trigger, "com.x/.Main", "", 4097);
  trigger.triggerValue = 30;
  const std::pair<SimEvent, std::string> rows[] = {
      {MakeEvent(1, Kind::Node, "/sys/fps", "60"),
       R"({"t":1,"event":"node","path":"/sys/fps","value":"60"})"},
      {acquire, R"({"t":2,"event":"perf_lock_acquire","handle":3,"resources":[1077936128,-1]})"},
      {MakeEvent(3, Kind::LockRelease, "", "", 0, 3),
       R"({"t":3,"event":"perf_lock_release","handle":3})"},
      {log,
       "{\"t\":4,\"event\":\"log\",\"priority\":4,\"tag\":\"GORV\",\"message\":"
       "\"a \\\"quoted\\\"\\n\xC3\xA9 text\"}"},
      {MakeEvent(5, Kind::Counter, "Game FPS", "", -9223372036854775807 - 1),
       R"({"t":5,"event":"counter","name":"Game FPS","value":-9223372036854775808})"},
      {MakeEvent(6, Kind::TraceSection, "Meters"),
       R"({"t":6,"event":"trace_section","name":"Meters"})"},
      {trigger, R"({"t":7,"event":"trigger","id":4097,"component":"com.x/.Main","value":30})"},
  };
  for (const auto& [event, line] : rows) {
    EXPECT_EQ(EventsFormat::Line(event), line);
    SimEvent read;
    std::string reason;
    EventsFormat::Parsed parsed = EventsFormat::ParseLine(line, &read, &reason);
    if (!event.IsEffect()) {  // triggers are inputs, not read back
      EXPECT_EQ(parsed, EventsFormat::Parsed::Damaged);
      continue;
    }
    ASSERT_EQ(parsed, EventsFormat::Parsed::Event) << reason;
    EXPECT_EQ(EventsFormat::Line(read), line);
  }
  // Bytes that are not UTF-8 still give valid JSON.
  EXPECT_EQ(EventsFormat::Line(MakeEvent(0, Kind::TraceSection, "a\xFF")),
            "{\"t\":0,\"event\":\"trace_section\",\"name\":\"a\xEF\xBF\xBD\"}");
  EXPECT_EQ(EventsFormat::StopLine(9, "interrupted"),
            R"({"t":9,"event":"stopped","reason":"interrupted"})");
  EXPECT_EQ(EventsFormat::EffectNames(),
            "node, perf_lock_acquire, perf_lock_release, log, counter or trace_section");
}

TEST(EventsFormatTest, DamagedLinesAreErrorsNamingTheFileAndLine) {
  const std::string object = "expected one JSON object per line, as --events writes them";
  const std::string kinds =
      "expected \"t\" (ms, 0 or more) and \"event\" (node, perf_lock_acquire, "
      "perf_lock_release, log, counter or trace_section)";
  const std::pair<std::string, std::string> rows[] = {
      {"{\"t\":0,\"event\":\"log\"", object},
      {"[1]", object},
      // A damaged line is an error even when it mentions the stop.
      {R"({"t":0,"event":"node","path":"\"event\":\"stopped\"")", object},
      {"{\"t\":-1,\"event\":\"node\",\"path\":\"p\",\"value\":\"1\"}", kinds},
      {"{\"t\":0,\"event\":\"trigger\"}", kinds},
      {"{\"t\":0,\"event\":\"node\",\"path\":\"p\",\"value\":1}",
       "expected a node event with \"path\" and \"value\" (strings)"},
      {"{\"t\":0,\"event\":\"perf_lock_acquire\",\"handle\":1,\"resources\":[4294967296]}",
       "expected a perf_lock_acquire event with \"handle\" (integer) and \"resources\" "
       "(integers)"},
      {"{\"t\":0,\"event\":\"log\",\"priority\":4,\"tag\":\"x\"}",
       "expected a log event with \"priority\" (integer), \"tag\" and \"message\" (strings)"},
      {"{\"t\":0,\"event\":\"counter\",\"name\":\"c\",\"value\":18446744073709551615}",
       "expected a counter event with \"name\" (string) and \"value\" (integer)"},
  };
  for (const auto& [line, reason] : rows) {
    std::vector<SimEvent> events;
    std::string error;
    EXPECT_FALSE(EventLog::Parse("e.jsonl", "\n" + line + "\n", &events, &error));
    EXPECT_EQ(error, "e.jsonl:2: " + reason) << line.substr(0, 80);
  }
  // Blank lines and the stop line are skipped; nesting within the cap is fine.
  std::vector<SimEvent> events;
  std::string error;
  EXPECT_TRUE(EventLog::Parse("e.jsonl",
                              "\n  \n{\"t\":1,\"event\":\"trace_section\",\"name\":\"[[[[[[[[[\","
                              "\"x\":[[[[[[[1]]]]]]]}\n"
                              R"({"t":2,"event":"stopped","reason":"interrupted"})",
                              &events, &error))
      << error;
  ASSERT_EQ(events.size(), 1u);
  EXPECT_EQ(events[0].name, "[[[[[[[[[");
}

// A comparison's differences as "missing a=1@5" (the expected event),
// "extra ..." or "changed ..." (the recorded one), and the matches.
Lines Compare(const std::vector<SimEvent>& expected, const std::vector<SimEvent>& recorded,
              size_t* matched) {
  using Diff = EventComparator::Difference::Kind;
  EventComparator::Result result = EventComparator::Compare(expected, recorded, {});
  *matched = result.matched;
  Lines differences;
  for (const auto& d : result.differences) {
    const SimEvent& event = d.kind == Diff::Missing ? d.expected : d.recorded;
    const char* kind = d.kind == Diff::Missing ? "missing "
                       : d.kind == Diff::Extra ? "extra "
                                               : "changed ";
    differences.push_back(kind + event.name + "=" + event.text + "@" + std::to_string(d.TimeMs()));
  }
  return differences;
}

TEST(EventsFormatTest, TheComparisonAlignsEachMillisecondInOrder) {
  auto node = [](const char* path, const char* value, int64_t ms = 5) {
    return MakeEvent(ms, Kind::Node, path, value);
  };
  struct Row {
    std::vector<SimEvent> expected, recorded;
    size_t matched;
    Lines differences;
  };
  // clang-format off
  const Row rows[] = {
      {{node("a", "1"), node("b", "1")}, {node("a", "1"), node("b", "1")}, 2, {}},
      {{node("a", "1"), node("b", "1"), node("c", "1")}, {node("a", "1"), node("c", "1")}, 2,
       {"missing b=1@5"}},
      {{node("a", "1")}, {node("x", "1"), node("a", "1")}, 1, {"extra x=1@5"}},
      {{node("a", "1"), node("b", "1")}, {node("a", "2"), node("b", "1")}, 1, {"changed a=2@5"}},
      // Swapped: one matches, the other is extra before it and missing after.
      {{node("a", "1"), node("b", "1")}, {node("b", "1"), node("a", "1")}, 1,
       {"extra b=1@5", "missing b=1@5"}},
      // Events match only at their own time, whatever order they come in.
      {{node("a", "1", 5), node("a", "1", 6)}, {node("a", "1", 6)}, 1, {"missing a=1@5"}},
      {{node("a", "1", 5), node("b", "1", 6)}, {node("b", "1", 6), node("a", "1", 5)}, 2, {}},
      // A name repeated within the ms: each difference lands on its own event.
      {{node("c", "0"), node("d", "1"), node("c", "2"), node("c", "3")},
       {node("c", "x"), node("d", "1"), node("c", "3"), node("/x", "1")}, 2,
       {"changed c=x@5", "missing c=2@5", "extra /x=1@5"}},
  };
  // clang-format on
  for (const Row& row : rows) {
    size_t matched = 0;
    EXPECT_EQ(Compare(row.expected, row.recorded, &matched), row.differences);
    EXPECT_EQ(matched, row.matched);
  }
}

}  // namespace
