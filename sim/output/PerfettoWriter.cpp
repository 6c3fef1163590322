#include "sim/output/PerfettoWriter.h"

#include <google/protobuf/io/coded_stream.h>
#include <google/protobuf/wire_format_lite.h>

#include <climits>
#include <cstdint>
#include <fstream>
#include <optional>
#include <set>
#include <utility>
#include <vector>

#include "perfetto_trace.pb.h"
#include "sim/SimWords.h"
#include "sim/TextEscape.h"
#include "sim/output/RunSummary.h"

namespace {

namespace pb = gorvsim::perfetto;
using google::protobuf::internal::WireFormatLite;

// TracePacket.sequence_flags: the reader forgets what it knew of the
// sequence (SEQ_INCREMENTAL_STATE_CLEARED).
constexpr uint32_t kIncrementalStateCleared = 1;

constexpr uint32_t kBootTimeClock = 6;  // BUILTIN_CLOCK_BOOTTIME
// Above the highest pid_max Linux allows (2^22): no device process shares
// the plug-in's process track.
constexpr int32_t kPid = 4194305;
constexpr int64_t kNsPerMs = 1000000;
constexpr size_t kChunk = size_t{64} * 1024;
constexpr uint32_t kPacketTag = 0x0a;  // Trace.packet: field 1, length-delimited
constexpr int kSequenceField = 10;     // TracePacket.trusted_packet_sequence_id
constexpr int kClockField = 58;        // TracePacket.timestamp_clock_id
constexpr int kCompressedField = 50;   // TracePacket.compressed_packets
constexpr int kFrameTimelineField = 76;
// Where the plug-in's sequence id starts when packets are compressed: their
// ids are not looked into, and a tracing service numbers its sequences from
// 1 up, far below this.
constexpr uint32_t kAboveServiceSequences = uint32_t{1} << 30;

// The plug-in's tracks: the process track and its children.
enum Track : uint64_t {
  kProcess = 0x676f72762d73696d,  // "gorv-sim"
  kMeasured,
  kTarget,
  kLock,
  kTriggers,
  kNodes,
  kLog,
};

constexpr std::pair<Track, const char*> kChildren[] = {
    {kMeasured, "measured fps"}, {kTarget, "target fps"}, {kLock, "perf lock held"},
    {kTriggers, "triggers"},     {kNodes, "node writes"}, {kLog, "log"}};

// What copying saw of the device trace's top-level packets.
struct DeviceFacts {
  std::set<uint32_t> sequences;  // of the top-level packets
  bool compressed = false;       // some packets hold compressed packets
  bool sawFrame = false;
  std::optional<uint32_t> frameClock;  // the first FrameTimeline packet's; unset: the default
};

using Annotations = std::vector<std::pair<const char*, std::string>>;

// Reads a varint at the stream's position, appending its bytes to `raw`.
bool ReadVarint(std::istream& in, uint64_t* value, std::string* raw) {
  *value = 0;
  for (int shift = 0; shift < 64; shift += 7) {
    int byte = in.get();
    if (byte == std::char_traits<char>::eof()) return false;
    raw->push_back(static_cast<char>(byte));
    *value |= static_cast<uint64_t>(byte & 0x7f) << shift;
    if ((byte & 0x80) == 0) return true;
  }
  return false;
}

// Reads `size` bytes in chunks: a length the file does not hold ends at
// its end, not in one huge allocation.
bool ReadBytes(std::istream& in, uint64_t size, std::string* bytes) {
  bytes->clear();
  while (bytes->size() < size) {
    size_t used = bytes->size();
    size_t chunk = static_cast<size_t>(std::min<uint64_t>(kChunk, size - used));
    bytes->resize(used + chunk);
    if (!in.read(&(*bytes)[used], static_cast<std::streamsize>(chunk))) return false;
  }
  return true;
}

// Notes the sequence and, for the first FrameTimeline packet, the clock of
// one packet; fields it cannot read are left to Perfetto's tools.
void Note(const std::string& packet, DeviceFacts* facts) {
  google::protobuf::io::CodedInputStream in(reinterpret_cast<const uint8_t*>(packet.data()),
                                            static_cast<int>(packet.size()));
  std::optional<uint32_t> clock;
  bool frame = false;
  for (uint32_t tag = in.ReadTag(); tag != 0; tag = in.ReadTag()) {
    int field = WireFormatLite::GetTagFieldNumber(tag);
    bool varint = WireFormatLite::GetTagWireType(tag) == WireFormatLite::WIRETYPE_VARINT;
    uint32_t value = 0;
    if (varint && (field == kSequenceField || field == kClockField)) {
      if (!in.ReadVarint32(&value)) break;
      if (field == kSequenceField) facts->sequences.insert(value);
      if (field == kClockField) clock = value;
      continue;
    }
    frame |= field == kFrameTimelineField;
    facts->compressed |= field == kCompressedField;
    if (!WireFormatLite::SkipField(&in, tag)) break;
  }
  if (frame && !facts->sawFrame) {
    facts->sawFrame = true;
    facts->frameClock = clock;
  }
}

// Copies the length-delimited top-level records of the trace at `path` to
// `out` byte for byte, one at a time, noting what the plug-in's packets
// need. On a fault sets `error`; the records before it are copied whole.
bool CopyDeviceTrace(const std::string& path, std::ostream& out, DeviceFacts* facts,
                     std::string* error) {
  std::ifstream in(path, std::ios::binary);
  if (!in) {
    *error = TextEscape::Terminal(path) + ": cannot open the replayed Perfetto trace";
    return false;
  }
  std::string head, payload;
  for (uint64_t offset = 0; in.peek() != std::char_traits<char>::eof();
       offset += head.size() + payload.size()) {
    head.clear();
    uint64_t tag = 0, size = 0;
    if (!ReadVarint(in, &tag, &head) ||
        WireFormatLite::GetTagWireType(static_cast<uint32_t>(tag)) !=
            WireFormatLite::WIRETYPE_LENGTH_DELIMITED ||
        !ReadVarint(in, &size, &head) || size > INT_MAX || !ReadBytes(in, size, &payload)) {
      *error = TextEscape::Terminal(path) +
               ": truncated or corrupt Perfetto trace (the packet at byte " +
               std::to_string(offset) + "); the packets before it are copied";
      return false;
    }
    if (tag == kPacketTag) Note(payload, facts);
    out << head << payload;
  }
  return true;
}

// The first sequence id no device packet uses.
uint32_t FreeSequence(const DeviceFacts& facts) {
  uint32_t id = facts.compressed ? kAboveServiceSequences : 1;
  while (facts.sequences.count(id) != 0) ++id;
  return id;
}

void WriteRecord(std::ostream& out, const std::string& packet) {
  uint8_t head[1 + 10];
  head[0] = kPacketTag;
  uint8_t* end = google::protobuf::io::CodedOutputStream::WriteVarint32ToArray(
      static_cast<uint32_t>(packet.size()), head + 1);
  out.write(reinterpret_cast<const char*>(head), end - head);
  out << packet;
}

}  // namespace

// Writes the plug-in's packets on one sequence, on the chosen clock.
class PerfettoWriter::State {
 public:
  State(const RunInfo& info, std::ostream& out, std::string* error)
      : mOut(out), mMeasured(info.measured) {
    if (info.replays.empty()) return;
    const RunInfo::Replay& replay = info.replays.front();
    DeviceFacts facts;
    CopyDeviceTrace(replay.file, out, &facts, error);
    mSequence = FreeSequence(facts);
    if (facts.sawFrame) mClock = facts.frameClock;
    mOriginNs = replay.originNs;
    mAtMs = replay.atMs;
  }

  void Describe(const std::string& scenario) {
    pb::TracePacket packet;
    pb::TrackDescriptor& process = *packet.mutable_track_descriptor();
    process.set_uuid(kProcess);
    process.set_name("gorv-sim: libgorv");
    process.mutable_process()->set_pid(kPid);
    process.mutable_process()->set_process_name("gorv-sim: libgorv");
    Write(0, &packet);
    for (const auto& [uuid, name] : kChildren) {
      pb::TrackDescriptor& track = *packet.mutable_track_descriptor();
      track.Clear();
      track.set_uuid(uuid);
      track.set_parent_uuid(kProcess);
      track.set_name(name);
      if (uuid == kMeasured || uuid == kTarget || uuid == kLock) track.mutable_counter();
      Write(0, &packet);
    }
    Instant(kProcess, 0, "scenario " + TextEscape::Terminal(scenario), {});
    Counter(kTarget, 0, 0);
    Counter(kLock, 0, 0);
    MeasuredUpTo(0);
  }

  // The measured rate's changes up to `ms`, written once each.
  void MeasuredUpTo(int64_t ms) {
    for (; mNextMeasured < mMeasured.size() && mMeasured[mNextMeasured].first <= ms;
         ++mNextMeasured) {
      const auto& [at, fps] = mMeasured[mNextMeasured];
      pb::TracePacket packet = Event(kMeasured, pb::TrackEvent::TYPE_COUNTER, "");
      packet.mutable_track_event()->set_double_counter_value(fps);
      Write(at, &packet);
    }
  }

  // The target and lock counters where `event` changes them.
  void Follow(const SimEvent& event) {
    int target = mSummary.target();
    bool locked = mSummary.lockHeld();
    if (!mSummary.Add(event)) return;
    if (mSummary.target() != target) Counter(kTarget, event.tMs, mSummary.target());
    if (mSummary.lockHeld() != locked) Counter(kLock, event.tMs, mSummary.lockHeld() ? 1 : 0);
  }

  void Stopped(int64_t ms, const std::string& why) {
    if (mSummary.lockHeld()) Counter(kLock, ms, 0);
    Instant(kProcess, ms, "stopped", {{"why", why}});
  }

  void Instant(uint64_t track, int64_t ms, const std::string& name, const Annotations& args) {
    pb::TracePacket packet = Event(track, pb::TrackEvent::TYPE_INSTANT, name);
    for (const auto& [key, value] : args) {
      pb::DebugAnnotation& annotation = *packet.mutable_track_event()->add_debug_annotations();
      annotation.set_name(key);
      annotation.set_string_value(TextEscape::Terminal(value));
    }
    Write(ms, &packet);
  }

 private:
  static pb::TracePacket Event(uint64_t track, pb::TrackEvent::Type type, const std::string& name) {
    pb::TracePacket packet;
    pb::TrackEvent& event = *packet.mutable_track_event();
    event.set_type(type);
    event.set_track_uuid(track);
    if (!name.empty()) event.set_name(name);
    return packet;
  }

  void Counter(uint64_t track, int64_t ms, int64_t value) {
    pb::TracePacket packet = Event(track, pb::TrackEvent::TYPE_COUNTER, "");
    packet.mutable_track_event()->set_counter_value(value);
    Write(ms, &packet);
  }

  void Write(int64_t ms, pb::TracePacket* packet) {
    packet->set_timestamp(DeviceNs(ms));
    packet->set_trusted_packet_sequence_id(mSequence);
    if (mClock) packet->set_timestamp_clock_id(*mClock);
    packet->clear_sequence_flags();
    if (mFirst) packet->set_sequence_flags(kIncrementalStateCleared);
    mFirst = false;
    WriteRecord(mOut, packet->SerializeAsString());
  }

  // originNs + (ms - atMs) ms, kept within 0 and INT64_MAX.
  uint64_t DeviceNs(int64_t ms) const {
    int64_t delta = 0, ns = 0;
    if (__builtin_sub_overflow(ms, mAtMs, &delta) ||
        __builtin_mul_overflow(delta, kNsPerMs, &delta) ||
        __builtin_add_overflow(delta, mOriginNs, &ns)) {
      return ms < mAtMs ? 0 : static_cast<uint64_t>(INT64_MAX);
    }
    return ns < 0 ? 0 : static_cast<uint64_t>(ns);
  }

  std::ostream& mOut;
  std::vector<std::pair<int64_t, float>> mMeasured;
  size_t mNextMeasured = 0;
  RunSummary mSummary;
  uint32_t mSequence = 1;
  std::optional<uint32_t> mClock = kBootTimeClock;
  int64_t mOriginNs = 0;
  int64_t mAtMs = 0;
  bool mFirst = true;
};

PerfettoWriter::PerfettoWriter(std::ostream& out) : mOut(out) {}
PerfettoWriter::~PerfettoWriter() = default;

void PerfettoWriter::Begin(const RunInfo& info) {
  mError.clear();
  mState = std::make_unique<State>(info, mOut, &mError);
  mState->Describe(info.scenarioName);
}

void PerfettoWriter::Event(const SimEvent& event) {
  State& state = *mState;
  state.MeasuredUpTo(event.tMs);
  switch (event.kind) {
    case SimEvent::Kind::Trigger:
      state.Instant(kTriggers, event.tMs, SimWords::TriggerName(event.value),
                    {{"id", std::to_string(event.value)},
                     {"component", event.name},
                     {"value", std::to_string(event.triggerValue)}});
      break;
    case SimEvent::Kind::Node:
      state.Instant(kNodes, event.tMs,
                    "write " + TextEscape::Terminal(SimWords::ShortNode(event.name)) + " = " +
                        TextEscape::Terminal(event.text),
                    {{"path", event.name}, {"value", event.text}});
      break;
    case SimEvent::Kind::Log:
      state.Instant(kLog, event.tMs, TextEscape::Terminal(event.text),
                    {{"tag", event.name}, {"priority", std::to_string(event.priority)}});
      break;
    default:
      break;
  }
  state.Follow(event);
}

void PerfettoWriter::End(const RunEnd& end) {
  mState->MeasuredUpTo(end.endMs);
  if (!end.stopped.empty()) mState->Stopped(end.endMs, end.stopped);
  mOut.flush();
  mState.reset();
}
