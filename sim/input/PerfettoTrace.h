// A Perfetto trace (binary protobuf, as Android Studio's system trace, the
// device's `perfetto` command and Macrobenchmark record it) read for its
// FrameTimeline data: the android.surfaceflinger.frametimeline data source,
// which says per layer when each frame an application queued was presented.
//
// A frame of a layer is an actual surface frame of that layer that was not
// dropped and whose frame end is in the trace; its time is that end. Ends
// at INT64_MAX, or later than the trace's last other packet on its clock,
// belong to frames still pending when recording stopped and do not count.
// Packets inside compressed_packets (zlib) are read too; fields the simulator
// does not use are skipped.
//
// Bounded whatever the file holds: the trace streams from the file; all its
// compressed packets together may inflate to at most kMaxInflationRatio
// times the file's size and kMaxInflatedBytes in all; at most
// kMaxFramesInFlight frames may be started and not ended (or ended before
// their start) at once: beyond that the trace is refused as damaged, so
// memory follows the frames presented, not the file. Stateless; any thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace PerfettoTrace {

inline constexpr uint64_t kMaxInflationRatio = 64;
inline constexpr uint64_t kMaxInflatedBytes = uint64_t{4} << 30;
inline constexpr size_t kMaxFramesInFlight = size_t{1} << 16;

struct Layer {
  std::string name;
  int pid = 0;
  std::vector<int64_t> frames;  // ns on the trace's clock, in the order they ended
  std::vector<int64_t> janky;   // the frames the trace flags as janky
};

// True when `head`, the first bytes of a file, is a Perfetto trace: it
// starts with a Trace.packet, is well-formed protobuf fields throughout (the
// last may run past its end when `cut`, the file going on, or after a first
// whole packet: a trace cut short), and holds bytes no text capture has (a
// control character).
bool Recognises(std::string_view head, bool cut);

// Reads the trace at `path`: its layers in the order they first appear. On
// failure returns false and sets `error` (naming `path`).
bool Read(const std::string& path, std::vector<Layer>* layers, std::string* error);

}  // namespace PerfettoTrace
