#include "sim/input/PerfettoTrace.h"

#include <fcntl.h>
#include <google/protobuf/io/coded_stream.h>
#include <google/protobuf/io/zero_copy_stream_impl.h>
#include <google/protobuf/io/zero_copy_stream_impl_lite.h>
#include <google/protobuf/wire_format_lite.h>
#include <sys/stat.h>
#include <zlib.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <limits>
#include <map>
#include <unordered_map>
#include <unordered_set>

#include "perfetto_trace.pb.h"
#include "sim/SimWords.h"
#include "sim/SystemError.h"
#include "sim/TextEscape.h"
#include "sim/input/CaptureFormats.h"

namespace {

namespace pb = gorvsim::perfetto;
using google::protobuf::internal::WireFormatLite;
using google::protobuf::io::CodedInputStream;
using google::protobuf::io::ZeroCopyInputStream;

constexpr uint32_t kPacketTag = 0x0a;   // Trace.packet: field 1, length-delimited
constexpr uint32_t kBootTimeClock = 6;  // Perfetto's default trace clock
constexpr size_t kInflateChunk = size_t{256} * 1024;
// Perfetto compresses a few hundred kB of packets at a time; more than this
// from one compressed packet is a corrupt (or hostile) trace.
constexpr size_t kMaxInflated = size_t{64} * 1024 * 1024;

enum class Inflated { Ok, Corrupt, OverBudget };

// Inflates `deflated` into `out`, taking its size from `budget`.
Inflated Inflate(const std::string& deflated, uint64_t* budget, std::string* out) {
  z_stream stream{};
  if (inflateInit(&stream) != Z_OK) return Inflated::Corrupt;
  stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(deflated.data()));
  stream.avail_in = static_cast<uInt>(deflated.size());
  int status = Z_OK;
  while (status == Z_OK && out->size() < kMaxInflated && out->size() <= *budget) {
    size_t used = out->size();
    out->resize(used + kInflateChunk);
    stream.next_out = reinterpret_cast<Bytef*>(&(*out)[used]);
    stream.avail_out = static_cast<uInt>(kInflateChunk);
    status = inflate(&stream, Z_NO_FLUSH);
    out->resize(used + kInflateChunk - stream.avail_out);
  }
  inflateEnd(&stream);
  if (out->size() > *budget) return Inflated::OverBudget;
  *budget -= out->size();
  return status == Z_STREAM_END ? Inflated::Ok : Inflated::Corrupt;
}

// Gathers the FrameTimeline events of a trace, packet by packet; which
// frames ended within the trace is known once the whole trace is read.
class Collector {
 public:
  // `inflationBudget`: the bytes all compressed packets may inflate to.
  explicit Collector(uint64_t inflationBudget) : mInflationBudget(inflationBudget) {}

  // Reads the packets of a serialized Trace (nested: inside
  // compressed_packets). False on bytes that are no Trace.
  bool Walk(ZeroCopyInputStream* stream, bool nested) {
    std::string bytes;
    pb::TracePacket packet;
    while (true) {
      CodedInputStream in(stream);
      uint32_t tag = in.ReadTag();
      if (tag == 0) return in.CurrentPosition() == 0;  // the end, or a field number 0
      uint32_t size = 0;
      bool read = tag == kPacketTag ? in.ReadVarint32(&size) && size <= INT_MAX &&
                                          in.ReadString(&bytes, static_cast<int>(size)) &&
                                          packet.ParseFromString(bytes) && Take(packet, nested)
                                    : WireFormatLite::SkipField(&in, tag);
      if (!read) return false;
      if (!nested) mOffset += in.CurrentPosition();
    }
  }

  bool sawFrameTimeline() const { return mSawFrameTimeline; }
  int64_t offset() const { return mOffset; }
  // Why Walk failed when the bytes were well-formed but over a bound.
  const std::string& overBound() const { return mOverBound; }

  std::vector<PerfettoTrace::Layer> Layers() {
    const auto pending = static_cast<uint64_t>(std::numeric_limits<int64_t>::max());
    for (const Ended& frame : mEnded) {
      if (frame.ns > mLastTime || frame.ns >= pending) continue;
      PerfettoTrace::Layer& layer = mLayers[frame.layer];
      layer.frames.push_back(static_cast<int64_t>(frame.ns));
      if (frame.janky) layer.janky.push_back(static_cast<int64_t>(frame.ns));
    }
    return std::move(mLayers);
  }

 private:
  struct Start {
    size_t layer;
    bool presented;
    bool janky;
  };
  struct Ended {
    size_t layer;
    uint64_t ns;
    bool janky;
  };

  bool Take(const pb::TracePacket& packet, bool nested) {
    if (packet.has_compressed_packets()) {
      std::string inflated;
      if (nested) return false;
      Inflated status = Inflate(packet.compressed_packets(), &mInflationBudget, &inflated);
      if (status == Inflated::OverBudget) {
        mOverBound = "its compressed packets inflate to more than " +
                     std::to_string(PerfettoTrace::kMaxInflationRatio) +
                     " times the file's size (or 4 GiB); the trace is damaged or hostile";
      }
      if (status != Inflated::Ok) return false;
      google::protobuf::io::ArrayInputStream stream(inflated.data(),
                                                    static_cast<int>(inflated.size()));
      if (!Walk(&stream, true)) return false;
    }
    const pb::FrameTimelineEvent& event = packet.frame_timeline_event();
    mSawFrameTimeline |= packet.has_frame_timeline_event();
    switch (event.event_case()) {
      case pb::FrameTimelineEvent::kFrameEnd:
        if (packet.has_timestamp()) End(event.frame_end().cookie(), packet.timestamp());
        return InFlightBounded();  // a frame end does not extend the trace
      case pb::FrameTimelineEvent::kActualSurfaceFrameStart:
        AddStart(event.actual_surface_frame_start());
        break;
      case pb::FrameTimelineEvent::kExpectedDisplayFrameStart:
        OtherStart(event.expected_display_frame_start().cookie());
        break;
      case pb::FrameTimelineEvent::kActualDisplayFrameStart:
        OtherStart(event.actual_display_frame_start().cookie());
        break;
      case pb::FrameTimelineEvent::kExpectedSurfaceFrameStart:
        OtherStart(event.expected_surface_frame_start().cookie());
        break;
      case pb::FrameTimelineEvent::EVENT_NOT_SET:
        break;
    }
    uint32_t clock =
        packet.timestamp_clock_id() == 0 ? kBootTimeClock : packet.timestamp_clock_id();
    if (packet.has_timestamp() && clock == kBootTimeClock) {
      mLastTime = std::max(mLastTime, packet.timestamp());
    }
    return InFlightBounded();
  }

  // Each end is matched with its start as soon as both are read, so only
  // the frames in flight are held.
  void AddStart(const pb::FrameTimelineEvent::ActualSurfaceFrameStart& event) {
    auto [index, added] = mLayerIndex.emplace(event.layer_name(), mLayers.size());
    if (added) mLayers.push_back({event.layer_name(), event.pid(), {}, {}});
    int jank = event.jank_type();
    Start start = {index->second, event.present_type() != pb::FrameTimelineEvent::PRESENT_DROPPED,
                   jank != pb::FrameTimelineEvent::JANK_UNSPECIFIED &&
                       jank != pb::FrameTimelineEvent::JANK_NONE};
    auto end = mEnds.find(event.cookie());
    if (end == mEnds.end()) {
      mStarts[event.cookie()] = start;
      return;
    }
    Finish(start, end->second);
    mEnds.erase(end);
  }
  void OtherStart(int64_t cookie) {
    if (mEnds.erase(cookie) == 0) mOtherStarts.insert(cookie);
  }
  void End(int64_t cookie, uint64_t ns) {
    auto start = mStarts.find(cookie);
    if (start != mStarts.end()) {
      Finish(start->second, ns);
      mStarts.erase(start);
    } else if (mOtherStarts.erase(cookie) == 0) {
      mEnds[cookie] = ns;  // its start may come later in the file
    }
  }
  // False (with overBound() set) when more frames are in flight than allowed.
  bool InFlightBounded() {
    if (mStarts.size() + mOtherStarts.size() + mEnds.size() <= PerfettoTrace::kMaxFramesInFlight) {
      return true;
    }
    mOverBound = "more than " + std::to_string(PerfettoTrace::kMaxFramesInFlight) +
                 " frames started and not ended at once; the trace is damaged";
    return false;
  }
  void Finish(const Start& start, uint64_t ns) {
    if (start.presented) mEnded.push_back({start.layer, ns, start.janky});
  }

  // By cookie: frames started and not ended yet, ends read before their start.
  std::unordered_map<int64_t, Start> mStarts;
  std::unordered_set<int64_t> mOtherStarts;
  std::unordered_map<int64_t, uint64_t> mEnds;
  std::vector<Ended> mEnded;  // presented frames, in the order they ended
  std::map<std::string, size_t> mLayerIndex;
  std::vector<PerfettoTrace::Layer> mLayers;
  uint64_t mInflationBudget;
  std::string mOverBound;
  uint64_t mLastTime = 0;  // latest packet other than a frame end, BOOTTIME ns
  bool mSawFrameTimeline = false;
  int64_t mOffset = 0;  // of the top-level packet being read
};

// "     739  NAME (pid 9305)" per layer, most frames first.
std::string LayerList(std::vector<PerfettoTrace::Layer*> layers) {
  std::stable_sort(layers.begin(), layers.end(), [](const auto* a, const auto* b) {
    return a->frames.size() > b->frames.size();
  });
  std::string list;
  for (const PerfettoTrace::Layer* layer : layers) {
    std::string count = std::to_string(layer->frames.size());
    list += "\n" + SimWords::RightAligned(count, 8) + "  " + TextEscape::Terminal(layer->name) +
            " (pid " + std::to_string(layer->pid) + ")";
  }
  return list;
}

// The layer to replay, or null with `error` set.
PerfettoTrace::Layer* Choose(const std::string& path, std::vector<PerfettoTrace::Layer>& layers,
                             const std::string& text, std::string* error) {
  std::vector<PerfettoTrace::Layer*> all, matches;
  for (PerfettoTrace::Layer& layer : layers) {
    all.push_back(&layer);
    if (layer.name.find(text) != std::string::npos) matches.push_back(&layer);
  }
  PerfettoTrace::Layer* chosen = nullptr;
  if (text.empty() && !layers.empty()) {
    chosen = *std::max_element(all.begin(), all.end(), [](const auto* a, const auto* b) {
      return a->frames.size() < b->frames.size();
    });
  } else if (matches.size() == 1) {
    chosen = matches.front();
  } else if (!layers.empty()) {
    *error = TextEscape::Terminal(path) + ": " +
             (matches.empty() ? "no layer's name contains '"
                              : std::to_string(matches.size()) + " layers' names contain '") +
             TextEscape::Terminal(text) +
             "'; the layers of this trace, with their presented frames:" + LayerList(all);
    return nullptr;
  }
  if (chosen == nullptr || (text.empty() && chosen->frames.empty())) {
    *error = TextEscape::Terminal(path) + ": no layer has a presented frame in this Perfetto trace";
    return nullptr;
  }
  if (chosen->frames.empty()) {
    *error = TextEscape::Terminal(path) + ": layer '" + TextEscape::Terminal(chosen->name) +
             "' has no presented frame in this Perfetto trace";
    return nullptr;
  }
  return chosen;
}

// Reads a varint at `at` of `head`; false when the head ends first or it
// runs past 64 bits.
bool Varint(std::string_view head, size_t* at, uint64_t* value) {
  *value = 0;
  for (int shift = 0; shift < 64 && *at < head.size(); shift += 7) {
    auto byte = static_cast<unsigned char>(head[(*at)++]);
    *value |= uint64_t{byte & 0x7fu} << shift;
    if ((byte & 0x80) == 0) return true;
  }
  return false;
}

// True when `head` starts with a Trace.packet and is well-formed protobuf
// fields throughout, the last possibly running past its end when `cut` or
// after a first whole one (a trace cut short is still a trace).
bool PacketFraming(std::string_view head, bool cut) {
  if (head.empty() || head[0] != static_cast<char>(kPacketTag)) return false;
  size_t at = 0;
  for (bool first = true; at < head.size(); first = false) {
    cut |= !first;
    uint64_t tag = 0, value = 0;
    if (!Varint(head, &at, &tag)) return cut && at == head.size();
    if ((tag >> 3) == 0) return false;
    // Wire types: 0 varint, 1 fixed64, 2 length-delimited, 5 fixed32.
    uint64_t wire = tag & 7, skip = wire == 1 ? 8 : wire == 5 ? 4 : 0;
    if (wire == 3 || wire == 4 || wire > 5) return false;
    if ((wire == 0 || wire == 2) && !Varint(head, &at, wire == 0 ? &value : &skip)) {
      return cut && at == head.size();
    }
    if (skip > head.size() - at) return cut;
    at += skip;
  }
  return true;
}

}  // namespace

bool PerfettoTrace::Recognises(std::string_view head, bool cut) {
  bool binary = std::any_of(head.begin(), head.end(), [](char c) {
    auto byte = static_cast<unsigned char>(c);
    return (byte < 0x20 && c != '\t' && c != '\n' && c != '\r') || byte == 0x7f;
  });
  return binary && PacketFraming(head, cut);
}

bool PerfettoTrace::Read(const std::string& path, std::vector<Layer>* layers, std::string* error) {
  std::string name = TextEscape::Terminal(path);
  int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY);
  struct stat status {};
  if (fd < 0 || fstat(fd, &status) != 0) {
    *error = name + ": cannot open the frame capture (" + SystemError::Text(errno) + ")";
    if (fd >= 0) close(fd);
    return false;
  }
  google::protobuf::io::FileInputStream stream(fd);
  stream.SetCloseOnDelete(true);
  uint64_t size = static_cast<uint64_t>(std::max<off_t>(status.st_size, 0));
  Collector collector(std::min(size * kMaxInflationRatio, kMaxInflatedBytes));
  if (!collector.Walk(&stream, false)) {
    *error = name + (collector.overBound().empty()
                         ? ": truncated or corrupt Perfetto trace (the packet at byte " +
                               std::to_string(collector.offset()) + ")"
                         : ": " + collector.overBound());
    return false;
  }
  if (!collector.sawFrameTimeline()) {
    *error = name +
             ": no FrameTimeline data in this Perfetto trace; record with the "
             "android.surfaceflinger.frametimeline data source";
    return false;
  }
  *layers = collector.Layers();
  return true;
}

namespace CaptureFormats {

bool RecognisesPerfetto(std::string_view head) {
  return PerfettoTrace::Recognises(head, head.size() >= kHeadBytes);
}

bool ReadPerfetto(const Source& source, Frames* frames, std::string* error) {
  std::vector<PerfettoTrace::Layer> layers;
  if (!PerfettoTrace::Read(source.path, &layers, error)) return false;
  PerfettoTrace::Layer* layer = Choose(source.path, layers, source.layer, error);
  if (layer == nullptr) return false;
  frames->frames = std::move(layer->frames);
  frames->janky = std::move(layer->janky);
  frames->layer = layer->name;
  return true;
}

}  // namespace CaptureFormats
