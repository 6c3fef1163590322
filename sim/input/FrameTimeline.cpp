#include "sim/input/FrameTimeline.h"

#include <algorithm>

namespace {

constexpr int64_t kSecondNs = 1000000000;

}  // namespace

void FrameTimeline::Assign(const std::string& name, const std::string& format,
                           std::vector<int64_t> frames, const std::string& layer,
                           std::vector<int64_t> janky) {
  std::sort(frames.begin(), frames.end());
  std::sort(janky.begin(), janky.end());
  mOriginNs = frames.empty() ? 0 : frames.front();
  // The caller checked that the span fits in 64 bits.
  for (int64_t& frame : frames) frame -= mOriginNs;
  for (int64_t& frame : janky) frame -= mOriginNs;
  mName = name;
  mFormat = format;
  mLayer = layer;
  mFrames = std::move(frames);
  mJanky = std::move(janky);
}

int FrameTimeline::FramesInSecondBefore(int64_t tNs) const {
  if (tNs < 0) return 0;
  auto upTo = std::upper_bound(mFrames.begin(), mFrames.end(), tNs);
  auto after = std::upper_bound(mFrames.begin(), mFrames.end(), tNs - kSecondNs);
  return static_cast<int>(upTo - after);
}
