// The capture formats a `frames` line can name, as ONE table: each format a
// row {name, recognise, read} whose reader lives in a file of its own
// (SurfaceFlingerLatency.cpp, GfxinfoFramestats.cpp, FrameTimesList.cpp,
// PerfettoTrace.cpp). To add a format, add its file and its row in
// CaptureFormats.cpp.
//
// A file's format is recognised in one place, from its first 64 KiB (a
// gfxinfo capture's first ---PROFILEDATA--- line must lie there), rows
// tried in order: a Perfetto trace first (its bytes are never valid text, so
// a text capture is never taken for one, nor a trace for text), then the
// text formats, a plain list of frame times last. Text captures are read
// whole (InputFile: a regular file of at most 1 GiB; lines as TextLines
// reads them); a trace streams from its file. Times may be any 64-bit
// values, negative or out of order: the capture model (FrameTimeline) sorts
// them once and counts them from the earliest. Stateless; any thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "sim/input/FrameTimeline.h"

namespace CaptureFormats {

// What a reader found: ns on the capture's own clock, in any order.
struct Frames {
  std::vector<int64_t> frames;
  std::vector<int64_t> janky;  // a subset of frames: those the capture flags as janky
  std::string layer;           // the layer replayed, for formats that have layers
};

// What a reader reads: `path` (also the name in messages); `text` is the
// whole file for a text format, empty for a streamed one; `layer` is the
// text of the scenario's last `layer` line.
struct Source {
  const std::string& path;
  std::string_view text;
  const std::string& layer;
};

// How much of a file's start recognition sees.
inline constexpr size_t kHeadBytes = size_t{64} * 1024;

struct Format {
  const char* name;  // as the reports name the capture's format
  // True when `head`, the file's first kHeadBytes (all of a shorter file),
  // is this format.
  bool (*recognise)(std::string_view head);
  bool text;  // read whole and handed over as text; false: streamed from the path
  // False and `error` set ("FILE: ..." or "FILE:LINE: ...") on a damaged
  // capture; an empty `frames` is refused by the caller.
  bool (*read)(const Source& source, Frames* frames, std::string* error);
};

// The first row that recognises `head`; the frame-times row matches any text.
const Format& Recognise(std::string_view head);

// Reads the capture at `path` into `timeline`: for a trace, the layer whose
// name contains `layer` (empty: the layer with the most frames). False and
// `error` set (naming the file and, where it applies, the line) on failure.
bool Load(const std::string& path, const std::string& layer, FrameTimeline* timeline,
          std::string* error);

// The same for capture text already in memory (`name` in messages); a
// binary format is refused.
bool Parse(const std::string& name, std::string_view text, FrameTimeline* timeline,
           std::string* error);

}  // namespace CaptureFormats
