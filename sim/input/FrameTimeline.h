// A recorded frame timeline: the frame times of a game on a device, read
// from a capture file by one of the capture formats (CaptureFormats.h), kept
// sorted and counted from the first frame. Immutable once assigned; shared
// read-only by the scenario's lines that replay it.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

class FrameTimeline {
 public:
  // Frames in (t - 1 s, t], with the first frame placed at 0 ns.
  int FramesInSecondBefore(int64_t tNs) const;
  const std::vector<int64_t>& frames() const { return mFrames; }  // ns from the first frame
  const std::string& format() const { return mFormat; }
  const std::string& name() const { return mName; }
  // A trace's layer: its name and the frames the trace flags as janky (ns
  // from the first frame); empty for the text formats.
  const std::string& layer() const { return mLayer; }
  const std::vector<int64_t>& janky() const { return mJanky; }
  // The first frame's time as the capture holds it: ns on the device's clock.
  int64_t originNs() const { return mOriginNs; }

  // Replaces the contents: `frames` and `janky` in ns on one clock, any
  // order (sorted here, once); the first frame is moved to 0.
  void Assign(const std::string& name, const std::string& format, std::vector<int64_t> frames,
              const std::string& layer = "", std::vector<int64_t> janky = {});

 private:
  std::vector<int64_t> mFrames;  // sorted
  std::string mFormat;
  std::string mName;
  std::string mLayer;
  std::vector<int64_t> mJanky;  // sorted
  int64_t mOriginNs = 0;
};
