// --perfetto's writer: the file decoded with the protobuf classes and the
// plug-in's tracks checked as text against the run's events, also before
// End and when stopped early; a replayed device trace copied byte for byte
// with the plug-in's time T on the replayed layer's first frame.
#include "sim/output/PerfettoWriter.h"

#include <gtest/gtest.h>

#include <map>
#include <sstream>
#include <string>

#include "perfetto_trace.pb.h"
#include "sim/input/ScenarioParser.h"
#include "sim/run/RunEngine.h"
#include "tests/support/PerfettoTraceBuilder.h"
#include "tests/support/SimEvents.h"
#include "tests/support/TempFolder.h"

namespace {

namespace out = gorvsim::perfetto;

constexpr uint64_t kMs = 1000000;

// Events of the run; every lock call on handle 7.
SimEvent Make(int64_t ms, SimEvent::Kind kind, const std::string& name = "",
              const std::string& text = "") {
  return MakeEvent(ms, kind, name, text, 0, 7);
}

// The plug-in's packets (on `sequence`) as lines: "track ...", counters
// "TS TRACK VALUE", instants "TS TRACK NAME {KEY=VALUE;...}". Fails on bytes
// that do not decode, a packet off `clock` or a wrong sequence_flags.
std::string PluginTracks(const std::string& bytes, uint32_t sequence, uint32_t clock) {
  out::Trace trace;
  EXPECT_TRUE(trace.ParseFromString(bytes));
  std::map<uint64_t, std::string> names;
  std::ostringstream text;
  for (const out::TracePacket& packet : trace.packet()) {
    if (packet.trusted_packet_sequence_id() != sequence) continue;
    EXPECT_EQ(packet.timestamp_clock_id(), clock);
    EXPECT_EQ(packet.sequence_flags(), names.empty() ? 1u : 0u);  // on the first one only
    if (packet.has_track_descriptor()) {
      const out::TrackDescriptor& track = packet.track_descriptor();
      names[track.uuid()] = track.name();
      text << "track " << track.name() << (track.has_counter() ? " counter" : "")
           << (track.has_process() ? " pid " + std::to_string(track.process().pid()) : "")
           << (track.has_parent_uuid() ? " in " + names[track.parent_uuid()] : "") << "\n";
      continue;
    }
    const out::TrackEvent& event = packet.track_event();
    text << packet.timestamp() << " " << names[event.track_uuid()] << " ";
    if (event.type() == out::TrackEvent::TYPE_COUNTER) {
      text << event.double_counter_value() + static_cast<double>(event.counter_value()) << "\n";
      continue;
    }
    text << event.name() << " {";
    for (const out::DebugAnnotation& annotation : event.debug_annotations()) {
      text << annotation.name() << "=" << annotation.string_value() << ";";
    }
    text << "}\n";
  }
  return text.str();
}

// Plays a run on `writer` over `stream`: a trigger, node writes, a log line
// with bytes that are not text, a lock taken and released (the stream is
// copied to `beforeEnd` then), a lock still held when the run stops at 2800.
void PlayRun(PerfettoWriter& writer, const std::ostringstream& stream, std::string* beforeEnd) {
  writer.Begin({"s.scn", 3000, {{0, 0.0f}, {1000, 60.0f}, {2500, 30.5f}, {3500, 1.0f}}, {}, {}});
  SimEvent trigger = Make(100, SimEvent::Kind::Trigger, "com.game/.Main");
  trigger.value = 4097;
  trigger.triggerValue = 1;
  writer.Event(trigger);
  writer.Event(Make(200, SimEvent::Kind::Node, "/sys/kernel/gorv/fps", "60"));
  writer.Event(Make(300, SimEvent::Kind::LockAcquire));
  SimEvent log = Make(400, SimEvent::Kind::Log, "GORV", "bad \x01 byte \xff");
  log.priority = 4;
  writer.Event(log);
  writer.Event(Make(1000, SimEvent::Kind::Node, "/sys/kernel/gorv/target_pid", "123"));
  writer.Event(Make(1200, SimEvent::Kind::LockRelease));
  *beforeEnd = stream.str();
  writer.Event(Make(2600, SimEvent::Kind::Node, "/sys/kernel/gorv/fps", "30"));
  writer.Event(Make(2700, SimEvent::Kind::LockAcquire));
  writer.End({2800, 0, "the plug-in aborted"});
}

// PlayRun's tracks and events up to its lock release at 1200.
const char* const kUpToRelease =
    "track gorv-sim: libgorv pid 4194305\n"
    "track measured fps counter in gorv-sim: libgorv\n"
    "track target fps counter in gorv-sim: libgorv\n"
    "track perf lock held counter in gorv-sim: libgorv\n"
    "track triggers in gorv-sim: libgorv\n"
    "track node writes in gorv-sim: libgorv\n"
    "track log in gorv-sim: libgorv\n"
    "0 gorv-sim: libgorv scenario s.scn {}\n"
    "0 target fps 0\n"
    "0 perf lock held 0\n"
    "0 measured fps 0\n"
    "100000000 triggers start {id=4097;component=com.game/.Main;value=1;}\n"
    "200000000 node writes write fps = 60 {path=/sys/kernel/gorv/fps;value=60;}\n"
    "200000000 target fps 60\n"
    "300000000 perf lock held 1\n"
    "400000000 log bad \\x01 byte \\xFF {tag=GORV;priority=4;}\n"
    "1000000000 measured fps 60\n"
    "1000000000 node writes write target_pid = 123 "
    "{path=/sys/kernel/gorv/target_pid;value=123;}\n"
    "1200000000 perf lock held 0\n";

TEST(PerfettoWriterTest, TracksValuesAndTimesOnTheBootClockUpToAStop) {
  std::ostringstream stream;
  PerfettoWriter writer(stream);
  std::string beforeEnd;
  PlayRun(writer, stream, &beforeEnd);
  EXPECT_EQ(writer.error(), "");
  // Streamed: what was written before End decodes, up to that moment.
  EXPECT_EQ(PluginTracks(beforeEnd, 1, 6), kUpToRelease);
  EXPECT_EQ(PluginTracks(stream.str(), 1, 6),
            std::string(kUpToRelease) +
                "2500000000 measured fps 30.5\n"
                "2600000000 node writes write fps = 30 {path=/sys/kernel/gorv/fps;value=30;}\n"
                "2600000000 target fps 30\n"
                // Stopped early with the lock held: the lock ends there.
                "2700000000 perf lock held 1\n"
                "2800000000 perf lock held 0\n"
                "2800000000 gorv-sim: libgorv stopped {why=the plug-in aborted;}\n");
}

// A device trace: a packet on sequence 1 with a padded length, then frames
// of one layer ending at 5.000 and 5.020 s and compressed packets, on
// sequence 3. Sets the offset of its last packet.
std::string DeviceTrace(size_t* lastPacketAt) {
  TraceBuilder device;
  device.Frame("TX - game#1", 1, 4992 * kMs, 5000 * kMs);
  device.Frame("TX - game#1", 2, 5012 * kMs, 5020 * kMs);
  device.trace.add_packet()->set_compressed_packets(Deflate(""));
  for (auto& packet : *device.trace.mutable_packet()) {
    packet.set_timestamp_clock_id(6);
    packet.mutable_unknown_fields()->append("\x50\x03");  // trusted_packet_sequence_id 3
  }
  std::string bytes = std::string("\x0a\x82\x00\x50\x01", 5) + device.Bytes();
  *lastPacketAt = bytes.size() - 2 - device.trace.packet(4).ByteSizeLong();
  return bytes;
}

// The replayed device trace as it is at run time: whole, gone, or cut in its
// last packet after the scenario was read. Its packets come first as they
// were, the plug-in's follow with time T (1000 ms) on the first frame.
TEST(PerfettoWriterTest, DevicePacketsThenThePluginOnTheFramesClock) {
  TempFolder folder;
  size_t lastAt = 0;
  const std::string bytes = DeviceTrace(&lastAt), path = folder.Write("device.pftrace", bytes);
  Scenario scenario;
  std::string error;
  ASSERT_TRUE(ScenarioParser::Parse("x.scn", folder.path(),
                                    "frames 1000 device.pftrace\nend 3000\n", &scenario, &error))
      << error;
  struct Case {
    std::string bytes;   // at run time; "" removed
    std::string copied;  // what the output starts with
    uint32_t sequence;   // the plug-in's: the first free (above 2^30 past compressed packets)
    std::string error;
  } cases[] = {
      {bytes, bytes, 1u << 30, ""},
      {"", "", 1, path + ": cannot open the replayed Perfetto trace"},
      {bytes.substr(0, bytes.size() - 1), bytes.substr(0, lastAt), 2,
       path + ": truncated or corrupt Perfetto trace (the packet at byte " +
           std::to_string(lastAt) + "); the packets before it are copied"},
  };
  for (const Case& row : cases) {
    std::remove(path.c_str());
    if (!row.bytes.empty()) folder.Write("device.pftrace", row.bytes);
    std::ostringstream stream;
    PerfettoWriter writer(stream);
    writer.Begin(RunEngine::InfoOf(scenario));
    writer.Event(Make(1000, SimEvent::Kind::Node, "/sys/kernel/gorv/fps", "60"));
    writer.End({1500, 0, "interrupted by SIGINT"});
    EXPECT_EQ(writer.error(), row.error);
    ASSERT_EQ(stream.str().substr(0, row.copied.size()), row.copied) << row.error;
    std::string text = PluginTracks(stream.str(), row.sequence, 6);
    EXPECT_NE(text.find("4000000000 target fps 0\n"), std::string::npos) << text;
    EXPECT_EQ(text.substr(text.find("5000000000 node")),
              "5000000000 node writes write fps = 60 {path=/sys/kernel/gorv/fps;value=60;}\n"
              "5000000000 target fps 60\n"
              "5500000000 gorv-sim: libgorv stopped {why=interrupted by SIGINT;}\n");
  }
}

}  // namespace
