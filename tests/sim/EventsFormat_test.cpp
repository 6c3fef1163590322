// The events format read and written from its one table: every kind's line
// as users' recorded files hold it, read back to the same event; damaged
// lines (deep nesting included) as FILE:LINE errors; and the comparison of
// a run with its expected events, linear however many share one ms.
#include "sim/output/EventsFormat.h"

#include <string>
#include <vector>

#include "gtest/gtest.h"
#include "sim/check/EventComparator.h"
#include "sim/output/EventLog.h"

namespace {

using Kind = SimEvent::Kind;

SimEvent Make(Kind kind, int64_t tMs, std::string name, std::string text = "", int64_t value = 0) {
  SimEvent event;
  event.kind = kind;
  event.tMs = tMs;
  event.name = std::move(name);
  event.text = std::move(text);
  event.value = value;
  return event;
}

TEST(EventsFormatTest, EveryKindIsWrittenAsBeforeAndReadBack) {
  SimEvent acquire = Make(Kind::LockAcquire, 2, "");
  acquire.handle = 3;
  acquire.resources = {1077936128, -1};
  SimEvent release = Make(Kind::LockRelease, 3, "");
  release.handle = 3;
  SimEvent log = Make(Kind::Log, 4, "GORV", "a \"quoted\"\n\xC3\xA9 text");
  log.priority = 4;
  SimEvent trigger = Make(Kind::Trigger, 7, "com.x/.Main", "", 4097);
  trigger.triggerValue = 30;
  const std::pair<SimEvent, std::string> rows[] = {
      {Make(Kind::Node, 1, "/sys/fps", "60"),
       R"({"t":1,"event":"node","path":"/sys/fps","value":"60"})"},
      {acquire, R"({"t":2,"event":"perf_lock_acquire","handle":3,"resources":[1077936128,-1]})"},
      {release, R"({"t":3,"event":"perf_lock_release","handle":3})"},
      {log,
       "{\"t\":4,\"event\":\"log\",\"priority\":4,\"tag\":\"GORV\",\"message\":"
       "\"a \\\"quoted\\\"\\n\xC3\xA9 text\"}"},
      {Make(Kind::Counter, 5, "Game FPS", "", -9223372036854775807 - 1),
       R"({"t":5,"event":"counter","name":"Game FPS","value":-9223372036854775808})"},
      {Make(Kind::TraceSection, 6, "Meters"), R"({"t":6,"event":"trace_section","name":"Meters"})"},
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
  EXPECT_EQ(EventsFormat::Line(Make(Kind::TraceSection, 0, "a\xFF")),
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
      {std::string(100000, '['), "nested deeper than 8 levels; " + object},
      {"{\"a\":" + std::string(9, '[') + std::string(9, ']') + "}",
       "nested deeper than 8 levels; " + object},
      // A damaged line is an error even when it mentions the stop.
      {R"({"t":0,"event":"stopped")", object},
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

TEST(EventsFormatTest, TheComparisonAlignsEachMillisecondInOrder) {
  using Diff = EventComparator::Difference::Kind;
  auto node = [](const char* path, const char* value) { return Make(Kind::Node, 5, path, value); };
  struct Row {
    std::vector<SimEvent> expected, recorded;
    size_t matched;
    std::vector<Diff> differences;
  };
  const Row rows[] = {
      {{node("a", "1"), node("b", "1")}, {node("a", "1"), node("b", "1")}, 2, {}},
      {{node("a", "1"), node("b", "1"), node("c", "1")},
       {node("a", "1"), node("c", "1")},
       2,
       {Diff::Missing}},
      {{node("a", "1")}, {node("x", "1"), node("a", "1")}, 1, {Diff::Extra}},
      {{node("a", "1"), node("b", "1")}, {node("a", "2"), node("b", "1")}, 1, {Diff::Changed}},
      // Swapped: one matches, the other is extra before it and missing after.
      {{node("a", "1"), node("b", "1")},
       {node("b", "1"), node("a", "1")},
       1,
       {Diff::Extra, Diff::Missing}},
  };
  for (const Row& row : rows) {
    EventComparator::Result result = EventComparator::Compare(row.expected, row.recorded, {});
    EXPECT_EQ(result.matched, row.matched);
    std::vector<Diff> kinds;
    for (const auto& difference : result.differences) kinds.push_back(difference.kind);
    EXPECT_EQ(kinds, row.differences);
  }

  // 100000 events in one ms, one changed, one removed, one added.
  std::vector<SimEvent> expected;
  expected.reserve(100000);
  for (int i = 0; i < 100000; ++i) {
    expected.push_back(Make(Kind::Counter, 7, "c" + std::to_string(i % 10), "", i));
  }
  std::vector<SimEvent> recorded = expected;
  recorded[500].value = -1;
  recorded.erase(recorded.begin() + 60000);
  recorded.push_back(Make(Kind::Node, 7, "/x", "1"));
  EventComparator::Result result = EventComparator::Compare(expected, recorded, {});
  EXPECT_EQ(result.matched, 99998u);
  ASSERT_EQ(result.differences.size(), 3u);
  EXPECT_EQ(result.differences[0].kind, Diff::Changed);
  EXPECT_EQ(result.differences[0].recorded.value, -1);
  EXPECT_EQ(result.differences[1].kind, Diff::Missing);
  EXPECT_EQ(result.differences[1].expected.value, 60000);
  EXPECT_EQ(result.differences[2].kind, Diff::Extra);
}

TEST(EventsFormatTest, OneRemovedEventAmongManyIsOneDifference) {
  std::vector<SimEvent> expected;
  for (int i = 0; i < 50; ++i) {
    SimEvent event;
    event.kind = i % 2 == 0 ? SimEvent::Kind::Node : SimEvent::Kind::Counter;
    event.tMs = int64_t{i / 4} * 200;  // several events share each time
    event.name = "n" + std::to_string(i % 3);
    event.text = std::to_string(i);
    expected.push_back(event);
  }
  std::vector<SimEvent> recorded = expected;
  recorded.erase(recorded.begin() + 9);
  recorded[30].value = 7;
  SimEvent extra = recorded[40];
  extra.text = "x";
  recorded.insert(recorded.begin() + 41, extra);
  EventComparator::Result result = EventComparator::Compare(expected, recorded, {});
  ASSERT_EQ(result.differences.size(), 3u);
  EXPECT_EQ(result.matched, 48u);  // the changed event is not a match
  using Kind = EventComparator::Difference::Kind;
  EXPECT_EQ(result.differences[0].kind, Kind::Missing);
  EXPECT_EQ(result.differences[0].expected.text, "9");
  EXPECT_EQ(result.differences[1].kind, Kind::Changed);
  EXPECT_EQ(result.differences[1].recorded.value, 7);
  EXPECT_EQ(result.differences[2].kind, Kind::Extra);
  EXPECT_EQ(result.differences[2].recorded.text, "x");
}

}  // namespace
