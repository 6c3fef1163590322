// A recorded frame timeline: the frame times of a game on a device, read
// from a capture file. Three formats are recognised:
//  - `dumpsys SurfaceFlinger --latency <layer>`: a refresh-period line, then
//    rows of three ns timestamps (the second is the present time); rows of
//    zeros or holding INT64_MAX are not frames; a warning line may come
//    first and a device trailer may follow the rows;
//  - `dumpsys gfxinfo <package> framestats`: CSV blocks between
//    ---PROFILEDATA--- lines; the first block holding a frame is used, a
//    frame's time is its FrameCompleted column; rows with Flags != 0 skipped;
//  - a plain list of frame times in ns, one per line;
//  - a Perfetto trace with FrameTimeline data, recognised by its content
//    (PerfettoTrace.h): the frames one layer presented.
// Text lines are read as TextLines reads them (CR or CRLF ends, a byte-order
// mark skipped, bad bytes refused). Times may be any 64-bit values, negative
// or out of order: they are sorted and counted from the earliest.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

class FrameTimeline {
 public:
  // Reads `path`. On failure returns false and sets `error` (naming the
  // file and, where it applies, the line).
  static bool Load(const std::string& path, FrameTimeline* timeline, std::string* error);
  // The same; a Perfetto trace replays the layer whose name contains
  // `layer` (empty: the layer with the most frames).
  static bool Load(const std::string& path, const std::string& layer, FrameTimeline* timeline,
                   std::string* error);
  // Parses capture text; `name` is used in error messages.
  static bool Parse(const std::string& name, const std::string& text, FrameTimeline* timeline,
                    std::string* error);

  // Frames in (t - 1 s, t], with the first frame placed at 0 ns.
  int FramesInSecondBefore(int64_t tNs) const;
  const std::vector<int64_t>& frames() const { return mFrames; }  // ns from the first frame
  const std::string& format() const { return mFormat; }
  const std::string& name() const { return mName; }
  // A trace's layer: its name and the frames the trace flags as janky (ns
  // from the first frame); empty for the text formats.
  const std::string& layer() const { return mLayer; }
  const std::vector<int64_t>& janky() const { return mJanky; }
  // The first frame's time as the capture gave it, ns (a trace's own clock).
  int64_t origin() const { return mOrigin; }

  // Replaces the contents: `frames` and `janky` in ns on one clock, any
  // order; the first frame is moved to 0.
  void Assign(const std::string& name, const std::string& format, std::vector<int64_t> frames,
              const std::string& layer = "", std::vector<int64_t> janky = {});

 private:
  std::vector<int64_t> mFrames;  // sorted
  std::string mFormat;
  std::string mName;
  std::string mLayer;
  std::vector<int64_t> mJanky;  // sorted
  int64_t mOrigin = 0;
};
