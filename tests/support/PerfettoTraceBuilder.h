// Builds small Perfetto traces for tests, as SurfaceFlinger records them:
// FrameTimeline events one per packet, and packets deflated as
// compressed_packets holds them. Test-only; links with the simulator.
#pragma once

#include <zlib.h>

#include <cstdint>
#include <string>

#include "perfetto_trace.pb.h"

// An end time for a frame that never ends.
inline constexpr uint64_t kNever = 0;

// A trace as SurfaceFlinger records it, one event per packet.
struct TraceBuilder {
  using Event = gorvsim::perfetto::FrameTimelineEvent;

  Event* Packet(uint64_t ns) {
    gorvsim::perfetto::TracePacket* packet = trace.add_packet();
    packet->set_timestamp(ns);
    return packet->mutable_frame_timeline_event();
  }
  void Frame(const std::string& layer, int64_t cookie, uint64_t startNs, uint64_t endNs,
             Event::PresentType present = Event::PRESENT_ON_TIME, int jank = Event::JANK_NONE) {
    Event::ActualSurfaceFrameStart* start = Packet(startNs)->mutable_actual_surface_frame_start();
    start->set_cookie(cookie);
    start->set_pid(static_cast<int>(layer.size()));
    start->set_layer_name(layer);
    start->set_present_type(present);
    start->set_jank_type(jank);
    if (endNs != kNever) Packet(endNs)->mutable_frame_end()->set_cookie(cookie);
  }
  std::string Bytes() const { return trace.SerializeAsString(); }
  gorvsim::perfetto::Trace trace;
};

inline std::string Deflate(const std::string& bytes) {
  std::string out(compressBound(bytes.size()), '\0');
  uLongf size = out.size();
  compress(reinterpret_cast<Bytef*>(out.data()), &size,
           reinterpret_cast<const Bytef*>(bytes.data()), bytes.size());
  out.resize(size);
  return out;
}
