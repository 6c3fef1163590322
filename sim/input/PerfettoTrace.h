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
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "sim/input/FrameTimeline.h"

class PerfettoTrace {
 public:
  struct Layer {
    std::string name;
    int pid = 0;
    std::vector<int64_t> frames;  // ns on the trace's clock, sorted
    std::vector<int64_t> janky;   // the frames the trace flags as janky, sorted
  };

  // True when `head`, the first bytes of a file, is a Perfetto trace: it
  // starts with a packet and holds bytes no text capture has.
  static bool Recognises(const std::string& head);

  // Reads the trace at `path` and hands `timeline` the frames of one layer:
  // the one whose name contains `layerText`, or with an empty `layerText`
  // the one with the most frames. On failure returns false and sets `error`
  // (naming `path`). Memory grows with the trace's frames, not its size.
  static bool Load(const std::string& path, const std::string& layerText, FrameTimeline* timeline,
                   std::string* error);

  // Reads the trace at `path`: its layers in the order they first appear.
  static bool Read(const std::string& path, std::vector<Layer>* layers, std::string* error);
};
